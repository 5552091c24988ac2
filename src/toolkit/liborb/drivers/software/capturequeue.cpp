#include "liborb/drivers/software/capturequeue.h"

namespace ferin {

namespace {

void requestPictures(const OrbFrame &frame)
{
    for (const OrbImage &image : frame.vids())
        image.buffer().request();
}

} // namespace

std::shared_ptr<void> Allowance::take()
{
    const std::shared_ptr<std::atomic<int>> out = _out;
    out->fetch_add(1);
    return std::shared_ptr<void>(out.get(), [out](void *) { out->fetch_sub(1); });
}

RawPictureRef counted(const RawPictureRef &raw, Allowance &allowance)
{
    if (!raw)
        return raw;
    const std::shared_ptr<void> token = allowance.take();
    return RawPictureRef(raw.get(), [raw, token](RawPicture *) {});
}

void CaptureQueue::push(const CaptureEntry &entry, OrbBuffer hooked)
{
    if (hooked.isValid()) {
        // The hook owns the token; it is destroyed with the buffer, whoever had the last copy.
        const std::shared_ptr<void> token = _frames.take();
        auto owner = std::make_shared<std::shared_ptr<void>>(token);
        hooked.setReleaseHook([owner] { owner->reset(); });
    }
    _entries.push_back(entry);
}

std::optional<CaptureEntry> CaptureQueue::pop()
{
    if (_entries.empty())
        return std::nullopt;
    CaptureEntry entry = _entries.front();
    _entries.pop_front();
    if (_requested > 0)
        --_requested;
    if (!_isRateKept)
        return entry;
    if (_isRecording)
        requestPictures(entry.frame);
    else
        _mayBeFirst = entry.cameraRecords ? entry.frame : OrbFrame();
    return entry;
}

void CaptureQueue::requestWaiting()
{
    for (; _requested < _entries.size(); ++_requested)
        requestPictures(_entries[_requested].frame);
}

void CaptureQueue::setRecording(bool isRecording)
{
    if (isRecording)
        requestPictures(_mayBeFirst);
    _mayBeFirst = OrbFrame();
    _isRecording = isRecording;
}

std::optional<std::int64_t> CaptureQueue::nextNumber() const
{
    if (_entries.empty())
        return std::nullopt;
    return _entries.front().number;
}

} // namespace ferin
