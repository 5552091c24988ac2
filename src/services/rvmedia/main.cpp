#include "mediaservice.h"

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

} // namespace

int main(int argc, char **argv)
{
    const int descriptor = signalDescriptor();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("rvmedia"));
    QCommandLineParser options;
    options.setApplicationDescription(QStringLiteral("Media service of the recorder."));
    options.addHelpOption();
    const QCommandLineOption active(QStringLiteral("active"),
                                    QStringLiteral("Make this the active medium."),
                                    QStringLiteral("path"));
    const QCommandLineOption rollover(QStringLiteral("rollover"),
                                      QStringLiteral("Make this the medium to roll over to."),
                                      QStringLiteral("path"));
    options.addOptions({active, rollover});
    options.process(app);

    orbLogOpenDisplay();
    Orb::init(0);
    QSocketNotifier notifier(descriptor, QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);

    MediaService service;
    if (!service.start(options.value(active).toStdString(), options.value(rollover).toStdString())) {
        std::fprintf(stderr, "rvmedia: the parameter store's addresses cannot be used\n");
        return 1;
    }
    return QCoreApplication::exec();
}
