// Real processes share a list, and are killed while they hold its mutex.

#include "libvanta/ownedmutex.h"
#include "libvanta/sharedlist.h"

#include <QElapsedTimer>
#include <QTest>

#include <boost/interprocess/mapped_region.hpp>
#include <boost/interprocess/shared_memory_object.hpp>

#include <csignal>
#include <cstring>
#include <functional>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

namespace ipc = boost::interprocess;
using lumo::media::OwnedMutex;
using lumo::media::SharedList;

namespace {

constexpr const char *prefix = "tst_sharedlist";
constexpr std::size_t size = 262144;
constexpr std::size_t holderAt = 24;

std::list<Clip> clipsNamed(const std::string &name, int count)
{
    std::list<Clip> clips;
    for (int i = 0; i < count; ++i) {
        Clip clip;
        clip.setName(name + std::to_string(i) + ".mov");
        clip.setPath("/media/slot1");
        clip.setFrameCount(i);
        clips.push_back(clip);
    }
    return clips;
}

/// The objects themselves, as a process of another make would open them.
struct Objects {
    ipc::named_mutex mutex{ipc::open_or_create, (std::string(prefix) + "_mutex").c_str()};
    ipc::shared_memory_object memory{ipc::open_only, (std::string(prefix) + "_shm").c_str(),
                                     ipc::read_write};
    ipc::mapped_region region{memory, ipc::read_write};
    char *base() const { return static_cast<char *>(region.get_address()); }
    std::uint64_t &holder() const { return *reinterpret_cast<std::uint64_t *>(base() + holderAt); }
};

/// Another process, which says when it has come so far; then it waits to be killed.
class Other
{
public:
    using Work = std::function<void(const std::function<void()> &ready)>;
    explicit Other(const Work &work)
    {
        int ends[2] = {-1, -1};
        if (::pipe(ends) != 0)
            return;
        _process = ::fork();
        if (_process == 0) {
            work([&] { (void)!::write(ends[1], "r", 1); });
            ::_exit(0);
        }
        char byte = 0;
        ::close(ends[1]);
        _hasCome = ::read(ends[0], &byte, 1) == 1;
        ::close(ends[0]);
    }
    ~Other() { kill(); }
    Other(const Other &) = delete;
    Other &operator=(const Other &) = delete;
    bool hasCome() const { return _hasCome; }
    void stop() { ::kill(_process, SIGSTOP); }
    void kill()
    {
        if (_process <= 0)
            return;
        ::kill(_process, SIGKILL);
        ::waitpid(_process, nullptr, 0);
        _process = -1;
    }

private:
    pid_t _process = -1;
    bool _hasCome = false;
};

void holdForEver(const std::function<void()> &ready)
{
    Objects objects;
    const OwnedMutex lock(objects.mutex, objects.holder(), 1000, OwnedMutex::LeaveAlone);
    if (lock.isHeld())
        ready();
    for (;;)
        ::pause();
}

} // namespace

class TestSharedList : public QObject
{
    Q_OBJECT
private slots:
    void init() { SharedList::remove(prefix); }
    void cleanup() { SharedList::remove(prefix); }
    void theObjectsHaveTheirNamesAndExactSizes();
    void aHolderKilledStopsNeitherReaderNorWriter();
    void aHolderKilledBeforeItsMarkIsSucceededByTheWriter();
    void aHolderKilledAfterItsMarkIsSucceededByTheWriter();
    void aHolderThatOnlyStandsStillIsReadPast();
    void aWriterKilledInTheMiddleLeavesNoListThatIsBelieved();
    void writersKilledAtAnyTimeLeaveOneListOrTheOther();
    void memoryCutBehindOurBackIsNotTouched();
    void recordsThatNoClipCanHaveAreRefused();
};

void TestSharedList::theObjectsHaveTheirNamesAndExactSizes()
{
    const SharedList list(prefix, 10039315);
    struct stat st = {};
    const int memory = ::shm_open("/tst_sharedlist_shm", O_RDONLY, 0);
    QVERIFY(memory >= 0);
    QCOMPARE(::fstat(memory, &st), 0);
    ::close(memory);
    QCOMPARE(st.st_size, off_t(10039315));
    ipc::named_mutex mutex(ipc::open_only, "tst_sharedlist_mutex");
    QVERIFY(mutex.try_lock());
    mutex.unlock();
}

void TestSharedList::aHolderKilledStopsNeitherReaderNorWriter()
{
    SharedList list(prefix, size);
    QVERIFY(list.store(clipsNamed("A", 3)));
    for (int round = 0; round < 3; ++round) {
        Other holder(holdForEver);
        QVERIFY(holder.hasCome());
        holder.kill();
        std::list<Clip> clips;
        QVERIFY(list.load(clips));
        QVERIFY(clips == clipsNamed("A", 3));
        // The reader has succeeded the dead one and let go: the mutex is as good as new.
        Objects objects;
        QVERIFY(objects.mutex.try_lock());
        objects.mutex.unlock();
        QCOMPARE(objects.holder(), std::uint64_t(0));
        Other again(holdForEver);
        QVERIFY(again.hasCome());
        again.kill();
        QVERIFY(list.store(clipsNamed("A", 3)));
    }
}

void TestSharedList::aHolderKilledBeforeItsMarkIsSucceededByTheWriter()
{
    SharedList list(prefix, size);
    QVERIFY(list.store(clipsNamed("A", 3)));
    Other holder([](const std::function<void()> &ready) {
        Objects objects;
        objects.mutex.lock();
        ready();
        for (;;)
            ::pause();
    });
    QVERIFY(holder.hasCome());
    holder.kill();
    std::list<Clip> clips;
    QVERIFY(list.load(clips));
    QVERIFY(list.store(clipsNamed("B", 2)));
    QVERIFY(list.load(clips));
    QVERIFY(clips == clipsNamed("B", 2));
    Objects objects;
    QVERIFY(objects.mutex.try_lock());
    objects.mutex.unlock();
}

void TestSharedList::aHolderKilledAfterItsMarkIsSucceededByTheWriter()
{
    SharedList list(prefix, size);
    Other holder([](const std::function<void()> &ready) {
        Objects objects;
        OwnedMutex lock(objects.mutex, objects.holder(), 1000, OwnedMutex::LeaveAlone);
        objects.holder() = 0; // as at its end, just before it lets go
        ready();
        for (;;)
            ::pause();
    });
    QVERIFY(holder.hasCome());
    holder.kill();
    QVERIFY(list.store(clipsNamed("B", 2)));
    std::list<Clip> clips;
    QVERIFY(list.load(clips));
    QVERIFY(clips == clipsNamed("B", 2));
}

void TestSharedList::aHolderThatOnlyStandsStillIsReadPast()
{
    SharedList list(prefix, size);
    QVERIFY(list.store(clipsNamed("A", 3)));
    Other holder(holdForEver);
    QVERIFY(holder.hasCome());
    holder.stop();
    std::list<Clip> clips;
    QVERIFY(list.load(clips));
    QVERIFY(clips == clipsNamed("A", 3));
    QVERIFY(list.store(clipsNamed("B", 2)));
    QVERIFY(list.load(clips));
    QVERIFY(clips == clipsNamed("B", 2));
}

void TestSharedList::aWriterKilledInTheMiddleLeavesNoListThatIsBelieved()
{
    SharedList list(prefix, size);
    QVERIFY(list.store(clipsNamed("A", 300)));
    Other writer([](const std::function<void()> &ready) {
        Objects objects;
        const OwnedMutex lock(objects.mutex, objects.holder(), 1000, OwnedMutex::LeaveAlone);
        std::memset(objects.base() + 500, 'x', 1000);
        ready();
        for (;;)
            ::pause();
    });
    QVERIFY(writer.hasCome());
    writer.kill();
    std::list<Clip> clips = clipsNamed("C", 1);
    QVERIFY(!list.load(clips));
    QVERIFY(clips == clipsNamed("C", 1));
    QVERIFY(list.store(clipsNamed("B", 2)));
    QVERIFY(list.load(clips));
    QVERIFY(clips == clipsNamed("B", 2));
}

void TestSharedList::writersKilledAtAnyTimeLeaveOneListOrTheOther()
{
    const std::list<Clip> first = clipsNamed("A", 500);
    const std::list<Clip> second = clipsNamed("B", 700);
    SharedList list(prefix, size);
    int believed = 0;
    for (int round = 0; round < 40; ++round) {
        QVERIFY(list.store(first));
        Other writer([&](const std::function<void()> &ready) {
            SharedList other(prefix, size);
            ready();
            for (;;) {
                other.store(second);
                other.store(first);
            }
        });
        QVERIFY(writer.hasCome());
        std::list<Clip> clips;
        for (int i = 0; i <= round; ++i) {
            if (list.load(clips)) {
                ++believed;
                QVERIFY(clips == first || clips == second);
            }
        }
        writer.kill();
        if (list.load(clips))
            QVERIFY(clips == first || clips == second);
        QVERIFY(list.store(second));
        QVERIFY(list.load(clips));
        QVERIFY(clips == second);
    }
    QVERIFY(believed > 0);
}

void TestSharedList::memoryCutBehindOurBackIsNotTouched()
{
    SharedList list(prefix, size);
    QVERIFY(list.store(clipsNamed("A", 3)));
    const int memory = ::shm_open("/tst_sharedlist_shm", O_RDWR, 0);
    QCOMPARE(::ftruncate(memory, 0), 0);
    ::close(memory);
    std::list<Clip> clips;
    QVERIFY(!list.load(clips));
    QVERIFY(!list.store(clips));
}

void TestSharedList::recordsThatNoClipCanHaveAreRefused()
{
    SharedList list(prefix, size);
    const auto isRefused = [&](const std::function<void(Clip &)> &spoil) {
        Clip clip = clipsNamed("A", 1).front();
        spoil(clip);
        std::list<Clip> clips;
        return list.store({clip}) && !list.load(clips);
    };
    QVERIFY(!isRefused([](Clip &) {}));
    QVERIFY(isRefused([](Clip &clip) { clip.setName(""); }));
    QVERIFY(isRefused([](Clip &clip) { clip.setName("../A.mov"); }));
    QVERIFY(isRefused([](Clip &clip) { clip.setName("A\n.mov"); }));
    QVERIFY(isRefused([](Clip &clip) { clip.setName(std::string(256, 'a')); }));
    QVERIFY(isRefused([](Clip &clip) { clip.setFrameCount(-1); }));
    QVERIFY(isRefused([](Clip &clip) { clip.setFileSize(-1); }));
    QVERIFY(isRefused([](Clip &clip) { clip.setState(static_cast<ClipState>(4)); }));
    QVERIFY(isRefused([](Clip &clip) { clip.setFormat(std::string(300, 'a')); }));
}

QTEST_APPLESS_MAIN(TestSharedList)
#include "tst_sharedlist.moc"
