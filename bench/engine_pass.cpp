// What one pass of the engine costs, and how much faster than time random stories are told to it. The
// engine is the shipped one, under virtual time; the drivers are scripted, and what they take
// themselves for the same frames is printed beside it.

#include "figures.h"

#include "enginerig.h"
#include "liborb/orb.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"
#include "story.h"
#include "stressrig.h"

#include <QMetaMethod>

#include <chrono>
#include <ctime>
#include <functional>
#include <vector>

namespace {

constexpr int passes = 20000;
constexpr int tries = 4 * passes;
constexpr quint32 stories = 100;
constexpr int actsOfAStory = 250;

using Clock = std::chrono::steady_clock;

/// Microseconds that \a work takes, with those of looking at the clock.
double timeOf(const std::function<void()> &work)
{
    const Clock::time_point began = Clock::now();
    work();
    return std::chrono::duration<double, std::micro>(Clock::now() - began).count();
}

class PassBench
{
public:
    PassBench()
    {
        const QMetaObject *meta = _rig.vtr->metaObject();
        _process = meta->method(meta->indexOfSlot("process()"));
        _rig.vtr->start();
        StressRig::run(100);
        _rig.changeInput(EngineRig::inputState(EngineRig::hd25()));
        StressRig::run(1000);
        _rig.video.ticksByItself = false;
        _rig.media.onWritten = [](const OrbFrame &) {};
    }

    bool measure()
    {
        const auto nothing = [] {};
        const auto capture = [this] { _rig.video.capture(); };
        const auto read = [this] {
            OrbFrame frame;
            if (_rig.device->framesReadable() > 0)
                _rig.device->readFrame(frame);
        };
        bool isDone = print("clock alone", nothing, [] { return true; }, nothing)
            && print("Standby Off, no frame", nothing, [] { return true; }, pass())
            && print("Standby Off, a frame", capture, hasFrame(), pass())
            && print("capture, scripted device alone", capture, hasFrame(), read);
        reach(VtrState::Record, [this] { _rig.vtr->record(); });
        isDone = isDone && print("Record, a frame", capture, hasFrame(), pass());
        _rig.vtr->standbyOff();
        StressRig::run(1000);
        _rig.playbackDesc = QStringLiteral("/media/long.mov");
        _rig.vtr->setLooping(true);
        reach(VtrState::Play, [this] { _rig.vtr->play(); });
        const auto show = [this] { _rig.video.show(); };
        const auto hasRoom = [this] {
            return _rig.device->framesWritable() == 1 && _rig.cache->framesInCache() > 1;
        };
        const OrbFrame frame = _rig.cache->peek();
        const auto write = [this, frame] {
            if (_rig.device->framesWritable() > 0)
                _rig.device->writeFrame(frame);
        };
        return isDone && print("Play, a frame", show, hasRoom, pass())
            && print("output, scripted device alone", show, hasRoom, write);
    }

private:
    std::function<void()> pass()
    {
        return [this] { _process.invoke(_rig.vtr.get(), Qt::DirectConnection); };
    }

    std::function<bool()> hasFrame()
    {
        return [this] { return _rig.device->framesReadable() == 1; };
    }

    /// The device is given its ticks until the engine is there.
    void reach(VtrState::Mode mode, const std::function<void()> &ask)
    {
        ask();
        for (int i = 0; i < 200; ++i) {
            StressRig::run(10);
            _rig.video.tick();
        }
        if (_rig.vtr->state().mode() != mode)
            std::fprintf(stderr, "%s is not reached\n", qPrintable(VtrState::modeName(mode)));
    }

    /// Between two passes the medium has its turn.
    bool print(const char *what, const std::function<void()> &prepare,
               const std::function<bool()> &isReady, const std::function<void()> &work)
    {
        std::vector<double> times;
        for (int i = 0; i < tries && int(times.size()) < passes; ++i) {
            prepare();
            if (isReady())
                times.push_back(timeOf(work));
            else
                _process.invoke(_rig.vtr.get(), Qt::DirectConnection);
            if (i % 4 == 3)
                StressRig::run(2);
        }
        return int(times.size()) == passes && printFigures(what, "passes", times, "us", 2);
    }

    StressRig _rig{true};
    QMetaMethod _process;
};

bool measureStories()
{
    const qint64 began = StressRig::nowMs();
    const std::clock_t clockBegan = std::clock();
    for (quint32 seed = 1; seed <= stories; ++seed) {
        const StoryOutcome outcome = tellStory(seed, firstActs(actsOfAStory));
        if (!outcome.broken.isEmpty()) {
            std::fprintf(stderr, "story %u: %s\n", seed, qPrintable(outcome.broken));
            return false;
        }
    }
    const double simulated = double(StressRig::nowMs() - began) / 1e3;
    const double seconds = double(std::clock() - clockBegan) / CLOCKS_PER_SEC;
    std::printf("stories, %u of %d acts: %.0f s in %.3f s of a core: %.0f times\n", stories,
                actsOfAStory, simulated, seconds, simulated / seconds);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication::setEventDispatcher(new SimDispatcher);
    QCoreApplication app(argc, argv);
    Orb::init(0);
    const bool isMeasured = PassBench().measure();
    return isMeasured && measureStories() ? 0 : 1;
}
