#include "liborb/orbgetopts.h"

#include <cstring>

namespace {

/// Delivered in place of an option that lacks its argument: no caller acts on half an option.
constexpr char missingArgument = '?';

/// The value of the letter position once "--" or an ordinary word has ended the options.
constexpr int ended = 0;

} // namespace

void OrbGetOpts::set(const QStringList &arguments)
{
    *this = OrbGetOpts();
    _arguments = arguments;
}

bool OrbGetOpts::getopt(const char *optstring)
{
    _opt = 0;
    _optarg.clear();
    if (_letter == ended || _word >= _arguments.size())
        return false;

    const QString word = _arguments.at(_word);
    if (word.size() < 2 || word.at(0) != QLatin1Char('-') || word == QLatin1String("--")) {
        if (word == QLatin1String("--"))
            ++_word;
        _letter = ended;
        return false;
    }
    if (word.startsWith(QLatin1String("--"))) { // one unknown option, not a row of letters
        ++_word;
        _opt = '-';
        fail(QStringLiteral("unknown option '%1'").arg(word));
        return true;
    }

    const QChar letter = word.at(_letter);
    const bool lastLetter = ++_letter >= word.size();
    if (lastLetter) {
        ++_word;
        _letter = 1;
    }
    _opt = letter.toLatin1();
    const char *known = _opt == ':' || _opt == 0 ? nullptr : std::strchr(optstring, _opt);
    if (known == nullptr) {
        _opt = _opt == 0 ? missingArgument : _opt;
        fail(QStringLiteral("unknown option '-%1'").arg(letter));
        return true;
    }
    if (known[1] != ':')
        return true;
    if (!lastLetter) {
        _optarg = word.mid(_letter);
        ++_word;
        _letter = 1;
        return true;
    }
    if (_word >= _arguments.size()) {
        _opt = missingArgument;
        fail(QStringLiteral("option '-%1' needs an argument").arg(letter));
        return true;
    }
    _optarg = _arguments.at(_word++);
    return true;
}

QStringList OrbGetOpts::rest() const
{
    return _arguments.mid(_word);
}

void OrbGetOpts::fail(const QString &text)
{
    if (_error.isEmpty())
        _error = text;
}
