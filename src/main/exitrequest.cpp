#include "main/exitrequest.h"

#include "liborb/orbconnect.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QSocketNotifier>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr char logFile[] = "main.cpp";

int readEnd = -1;
int writeEnd = -1;
bool asked = false;

void obey()
{
    char bytes[64];
    while (::read(readEnd, bytes, sizeof bytes) > 0)
        asked = true;
    QCoreApplication::exit(0);
}

} // namespace

void exitrequest::prepare()
{
    int ends[2];
    if (readEnd >= 0 || ::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    readEnd = ends[0];
    writeEnd = ends[1];
}

void exitrequest::ask()
{
    const char byte = 1;
    // A full pipe holds a request already. Without a pipe the loop is asked directly, risks and
    // all.
    if (writeEnd < 0 || (::write(writeEnd, &byte, 1) != 1 && errno != EAGAIN))
        QCoreApplication::exit(0);
}

void exitrequest::watch(QObject *owner)
{
    if (readEnd < 0)
        return;
    auto *notifier = new QSocketNotifier(readEnd, QSocketNotifier::Read, owner);
    ORB_TESTED(
        QObject::connect(notifier, &QSocketNotifier::activated, owner, [] { obey(); }));
}

void exitrequest::repeatEarly()
{
    if (asked)
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [] { QCoreApplication::exit(0); }, Qt::QueuedConnection);
}
