#include "liborb/orbthread.h"

#include <QTest>

#include <algorithm>
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

/// Of a thread that a thread with that work has started.
int ranked(OrbWork work)
{
    int nice = 0;
    std::thread([&nice, work] {
        orbRankThread(work);
        std::thread([&nice] { nice = niceOfThread(); }).join();
    }).join();
    return nice;
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

    void workGoesBehindTheFirstThreadAndNeverBeforeIt()
    {
        const auto self = static_cast<id_t>(getpid());
        const int own = niceOfThread();
        QCOMPARE(ranked(OrbWork::Coding), std::max(own, -15)); // a tool's threads stay as they are
        if (setpriority(PRIO_PROCESS, self, -20) != 0)
            QSKIP("takes the right to it");
        const int coding = ranked(OrbWork::Coding);
        const int background = ranked(OrbWork::Background);
        setpriority(PRIO_PROCESS, self, own);
        QCOMPARE(coding, -15);
        QCOMPARE(background, -10);
        QCOMPARE(niceOfThread(), own);
    }

    /// The picture pools' threads are started so; what the system gives them first has no place in the order.
    void threadsOfRealTimeOnesFindTheirPlaceToo()
    {
        const auto self = static_cast<id_t>(getpid());
        const int own = niceOfThread();
        if (setpriority(PRIO_PROCESS, self, -20) != 0)
            QSKIP("takes the right to it");
        int background = 0;
        bool isRaised = false;
        std::thread([&] {
            isRaised = orbRaiseThread();
            background = ranked(OrbWork::Background);
        }).join();
        setpriority(PRIO_PROCESS, self, own);
        if (!isRaised)
            QSKIP("takes the right to real-time priority");
        QCOMPARE(background, -10);
    }
};

QTEST_GUILESS_MAIN(TestOrbThread)
#include "tst_orbthread.moc"
