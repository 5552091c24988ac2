#include "services/rvmonitor/follower.h"
#include "services/rvmonitor/measure.h"
#include "services/rvmonitor/report.h"
#include "services/rvmonitor/settings.h"
#include "services/rvmonitor/still.h"

#include <QCoreApplication>

#include <cstdio>

namespace monitor {

namespace {

enum ExitCode { Done = 0, NothingCame = 1, Usage = 2 };

/// Every line goes out at once: scripts follow it.
bool printLine(const std::string &line)
{
    return std::fputs((line + "\n").c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
}

ExitCode listFrames(Follower &follower, const Settings &settings)
{
    bus::Frame frame;
    std::int64_t firstNs = 0;
    std::int64_t count = 0;
    while (settings.frames == 0 || count < settings.frames) {
        if (!follower.next(frame, settings.timeoutMs))
            return isEnding() && count > 0 ? Done : NothingCame;
        const std::int64_t seenNs = nowNs();
        if (count++ == 0)
            firstNs = frame.info.timeNs;
        const std::string line = settings.json        ? jsonLine(frame, firstNs, seenNs)
                                 : settings.longLines ? longLine(frame, firstNs)
                                                      : shortLine(frame);
        if (!printLine(line))
            return Done; // nobody reads any more
    }
    return Done;
}

ExitCode takeStill(Follower &follower, const Settings &settings)
{
    // A frame without a picture may be followed by one that has it.
    bus::Frame frame;
    const std::int64_t deadline = nowMs() + settings.timeoutMs;
    do {
        const std::int64_t left = deadline - nowMs();
        if (!follower.next(frame, static_cast<int>(left > 0 ? left : 0)))
            frame.picture.clear();
    } while (frame.picture.empty() && nowMs() < deadline);

    std::string error;
    if (!writeStill(frame, settings.still, error)) {
        std::fprintf(stderr, "rvmonitor: no still: %s\n", error.c_str());
        return NothingCame;
    }
    return Done;
}

ExitCode run(const Settings &settings)
{
    Follower follower(settings.bus);
    ExitCode result = Done;
    if (settings.listFrames)
        result = listFrames(follower, settings);
    if (result == Done && settings.measureSeconds > 0) {
        const Measurement measured = measure(follower, settings.measureSeconds, settings.timeoutMs);
        printLine(settings.json ? measured.json() : measured.text());
        result = measured.frames > 0 ? Done : NothingCame;
    }
    if (result == Done && !settings.still.empty()) {
        Follower fresh(settings.bus); // begins with the newest frame
        result = takeStill(fresh, settings);
    }
    if (result == NothingCame)
        std::fprintf(stderr, "rvmonitor: too little came on bus %s\n", settings.bus.c_str());
    return result;
}

} // namespace

} // namespace monitor

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("rvmonitor"));

    monitor::Settings settings;
    QString error;
    if (!monitor::parse(QCoreApplication::arguments(), settings, error)) {
        std::fprintf(stderr, "rvmonitor: %s\n", qPrintable(error));
        return monitor::Usage;
    }
    monitor::installSignals();
    return monitor::run(settings);
}
