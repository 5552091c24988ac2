#include "libvanta/lututils.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace {

constexpr std::size_t maxFileSize = 4 << 20;
constexpr int maxValue = 1023;

using Row = std::array<double, 3>;

/// What a table file says, before it is put into planes.
struct Table {
    std::vector<Row> rows;
    int declared = -1; ///< LUT_1D_SIZE; -1 in a plain table
    Row domainMin{0.0, 0.0, 0.0};
    Row domainMax{1.0, 1.0, 1.0};
};

std::string lineError(int line, const std::string &what)
{
    return "line " + std::to_string(line) + ": " + what;
}

std::vector<std::string> wordsOf(const std::string &line)
{
    std::istringstream in(line.substr(0, line.find('#')));
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

bool toNumber(const std::string &word, double &value)
{
    const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), value);
    return problem == std::errc() && end == word.data() + word.size() && std::isfinite(value);
}

bool toRow(const std::vector<std::string> &words, std::size_t first, Row &row)
{
    const std::size_t count = words.size() - first;
    if (count != 1 && count != 3)
        return false;
    for (std::size_t i = 0; i < 3; ++i) {
        if (!toNumber(words[first + (count == 1 ? 0 : i)], row[i]))
            return false;
    }
    return true;
}

bool isKeyword(const std::string &word)
{
    return (word[0] >= 'A' && word[0] <= 'Z') || (word[0] >= 'a' && word[0] <= 'z');
}

/// One keyword line of a .cube file. False with \a error when it cannot be taken.
bool takeKeyword(const std::vector<std::string> &words, Table &table, std::string &error)
{
    const std::string &key = words[0];
    if (key == "TITLE")
        return true;
    if (key == "LUT_3D_SIZE") {
        error = "three-dimensional tables are not supported";
        return false;
    }
    double size = 0;
    if (key == "LUT_1D_SIZE" && words.size() == 2 && toNumber(words[1], size) && size >= 2 &&
        size <= 65536) {
        table.declared = static_cast<int>(size);
        return true;
    }
    if (key == "DOMAIN_MIN" && toRow(words, 1, table.domainMin))
        return true;
    if (key == "DOMAIN_MAX" && toRow(words, 1, table.domainMax))
        return true;
    error = "\"" + key + "\" is not understood";
    return false;
}

bool readTable(std::istream &in, Table &table, std::string &error)
{
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const auto words = wordsOf(line);
        if (words.empty())
            continue;
        std::string problem;
        if (isKeyword(words[0])) {
            if (!takeKeyword(words, table, problem)) {
                error = lineError(number, problem);
                return false;
            }
            continue;
        }
        Row row{};
        if (!toRow(words, 0, row)) {
            error = lineError(number, "one or three numbers expected");
            return false;
        }
        table.rows.push_back(row);
    }
    return true;
}

short codeValue(double value, bool isCube, double low, double high)
{
    const double scaled = isCube ? (value - low) / (high - low) * maxValue : value;
    return static_cast<short>(std::lround(std::clamp(scaled, 0.0, double(maxValue))));
}

bool check(const Table &table, std::string &error)
{
    if (table.rows.empty()) {
        error = "no table rows";
        return false;
    }
    for (std::size_t i = 0; i < 3; ++i) {
        if (!(table.domainMax[i] > table.domainMin[i])) {
            error = "the domain is empty";
            return false;
        }
    }
    if (table.declared >= 0 && table.rows.size() != static_cast<std::size_t>(table.declared)) {
        error = "LUT_1D_SIZE says " + std::to_string(table.declared) + " rows, the file holds " +
                std::to_string(table.rows.size());
        return false;
    }
    if (table.declared >= 0)
        return true;
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        for (const double value : table.rows[i]) {
            if (value < 0 || value > maxValue || value != std::floor(value)) {
                error = "row " + std::to_string(i + 1) + " holds a value outside 0..1023";
                return false;
            }
        }
    }
    return true;
}

} // namespace

bool lumo::utils::LUT_Utils::parse(std::string &fileName, short *red, short *green, short *blue,
                                   int entries, int &entriesRead, std::string &error)
{
    entriesRead = 0;
    std::ifstream file(fileName, std::ios::binary);
    if (!file) {
        error = "cannot be opened";
        return false;
    }
    std::string bytes(maxFileSize + 1, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (file.gcount() > static_cast<std::streamsize>(maxFileSize)) {
        error = "larger than any table";
        return false;
    }
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    std::istringstream text(bytes);
    Table table;
    if (!readTable(text, table, error) || !check(table, error))
        return false;

    const bool isCube = table.declared >= 0;
    short *planes[3] = {red, green, blue};
    for (std::size_t row = 0; row < table.rows.size() && row < std::size_t(entries); ++row) {
        for (std::size_t i = 0; i < 3; ++i)
            planes[i][row] =
                codeValue(table.rows[row][i], isCube, table.domainMin[i], table.domainMax[i]);
    }
    entriesRead = static_cast<int>(table.rows.size());
    return true;
}
