#include "app/mainobject.h"

#include "app/mainobject_log.h"
#include "liborb/orbconnect.h"
#include "liborb/orbgetopts.h"
#include "media/mediamanager.h"
#include "transport/vtrobject.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

// The command line. Two of its switches, -d and -D, are read by the process shell before there is a
// controller; here they are accepted and nothing more.

namespace {

constexpr int statsPeriodMs = 1000;

constexpr const char *usage[] = {
    "Usage: rvd [flags]",
    "Flags:",
    "-d                  Don't daemonize",
    "-D                  Debug (will not daemonize)",
    "-h                  Print this help screen",
    "-c <path to clip>   Set initial clip file",
    "-l                  Enable looped playback",
    "-s                  Log system stats every second",
    "-b                  Benchmark the stream (disk) I/O",
    "-p                  Log extra config parameters",
};

} // namespace

/// The event loop does not run yet, so the exit asked for does not stop the daemon, deliberately.
void MainObject::printUsage()
{
    for (const char *line : usage)
        std::puts(line);
    std::fflush(stdout);
    QCoreApplication::exit(0);
}

void MainObject::setInitialClipFile(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    _mediaManager->setActivePath(slash == -1 ? QString() : path.left(slash));
    setCurrentClip(path.mid(slash + 1));
}

void MainObject::logStatsEverySecond()
{
    QTimer *t = new QTimer(this);
    t->setTimerType(Qt::PreciseTimer);
    ORB_TESTED(connect(t, SIGNAL(timeout()), _vtr, SLOT(logStats())));
    t->start(statsPeriodMs);
}

void MainObject::parseCommandLine()
{
    const QStringList arguments = QCoreApplication::arguments();
    logText(3, QStringLiteral("Parse Command Line '%1'").arg(arguments.join(QLatin1Char(' '))));
    OrbGetOpts options(arguments);
    while (options.getopt("phbsdDlc:")) {
        switch (options.opt()) {
        case 'd':
        case 'D':
            break;
        case 'c':
            setInitialClipFile(options.optarg());
            break;
        case 'l':
            _vtr->setLooping(true);
            break;
        case 's':
            logStatsEverySecond();
            break;
        case 'b':
            _vtr->enableStreamBenchmark();
            break;
        case 'p':
            _logExtraParams = true;
            break;
        default:
            printUsage();
            break;
        }
    }
    if (options.hasError())
        logText(1, QStringLiteral("Command line parse failure: %1").arg(options.errorString()));
}
