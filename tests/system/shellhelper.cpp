// The process shell around a controller that only tells what happens to it. The paths come from the
// environment variables RV_LOCK and RV_CMDLINE; a pipe to write to besides standard output from
// RV_FIFO; RV_ACT is "early" (asks for the end before the loop runs), "stall" (never finishes its
// shutdown).

#include "liborb/orblog.h"
#include "main/process.h"

#include <QCoreApplication>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

int fifo = -1;

void say(const std::string &text)
{
    const std::string line = text + "\n";
    const bool told = ::write(fifo >= 0 ? fifo : STDOUT_FILENO, line.data(), line.size()) > 0;
    if (!told)
        std::abort();
}

bool acts(const char *name)
{
    return qEnvironmentVariable("RV_ACT") == QLatin1String(name);
}

class Controller : public QObject
{
public:
    explicit Controller(bool console)
    {
        say(std::string("built ") + (console ? "console" : "plain"));
        say(QStringLiteral("%1|%2").arg(QCoreApplication::organizationName(),
                                        QCoreApplication::applicationName()).toStdString());
        say("priority " + std::to_string(::getpriority(PRIO_PROCESS, 0)));
        orbLogOutput(3, QStringLiteral("helper.cpp"), 1, "%s\n", "controller at three");
        orbLogOutput(4, QStringLiteral("helper.cpp"), 2, "%s\n", "controller at four");
        qWarning("a framework warning");
        connect(qApp, &QCoreApplication::aboutToQuit, this, [] {
            say("quitting");
            while (acts("stall"))
                ::pause();
        });
        if (acts("early"))
            ::raise(SIGTERM);
        QTimer::singleShot(0, this, [] { say("pid " + std::to_string(::getpid())); });
    }
    ~Controller() override { say("destroyed"); }
};

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsSet("RV_FIFO"))
        fifo = ::open(qgetenv("RV_FIFO").constData(), O_WRONLY | O_CLOEXEC);
    process::Paths paths;
    paths.lockFile = qEnvironmentVariable("RV_LOCK");
    paths.kernelCmdLine = qEnvironmentVariable("RV_CMDLINE");
    return process::run(
        argc, argv,
        [](bool console) { return std::unique_ptr<QObject>(new Controller(console)); }, paths);
}
