#include "libvanta/lututils.h"

#include "libvanta/withintime.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <memory>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t maxFileSize = 4 << 20;
constexpr std::size_t maxRows = 65536;
constexpr std::size_t maxWords = 4; ///< a keyword and three numbers
constexpr std::size_t maxQuoted = 32;
constexpr int maxValue = 1023;

using Row = std::array<double, 3>;

/// The first words of a line; what stands behind them is only counted.
struct Words {
    std::array<std::string_view, maxWords> word;
    std::size_t count = 0;
};

/// What a table file says, before it is put into planes.
struct Table {
    std::vector<Row> rows;
    std::size_t columns = 0;
    int declared = -1;   ///< LUT_1D_SIZE; -1 in a plain table
    bool isCube = false; ///< one of its words has been seen
    Row domainMin{0.0, 0.0, 0.0};
    Row domainMax{1.0, 1.0, 1.0};
};

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f';
}

bool isBinary(std::string_view line)
{
    return std::ranges::any_of(line, [](char c) {
        return static_cast<unsigned char>(c) < ' ' && !isBlank(c);
    });
}

/// Cuts the first line off \a text; it ends with LF, CR or both.
std::string_view takeLine(std::string_view &text)
{
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + (text.substr(end, 2) == "\r\n" ? 2 : 1), text.size()));
    return line;
}

Words wordsOf(std::string_view line)
{
    line = line.substr(0, line.find('#'));
    Words words;
    while (true) {
        line.remove_prefix(static_cast<std::size_t>(std::ranges::find_if_not(line, isBlank) - line.begin()));
        if (line.empty())
            return words;
        const auto size = static_cast<std::size_t>(std::ranges::find_if(line, isBlank) - line.begin());
        if (words.count < maxWords)
            words.word[words.count] = line.substr(0, size);
        ++words.count;
        line.remove_prefix(size);
    }
}

/// A word of a file as an error may show it.
std::string quoted(std::string_view word)
{
    std::string text(word.substr(0, maxQuoted));
    for (char &c : text) {
        if (c < ' ' || c > '~')
            c = '?';
    }
    return '"' + text + (word.size() > maxQuoted ? "...\"" : "\"");
}

bool toNumber(std::string_view word, double &value)
{
    constexpr std::size_t longest = 64;
    if (word.size() > longest)
        return false;
    if (word.starts_with('+') && !word.starts_with("+-"))
        word.remove_prefix(1);
    const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), value);
    return problem == std::errc() && end == word.data() + word.size() && std::isfinite(value);
}

/// One number for all three colours, or three, from the word \a first on.
bool toRow(const Words &words, std::size_t first, Row &row)
{
    const std::size_t count = words.count - first;
    if (count != 1 && count != 3)
        return false;
    for (std::size_t i = 0; i < 3; ++i) {
        if (!toNumber(words.word[first + (count == 1 ? 0 : i)], row[i]))
            return false;
    }
    return true;
}

bool isKeyword(std::string_view word)
{
    return (word[0] >= 'A' && word[0] <= 'Z') || (word[0] >= 'a' && word[0] <= 'z');
}

bool takeSize(const Words &words, Table &table)
{
    double size = 0;
    if (words.count != 2 || !toNumber(words.word[1], size) || table.declared >= 0)
        return false;
    if (size < 2 || size > double(maxRows) || size != std::floor(size))
        return false;
    table.declared = static_cast<int>(size);
    return true;
}

bool takeInputRange(const Words &words, Table &table)
{
    double low = 0;
    double high = 0;
    if (words.count != 3 || !toNumber(words.word[1], low) || !toNumber(words.word[2], high))
        return false;
    table.domainMin.fill(low);
    table.domainMax.fill(high);
    return true;
}

/// One keyword line of a .cube file; answers what is wrong with it, nothing when it is taken.
std::string takeKeyword(const Words &words, Table &table)
{
    const std::string_view key = words.word[0];
    if (key.starts_with("LUT_3D_"))
        return "three-dimensional tables are not supported";
    table.isCube = true;
    if (key == "TITLE")
        return {};
    if (key == "LUT_1D_SIZE")
        return takeSize(words, table) ? "" : "LUT_1D_SIZE is not one whole number 2..65536";
    if (key == "LUT_1D_INPUT_RANGE")
        return takeInputRange(words, table) ? "" : "LUT_1D_INPUT_RANGE is not two numbers";
    if (key == "DOMAIN_MIN")
        return toRow(words, 1, table.domainMin) ? "" : "DOMAIN_MIN is not three numbers";
    if (key == "DOMAIN_MAX")
        return toRow(words, 1, table.domainMax) ? "" : "DOMAIN_MAX is not three numbers";
    return quoted(key) + " is not understood";
}

std::string takeRow(const Words &words, Table &table)
{
    Row row{};
    if (!toRow(words, 0, row))
        return "one or three numbers expected";
    if (!table.rows.empty() && words.count != table.columns)
        return "as many numbers as in the rows before expected";
    if (table.rows.size() == maxRows)
        return "more than 65536 rows";
    table.columns = words.count;
    table.rows.push_back(row);
    return {};
}

bool readTable(std::string_view text, Table &table, std::string &error)
{
    if (text.starts_with("\xef\xbb\xbf")) // the mark of a text in UTF-8
        text.remove_prefix(3);
    for (int number = 1; !text.empty(); ++number) {
        const std::string_view line = takeLine(text);
        std::string problem;
        if (isBinary(line)) {
            problem = "no text";
        } else if (const Words words = wordsOf(line); words.count > 0) {
            problem = isKeyword(words.word[0]) ? takeKeyword(words, table) : takeRow(words, table);
        }
        if (!problem.empty()) {
            error = "line " + std::to_string(number) + ": " + problem;
            return false;
        }
    }
    return true;
}

std::string faultOf(const Table &table, int entries)
{
    const std::size_t rows = table.rows.size();
    if (rows == 0)
        return "no table rows";
    if (!table.isCube) {
        for (std::size_t i = 0; i < rows; ++i) {
            for (const double value : table.rows[i]) {
                if (value < 0 || value > maxValue || value != std::floor(value))
                    return "row " + std::to_string(i + 1) + ": whole numbers 0..1023 expected";
            }
        }
        return {};
    }
    if (table.declared < 0)
        return "LUT_1D_SIZE is missing";
    for (std::size_t i = 0; i < 3; ++i) {
        if (!(table.domainMax[i] > table.domainMin[i]))
            return "the domain is empty";
    }
    const bool fits = entries >= 0 && rows == static_cast<std::size_t>(entries);
    if (fits && table.declared != entries)
        return "LUT_1D_SIZE says " + std::to_string(table.declared) + " rows, the file holds " +
               std::to_string(rows);
    return {};
}

/// The value of a .cube for the input \a x (0 to 1): the rows are spread over the domain, with straight lines between
/// them; inputs outside of it take the first or the last row.
double valueAt(const Table &table, std::size_t colour, double x)
{
    const double low = table.domainMin[colour];
    const double high = table.domainMax[colour];
    const std::size_t last = table.rows.size() - 1;
    const double at = std::clamp((x - low) / (high - low) * double(last), 0.0, double(last));
    const std::size_t left = std::min(static_cast<std::size_t>(at), last > 0 ? last - 1 : 0);
    const double from = table.rows[left][colour];
    const double to = table.rows[std::min(left + 1, last)][colour];
    const double share = at - double(left);
    return share == 0.0 ? from : from * (1 - share) + to * share;
}

short codeOf(double value)
{
    return static_cast<short>(std::lround(std::clamp(value, 0.0, double(maxValue))));
}

void fillPlane(const Table &table, std::size_t colour, short *plane)
{
    const std::size_t rows = table.rows.size();
    const bool isSpread = table.domainMin[colour] != 0.0 || table.domainMax[colour] != 1.0;
    for (std::size_t i = 0; i < rows; ++i) {
        if (!table.isCube)
            plane[i] = codeOf(table.rows[i][colour]);
        else if (isSpread)
            plane[i] = codeOf(valueAt(table, colour, double(i) / double(rows - 1)) * maxValue);
        else
            plane[i] = codeOf(table.rows[i][colour] * maxValue);
    }
}

/// A file on its way into memory. Belongs to the thread that reads; the caller looks at it only once that is done.
struct Reading {
    std::string path;
    std::string bytes;
    std::string error;

    void run()
    {
        // A pipe that nobody writes to must not keep the thread.
        const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (file < 0) {
            error = "cannot be opened";
            return;
        }
        error = read(file);
        close(file);
    }

private:
    std::string read(int file)
    {
        struct stat st = {};
        if (fstat(file, &st) != 0 || !S_ISREG(st.st_mode))
            return "is no regular file";
        bytes.resize(maxFileSize + 1);
        std::size_t size = 0;
        while (size < bytes.size()) {
            const ssize_t count = ::read(file, bytes.data() + size, bytes.size() - size);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                return "cannot be read: " + std::system_category().message(errno);
            if (count == 0)
                break;
            size += static_cast<std::size_t>(count);
        }
        if (size > maxFileSize)
            return "larger than any table";
        bytes.resize(size);
        return {};
    }
};

} // namespace

bool lumo::utils::LUT_Utils::parse(std::string &fileName, short *red, short *green, short *blue,
                                   int entries, int &entriesRead, std::string &error)
{
    entriesRead = 0;
    const auto reading = std::make_shared<Reading>();
    reading->path = fileName;
    if (!withinTime(filePatience, [reading] { reading->run(); })) {
        error = "the medium does not answer";
        return false;
    }
    if (!reading->error.empty()) {
        error = reading->error;
        return false;
    }
    return parseText(reading->bytes, red, green, blue, entries, entriesRead, error);
}

bool lumo::utils::LUT_Utils::parseText(std::string_view text, short *red, short *green, short *blue,
                                       int entries, int &entriesRead, std::string &error)
{
    entriesRead = 0;
    Table table;
    if (!readTable(text, table, error))
        return false;
    error = faultOf(table, entries);
    if (!error.empty())
        return false;
    entriesRead = static_cast<int>(table.rows.size());
    if (entriesRead != entries)
        return true;
    short *planes[3] = {red, green, blue};
    for (std::size_t colour = 0; colour < 3; ++colour)
        fillPlane(table, colour, planes[colour]);
    return true;
}
