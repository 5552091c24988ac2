#pragma once

#include <QChar>
#include <QString>
#include <QStringList>

/// A getopt-style parser over a string list whose first element is the program name.
/// Letters may be combined ("-dl"); an option with an argument takes the rest of its word or the next word;
/// "--" or the first word that is no option ends the options.
class OrbGetOpts
{
public:
    OrbGetOpts() = default;
    explicit OrbGetOpts(const QStringList &arguments) { set(arguments); }

    void set(const QStringList &arguments);
    /// Takes the next option; \a optstring lists the letters, each followed by ":" when it takes an
    /// argument. False when none is left. A letter not in the list is delivered all the same (so that the
    /// caller can print its usage) and is remembered as an error. So is a missing argument, delivered as
    /// '?', and a word such as "--help", delivered as '-'.
    bool getopt(const char *optstring);
    char opt() const { return _opt; }
    QString optarg() const { return _optarg; }
    bool hasError() const { return !_error.isEmpty(); }
    QString errorString() const { return _error; } ///< the first error
    QStringList rest() const; ///< words after the options

private:
    void fail(const QString &text);

    QStringList _arguments;
    int _word = 1;
    int _letter = 1;
    char _opt = 0;
    QString _optarg;
    QString _error;
};
