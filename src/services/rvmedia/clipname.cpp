#include "clipname.h"

#include <QString>
#include <QStringDecoder>

#include <algorithm>
#include <string_view>

namespace
{

constexpr std::size_t longestName = 255;
constexpr std::string_view extension = ".mov";

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// The digits at \a at without leading zeros; \a at moves past them.
std::string_view numberAt(std::string_view text, std::size_t &at)
{
    while (at < text.size() && text[at] == '0')
        ++at;
    const std::size_t begin = at;
    while (at < text.size() && isDigit(text[at]))
        ++at;
    return text.substr(begin, at - begin);
}

} // namespace

bool isClipName(const std::string &name)
{
    if (name.size() <= extension.size() || name.size() > longestName || name[0] == '.' ||
        name.find('/') != std::string::npos)
        return false;
    const QByteArray end = QByteArray::fromStdString(name.substr(name.size() - extension.size()));
    if (end.toLower() != QByteArray(extension.data(), extension.size()))
        return false;
    QStringDecoder decode(QStringDecoder::Utf8);
    const QString text = decode(QByteArray::fromStdString(name));
    return !decode.hasError() && std::ranges::none_of(text, [](QChar c) {
        return c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator;
    });
}

bool comesBefore(const std::string &a, const std::string &b)
{
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (!isDigit(a[i]) || !isDigit(b[j])) {
            if (a[i] != b[j])
                return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
            ++i;
            ++j;
            continue;
        }
        const std::string_view x = numberAt(a, i);
        const std::string_view y = numberAt(b, j);
        if (x.size() != y.size())
            return x.size() < y.size();
        if (x != y)
            return x < y;
    }
    if (a.size() - i != b.size() - j)
        return a.size() - i < b.size() - j;
    return a < b; // the same but for zeros
}
