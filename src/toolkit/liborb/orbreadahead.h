#pragma once

#include "liborb/orbframe.h"
#include "liborb/orbreadorder.h"

#include <QHash>
#include <QSet>

#include <deque>
#include <functional>
#include <optional>

/// Which frames of a stream to ask for, and those that have come. The order (OrbReadOrder) says
/// which frames are wanted next; for as many of them as may be held there is a slot, first wanted
/// first, that waits for its frame or has it. Whatever changes the order lays the slots out anew
/// and keeps the frames, and the reads under way, that are still wanted. Every read carries a
/// number of its own, so an answer that nobody waits for any more is known for what it is. Asks
/// through one function; knows no stream and no time.
class OrbReadAhead
{
public:
    /// Reads \a frame; the answer goes to answer() with \a number, which is never 0.
    using Ask = std::function<void(int frame, quintptr number)>;

    /// What an answer brought.
    struct News
    {
        std::optional<int> failedFrame; ///< a frame that was wanted cannot be read
        bool areFramesThere = false;    ///< frames can be taken where few or none could
    };

    explicit OrbReadAhead(Ask ask) : _ask(std::move(ask)) {}

    /// Another stream, of \a length frames; begins at its first frame, asks for none yet.
    void reset(int length);
    /// The same stream has \a length frames by now, no fewer than before.
    void grow(int length);
    void setSize(int frames);
    void setSpeed(double speed);
    void moveTo(int frame);
    const OrbReadOrder &order() const { return _order; }

    /// The first frame not known to fail; the number of frames when all do.
    int firstReadable() const;
    /// The last frame not known to fail; -1 when all do.
    int lastReadable() const;
    /// Frames that failed are tried again when they are wanted.
    void forgetFailures() { _failed.clear(); }

    /// Frames that can be taken one after the other without waiting.
    int framesReady() const;
    OrbFrame peek() const;
    OrbFrame take();

    /// \a data is null when the frame cannot be read. An answer that is not awaited is no news.
    News answer(quintptr number, const OrbFrame &data);
    /// So many reads in a row have failed that frames are asked for one at a time, each by
    /// askAgain().
    bool isFailing() const;
    void askAgain();

private:
    struct Slot
    {
        int frame = 0;
        quintptr request = 0; ///< 0 while none is under way
        OrbFrame data;        ///< null until it is there

        bool isReady() const { return !data.isNull(); }
        bool isAwaited() const { return request != 0 && !isReady(); }
        bool isMissing() const { return request == 0 && !isReady(); }
    };

    void skipFailed();
    void layOut();
    void extend();
    bool mayAsk() const;
    void askForMissing();
    void fail(std::deque<Slot>::iterator slot);
    OrbFrame marked(OrbFrame frame, int number) const;

    Ask _ask;
    int _size = 45;
    OrbReadOrder _order;
    std::deque<Slot> _slots;
    QHash<quintptr, int> _inFlight; ///< frame by number of the read
    quintptr _lastNumber = 0;
    QSet<int> _failed;
    int _failuresInARow = 0;
    bool _mayTry = false; ///< one read while failing
};
