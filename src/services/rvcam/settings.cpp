#include "services/rvcam/settings.h"

#include <QCommandLineParser>

#include <cmath>
#include <optional>

namespace cam {

namespace {

bool parseSize(const QString &text, bus::Format &format)
{
    const QStringList parts = text.toLower().split(QLatin1Char('x'));
    if (parts.size() != 2)
        return false;
    format.width = parts[0].toInt();
    format.height = parts[1].toInt();
    return format.width > 0 && format.width <= bus::maxWidth && format.width % 2 == 0
           && format.height > 0 && format.height <= bus::maxHeight;
}

/// "25", "30000/1001", or one of the usual short forms.
bool parseRate(const QString &text, bus::Format &format)
{
    struct Short {
        const char *text;
        int num;
    };
    static constexpr Short shorts[] = {
        {"23.98", 24000}, {"23.976", 24000}, {"29.97", 30000}, {"47.95", 48000}, {"59.94", 60000},
    };
    for (const Short &row : shorts) {
        if (text == QLatin1String(row.text)) {
            format.rateNum = row.num;
            format.rateDen = 1001;
            return true;
        }
    }
    const QStringList parts = text.split(QLatin1Char('/'));
    format.rateNum = parts.value(0).toInt();
    format.rateDen = parts.size() == 1 ? 1 : parts.value(1).toInt();
    return parts.size() <= 2 && format.rateNum > 0 && format.rateDen > 0
           && format.rateNum <= 120000 && format.rateDen <= 1001
           && format.rateNum / format.rateDen <= 120;
}

template<typename T>
struct Choice {
    const char *text;
    T value;
};

template<typename T, std::size_t n>
bool choose(const QString &text, const Choice<T> (&choices)[n], T &value)
{
    for (const Choice<T> &choice : choices) {
        if (text == QLatin1String(choice.text)) {
            value = choice.value;
            return true;
        }
    }
    return false;
}

constexpr Choice<int> scans[] = {{"p", 0}, {"i", 1}, {"psf", 2}};
constexpr Choice<int> channels[] = {{"0", 0}, {"2", 2}, {"8", 8}};
constexpr Choice<bool> switches[] = {{"on", true}, {"off", false}};
constexpr Choice<Pattern> patterns[] = {{"moving", Pattern::Moving},
                                        {"natural", Pattern::Natural},
                                        {"bars", Pattern::Bars},
                                        {"ramp", Pattern::Ramp},
                                        {"black", Pattern::Black}};
constexpr Choice<Sound> sounds[] = {{"tone", Sound::Tone}, {"count", Sound::Count}};
constexpr Choice<PipeFormat> pipeFormats[] = {{"420", PipeFormat::Yuv420},
                                              {"422", PipeFormat::Yuv422}};

void addOptions(QCommandLineParser &parser)
{
    parser.setApplicationDescription(QStringLiteral(
        "A software camera: feeds an input bus with picture, sound, timecode and a record flag.\n"
        "SIGUSR1 toggles the record flag."));
    parser.addHelpOption();
    parser.addOptions({
        {"bus", "Bus to feed.", "name", "/rvd_input_0"},
        {"size", "Raster.", "WxH", "1920x1080"},
        {"rate", "Frames a second: 25, 30000/1001, 59.94 ...", "rate", "25"},
        {"scan", "p, i or psf.", "scan", "p"},
        {"channels", "Audio channels: 0, 2 or 8.", "count", "2"},
        {"timecode", "Timecode of the first frame; 10:00:00;00 is drop frame.", "label"},
        {"record-flag", "on or off.", "state", "off"},
        {"frames", "End after so many frames; 0 goes on.", "count", "0"},
        {"first", "Number of the first frame.", "number", "0"},
        {"pattern", "moving, natural (as hard to code as a camera's picture), bars, ramp or black.", "name", "moving"},
        {"sound", "tone, or count: each sample is its own number, inverted on every second channel.", "name", "tone"},
        {"level", "Level of the tone in dBFS.", "dB", "-20"},
        {"from", "Feed a media file or URL as live, looped, instead of a pattern.", "source"},
        {"stamp", "Draw the frame bar over the picture of --from."},
        {"pipe", "Write YUV4MPEG2 to standard output instead of a bus."},
        {"pipe-format", "420 or 422, 8 bit.", "format", "420"},
        {"fast", "With --pipe: as fast as the reader takes it."},
    });
}

} // namespace

bool parse(const QStringList &arguments, Settings &settings, QString &error)
{
    QCommandLineParser parser;
    addOptions(parser);
    if (!parser.parse(arguments)) {
        error = parser.errorText();
        return false;
    }
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);

    const auto text = [&](const char *name) { return parser.value(QLatin1String(name)); };
    const auto isSet = [&](const char *name) { return parser.isSet(QLatin1String(name)); };
    bool framesOk = false;
    bool firstOk = false;
    bool levelOk = false;
    settings.bus = text("bus").toStdString();
    settings.from = text("from").toStdString();
    settings.sizeGiven = isSet("size");
    settings.rateGiven = isSet("rate");
    settings.stamp = isSet("stamp");
    settings.pipe = isSet("pipe");
    settings.fast = isSet("fast");
    settings.frames = text("frames").toLongLong(&framesOk);
    settings.first = text("first").toUInt(&firstOk);
    settings.levelDbfs = text("level").toDouble(&levelOk);

    bus::Format &format = settings.format;
    const struct {
        const char *option;
        bool ok;
    } checks[] = {
        {"size", parseSize(text("size"), format)},
        {"rate", parseRate(text("rate"), format)},
        {"scan", choose(text("scan"), scans, format.scanMode)},
        {"channels", choose(text("channels"), channels, format.audioChannels)},
        {"record-flag", choose(text("record-flag"), switches, settings.recordFlag)},
        {"frames", framesOk && settings.frames >= 0},
        {"first", firstOk},
        {"pattern", choose(text("pattern"), patterns, settings.pattern)},
        {"sound", choose(text("sound"), sounds, settings.sound)},
        {"level", levelOk && std::isfinite(settings.levelDbfs)},
        {"pipe-format", choose(text("pipe-format"), pipeFormats, settings.pipeFormat)},
        {"fast", !settings.fast || (settings.pipe && settings.from.empty())},
    };
    for (const auto &check : checks) {
        if (check.ok)
            continue;
        error = QStringLiteral("--%1 %2 makes no sense here")
                    .arg(QLatin1String(check.option), text(check.option));
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        error = QStringLiteral("%1 is no option").arg(parser.positionalArguments().first());
        return false;
    }

    const int fps = (format.rateNum + format.rateDen - 1) / format.rateDen;
    settings.timecode = {10, 0, 0, 0, fps, false};
    if (isSet("timecode")) {
        const auto label = timecodeOf(text("timecode").toStdString(), fps);
        if (!label || (label->drop && format.rateDen != 1001)) {
            error = QStringLiteral("%1 is no timecode at this rate").arg(text("timecode"));
            return false;
        }
        settings.timecode = *label;
    }
    return true;
}

} // namespace cam
