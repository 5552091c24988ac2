#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <string>

namespace monitor {

/// What the command line asks for. Without --frames, --still and --measure it follows the bus until
/// a signal or a time-out.
struct Settings {
    std::string bus = "/rvd_program";
    bool listFrames = false;
    std::int64_t frames = 0;    ///< lines to print; 0 goes on
    bool longLines = false;
    bool json = false;
    std::string still;          ///< file to write, empty for none
    double measureSeconds = 0;  ///< 0 does not measure
    int timeoutMs = 5000;       ///< without a frame for so long the program ends
};

/// Reads the command line. False with \a error filled in when it makes no sense; --help ends the
/// program.
bool parse(const QStringList &arguments, Settings &settings, QString &error);

} // namespace monitor
