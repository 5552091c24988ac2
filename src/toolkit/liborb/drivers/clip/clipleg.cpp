#include "liborb/drivers/clip/clipleg.h"

#include <cerrno>
#include <deque>
#include <mutex>
#include <utility>

/// Frames on their way to the worker. A frame counts against what a device may capture until the
/// last copy goes, so those that a hanging worker will not write must not wait with it.
class ClipLeg::Frames
{
public:
    void put(const OrbFrame &frame)
    {
        const std::lock_guard lock(_mutex);
        _frames.push_back(frame);
    }
    /// False when all frames were dropped.
    bool take(OrbFrame &frame)
    {
        const std::lock_guard lock(_mutex);
        if (_frames.empty())
            return false;
        frame = std::move(_frames.front());
        _frames.pop_front();
        return true;
    }
    void drop()
    {
        std::deque<OrbFrame> rubbish;
        const std::lock_guard lock(_mutex);
        _frames.swap(rubbish);
    }

private:
    std::mutex _mutex;
    std::deque<OrbFrame> _frames;
};

ClipLeg::ClipLeg(ClipLegHost *host, const QString &path, qint64 first)
    : _host(host), _path(path), _first(first), _frames(std::make_shared<Frames>())
{
    ClipSink::News news;
    news.failed = [this, answers = _answers](const OrbError &error) {
        answers.post([this, error] { _host->legFailed(error); });
    };
    news.committed = [this, answers = _answers] { answers.post([this] { _host->legCommitted(); }); };
    _sink = std::make_shared<ClipSink>(std::move(news));
}

ClipLeg::~ClipLeg()
{
    _answers.close();
    _worker.post([sink = std::move(_sink)] { });
    _worker.finish(_patience);
}

void ClipLeg::open(const OrbStreamInfo &info)
{
    if (!_worker.start()) {
        _answers.post([this] { _host->legOpened(OrbError(EAGAIN)); });
        return;
    }
    _worker.post([this, info, path = _path, sink = _sink, answers = _answers] {
        const OrbError error = sink->open(path, info);
        answers.post([this, error] { _host->legOpened(error); });
    });
}

void ClipLeg::write(const OrbFrame &frame)
{
    _frames->put(frame);
    _worker.post([this, frames = _frames, sink = _sink, answers = _answers] {
        OrbFrame next;
        if (!frames->take(next))
            return;
        const OrbError error = sink->write(next);
        answers.post([this, error] { answerTaken(error); });
    });
}

void ClipLeg::answerTaken(const OrbError &error)
{
    _host->legTook(_first + _answered++, error);
}

void ClipLeg::refuse(const OrbError &error)
{
    _worker.post([this, error, answers = _answers] {
        answers.post([this, error] { answerTaken(error); });
    });
}

void ClipLeg::flush()
{
    _worker.post([this, sink = _sink, answers = _answers] {
        (void)sink->flush();
        answers.post([this] { _host->legFlushed(); });
    });
}

void ClipLeg::close()
{
    _worker.post([this, sink = _sink, answers = _answers] {
        const OrbError error = sink->close();
        answers.post([this, error] { _host->legClosed(error); });
    });
}

void ClipLeg::abandon()
{
    _answers.close();
    _frames->drop();
    _worker.discard();
    _worker.post([sink = _sink] { (void)sink->close(); });
    _worker.stop();
}
