#pragma once

#include "libbus/bus.h"
#include "services/rvcam/timecode.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <string>

namespace cam {

enum class Pattern { Moving, Natural, Bars, Ramp, Black };
enum class Sound { Tone, Count };
enum class PipeFormat { Yuv420, Yuv422 };

/// What the command line asks for.
struct Settings {
    std::string bus = "/rvd_input_0";
    bus::Format format = {1920, 1080, 25, 1, 0, 2};
    bool sizeGiven = false; ///< otherwise a media file's own size counts
    bool rateGiven = false;
    Timecode timecode = {10, 0, 0, 0, 25, false};
    bool recordFlag = false;
    std::int64_t frames = 0; ///< 0 goes on until a signal
    std::uint32_t first = 0; ///< number of the first frame
    Pattern pattern = Pattern::Moving;
    Sound sound = Sound::Tone;
    double levelDbfs = -20.0;
    std::string from;        ///< file or URL; empty generates the pattern
    bool stamp = false;      ///< draw the frame bar over a media file's picture
    bool pipe = false;
    PipeFormat pipeFormat = PipeFormat::Yuv420;
    bool fast = false;
};

/// Reads the command line. False with \a error filled in when it makes no sense; --help and
/// --version end the program as usual.
bool parse(const QStringList &arguments, Settings &settings, QString &error);

} // namespace cam
