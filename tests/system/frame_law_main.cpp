// frame_law: plays real clips through the shipped engine in real time and compares every frame of its program
// bus with the speed law; prints a table and ends with 1 when a line of it does not hold.
//
//     frame_law [--full] [--verbose] [--seed N] [--only FORMAT] [folder for clips]

#include "frame_law_table.h"

#include "liborb/orb.h"
#include "liborb/orblog.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>

#include <unistd.h>

namespace law {

void Table::head() const
{
    std::printf("%-16s %-12s %-5s %-26s %7s %5s  %s\n", "format", "speed", "loop", "where", "frames", "late",
                "verdict");
}

void Table::add(const QString &format, const QString &speed, bool looping, const QString &where, int frames,
                int late, const QString &problem)
{
    ++_lines;
    _frames += frames;
    _late += late;
    _wrong += problem.isEmpty() ? 0 : 1;
    std::printf("%-16s %-12s %-5s %-26s %7d %5d  %s\n", qPrintable(format), qPrintable(speed),
                looping ? "on" : "off", qPrintable(where), frames, late,
                problem.isEmpty() ? "holds" : qPrintable(QStringLiteral("WRONG: ") + problem));
    std::fflush(stdout);
}

bool Table::close(double seconds) const
{
    std::printf("%d of %d lines hold; %lld frames compared, %d late, in %.0f s\n", _lines - _wrong, _lines,
                static_cast<long long>(_frames), _late, seconds);
    const bool isTooLate = 20LL * _late > _frames;
    if (isTooLate)
        std::printf("more than one frame in twenty was late: too busy a machine, or too slow a device\n");
    return _lines > 0 && _wrong == 0 && !isTooLate;
}

} // namespace law

namespace {

constexpr law::ClipFormat formats[] = {
    // name                  width height rate         scan                      labels a second
    {"1280x720p50",          1280, 720,   50, 1,       OrbImageDesc::Progressive, 50},
    {"1920x1080i25",         1920, 1080,  25, 1,       OrbImageDesc::Interlaced,  25},
    {"1920x1080p24000/1001", 1920, 1080,  24000, 1001, OrbImageDesc::Progressive, 24},
    {"1920x1080p50 HQ",      1920, 1080,  50, 1,       OrbImageDesc::Progressive, 50, true},
};

} // namespace

int main(int argc, char **argv)
{
    qputenv("RVD_PROGRAM_BUS", QByteArray("/rvd_frame_law_") + QByteArray::number(::getpid()));
    qputenv("RVD_DEVICE_CONFIG", "/dev/null");
    QCoreApplication application(argc, argv);
    QCommandLineParser options;
    options.addOption({QStringLiteral("full"), QStringLiteral("Every format, speed and place.")});
    options.addOption({QStringLiteral("verbose"), QStringLiteral("Show the engine's log.")});
    options.addOption({QStringLiteral("seed"), QStringLiteral("Of the cues and steps."), QStringLiteral("number"),
                       QStringLiteral("1")});
    options.addOption({QStringLiteral("only"), QStringLiteral("One format, or \"drop\"."), QStringLiteral("name")});
    options.addPositionalArgument(QStringLiteral("folder"), QStringLiteral("For the clips."));
    options.addHelpOption();
    options.process(application);
    if (options.isSet(QStringLiteral("verbose")))
        orbLogOpenDisplay();
    Orb::init(0);

    const QStringList folders = options.positionalArguments();
    const QTemporaryDir folder((folders.isEmpty() ? QDir::tempPath() : folders.first())
                               + QStringLiteral("/frame-law-XXXXXX"));
    if (!folder.isValid()) {
        std::fprintf(stderr, "frame_law: no folder for clips: %s\n", qPrintable(folder.errorString()));
        return 1;
    }
    const law::Extent extent = options.isSet(QStringLiteral("full")) ? law::Extent::Full : law::Extent::Short;
    const QString only = options.value(QStringLiteral("only"));
    const std::uint32_t seed = options.value(QStringLiteral("seed")).toUInt();

    QElapsedTimer watch;
    watch.start();
    law::Table table;
    table.head();
    for (const law::ClipFormat &format : formats) {
        if (format.isHeavy && extent == law::Extent::Short)
            continue;
        if (only.isEmpty() || only == QLatin1String(format.name))
            law::runPlayback(table, format, extent, folder.path(), seed);
    }
    if (only.isEmpty() || only == QLatin1String("drop"))
        law::runDropFrame(table, extent, folder.path());
    const bool holds = table.close(static_cast<double>(watch.elapsed()) / 1000.0);
    bus::Writer::remove(qEnvironmentVariable("RVD_PROGRAM_BUS").toStdString());
    return holds ? 0 : 1;
}
