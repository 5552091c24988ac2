// The speed lines: every run is commanded, watched on the bus, and compared with the law.

#include "frame_law_playback.h"

#include <algorithm>

namespace law {

namespace {

const std::vector<int> everySpeed = {10,   25,   50,   100,  110,  200,  400,   800,   1600, 2000,
                                     -10,  -25,  -50,  -100, -110, -200, -400,  -800,  -1600, -2000};

Plan planOf(Extent extent, const ClipFormat &format)
{
    Plan plan {};
    if (format.isHeavy) {
        plan.middle = {100, 200, 800, 1600, 2000, -100, -200, -800, -1600, -2000};
        plan.middleLoops = true;
        plan.ends = plan.joins = {2000, -2000};
        plan.longLength = 500;
        plan.shortLength = 160;
        return plan;
    }
    if (extent == Extent::Full) {
        plan.middle = plan.ends = plan.joins = everySpeed;
        plan.middleLoops = true;
        plan.changes = {{100, 400}, {400, -200}, {-200, 100}, {100, 50}, {50, -100}, {2000, -2000},
                        {-2000, 2000}, {100, 0}, {-1600, 0}, {200, 100}, {-100, 100}, {110, -25}};
        plan.entries = {100, 400, 50, -100, -800};
        plan.longLength = 500;
        plan.shortLength = 160;
        plan.cues = 50;
        plan.storms = 20;
        plan.stillFrames = 300;
        plan.hasOddities = true;
        return plan;
    }
    // Each format has its part.
    plan.longLength = 120;
    plan.shortLength = 40;
    if (format.scan == OrbImageDesc::Interlaced) {
        plan.ends = {100, -400};
        plan.changes = {{100, 400}, {400, -200}, {-200, 100}};
    } else if (format.rateDen == 1001) {
        plan.joins = {2000};
        plan.shortLength = 100;
        plan.cues = 10;
    } else {
        plan.middle = {100, -100, 200, -400, 50, 2000, -2000};
        plan.entries = {100};
        plan.longLength = 200;
        plan.storms = 3;
        plan.stillFrames = 100;
    }
    return plan;
}

/// Output frames until \a frames of the clip have gone by.
int outputsFor(int frames, Speed speed)
{
    const int slow = std::abs(speed.hundredths);
    return (frames * 100 + slow - 1) / slow;
}

} // namespace

QString textOf(Speed speed)
{
    return QString::number(speed.value(), 'g', 4);
}

Playback::Playback(Table &table, const ClipFormat &format, const QString &folder)
    : _table(table), _format(format), _folder(folder), _player("black", "720x576p25")
{
}

QString Playback::make(TestClip &clip, const ClipFormat &format, int number, int length)
{
    clip.name = QStringLiteral("clip%1").arg(number);
    clip.path = QStringLiteral("%1/%2-%3-%4.mov").arg(_folder).arg(_format.height).arg(_format.rateNum).arg(clip.name);
    clip.length = length;
    clip.firstPicture = static_cast<std::uint32_t>(number) * 10'000;
    clip.fps = format.fps;
    clip.startLabel = 3600LL * format.fps * number + 7 * number;
    return makeClip(clip, format);
}

QString Playback::makeShortClips()
{
    constexpr int clipCount = 14;
    std::vector<TestClip> clips(clipCount);
    for (int i = 0; i < clipCount; ++i) {
        TestClip &clip = clips[static_cast<std::size_t>(i)];
        const int length = i == 0 ? 1 : i == 1 ? 2 : 3 + i % 4;
        if (const QString problem = make(clip, _format, 10 + i, length); !problem.isEmpty())
            return problem;
    }
    _one = Material(QStringLiteral("clip of one frame"), {clips[0]});
    _pair = Material(QStringLiteral("clip of two frames"), {clips[1]});
    _crumbs = Material(QStringLiteral("list of short clips"), clips);
    return QString();
}

bool Playback::prepare(const Plan &plan)
{
    static constexpr ClipFormat small = {"", 1280, 720, 50, 1, OrbImageDesc::Progressive, 50};
    static constexpr ClipFormat large = {"", 1920, 1080, 25, 1, OrbImageDesc::Interlaced, 25};
    const int lengths[] = {plan.longLength, plan.shortLength, plan.shortLength + 17};
    std::vector<TestClip> clips(3);
    QString problem;
    for (int i = 0; i < 3 && problem.isEmpty(); ++i)
        problem = make(clips[static_cast<std::size_t>(i)], _format, i + 1, lengths[i]);
    if (problem.isEmpty() && plan.hasOddities)
        problem = makeShortClips();
    if (problem.isEmpty() && plan.hasOddities) {
        TestClip other;
        problem = make(other, _format.height == small.height ? large : small, 4, 60);
        _mixed = Material(QStringLiteral("two formats"), {clips[1], other});
    }
    if (!problem.isEmpty()) {
        _table.add(QLatin1String(_format.name), QString(), false, QStringLiteral("make clips"), 0, 0, problem);
        return false;
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
    _table.add(QLatin1String(_format.name), speed, looping, where, finding.frames, finding.late, finding.problem);
}

void Playback::line(const Material &material, Speed speed, bool looping, const QString &where, int start,
                    int outputs, bool reachesEnd)
{
    const Finding finding = _player.watched([&] {
        if (_format.isHeavy)
            std::ranges::for_each(material.clips(), forgetPages);
        Finding run = _player.play(material, {start, speed, looping}, outputs);
        if (run.holds() && reachesEnd && !looping)
            run.problem = comeToStill();
        _player.vtr().setLooping(false);
        _player.vtr().still();
        return run;
    });
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
        line(_single, speed, false, QStringLiteral("middle"), start, outputs, false);
        if (plan.middleLoops)
            line(_single, speed, true, QStringLiteral("middle"), start, outputs, false);
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
        if (plan.hasOddities)
            line(_single, speed, true, QStringLiteral("from the end itself"), hundredths > 0 ? length - 1 : 0, 20,
                 false);
    }
    if (!plan.hasOddities)
        return;
    line(_single, Speed {100}, false, QStringLiteral("stays at the end"), length - 1, 20, true);
    line(_single, Speed {-100}, false, QStringLiteral("stays at the start"), 0, 20, true);
}

/// Clips shorter than a step, and than what is read ahead.
void Playback::playShortClips(const Plan &plan)
{
    if (!plan.hasOddities)
        return;
    for (const Material &material : {_crumbs, _pair, _one}) {
        if (!load(material))
            return;
        for (const int hundredths : {100, 50, 400, 2000, -100, -50, -400, -2000})
            line(material, Speed {hundredths}, true, material.name(), material.length() / 2, 40, false);
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

Finding Playback::changeOnce(Speed before, Speed after)
{
    VtrObject &vtr = _player.vtr();
    Finding finding;
    const Run run {before.hundredths > 0 ? 10 : _single.length() - 10, before, false};
    finding.problem = _player.standOn(_single, run.start);
    if (!finding.holds())
        return finding;
    const int lateBefore = _player.lateBeats();
    const std::size_t from = _player.watch().count();
    vtr.play(before.value());
    bool isRunning = _player.waitForFrames(from, 14);
    const std::size_t command = _player.watch().count() - from;
    vtr.play(after.value());
    isRunning = isRunning && _player.waitForFrames(from, command + 20);
    const std::vector<Shown> seen = _player.watch().since(from);
    finding = followChange(seen, command, _single, run, after, _player.lateBeats() - lateBefore);
    if (!isRunning)
        finding.problem = QStringLiteral("the bus stands still");
    vtr.still();
    return finding;
}

void Playback::changeSpeeds(const Plan &plan)
{
    if (plan.changes.empty() || !load(_single))
        return;
    for (const auto &[first, second] : plan.changes) {
        const Speed before {first};
        const Speed after {second};
        const Finding finding = _player.watched([&] { return changeOnce(before, after); });
        add(textOf(before) + QStringLiteral(" to ") + textOf(after), false, QStringLiteral("speed change"),
            finding);
    }
}

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
    playback.playShortClips(plan);
    playback.changeSpeeds(plan);
    playback.holdStill(plan);
    playback.cueAround(plan, seed);
    playback.enterPlay(plan);
    playback.openOther(plan);
    playback.openSameAgain(plan);
    playback.playMixed(plan);
    playback.storm(plan, seed);
}

} // namespace law
