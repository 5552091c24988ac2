#pragma once

#include <QByteArray>
#include <QFile>
#include <QTemporaryFile>

#include <cstdio>

#include <unistd.h>

/// Takes what the process prints to its standard output for as long as it lives.
class StdoutCapture
{
public:
    StdoutCapture()
    {
        std::fflush(stdout);
        _saved = dup(STDOUT_FILENO);
        if (_file.open())
            dup2(_file.handle(), STDOUT_FILENO);
    }
    ~StdoutCapture() { finish(); }
    StdoutCapture(const StdoutCapture &) = delete;
    StdoutCapture &operator=(const StdoutCapture &) = delete;

    /// Ends the capture; what was printed.
    QByteArray finish()
    {
        if (_saved >= 0) {
            std::fflush(stdout);
            dup2(_saved, STDOUT_FILENO);
            ::close(_saved);
            _saved = -1;
        }
        QFile file(_file.fileName());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private:
    QTemporaryFile _file;
    int _saved = -1;
};
