#include "mediaservice.h"
#include "slotfile.h"

#include "liborb/orb.h"
#include "liborb/orblog.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>

#include <sys/signalfd.h>
#include <unistd.h>

namespace {

/// Ends the event loop on SIGINT and SIGTERM.
int signalDescriptor()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

/// The slots of the command line, or else of the file.
std::vector<std::string> slotsOf(const QStringList &named, const QString &file)
{
    std::string problem;
    std::vector<std::string> paths = named.isEmpty()
        ? readSlotFile(file.toStdString(), problem)
        : slotsIn(named.join(QLatin1Char('\n')).toStdString(), problem);
    if (!problem.empty())
        std::fprintf(stderr, "rvmedia: slots: %s\n", problem.c_str());
    return paths;
}

} // namespace

int main(int argc, char **argv)
{
    const int descriptor = signalDescriptor();
    // A writer that comes while a file is being looked at is no reason to end.
    std::signal(SIGIO, SIG_IGN);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("rvmedia"));
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Media service of the recorder."));
    options.addHelpOption();
    const QString path = QStringLiteral("path");
    const QCommandLineOption slot(QStringLiteral("slot"),
                                  QStringLiteral("A mount point for media; may be given again."), path);
    const QCommandLineOption config(QStringLiteral("config"),
                                    QStringLiteral("The list of slots, one mount point a line."), path,
                                    QString::fromLatin1(slotFileName));
    const QCommandLineOption active(QStringLiteral("active"),
                                    QStringLiteral("Make this the active medium."), path);
    const QCommandLineOption rollover(QStringLiteral("rollover"),
                                      QStringLiteral("Make this the medium to roll over to."), path);
    const QCommandLineOption known(QStringLiteral("known"),
                                   QStringLiteral("Keep what has been read of clips here; empty: nowhere."),
                                   QStringLiteral("file"), QString::fromStdString(knownClipsPath()));
    options.addOptions({slot, config, active, rollover, known});
    options.process(app);

    orbLogOpenDisplay();
    Orb::init(0);
    QSocketNotifier notifier(descriptor, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);

    MediaService::Setup setup;
    setup.mediaSlots = slotsOf(options.values(slot), options.value(config));
    setup.activePath = cleanPath(options.value(active).toStdString());
    setup.rolloverPath = cleanPath(options.value(rollover).toStdString());
    setup.knownClips = options.value(known).toStdString();
    setup.inspector = QCoreApplication::applicationDirPath().toStdString() + "/rvgrok";
    MediaService service(setup);
    if (!service.start()) {
        std::fprintf(stderr, "rvmedia: the parameter store's addresses cannot be used\n");
        return 1;
    }
    return QCoreApplication::exec();
}
