#include "mounttable.h"

#include <array>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr const char *tableFile = "/proc/self/mountinfo";
constexpr int mountPointField = 4; ///< from 0
constexpr std::size_t maxTableBytes = 16 << 20;

bool isOctal(char c)
{
    return c >= '0' && c <= '7';
}

/// Blanks and backslashes stand in the table as a backslash and three octal digits.
std::string unescaped(const std::string &field)
{
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && isOctal(field[i + 1]) &&
            isOctal(field[i + 2]) && isOctal(field[i + 3])) {
            text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                      (field[i + 3] - '0'));
            i += 3;
        } else {
            text += field[i];
        }
    }
    return text;
}

/// Reads the line up to its mount point; empty when there is none.
std::string mountPointOf(std::istringstream &fields)
{
    std::string field;
    for (int i = 0; i <= mountPointField && fields; ++i)
        fields >> field;
    return fields ? unescaped(field) : std::string();
}

} // namespace

std::set<std::string> mountPointsIn(const std::string &table)
{
    std::set<std::string> points;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        const std::string point = mountPointOf(fields);
        if (!point.empty())
            points.insert(point);
    }
    return points;
}

bool isGivenUpIn(const std::string &table, const std::string &point)
{
    bool isGivenUp = false;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        if (point.empty() || mountPointOf(fields) != point)
            continue;
        // The last field has the options of the file system itself.
        std::string field;
        while (fields >> field) {
        }
        std::istringstream options(field);
        isGivenUp = false;
        while (std::getline(options, field, ','))
            isGivenUp = isGivenUp || field == "emergency_ro" || field == "shutdown";
    }
    return isGivenUp;
}

std::string mountTable()
{
    std::string table;
    const int file = ::open(tableFile, O_RDONLY | O_CLOEXEC);
    std::array<char, 65536> bytes;
    for (ssize_t count = 0; file >= 0 && table.size() < maxTableBytes; table.append(bytes.data(), std::size_t(count))) {
        count = ::read(file, bytes.data(), bytes.size());
        if (count <= 0)
            break;
    }
    if (file >= 0)
        ::close(file);
    return table;
}

MountTable::MountTable(QObject *parent) : QObject(parent) {}

MountTable::~MountTable()
{
    _notifier.reset();
    if (_descriptor >= 0)
        ::close(_descriptor);
}

bool MountTable::watch()
{
    _descriptor = ::open(tableFile, O_RDONLY | O_CLOEXEC);
    if (_descriptor < 0)
        return false;
    // A change makes the file exceptional until it is polled again, which the event loop does by itself.
    _notifier = std::make_unique<QSocketNotifier>(_descriptor, QSocketNotifier::Exception);
    connect(_notifier.get(), &QSocketNotifier::activated, this, &MountTable::changed);
    return true;
}

std::set<std::string> MountTable::mountPoints() const
{
    return mountPointsIn(mountTable());
}
