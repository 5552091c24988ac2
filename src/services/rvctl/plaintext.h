#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

// Text from media and messages on the user's terminal.

/// One character of a UTF-8 text.
struct Character {
    char32_t code = 0;
    std::size_t bytes = 1;
    bool isText = false; ///< false for a byte that belongs to no character
};

/// The character that begins at \a at, which lies in the text.
Character characterAt(const std::string &text, std::size_t at);

/// Text that cannot move the cursor, ring the bell or turn the line around: such characters, and bytes that are no
/// text, become \xHH.
std::string printable(const std::string &text);
/// The columns that printable text takes on a terminal.
std::size_t columnsOf(const std::string &text);

/// Rows of texts, printed in columns that are as wide as their widest text.
class TextTable
{
public:
    enum class Align { Left, Right };

    TextTable(std::initializer_list<Align> columns) : _columns(columns) {}
    /// A row of as many texts as there are columns; they are made printable.
    void add(const std::vector<std::string> &texts);
    /// The rows, a line each, nothing behind their last text.
    std::string text() const;

private:
    std::vector<Align> _columns;
    std::vector<std::vector<std::string>> _rows;
};
