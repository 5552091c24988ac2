#include "liborb/orbthread.h"

#include <QTest>

#include <array>
#include <thread>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

int niceOfThread()
{
    return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
}

} // namespace

class TestOrbThread : public QObject
{
    Q_OBJECT

private slots:
    void threadsCarryTheirNames()
    {
        std::array<char, 16> name = {};
        std::thread([&name] {
            orbNameThread("frameclock");
            pthread_getname_np(pthread_self(), name.data(), name.size());
        }).join();
        QCOMPARE(name.data(), "frameclock");
    }

    void loweredThreadsAndWhatTheyStartGoAfterTheOthers()
    {
        int before = 0;
        int lowered = 0;
        int started = 0;
        std::thread([&] {
            setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), -20); // refused without the right to it
            before = niceOfThread();
            QVERIFY(orbLowerThread(OrbWork::Background));
            QVERIFY(orbLowerThread(OrbWork::Coding)); // more urgent: it stays
            lowered = niceOfThread();
            std::thread([&started] { started = niceOfThread(); }).join();
        }).join();
        QCOMPARE(lowered, std::max(before, -10)); // never raised
        QCOMPARE(started, lowered);
        QCOMPARE(niceOfThread(), 0);
    }
};

QTEST_GUILESS_MAIN(TestOrbThread)
#include "tst_orbthread.moc"
