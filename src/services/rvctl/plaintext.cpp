#include "services/rvctl/plaintext.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace
{

struct Range {
    char32_t first;
    char32_t last;
};

// Controls, line separators, and what turns the direction of writing.
constexpr Range unprintable[] = {
    {0x00, 0x1f}, {0x7f, 0x9f}, {0x61c, 0x61c}, {0x200e, 0x200f}, {0x2028, 0x202e}, {0x2066, 0x2069},
};
// What stands upon the character before it.
constexpr Range narrow[] = {
    {0x300, 0x36f}, {0x200b, 0x200d}, {0xfe00, 0xfe0f}, {0xfeff, 0xfeff}, {0xe0100, 0xe01ef},
};
constexpr Range wide[] = {
    {0x1100, 0x115f}, {0x2e80, 0xa4cf},   {0xac00, 0xd7a3},   {0xf900, 0xfaff},   {0xfe30, 0xfe6f},
    {0xff00, 0xff60}, {0xffe0, 0xffe6},   {0x1f300, 0x1f64f}, {0x1f900, 0x1f9ff}, {0x20000, 0x3fffd},
};

template <std::size_t count>
bool isIn(const Range (&ranges)[count], char32_t code)
{
    return std::ranges::any_of(ranges, [code](const Range &r) { return code >= r.first && code <= r.last; });
}

} // namespace

Character characterAt(const std::string &text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    const std::size_t bytes = lead < 0x80                    ? 1
                              : lead >= 0xc2 && lead <= 0xdf ? 2
                              : lead >= 0xe0 && lead <= 0xef ? 3
                              : lead >= 0xf0 && lead <= 0xf4 ? 4
                                                             : 0;
    if (bytes == 0 || at + bytes > text.size()) {
        return {};
    }
    char32_t code = bytes == 1 ? lead : lead & (0x7f >> bytes);
    for (std::size_t i = 1; i < bytes; i++) {
        if ((byte(at + i) & 0xc0) != 0x80) {
            return {};
        }
        code = code << 6 | (byte(at + i) & 0x3f);
    }
    constexpr char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isText = code >= least[bytes] && code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
    return isText ? Character{code, bytes, true} : Character{};
}

std::string printable(const std::string &text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        const bool isShown = character.isText && !isIn(unprintable, character.code);
        for (std::size_t k = 0; k < character.bytes; k++, i++) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(text[i]));
            out += isShown ? std::string(1, text[i]) : std::string(escape);
        }
    }
    return out;
}

std::size_t columnsOf(const std::string &text)
{
    std::size_t columns = 0;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        columns += isIn(narrow, character.code) ? 0 : isIn(wide, character.code) ? 2 : 1;
        i += character.bytes;
    }
    return columns;
}

void TextTable::add(const std::vector<std::string> &texts)
{
    std::vector<std::string> row;
    std::ranges::transform(texts, std::back_inserter(row), printable);
    row.resize(_columns.size());
    _rows.push_back(std::move(row));
}

std::string TextTable::text() const
{
    std::vector<std::size_t> widths(_columns.size());
    for (const auto &row : _rows) {
        for (std::size_t i = 0; i < row.size(); i++) {
            widths[i] = std::max(widths[i], columnsOf(row[i]));
        }
    }
    std::string out;
    for (const auto &row : _rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); i++) {
            const std::string blanks(widths[i] - columnsOf(row[i]), ' ');
            line += (i ? "  " : "") + (_columns[i] == Align::Left ? row[i] + blanks : blanks + row[i]);
        }
        out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return out;
}
