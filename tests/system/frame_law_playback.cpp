// The playback lines: every run is commanded, watched on the bus, and compared with the law.

#include "frame_law_table.h"

#include <algorithm>
#include <random>

namespace law {

namespace {

struct Plan {
    std::vector<int> middle; ///< speeds in hundredths
    std::vector<int> ends;
    std::vector<int> joins;
    std::vector<std::pair<int, int>> changes;
    int longLength;
    int shortLength;
    int cues;
    int stillFrames;
};

const std::vector<int> everySpeed = {10,   25,   50,   100,  110,  200,  400,   800,   1600, 2000,
                                     -10,  -25,  -50,  -100, -110, -200, -400,  -800,  -1600, -2000};

Plan planOf(Extent extent, const ClipFormat &format)
{
    if (extent == Extent::Full) {
        return {everySpeed, everySpeed, everySpeed,
                {{100, 400}, {400, -200}, {-200, 100}, {100, 50}, {50, -100}, {2000, -2000},
                 {-2000, 2000}, {100, 0}, {-1600, 0}, {200, 100}, {-100, 100}, {110, -25}},
                500, 160, 50, 300};
    }
    // Each format has its part.
    if (format.scan == OrbImageDesc::Interlaced)
        return {{}, {100, -400}, {}, {{100, 400}, {400, -200}, {-200, 100}}, 120, 60, 0, 0};
    if (format.rateDen == 1001)
        return {{}, {}, {2000}, {}, 130, 110, 10, 100};
    return {{100, -100, 200, -400, 50, 2000, -2000}, {}, {}, {}, 220, 40, 0, 0};
}

QString textOf(Speed speed)
{
    return QString::number(speed.value(), 'g', 4);
}

/// Output frames until \a frames of the clip have gone by.
int outputsFor(int frames, Speed speed)
{
    const int slow = std::abs(speed.hundredths);
    return (frames * 100 + slow - 1) / slow;
}

class Playback
{
public:
    Playback(Table &table, const ClipFormat &format, const QString &folder)
        : _table(table), _format(format), _folder(folder), _player("black", "720x576p25")
    {
    }

    bool prepare(const Plan &plan);
    void playThrough(const Plan &plan);
    void playOverEnds(const Plan &plan);
    void playOverJoins(const Plan &plan);
    void changeSpeeds(const Plan &plan);
    void holdStill(const Plan &plan);
    void cueAround(const Plan &plan, std::uint32_t seed);
    void reopen();

private:
    void line(const Material &material, Speed speed, bool looping, const QString &where, int start,
              int outputs, bool reachesEnd);
    QString comeToStill();
    void cueOnce(const Material &material, std::mt19937 &random);
    void add(const QString &speed, bool looping, const QString &where, const Finding &finding);
    bool load(const Material &material);

    Table &_table;
    const ClipFormat _format;
    const QString _folder;
    Player _player;
    Material _single;
    Material _second;
    Material _list;
    std::uint64_t _missedBefore = 0;
};

bool Playback::prepare(const Plan &plan)
{
    std::vector<TestClip> clips;
    const int lengths[] = {plan.longLength, plan.shortLength, plan.shortLength + 17};
    for (int i = 0; i < 3; ++i) {
        TestClip clip;
        clip.firstPicture = static_cast<std::uint32_t>(i + 1) * 10'000;
        clip.fps = _format.fps;
        clip.name = QStringLiteral("clip%1").arg(i + 1);
        clip.path = QStringLiteral("%1/%2-%3.mov").arg(_folder, QLatin1String(_format.name), clip.name);
        clip.path.replace(QStringLiteral("24000/1001"), QStringLiteral("23"));
        clip.length = lengths[i];
        clip.startLabel = 3600LL * _format.fps * (i + 1) + 7 * i;
        if (const QString problem = makeClip(clip, _format); !problem.isEmpty()) {
            _table.add(QLatin1String(_format.name), QString(), false, QStringLiteral("make clip"), 0, 0, problem);
            return false;
        }
        clips.push_back(clip);
    }
    _single = Material(QStringLiteral("one clip"), {clips[0]});
    _second = Material(QStringLiteral("another clip"), {clips[1]});
    _list = Material(QStringLiteral("play list"), clips);
    return true;
}

bool Playback::load(const Material &material)
{
    const QString problem = _player.load(material);
    if (!problem.isEmpty())
        _table.add(QLatin1String(_format.name), QString(), false, QStringLiteral("load ") + material.name(), 0,
                   0, problem);
    return problem.isEmpty();
}

void Playback::add(const QString &speed, bool looping, const QString &where, const Finding &finding)
{
    QString problem = finding.problem;
    const std::uint64_t missed = _player.watch().missed() - _missedBefore;
    _missedBefore += missed;
    if (missed > 0)
        problem.prepend(QStringLiteral("THE WATCH MISSED %1 FRAMES OF THE BUS; ").arg(missed));
    _table.add(QLatin1String(_format.name), speed, looping, where, finding.frames, finding.late, problem);
}

void Playback::line(const Material &material, Speed speed, bool looping, const QString &where, int start,
                    int outputs, bool reachesEnd)
{
    Finding finding = _player.play(material, {start, speed, looping}, outputs);
    if (finding.holds() && reachesEnd && !looping)
        finding.problem = comeToStill();
    _player.vtr().setLooping(false);
    _player.vtr().still();
    add(textOf(speed), looping, where, finding);
}

/// At the end it ran towards, the engine is at still.
QString Playback::comeToStill()
{
    const bool isStill =
        _player.waitFor([this] { return _player.vtr().state().speedFlags().isStill(); }, 1000);
    return isStill ? QString() : QStringLiteral("the state is not still at the end");
}

void Playback::playThrough(const Plan &plan)
{
    if (plan.middle.empty() || !load(_single))
        return;
    const int length = _single.length();
    for (const int hundredths : plan.middle) {
        const Speed speed {hundredths};
        const int slow = std::abs(hundredths);
        const int outputs = std::clamp((length - 20) * 100 / slow, 6, std::max(30, 350 / slow * 10));
        const int start = hundredths > 0 ? 7 : length - 8;
        for (const bool looping : {false, true})
            line(_single, speed, looping, QStringLiteral("middle"), start, outputs, false);
    }
}

void Playback::playOverEnds(const Plan &plan)
{
    if (plan.ends.empty() || !load(_single))
        return;
    const int length = _single.length();
    for (const int hundredths : plan.ends) {
        const Speed speed {hundredths};
        const int slow = std::abs(hundredths);
        const int frames = std::clamp(slow * 7 / 100 + 1, 2, length - 2);
        const int start = hundredths > 0 ? length - 1 - frames : frames;
        const int outputs = outputsFor(frames, speed) + std::max(12, outputsFor(2, speed));
        for (const bool looping : {false, true})
            line(_single, speed, looping, hundredths > 0 ? QStringLiteral("over the end")
                                                         : QStringLiteral("over the start"),
                 start, outputs, true);
    }
}

void Playback::playOverJoins(const Plan &plan)
{
    if (plan.joins.empty() || !load(_list))
        return;
    for (const int hundredths : plan.joins) {
        const Speed speed {hundredths};
        const int slow = std::abs(hundredths);
        const int join = _list.firstFrameOf(hundredths > 0 ? 1 : 2);
        const int frames = std::max(slow * 4 / 100, 2);
        const int start = hundredths > 0 ? join - frames : join + frames - 1;
        const int outputs = outputsFor(frames, speed) + std::max(12, outputsFor(2, speed));
        for (const bool looping : {false, true})
            line(_list, speed, looping, QStringLiteral("over a join"), start, outputs, false);
    }
    // A list is a ring like a clip.
    for (const int hundredths : plan.joins) {
        const Speed speed {hundredths};
        const int frames = std::max(std::abs(hundredths) * 4 / 100, 2);
        const int start = hundredths > 0 ? _list.length() - frames : frames - 1;
        const int outputs = outputsFor(frames, speed) + std::max(12, outputsFor(2, speed));
        line(_list, speed, true, QStringLiteral("last clip to first"), start, outputs, true);
    }
}

void Playback::changeSpeeds(const Plan &plan)
{
    if (plan.changes.empty() || !load(_single))
        return;
    VtrObject &vtr = _player.vtr();
    for (const auto &[first, second] : plan.changes) {
        const Speed before {first};
        const Speed after {second};
        Finding finding;
        const int start = first > 0 ? 10 : _single.length() - 10;
        finding.problem = _player.standOn(_single, start);
        if (finding.holds()) {
            const int lateBefore = _player.lateBeats();
            const std::size_t from = _player.watch().count();
            vtr.play(before.value());
            bool isRunning = _player.waitForFrames(from, 14);
            const std::size_t command = _player.watch().count() - from;
            vtr.play(after.value());
            isRunning = isRunning && _player.waitForFrames(from, command + 20);
            const std::vector<Shown> seen = _player.watch().since(from);
            finding = followChange(seen, command, _single, {start, before, false}, after,
                                   _player.lateBeats() - lateBefore);
            if (!isRunning)
                finding.problem = QStringLiteral("the bus stands still");
        }
        vtr.still();
        add(textOf(before) + QStringLiteral(" to ") + textOf(after), false, QStringLiteral("speed change"),
            finding);
    }
}

void Playback::holdStill(const Plan &plan)
{
    if (plan.stillFrames == 0 || !load(_single))
        return;
    for (const int frame : {0, _single.length() / 2, _single.length() - 1}) {
        Finding finding;
        finding.problem = _player.standOn(_single, frame);
        if (finding.holds()) {
            const std::size_t from = _player.watch().count();
            _player.waitForFrames(from, static_cast<std::size_t>(plan.stillFrames));
            finding = follow(_player.watch().since(from), _single, {frame, Speed {0}, false}, 0);
        }
        add(QStringLiteral("0"), false, QStringLiteral("still on %1").arg(frame), finding);
    }
}

void Playback::cueOnce(const Material &material, std::mt19937 &random)
{
    VtrObject &vtr = _player.vtr();
    const int length = material.length();
    std::uniform_int_distribution<int> anyFrame(0, length - 1);
    const int kind = std::uniform_int_distribution<int>(0, 9)(random);
    const int start = anyFrame(random);
    Finding finding;
    finding.problem = _player.standOn(material, start);
    QString where;
    Run before {start, Speed {0}, false};
    if (finding.holds()) {
        int target = anyFrame(random);
        const int lateBefore = _player.lateBeats();
        const std::size_t from = _player.watch().count();
        if (kind < 3) {
            where = QStringLiteral("cue to %1 from %2").arg(target).arg(start);
            vtr.cue(target);
        } else if (kind < 5) { // on the way
            const int speeds[] = {100, 200, -100, -400, 50};
            before.speed = Speed {speeds[static_cast<std::size_t>(target % 5)]};
            vtr.play(before.speed.value());
            _player.waitForFrames(from, 8);
            where = QStringLiteral("cue to %1 at %2").arg(target).arg(before.speed.value());
            vtr.cue(target);
        } else if (kind < 9) {
            const int step = target - start;
            where = QStringLiteral("step %1 from %2").arg(step).arg(start);
            vtr.step(step);
        } else {
            const int outside[] = {-7, length, length + 1000};
            const int wanted = outside[static_cast<std::size_t>(target % 3)];
            target = wanted < 0 ? 0 : length - 1;
            where = QStringLiteral("cue outside, %1").arg(wanted);
            vtr.cue(wanted);
        }
        const std::size_t commanded = _player.watch().count();
        _player.waitFor([&] { return _player.watch().last().number == target; }, 2000);
        _player.waitForFrames(std::max(commanded, _player.watch().count()), 6);
        finding = followCue(_player.watch().since(from), material, before, target,
                            _player.lateBeats() - lateBefore);
    }
    add(QString(), false, where, finding);
}

void Playback::cueAround(const Plan &plan, std::uint32_t seed)
{
    if (plan.cues == 0)
        return;
    std::mt19937 random(seed);
    std::printf("cues and steps with seed %u\n", seed);
    for (const Material &material : {_single, _list}) {
        if (!load(material))
            return;
        for (int i = 0; i < plan.cues / 2; ++i)
            cueOnce(material, random);
    }
}

/// Other material takes the place of the one being shown: no frame of the old one comes after it.
void Playback::reopen()
{
    if (!load(_single))
        return;
    Finding finding;
    finding.problem = _player.standOn(_single, 5);
    if (finding.holds()) {
        _player.offer(_second);
        const std::size_t from = _player.watch().count();
        _player.vtr().reopenPlaybackStream();
        _player.waitFor([this] { return _second.differs(_player.watch().last(), 0).isEmpty(); }, 3000);
        _player.waitForFrames(_player.watch().count(), 10);
        const std::vector<Shown> seen = _player.watch().since(from);
        std::size_t i = 0;
        while (i < seen.size() && _single.differs(seen[i], 5).isEmpty())
            ++i;
        finding.frames = static_cast<int>(seen.size());
        if (i == seen.size())
            finding.problem = QStringLiteral("the other clip never comes");
        for (; i < seen.size() && finding.holds(); ++i) {
            const QString problem = _second.differs(seen[i], 0);
            if (!problem.isEmpty())
                finding.problem = problem + QStringLiteral("; seen ") + seen[i].toString();
        }
    }
    add(QString(), false, QStringLiteral("another clip opened"), finding);
}

} // namespace

void runPlayback(Table &table, const ClipFormat &format, Extent extent, const QString &folder,
                 std::uint32_t seed)
{
    const Plan plan = planOf(extent, format);
    Playback playback(table, format, folder);
    if (!playback.prepare(plan))
        return;
    playback.playThrough(plan);
    playback.playOverEnds(plan);
    playback.playOverJoins(plan);
    playback.changeSpeeds(plan);
    playback.holdStill(plan);
    playback.cueAround(plan, seed);
    playback.reopen();
}

} // namespace law
