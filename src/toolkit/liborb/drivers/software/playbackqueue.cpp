#include "liborb/drivers/software/playbackqueue.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace ferin {

namespace {

constexpr int shortBeats = 10; ///< that a queue shorter than the step is waited for

OrbBuffer pictureBuffer(const OrbFrame &frame)
{
    return frame.vids().isEmpty() ? OrbBuffer() : frame.vids().first().buffer();
}

bool sharesPicture(const OrbFrame &a, const OrbFrame &b)
{
    const OrbBuffer buffer = pictureBuffer(a);
    return buffer.isValid() && buffer == pictureBuffer(b);
}

} // namespace

int PlaybackQueue::room() const
{
    return std::max(capacity() - size(), 0);
}

void PlaybackQueue::push(const OrbFrame &frame)
{
    _stepper.setSpeed(_speed);
    PlaybackEntry entry;
    entry.frame = frame;
    // A stream that is held hands over its last frame again and again: it is decoded once.
    const PlaybackEntry &before = _entries.empty() ? _last : _entries.back();
    if (before.job && sharesPicture(before.frame, frame))
        entry.job = before.job;
    _entries.push_back(entry);
}

void PlaybackQueue::clear()
{
    for (const PlaybackEntry &entry : _entries) {
        if (entry.job && entry.job != _last.job)
            entry.job->cancel();
    }
    _entries.clear();
    _stepper.setSpeed(_speed);
    _stepper.restart();
    _picked = 0;
    _short = 0;
}

OrbFrame PlaybackQueue::head() const
{
    return _entries.empty() ? OrbFrame() : _entries.front().frame;
}

void PlaybackQueue::startDecoding(PlaybackEntry &entry)
{
    if (entry.job || !_decode || !pictureBuffer(entry.frame).isValid())
        return;
    for (const PlaybackEntry &other : _entries) {
        if (other.job && sharesPicture(other.frame, entry.frame)) {
            entry.job = other.job;
            return;
        }
    }
    entry.job = _decode(entry.frame.vids().first());
}

void PlaybackQueue::decodeAhead()
{
    const int ahead = std::min(_ahead, size());
    if (_stepper.speed() <= 1.0) {
        for (int i = 0; i < ahead; ++i)
            startDecoding(_entries[static_cast<std::size_t>(i)]);
        return;
    }
    SpeedStepper stepper = _stepper;
    int position = -1;
    for (int started = 0; started < _ahead;) {
        const int move = stepper.next();
        stepper.advance();
        position += move;
        if (position >= size())
            return;
        if (move > 0) {
            startDecoding(_entries[static_cast<std::size_t>(position)]);
            ++started;
        }
    }
}

PlaybackQueue::Step PlaybackQueue::pick(PlaybackEntry &entry)
{
    _picked = 0;
    const int move = _stepper.next();
    if (move == 0)
        return Step::Hold;
    if (_entries.empty())
        return Step::Empty;
    // A queue that stays shorter than the step gives what it has: the frames before a change of
    // format, or a medium that cannot keep up.
    if (move > size() && _short < shortBeats)
        return Step::Empty;
    _picked = std::min(move, size());
    PlaybackEntry &chosen = _entries[static_cast<std::size_t>(_picked - 1)];
    startDecoding(chosen);
    entry = chosen;
    return Step::Show;
}

void PlaybackQueue::done(Step step)
{
    if (step == Step::Empty) {
        ++_short;
        return;
    }
    _short = 0;
    _stepper.advance();
    if (step != Step::Show || _picked <= 0 || _picked > size())
        return;
    _last = _entries[static_cast<std::size_t>(_picked - 1)];
    const std::vector<PlaybackEntry> passed(_entries.begin(), std::next(_entries.begin(), _picked));
    _entries.erase(_entries.begin(), std::next(_entries.begin(), _picked));
    _picked = 0;
    for (const PlaybackEntry &entry : passed) {
        if (entry.job && !isWanted(entry.job))
            entry.job->cancel();
    }
}

/// Frames with the same picture share its decoding.
bool PlaybackQueue::isWanted(const std::shared_ptr<DecodeJob> &job) const
{
    return job == _last.job || std::ranges::find(_entries, job, &PlaybackEntry::job) != _entries.end();
}

} // namespace ferin
