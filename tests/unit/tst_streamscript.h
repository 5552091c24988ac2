#pragma once

#include "liborb/ifaces/mediadriver.h"
#include "liborb/orbdrivers.h"

#include <QCoreApplication>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <deque>
#include <functional>
#include <map>

/// A media driver that does what the test says, on the event loop alone. Answers come in a later
/// turn, in order; those of a kind that is held come when release() lets them.
class MediaScript
{
public:
    enum Kind { Opens, Reads, Writes, Closes };

    MediaScript()
    {
        OrbDrivers::setMediaFactory(
            [this](const QVariant &, OrbAccess, const OrbId &type, OrbMediaDriverHost *host) {
                return make(type, host);
            });
    }
    ~MediaScript() { OrbDrivers::setMediaFactory({}); }

    // What the medium is like
    int length = 100;
    bool isRefusing = false; ///< no driver takes the descriptor
    OrbError openError;
    OrbError writeError;
    QSet<int> unreadable;
    bool isAllUnreadable = false;

    // What was asked of it
    QStringList calls;
    QList<int> reads;
    OrbId lastType;

    void hold(Kind kind) { _held[kind]; }
    int heldCount(Kind kind) const { return _held.count(kind) ? int(_held.at(kind).size()) : 0; }
    /// Lets \a count held answers go, all and everything after them when it is not given.
    void release(Kind kind, int count = -1)
    {
        if (!_held.count(kind))
            return;
        auto &answers = _held[kind];
        for (; count != 0 && !answers.empty(); --count) {
            post(answers.front());
            answers.pop_front();
        }
        if (count < 0)
            _held.erase(kind);
    }

    /// Runs the event loop until nothing is left to do but wait.
    static void settle()
    {
        for (int turn = 0; turn < 300; ++turn)
            QCoreApplication::processEvents();
    }

private:
    class Driver : public OrbMediaDriver
    {
    public:
        Driver(MediaScript *script, OrbMediaDriverHost *host) : _script(script), _host(host) {}

        void open(const QVariant &desc, OrbAccess access, const OrbStreamInfo &info) override
        {
            _script->calls << QStringLiteral("open %1 %2").arg(desc.toString()).arg(int(access));
            OrbStreamInfo result = info;
            result.setLength(_script->length);
            answer(Opens, [this, result] { _host->driverOpened(_script->openError, result); });
        }
        void read(int frame, void *context) override
        {
            _script->reads << frame;
            answer(Reads, [this, frame, context] {
                OrbFrame data;
                data.meta().insert(OrbId(OrbIdKeyFrame), frame);
                const bool fails =
                    _script->isAllUnreadable || _script->unreadable.contains(frame);
                _host->driverFrameRead(frame, fails ? OrbFrame() : data, OrbError(fails ? 5 : 0),
                                       context);
            });
        }
        void write(const OrbFrame &frame) override
        {
            const int tag = frame.meta().valueFor(OrbId(OrbIdKeyFrame)).toInt();
            _script->calls << QStringLiteral("write %1").arg(tag);
            answer(Writes,
                   [this] { _host->driverFrameWritten(_written++, _script->writeError); });
        }
        void flush() override { _script->calls << QStringLiteral("flush"); }
        void close() override
        {
            _script->calls << QStringLiteral("close");
            answer(Closes, [this] { _host->driverClosed(); });
        }

    private:
        void answer(Kind kind, const std::function<void()> &what)
        {
            // The driver may be gone when its answer's turn comes.
            const std::weak_ptr<bool> alive = _alive;
            const auto guarded = [alive, what] {
                if (!alive.expired())
                    what();
            };
            if (_script->_held.count(kind))
                _script->_held[kind].push_back(guarded);
            else
                _script->post(guarded);
        }

        MediaScript *_script;
        OrbMediaDriverHost *_host;
        std::shared_ptr<bool> _alive = std::make_shared<bool>(true);
        int _written = 0;
    };

    std::unique_ptr<OrbMediaDriver> make(const OrbId &type, OrbMediaDriverHost *host)
    {
        lastType = type;
        if (isRefusing)
            return nullptr;
        return std::make_unique<Driver>(this, host);
    }
    void post(const std::function<void()> &answer)
    {
        QMetaObject::invokeMethod(&_loop, answer, Qt::QueuedConnection);
    }

    QObject _loop;
    std::map<Kind, std::deque<std::function<void()>>> _held;
};

/// A frame that the script can tell from others.
inline OrbFrame taggedFrame(int tag)
{
    OrbFrame frame;
    frame.meta().insert(OrbId(OrbIdKeyFrame), tag);
    return frame;
}

inline int tagOf(const OrbFrame &frame)
{
    return frame.isNull() ? -1 : frame.meta().valueFor(OrbId(OrbIdKeyFrame)).toInt();
}
