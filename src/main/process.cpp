#include "main/process.h"

#include "libvanta/daemonizer.h"
#include "liborb/orb.h"
#include "liborb/orblockfile.h"
#include "liborb/orblog.h"
#include "main/exitrequest.h"
#include "main/signals.h"
#include "transport/vtrstate.h"

#include <QCoreApplication>
#include <QFile>
#include <QMetaType>
#include <QTextStream>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char logFile[] = "main.cpp";
constexpr char defaultLogFile[] = "/rvd.log";
constexpr int highestPriority = -40; ///< beyond what the kernel grants, which clamps it

/// Standard input, output or error that the parent closed lead nowhere from now on. The next file
/// opened would take the place otherwise: keys would be read from the lock file, and what is
/// printed would land in it.
void occupyStandardDescriptors()
{
    int fd = -1;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO)
        ::close(fd);
}

void qtMessageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    localQtMessageHandler(type, message.toUtf8().constData());
}

int levelOf(QtMsgType type)
{
    switch (type) {
    case QtWarningMsg:
        return 2;
    case QtCriticalMsg:
    case QtFatalMsg:
        return 1;
    default:
        return 3;
    }
}

void openLog(const QString &requested, bool debug)
{
    orbLogOpenFile(requested.isEmpty() ? QStringLiteral("/dev/null") : requested);
    if (debug) {
        orbLogOpenDisplay();
        orbLogSetLevel(4);
    }
}

} // namespace

process::Switches process::Switches::of(int argc, char **argv)
{
    Switches found;
    for (int i = 0; i < argc; ++i) {
        found.debug = found.debug || std::strcmp(argv[i], "-D") == 0;
        found.noDaemon = found.noDaemon || std::strcmp(argv[i], "-d") == 0;
    }
    return found;
}

bool readKernelCmdLine(const QString &key, QString *value, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QTextStream words(&file);
    while (!words.atEnd()) {
        QString word;
        words >> word;
        const qsizetype equals = word.indexOf(QLatin1Char('='));
        if (word.isEmpty() || word.left(equals) != key)
            continue;
        if (value != nullptr)
            *value = equals < 0 ? QString() : word.mid(equals + 1);
        return true;
    }
    return false;
}

QString process::requestedLogFile(const QString &kernelCmdLine)
{
    QString path;
    if (readKernelCmdLine(QStringLiteral("rvd_log"), &path, kernelCmdLine) && path.isEmpty())
        path = QLatin1String(defaultLogFile);
    return path;
}

void registerMetaTypes()
{
    qRegisterMetaType<VtrState>("VtrState");
}

void localQtMessageHandler(QtMsgType type, const char *message)
{
    OrbLogStream(logFile, __LINE__, levelOf(type), OrbLog::defaultLog())
        << QString::fromUtf8(message);
    if (type == QtFatalMsg)
        std::abort();
}

int process::run(int argc, char **argv, MakeController makeController, const Paths &paths)
{
    occupyStandardDescriptors();
    OrbLockFile lockFile(paths.lockFile);
    const Switches switches = Switches::of(argc, argv);
    const QString requestedLog = requestedLogFile(paths.kernelCmdLine);
    exitrequest::prepare();
    if (switches.daemon())
        Daemonizer::daemonize("Rvd", handleDaemonizerSignal, nullptr, true);

    if (!lockFile.lock()) {
        std::fprintf(stderr,
                     "Failed to lock lockfile (%s).  It looks like process %d currently owns it\n",
                     QFile::encodeName(lockFile.filename()).constData(),
                     static_cast<int>(lockFile.whoHasLock()));
        return 1;
    }

    qInstallMessageHandler(qtMessageHandler);
    QCoreApplication application(argc, argv);
    exitrequest::watch(&application);
    // Outside debug mode there are deliberately no handlers but the daemonizer's.
    if (switches.debug)
        setupSignals();
    QCoreApplication::setOrganizationName(QStringLiteral("lumo"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("lumo.example"));
    QCoreApplication::setApplicationName(QStringLiteral("rvd"));
    openLog(requestedLog, switches.debug);
    std::ignore = ::nice(highestPriority);
    Orb::init(0);
    registerMetaTypes();

    std::unique_ptr<QObject> controller = makeController(switches.debug);
    exitrequest::repeatEarly();
    const int result = QCoreApplication::exec();
    if (switches.daemon() && result == 0)
        Daemonizer::setDone();
    controller.reset();
    return result;
}
