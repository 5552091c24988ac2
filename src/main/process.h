#pragma once

#include <QObject>
#include <QString>

#include <memory>

/// The process shell: everything between the executable's start and the controller.
namespace process {

/// What the shell touches outside the process.
struct Paths {
    QString kernelCmdLine = QStringLiteral("/proc/cmdline");
    QString lockFile = QStringLiteral("/var/lock/rvd.lock");
};

/// The two switches that count before options are parsed.
struct Switches {
    bool debug = false;    ///< "-D"
    bool noDaemon = false; ///< "-d"

    /// Compares whole arguments, the program's name included: the d of "-dl" is deliberately none.
    static Switches of(int argc, char **argv);
    bool daemon() const { return !debug && !noDaemon; }
    bool operator==(const Switches &) const = default;
};

/// Builds the controller; \a console is the debug mode.
using MakeController = std::unique_ptr<QObject> (*)(bool console);

/// Takes the process from its start to its end; the answer is the exit status. Lives on the main
/// thread.
int run(int argc, char **argv, MakeController makeController, const Paths &paths = {});

/// The log file that the kernel command line asks for with "rvd_log": its value, "/rvd.log" for the
/// key alone, empty without the key.
QString requestedLogFile(const QString &kernelCmdLine);

} // namespace process

/// True when \a key is on the kernel command line, the file \a path; \a value, when given, gets
/// what follows the first "=" of its first word. False, and \a value untouched, without the key or
/// the file.
bool readKernelCmdLine(const QString &key, QString *value,
                       const QString &path = process::Paths().kernelCmdLine);

/// Makes the transport state travel in queued signals, by the name "VtrState".
void registerMetaTypes();

/// Writes a message of the framework to the toolkit's log; aborts after a fatal one.
void localQtMessageHandler(QtMsgType type, const char *message);
