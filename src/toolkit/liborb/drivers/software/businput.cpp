#include "liborb/drivers/software/businput.h"

#include "libbus/bus.h"
#include "liborb/drivers/software/inputqueue.h"
#include "liborb/drivers/software/soundfifo.h"
#include "liborb/orbthread.h"

#include <algorithm>
#include <cstddef>
#include <thread>
#include <utility>

namespace ferin {

namespace {

constexpr std::int64_t retryNs = 200'000'000;
constexpr int stallMs = 500;       ///< without a frame: the feeder has gone
constexpr int mostPictures = 32;   ///< raw pictures that may be out
constexpr int fewestPictures = InputQueue::capacity + 4;
constexpr std::size_t pictureBytes = 400'000'000;

OrbImageDesc descOf(const bus::Format &format)
{
    OrbImageDesc desc;
    desc.setSize(format.width, format.height);
    desc.setAspectRatio(format.width, format.height);
    desc.setFrameRate(format.rateNum, format.rateDen);
    desc.setScanMode(format.scanMode);
    return desc;
}

OrbTimecode timecodeOf(const bus::FrameInfo &info)
{
    if ((info.tcFlags & OrbTimecode::Valid) == 0)
        return OrbTimecode();
    return OrbTimecode(info.tcHour, info.tcMin, info.tcSec, info.tcFrame, info.tcFps,
                       info.tcFlags & OrbTimecode::DropFrame);
}

class BusInput : public Input
{
public:
    explicit BusInput(const QString &name) : _name(name.toStdString()) {}
    ~BusInput() override;
    void start(const StatusHandler &handler) override;
    bool take(InputFrame &frame) override { return _queue.take(frame); }
    int waiting() const override { return _queue.waiting(); }
    quint64 overruns() const override { return _queue.overruns(); }
    bool isPaced() const override { return true; }

private:
    void run();
    picture::View roomFor(const bus::Format &format);
    void accept(bus::Frame &frame);
    void setFormat(const bus::Format &format);

    const std::string _name;
    InputQueue _queue;
    StopFlag _stop;
    StatusReporter _status;
    bus::Reader _reader;
    std::thread _thread;

    // The thread's own
    bus::Format _format;
    std::unique_ptr<RawPicturePool> _pool;
    RawPictureRef _next; // what the next frame's picture is read into
    quint64 _missed = 0;
    quint64 _number = 0;
};

BusInput::~BusInput()
{
    _stop.stop();
    _reader.wake();
    if (_thread.joinable())
        _thread.join();
}

void BusInput::start(const StatusHandler &handler)
{
    if (_thread.joinable())
        return;
    _status.setHandler(handler);
    _thread = std::thread([this] {
        orbNameThread("input bus");
        orbRaiseThread(); // a frame that is not read in time is overwritten
        run();
    });
}

void BusInput::run()
{
    bus::Frame frame;
    frame.target = [this](const bus::Format &format) { return roomFor(format); };
    while (!_stop.isStopping()) {
        if (!_reader.isOpen() && !_reader.open(_name)) {
            if (_stop.sleep(retryNs))
                return;
            continue;
        }
        if (_reader.next(frame, stallMs) && _reader.isAlive(stallMs)) // an old frame may still stand there
            accept(frame);
        else if (!_stop.isStopping())
            _status.report(InputStatus());
    }
}

void BusInput::setFormat(const bus::Format &format)
{
    if (_pool && format.width == _format.width && format.height == _format.height) {
        _format = format;
        return;
    }
    _format = format;
    const std::size_t each = std::max<std::size_t>(picture::bytesFor(format.width, format.height), 1);
    const auto count = static_cast<int>(std::clamp<std::size_t>(pictureBytes / each, fewestPictures, mostPictures));
    _pool = std::make_unique<RawPicturePool>(format.width, format.height, count);
    _pool->keepReady(picturesReady(format.rateNum, format.rateDen));
}

/// The picture goes right to where it stays; nowhere when all are out.
picture::View BusInput::roomFor(const bus::Format &format)
{
    if (!_pool || !(format == _format)) {
        _next.reset();
        setFormat(format);
    }
    if (!_next)
        _next = _pool->take();
    return _next ? _next->view : picture::View();
}

void BusInput::accept(bus::Frame &frame)
{
    InputStatus status;
    status.present = true;
    if (!frame.format.isValid() || frame.info.content == bus::Content::None) {
        status.present = false; // the feeder lives, but has no signal itself
        _status.report(status);
        return;
    }
    for (const quint64 missed = _reader.missed(); _missed < missed; ++_missed)
        _queue.countDropped();
    status.valid = true;
    status.format = descOf(_format);
    if (!_status.status().valid || _status.status().format != status.format)
        _number = 0;
    _status.report(status);

    InputFrame next;
    next.picture = std::exchange(_next, nullptr);
    if (!next.picture) {
        _queue.countDropped();
        ++_number;
        return;
    }
    next.channels = _format.audioChannels;
    const qsizetype soundBytes =
        static_cast<qsizetype>(frame.info.samples) * _format.audioChannels * sampleBytes;
    next.sound = QByteArray(reinterpret_cast<const char *>(frame.audio.data()),
                            std::min(soundBytes, static_cast<qsizetype>(frame.audio.size())));
    next.timecode = timecodeOf(frame.info);
    next.hasRecordFlag = true;
    next.recordFlag = frame.info.recordFlag;
    next.number = _number++;
    _queue.push(std::move(next));
}

} // namespace

std::unique_ptr<Input> createBusInput(const QString &name)
{
    return std::make_unique<BusInput>(name);
}

} // namespace ferin
