#include "liborb/drivers/software/ffmpeginput.h"

#include "liborb/drivers/software/inputpace.h"
#include "liborb/drivers/software/inputqueue.h"
#include "liborb/drivers/software/mediareader.h"
#include "liborb/drivers/software/pictureconverter.h"
#include "liborb/drivers/software/streamrate.h"
#include "liborb/orblog.h"
#include "liborb/orbthread.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

// One thread opens, reads, decodes, converts and releases. A source whose time is its own (a sender on the
// network) is taken as it comes: what the opening has heaped up is decoded and left out, so that the first
// frame delivered is the newest. A file is released at its own rate, two frames ahead, and begins anew at its
// end. While the thread waits for a source, the library asks it again and again whether to go on; that is
// where a silent source is noticed and where the end of the input gets through.

namespace ferin {

namespace {

constexpr const char *logFile = "ffmpeginput.cpp";
constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t retryNs = second / 2;
constexpr std::int64_t retryUnusableNs = 5 * second;
constexpr std::int64_t stallNs = second / 2;       ///< without a frame: the source is gone
constexpr std::int64_t longestCatchUpNs = 3 * second;
constexpr std::int64_t longestBacklogNs = second;  ///< without ever having to wait for the source
constexpr std::int64_t undecodableNs = 3 * second; ///< packets but no picture: another codec, perhaps
constexpr std::int64_t unratedNs = 5 * second;     ///< pictures at no rate that can be told: opened anew
constexpr std::int64_t leadFrames = 2;             ///< that a file is ahead of its time
constexpr std::int64_t sampleNs = 20'834;          ///< time stamps come rounded to samples
constexpr int calmFrames = 50;                     ///< progressive frames that end an interlaced stretch
constexpr int maxWidth = 4096;
constexpr int maxHeight = 2160;
constexpr std::size_t pictureBytes = 400'000'000;
constexpr int fewestPictures = InputQueue::capacity + 6;
constexpr int mostPictures = 64;

std::int64_t nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

class FfmpegInput : public Input
{
public:
    FfmpegInput(const QString &url, bool isFile);
    ~FfmpegInput() override;
    void start(const StatusHandler &handler) override;
    bool take(InputFrame &frame) override { return _queue.take(frame); }
    int waiting() const override { return _queue.waiting(); }
    quint64 overruns() const override { return _queue.overruns(); }
    bool isPaced() const override { return !_isFile; }
    int heldFrames() const override { return _held; }

private:
    void run();
    bool openSource();
    void readOn();
    void followEdge(std::int64_t now);
    bool playAgain();
    bool interrupted();
    void lose();
    void report(const QString &problem);
    void refuse(const QString &problem);

    void acceptPicture(const AVFrame &frame, SampleTime at);
    bool setFormat(const AVFrame &frame, SampleTime at);
    bool isInterlaced(const AVFrame &frame);
    OrbTimecode timecodeFor(const AVFrame &frame);
    void deliver(InputFrame &&frame);
    void pace();

    const QString _url;
    const bool _isFile;
    InputQueue _queue;
    std::atomic<int> _held = 2;
    StopFlag _stop;
    StatusReporter _status;
    std::thread _thread;

    // The thread's own
    MediaReader _reader;
    FrameAssembler _assembler;
    PictureConverter _converter;
    RateWatch _watch;
    OrbVideoRate _rate;
    OrbImageDesc _format;
    std::unique_ptr<RawPicturePool> _pool;
    QSize _poolRaster;
    bool _unusable = false;        // it delivers, but nothing that can be captured
    QString _reported;             // the problem that stands in the log
    bool _catchingUp = false;
    std::int64_t _catchUpNs = 0;   // when that began
    std::int64_t _lastWaitNs = 0;  // when the source made us wait
    std::int64_t _lastPictureNs = 0;
    std::int64_t _lastRatedNs = 0;
    QSize _raster;                 // of the picture before
    std::int64_t _paceStartNs = 0; // 0: with the next frame
    std::int64_t _released = 0;    // frames since then
    std::int64_t _pass = 0;        // pictures since the source's start
    int _calm = 0;                 // progressive frames since the last interlaced one
};

FfmpegInput::FfmpegInput(const QString &url, bool isFile)
    : _url(url), _isFile(isFile),
      _reader({[this] { return interrupted(); },
               [this](const AVFrame &frame, SampleTime at) { acceptPicture(frame, at); },
               [this](const std::uint8_t *pcm, int samples, SampleTime at) {
                   if (!_catchingUp)
                       _assembler.addSound(at, pcm, samples);
               }}),
      _assembler([this](InputFrame &&frame) { deliver(std::move(frame)); })
{
}

FfmpegInput::~FfmpegInput()
{
    _stop.stop();
    if (_thread.joinable())
        _thread.join();
}

void FfmpegInput::start(const StatusHandler &handler)
{
    if (_thread.joinable())
        return;
    _status.setHandler(handler);
    _thread = std::thread([this] {
        orbNameThread("input");
        orbRankThread(OrbWork::Coding);
        run();
    });
}

void FfmpegInput::run()
{
    while (!_stop.isStopping()) {
        if (openSource())
            readOn();
        if (!_unusable)
            lose();
        _reader.close();
        _stop.sleep(_unusable ? retryUnusableNs : retryNs);
    }
}

/// The source is there, but nothing can be done with it.
void FfmpegInput::refuse(const QString &problem)
{
    _unusable = true;
    InputStatus status;
    status.present = true;
    status.problem = problem;
    report(problem);
    _status.report(status);
}

/// Writes a problem into the log when it is a new one.
void FfmpegInput::report(const QString &problem)
{
    if (_stop.isStopping() || problem == _reported)
        return;
    _reported = problem;
    if (!problem.isEmpty())
        orbLogOutput(2, logFile, __LINE__, "Input %s: %s\n", qPrintable(_url), qPrintable(problem));
}

bool FfmpegInput::openSource()
{
    QString problem;
    _unusable = false;
    if (!_reader.open(_url, _isFile, problem)) {
        report(problem);
        return false;
    }
    if (!_reader.hasPicture()) {
        refuse(QStringLiteral("no picture in it that can be decoded"));
        return false;
    }
    _assembler.setChannels(_reader.channels());
    _rate = _reader.rate();
    _watch.restart(_rate, std::max(_reader.tickNs(), sampleNs));
    _format = OrbImageDesc();
    _catchUpNs = _lastWaitNs = _lastPictureNs = _lastRatedNs = nowNs();
    _raster = QSize();
    _catchingUp = !_reader.isOnDemand();
    _paceStartNs = 0;
    _pass = 0;
    _calm = 0;
    return true;
}

void FfmpegInput::readOn()
{
    while (!_stop.isStopping() && !_unusable) {
        switch (_reader.step()) {
        case MediaReader::Step::Read:
            break;
        case MediaReader::Step::End:
            if (!_reader.isOnDemand() || !playAgain())
                return;
            continue;
        case MediaReader::Step::Failed:
            return;
        }
        if (_reader.isOnDemand())
            continue;
        const std::int64_t now = nowNs();
        followEdge(now);
        if (now - _lastPictureNs > undecodableNs && _reader.waitedNs() < stallNs) {
            report(QStringLiteral("no more pictures in what arrives, opened anew"));
            return;
        }
        if (_reader.waitedNs() >= stallNs)
            _lastPictureNs = _lastRatedNs = now; // a silent source has time to begin anew
        else if (now - _lastRatedNs > unratedNs)
            return;
    }
}

/// Keeps a live source live. When it made us wait, all that it had is read; when it never does, this machine
/// is too slow for it, and what has heaped up is left out before it becomes a delay.
void FfmpegInput::followEdge(std::int64_t now)
{
    if (_reader.waitedNs() > second / 500) {
        _lastWaitNs = now;
        _catchingUp = false;
    } else if (_catchingUp && now - _catchUpNs > longestCatchUpNs) {
        _lastWaitNs = now; // it delivers faster than it plays
        _catchingUp = false;
    } else if (!_catchingUp && now - _lastWaitNs > longestBacklogNs) {
        _catchUpNs = now;
        _catchingUp = true;
        report(QStringLiteral("faster than this machine can take, pictures are left out"));
    }
}

/// At the end of a file; false when it does not yield a single picture.
bool FfmpegInput::playAgain()
{
    _reader.drain();
    _assembler.finish();
    const bool hadPictures = std::exchange(_pass, 0) > 0;
    return hadPictures && _reader.rewind();
}

/// The library's question while it waits, on this very thread.
bool FfmpegInput::interrupted()
{
    if (_stop.isStopping())
        return true;
    if (_status.status().present && !_unusable && !_reader.isOnDemand() && nowNs() - _lastPictureNs > stallNs)
        lose();
    return false;
}

/// The signal is gone.
void FfmpegInput::lose()
{
    _assembler.drop();
    _format = OrbImageDesc(); // the next picture begins anew, at number 0
    if (!_stop.isStopping())
        _status.report(InputStatus());
}

/// A stream may mix progressive pictures into interlaced ones: it stays interlaced for a while.
bool FfmpegInput::isInterlaced(const AVFrame &frame)
{
    if (frame.height % 2 != 0)
        return false;
    // What a live stream's header said may be long past; its pictures say it themselves.
    const bool byHeader = _reader.isOnDemand() && _reader.isInterlacedByHeader();
    if (byHeader || frame.interlaced_frame != 0) {
        _calm = 0;
        return true;
    }
    return _format.isValid() && _format.isInterlaced() && ++_calm < calmFrames;
}

/// Follows what the picture says about itself; false when it cannot be taken.
bool FfmpegInput::setFormat(const AVFrame &frame, SampleTime at)
{
    if (at) {
        const std::int64_t stampNs = av_rescale_q(*at, {1, 48'000}, {1, second});
        if (const auto rate = _watch.next(stampNs)) {
            _rate = *rate;
            _watch.restart(_rate, std::max(_reader.tickNs(), sampleNs));
        }
    }
    if (frame.width < 2 || frame.width > maxWidth || frame.height > maxHeight) {
        refuse(QStringLiteral("pictures of %1 x %2 are not supported").arg(frame.width).arg(frame.height));
        return false;
    }
    const QSize raster(frame.width & ~1, frame.height);
    if (!_reader.isOnDemand() && _raster.isValid() && _raster != raster) {
        // Another sender, perhaps: what was known about the last one's rate and scan is past.
        _assembler.drop();
        _format = OrbImageDesc();
        _rate = OrbVideoRate();
        _watch.restart(_rate, std::max(_reader.tickNs(), sampleNs));
        _lastRatedNs = nowNs();
        InputStatus status;
        status.present = true;
        status.problem = QStringLiteral("another format begins");
        _status.report(status);
    }
    _raster = raster;
    if (!_rate.isValid()) // the time stamps will tell
        return false;
    _lastRatedNs = nowNs();
    const auto scan = isInterlaced(frame) ? OrbImageDesc::Interlaced : OrbImageDesc::Progressive;
    if (_format.isValid() && _format.size() == raster && _format.scanMode() == scan
        && _format.frameRate() == _rate)
        return true;
    _format = OrbImageDesc();
    _format.setSize(raster.width(), raster.height());
    _format.setAspectRatio(raster.width(), raster.height());
    _format.setFrameRate(_rate);
    _format.setScanMode(scan);
    _held = framesHeldOfNetwork(_rate.num(), _rate.den());
    const std::size_t each = picture::bytesFor(raster.width(), raster.height());
    const auto count = int(std::clamp<std::size_t>(pictureBytes / each, fewestPictures, mostPictures));
    if (!_pool || _poolRaster != raster) {
        _pool = std::make_unique<RawPicturePool>(raster.width(), raster.height(), count);
        _pool->keepReady(picturesReady(_rate.num(), _rate.den()));
    }
    _poolRaster = raster;
    // Sound may come a second after its picture, when there is room to wait for it.
    const int aSecond = _rate.num() / _rate.den() + 1;
    _assembler.begin(_rate.num(), _rate.den(), std::min(aSecond, count / 2), !_reader.isOnDemand());
    _paceStartNs = 0;
    return true;
}

OrbTimecode FfmpegInput::timecodeFor(const AVFrame &frame)
{
    const OrbTimecode timecode = timecodeOf(frame, _rate);
    if (timecode.isValid() || !_reader.isOnDemand())
        return timecode;
    const OrbTimecode first = _reader.startTimecode();
    return first.isValid() ? first.advanced(_pass) : first;
}

void FfmpegInput::acceptPicture(const AVFrame &frame, SampleTime at)
{
    _lastPictureNs = nowNs();
    if (_stop.isStopping() || _unusable || !setFormat(frame, at))
        return;
    if (_catchingUp) {
        if (_status.status().valid)
            _queue.countDropped();
        return;
    }
    const OrbTimecode timecode = timecodeFor(frame);
    ++_pass;
    const RawPictureRef picture = _pool->take();
    if (!picture) {
        _queue.countDropped();
        return;
    }
    if (!_converter.convert(frame, _format.isInterlaced(), picture->view)) {
        refuse(QStringLiteral("pictures of this kind cannot be converted"));
        return;
    }
    _assembler.addPicture(picture, timecode, at);
}

void FfmpegInput::deliver(InputFrame &&frame)
{
    if (_reader.isOnDemand())
        pace();
    if (!_status.status().valid)
        report(QString()); // the next problem is a new one
    InputStatus status;
    status.present = true;
    status.valid = true;
    status.format = _format;
    _status.report(status);
    _queue.push(std::move(frame));
}

/// Waits until a file's next frame is due.
void FfmpegInput::pace()
{
    const std::int64_t now = nowNs();
    if (_paceStartNs == 0) {
        _paceStartNs = now;
        _released = 0;
    }
    const std::int64_t due =
        _paceStartNs
        + av_rescale(std::max<std::int64_t>(_released - leadFrames, 0), second * _rate.den(), _rate.num());
    ++_released;
    if (now > due + second) { // the machine stood still: the frames missed are not made up for
        _paceStartNs = now;
        _released = leadFrames;
        return;
    }
    if (due > now)
        _stop.sleep(due - now);
}

} // namespace

std::unique_ptr<Input> createFfmpegInput(const QString &url, bool isFile)
{
    return std::make_unique<FfmpegInput>(url, isFile);
}

} // namespace ferin
