#include "services/rvmonitor/settings.h"

#include <QCommandLineParser>

#include <cmath>

namespace monitor {

namespace {

void addOptions(QCommandLineParser &parser)
{
    parser.setApplicationDescription(QStringLiteral(
        "Follows a bus: lists its frames, writes a still, or measures it.\n"
        "Exit code 0 is done, 1 means that too little came, 2 is a wrong command line.\n\n"
        "A line of --frames is the number read from the picture's bar, or - without one. --long\n"
        "adds sequence, content, frame number in the clip, timecode, milliseconds since the first\n"
        "frame."));
    parser.addHelpOption();
    parser.addOptions({
        {"bus", "Bus to follow.", "name", "/rvd_program"},
        {"frames", "Print a line for each of so many frames; 0 goes on.", "count"},
        {"long", "Print everything about a frame."},
        {"json", "Print one JSON object a line."},
        {"still", "Write the newest picture to a .png or .ppm file.", "file"},
        {"measure", "Count frames, gaps and repeats, take the audio peak, for so long.", "seconds"},
        {"timeout", "Give up when no frame comes for so many milliseconds.", "ms", "5000"},
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
    bool framesOk = true;
    bool measureOk = true;
    bool timeoutOk = false;
    settings.bus = text("bus").toStdString();
    settings.longLines = isSet("long");
    settings.json = isSet("json");
    settings.still = text("still").toStdString();
    settings.timeoutMs = text("timeout").toInt(&timeoutOk);
    if (isSet("frames"))
        settings.frames = text("frames").toLongLong(&framesOk);
    if (isSet("measure")) {
        settings.measureSeconds = text("measure").toDouble(&measureOk);
        measureOk = measureOk && std::isfinite(settings.measureSeconds)
                    && settings.measureSeconds > 0;
    }
    settings.listFrames = isSet("frames") || (!isSet("still") && !isSet("measure"));

    const QString still = text("still").toLower();
    const bool stillOk = !isSet("still") || still.endsWith(QLatin1String(".png"))
                         || still.endsWith(QLatin1String(".ppm"));
    const struct {
        const char *option;
        bool ok;
    } checks[] = {
        {"frames", framesOk && settings.frames >= 0},
        {"measure", measureOk},
        {"timeout", timeoutOk && settings.timeoutMs >= 0},
        {"still", stillOk},
    };
    for (const auto &check : checks) {
        if (check.ok)
            continue;
        error = QStringLiteral("--%1 %2 makes no sense")
                    .arg(QLatin1String(check.option), text(check.option));
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        error = QStringLiteral("%1 is no option").arg(parser.positionalArguments().first());
        return false;
    }
    return true;
}

} // namespace monitor
