// clip_torture kills COUNT SEED: writers in the pace of 25 frames a second, killed at random instants, also while
// they close and while their clips are recovered.
// clip_torture cuts-ext4|cuts-xfs COUNT SEED: the power of a medium is cut while clips are written to it.
// clip_torture cuts-ext4-large COUNT SEED: the same with pictures that are written past the system's cache.

#include "clip_torture.h"
#include "tst_clip_tools.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <random>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int framesASecond = 25;
constexpr int cutPace = 4000; ///< microseconds a frame: ten times as fast as a recorder
constexpr int largePace = 16'000;
constexpr int skipped = 77;

struct Tally
{
    int clips = 0;
    int faults = 0;
    int worstLoss = 0;
    int closing = 0;
    int closed = 0;

    void count(const torture::Progress &progress, int found)
    {
        ++clips;
        worstLoss = std::max(worstLoss, progress.taken - found);
        closed += progress.isClosed ? 1 : 0;
        closing += progress.isClosing && !progress.isClosed ? 1 : 0;
    }
    void fault(const QString &path, const QString &text)
    {
        ++faults;
        std::printf("%s %s\n", qPrintable(path), qPrintable(text));
    }
};

bool run(const QString &program, const QStringList &arguments, QString *output = nullptr)
{
    QProcess process;
    process.start(program, arguments, QIODevice::ReadOnly);
    if (!process.waitForFinished(-1) || process.exitCode() != 0)
        return false;
    if (output)
        *output = QString::fromUtf8(process.readAllStandardOutput()).trimmed();
    return true;
}

int report(const Tally &tally, const char *what, int pace)
{
    std::printf("%d %s: worst loss %d frames, written in %.2f s; %d clips closed before, %d while closing; %d faults\n",
                tally.clips, what, tally.worstLoss, tally.worstLoss * pace / 1e6, tally.closed, tally.closing,
                tally.faults);
    return tally.faults == 0 ? 0 : 1;
}

// Kills ---------------------------------------------------------------------------------------------------

struct Victim
{
    torture::Progress *progress = nullptr;
    QString path;
    pid_t writer = 0;
    useconds_t killAt = 0;
};

/// Several writers at a time, because each takes real seconds.
int kills(int count, unsigned seed)
{
    constexpr int atATime = 10;
    const bool hasMemory = QFileInfo(QStringLiteral("/dev/shm")).isWritable();
    QTemporaryDir folder((hasMemory ? QStringLiteral("/dev/shm") : QDir::tempPath()) + "/clip_torture-XXXXXX");
    std::mt19937 random(seed);
    std::array<Victim, atATime> victims;
    for (Victim &victim : victims)
        victim.progress = torture::sharedProgress();
    Tally tally;
    while (tally.clips < count) {
        for (Victim &victim : victims) {
            victim.path = folder.filePath(QStringLiteral("clip%1.mov").arg(&victim - victims.data()));
            QFile::remove(victim.path);
            torture::Orders orders{1000, 1'000'000 / framesASecond, 0};
            victim.killAt = random() % 3'000'000;
            if (random() % 3 == 0) {
                victim.killAt = 3'500'000;
                orders.frames = int(random() % 60) + 1;
                orders.diesInClose = int(random() % 400) + 1;
            }
            victim.writer = torture::startWriter(victim.path, victim.progress, orders);
        }
        constexpr useconds_t step = 2000;
        int left = atATime;
        for (useconds_t now = 0; left > 0; now += step) {
            usleep(step);
            for (Victim &victim : victims) {
                if (victim.writer == 0 || now < victim.killAt)
                    continue;
                kill(victim.writer, SIGKILL);
                waitpid(victim.writer, nullptr, 0);
                victim.writer = 0;
                --left;
            }
        }
        for (const Victim &victim : victims) {
            int found = 0;
            const int least = victim.progress->taken - framesASecond;
            QString fault = torture::faultOf(victim.path, *victim.progress, least, found);
            if (fault.isEmpty())
                fault = torture::faultOfRecovery(victim.path, found, unsigned(random()));
            tally.count(*victim.progress, found);
            if (!fault.isEmpty())
                tally.fault(victim.path, fault);
        }
    }
    return report(tally, "kills", 1'000'000 / framesASecond);
}

// Power cuts ----------------------------------------------------------------------------------------------

/// A file system in a file, whose power can be cut.
class Medium
{
public:
    Medium(const QString &folder, const QString &type)
        : _type(type), _image(folder + "/image"), _place(folder + "/medium")
    {
    }
    ~Medium()
    {
        unmount();
        if (!_device.isEmpty())
            run(QStringLiteral("losetup"), {QStringLiteral("-d"), _device});
    }
    QString place() const { return _place; }
    bool create()
    {
        QFile image(_image);
        return QDir().mkpath(_place) && image.open(QIODevice::WriteOnly) && image.resize(qint64(400) << 20)
            && run("mkfs." + _type, {QStringLiteral("-q"), _image})
            && run(QStringLiteral("losetup"), {QStringLiteral("-f"), QStringLiteral("--show"), _image}, &_device)
            && mount();
    }
    bool mount()
    {
        return ::mount(qPrintable(_device), qPrintable(_place), qPrintable(_type), 0, nullptr) == 0;
    }
    void unmount() { ::umount2(qPrintable(_place), MNT_DETACH); }
    /// Nothing that is not on the medium by now will ever be.
    bool cut()
    {
        constexpr unsigned long shutdownRequest = 0x8004587d;
        quint32 withoutLog = 2;
        const int place = ::open(qPrintable(_place), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const bool isCut = place >= 0 && ::ioctl(place, shutdownRequest, &withoutLog) == 0;
        ::close(place);
        return isCut;
    }

private:
    QString _type;
    QString _image;
    QString _place;
    QString _device;
};

int cuts(const QString &type, int count, unsigned seed, int pace)
{
    QTemporaryDir folder(QDir::tempPath() + "/clip_torture-XXXXXX");
    Medium medium(folder.path(), type);
    if (geteuid() != 0 || !medium.create()) {
        std::printf("no %s medium whose power can be cut\n", qPrintable(type));
        return skipped;
    }
    std::mt19937 random(seed);
    torture::Progress *progress = torture::sharedProgress();
    Tally tally;
    while (tally.clips < count) {
        const QString path = medium.place() + QStringLiteral("/clip%1.mov").arg(tally.clips);
        const int frames = random() % 3 == 0 ? int(random() % 100) + 1 : 1'000'000;
        const pid_t writer = torture::startWriter(path, progress, {frames, pace, 0});
        const useconds_t patience = random() % 600'000 + 20'000;
        for (useconds_t now = 0; now < patience && !progress->isClosing; now += 200)
            usleep(200);
        usleep(random() % 20'000);
        const int committed = progress->committed;
        const bool wasClosed = progress->isClosed;
        const bool isCut = medium.cut();
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        medium.unmount();
        if (!isCut || !medium.mount()) {
            tally.fault(path, QStringLiteral("the medium was not cut, or not mounted again"));
            break;
        }
        int found = 0;
        // What the writer came to know after the cut was not so.
        torture::Progress known;
        known.taken = progress->taken.load();
        known.isClosing = progress->isClosing.load();
        known.isClosed = wasClosed;
        QString fault = torture::faultOf(path, known, committed, found);
        if (fault.isEmpty())
            fault = torture::faultOfRecovery(path, found, unsigned(random()));
        tally.count(known, found);
        if (!fault.isEmpty())
            tally.fault(path, fault);
        QFile::remove(path);
    }
    return report(tally, "power cuts", pace);
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: clip_torture kills|cuts-ext4|cuts-xfs|cuts-ext4-large COUNT SEED\n");
        return 2;
    }
    const QString what = QString::fromLocal8Bit(argv[1]);
    const int count = QByteArray(argv[2]).toInt();
    const unsigned seed = QByteArray(argv[3]).toUInt();
    if (what == QLatin1String("kills"))
        return kills(count, seed);
    if (what == QLatin1String("cuts-ext4") || what == QLatin1String("cuts-xfs"))
        return cuts(what.mid(5), count, seed, cutPace);
    if (what == QLatin1String("cuts-ext4-large")) {
        cliptest::pictureScale = cliptest::largePictures;
        return cuts(QStringLiteral("ext4"), count, seed, largePace);
    }
    return 2;
}
