// How long a cue takes to the picture on the output, in a clip of 50,000 frames.
//
// The engine runs in this process with its real device, streams and program bus. The clip's
// pictures are really coded; frame n shows the number n % 8, which is read back from the output, so
// that a wrong picture counts as one. The clip is dropped from the page cache before it is played: a cue
// meets a cold medium.

#include "figures.h"

#include "libbus/bus.h"
#include "libclip/clipwriter.h"
#include "liborb/drivers/software/encoder.h"
#include "liborb/orb.h"
#include "liborb/orblog.h"
#include "libpicture/framebar.h"
#include "libpicture/patterns.h"
#include "transport/vtrobject.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int width = 720;
constexpr int height = 576;
constexpr int rate = 25;
constexpr int samplesOfFrame = 48000 / rate;
constexpr int clipFrames = 50'000;
constexpr int pictures = 8;
constexpr int cues = 200;
constexpr int startTimeoutMs = 20'000;
constexpr int cueTimeoutMs = 5'000;
constexpr int nothing = -2; ///< no frame of a clip, nor what the bus calls none
constexpr double frameMs = 1000.0 / rate;

OrbImageDesc clipFormat()
{
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setAspectRatio(width, height);
    desc.setFrameRate(rate, 1);
    desc.setScanMode(OrbImageDesc::Progressive);
    desc.setDataType(OrbId(OrbIdImageProRes422Proxy));
    return desc;
}

std::vector<OrbBuffer> codedPictures()
{
    ferin::RawPicturePool pool(width, height, 1);
    ferin::EncoderPool encoder(1);
    const picture::MovingPattern pattern(width, height);
    std::vector<OrbBuffer> coded;
    for (int i = 0; i < pictures; ++i) {
        ferin::RawPictureRef raw = pool.take(1000);
        if (!raw)
            return {};
        pattern.draw(raw->view, static_cast<std::uint32_t>(i));
        const OrbBuffer buffer = encoder.promise(raw, clipFormat());
        raw.reset();
        if (!buffer.wait())
            return {};
        coded.push_back(buffer);
    }
    return coded;
}

/// Puts the clip on the medium and out of the page cache.
void forgetPages(const std::string &path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    if (::fdatasync(fd) != 0 || ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED) != 0)
        std::fprintf(stderr, "cue_latency: the clip stays in memory\n");
    ::close(fd);
}

clip::Error writeClip(const std::string &path)
{
    const std::vector<OrbBuffer> coded = codedPictures();
    if (coded.size() != pictures)
        return {EIO, "the pictures cannot be coded"};
    const std::vector<std::byte> sound(samplesOfFrame * 2 * 3);
    clip::ClipInfo info;
    info.video = {clip::Codec::ProRes422Proxy, width, height, rate, 1, clip::Scan::Progressive,
                  true};
    info.audio = clip::AudioFormat {2, 48000};
    info.timecode = clip::StartTimecode {0, rate, false};
    clip::ClipWriter writer;
    writer.setSyncing(clip::ClipWriter::Syncing::BySync); // durable with the close is soon enough
    if (clip::Error error = writer.open(path, info))
        return error;
    for (int i = 0; i < clipFrames; ++i) {
        const OrbBuffer &picture = coded[static_cast<std::size_t>(i % pictures)];
        const auto *bytes = reinterpret_cast<const std::byte *>(picture.data());
        if (clip::Error error = writer.write({bytes, picture.size()}, sound))
            return error;
    }
    clip::Error error = writer.close();
    forgetPages(path);
    return error;
}

/// Looks at the output on a thread of its own for the frame that is waited for.
class OutputWatch
{
public:
    explicit OutputWatch(std::function<void(Clock::time_point, bool)> seen) : _seen(std::move(seen))
    {
        _thread = std::thread([this] { run(); });
    }
    ~OutputWatch()
    {
        _ends = true;
        _reader.wake();
        _thread.join();
    }

    void expect(int frame) { _wanted = frame; }

private:
    void run()
    {
        bus::Frame frame;
        const std::string name = qEnvironmentVariable("RVD_PROGRAM_BUS").toStdString();
        while (!_ends) {
            if (!_reader.isOpen() && !_reader.open(name)) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
                continue;
            }
            if (!_reader.next(frame, 200) || frame.info.frameNumber != _wanted)
                continue;
            const Clock::time_point now = Clock::now();
            const int wanted = _wanted.exchange(nothing);
            const auto number = picture::readFrameNumber(frame.view());
            const bool isRight = number == static_cast<std::uint32_t>(wanted % pictures);
            if (!isRight)
                std::fprintf(stderr, "cue_latency: frame %d shows picture %d and not %d\n", wanted,
                             number ? static_cast<int>(*number) : -1, wanted % pictures);
            _seen(now, isRight);
        }
    }

    std::function<void(Clock::time_point, bool)> _seen;
    bus::Reader _reader;
    std::atomic<int> _wanted = nothing;
    std::atomic<bool> _ends = false;
    std::thread _thread;
};

/// The run: into Play at still on frame 0, then one cue after another, then Shutdown.
class Run : public QObject
{
public:
    explicit Run(const QString &clip)
        : _clip(clip)
        , _watch([this](Clock::time_point when, bool isRight) {
            QMetaObject::invokeMethod(this, [this, when, isRight] { pictureSeen(when, isRight); });
        })
    {
        connect(&_vtr, &VtrObject::requestPlaybackStreamDesc, this,
                [this](QVariant &desc, int &) { desc = _clip; });
        connect(&_vtr, &VtrObject::stateChanged, this,
                [this](const VtrState &, const VtrState &state) { stateChanged(state); });
        connect(&_vtr, &VtrObject::shutdownIsComplete, this, &QCoreApplication::quit,
                Qt::QueuedConnection);
        connect(&_timeout, &QTimer::timeout, this, &Run::timedOut);
        _timeout.setSingleShot(true);
        _timeout.start(startTimeoutMs);
        _vtr.start();
    }

    bool report() const
    {
        if (_wrong > 0 || _missed > 0)
            std::fprintf(stderr, "cue_latency: %d cues without a picture, %d wrong pictures\n",
                         _missed, _wrong);
        return _wrong == 0 && printFigures("cue to picture", "cues", _figures, "frames", 2);
    }

private:
    void stateChanged(const VtrState &state)
    {
        if (_isStarted || !state.isInModeStandbyOff())
            return;
        _isStarted = true;
        _watch.expect(0);
        QTimer::singleShot(500, Qt::PreciseTimer, this, [this] { _vtr.still(); });
    }

    void cue()
    {
        if (_done == cues || _missed > 5) {
            _timeout.stop();
            shutdown();
            return;
        }
        _timeout.start(cueTimeoutMs);
        const int frame = _frame(_random);
        _watch.expect(frame);
        _begun = Clock::now();
        _vtr.cue(frame);
    }

    void pictureSeen(Clock::time_point when, bool isRight)
    {
        if (_isStarted && _isOnFirst) {
            const std::chrono::duration<double, std::milli> taken = when - _begun;
            _figures.push_back(taken.count() / frameMs);
            _wrong += isRight ? 0 : 1;
            ++_done;
        }
        _isOnFirst = true;
        next();
    }

    void timedOut()
    {
        if (!_isOnFirst) {
            std::fprintf(stderr, "cue_latency: no playback: %s\n",
                         qPrintable(_vtr.stateToString()));
            shutdown();
            return;
        }
        ++_missed;
        next();
    }

    /// Any moment between two frames is as likely as any other.
    void next()
    {
        _timeout.stop();
        QTimer::singleShot(_pauseMs(_random), Qt::PreciseTimer, this, [this] { cue(); });
    }

    /// The engine drops a request while another change is pending: it is asked until it is done.
    void shutdown()
    {
        _vtr.shutdown();
        QTimer::singleShot(100, this, [this] { shutdown(); });
    }

    QString _clip;
    VtrObject _vtr;
    QTimer _timeout;
    std::minstd_rand _random {1};
    std::uniform_int_distribution<int> _frame {100, clipFrames - 100};
    std::uniform_int_distribution<int> _pauseMs {40, 80};
    std::vector<double> _figures;
    Clock::time_point _begun;
    bool _isStarted = false;
    bool _isOnFirst = false;
    int _done = 0;
    int _missed = 0;
    int _wrong = 0;
    OutputWatch _watch; ///< last: it ends before what it reports to
};

void setDefault(const char *name, const char *value)
{
    if (!qEnvironmentVariableIsSet(name))
        qputenv(name, value);
}

} // namespace

/// The one argument is the folder for the clip of about two gigabytes; without it the system's
/// temporary one.
int main(int argc, char **argv)
{
    setDefault("RVD_PROGRAM_BUS", "/rvd_cue_latency");
    setDefault("RVD_DEVICE_CONFIG", "/dev/null");
    setDefault("RVD_INPUT", "black");
    setDefault("RVD_INPUT_FORMAT", "720x576p25");
    QCoreApplication application(argc, argv);
    if (qEnvironmentVariableIsSet("RV_VERBOSE"))
        orbLogOpenDisplay();
    Orb::init(0);

    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::tempPath();
    const QTemporaryDir temporary(folder + QStringLiteral("/cue-XXXXXX"));
    const QString path = temporary.filePath(QStringLiteral("long.mov"));
    QElapsedTimer watch;
    watch.start();
    if (const clip::Error error = writeClip(path.toStdString())) {
        std::fprintf(stderr, "cue_latency: %s\n", error.text.c_str());
        return 1;
    }
    std::fprintf(stderr, "a clip of %.1f GB is on the medium after %.1f s\n",
                 static_cast<double>(QFileInfo(path).size()) / 1e9,
                 static_cast<double>(watch.elapsed()) / 1000.0);
    bool isMeasured = false;
    {
        Run run(path);
        QCoreApplication::exec();
        isMeasured = run.report();
    }
    bus::Writer::remove(qEnvironmentVariable("RVD_PROGRAM_BUS").toStdString());
    return isMeasured ? 0 : 1;
}
