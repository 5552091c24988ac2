// The lines of commands other than a speed: stills, cues and steps, entering Play, other material, and many
// commands at once.

#include "frame_law_playback.h"

#include <algorithm>

namespace law {

namespace {

/// Beats that a new format may stay without a picture on a bus that has no older one of its size.
constexpr int mostBlack = 4;

bool isOfClip(const Shown &seen)
{
    return seen.content == bus::Content::Playback || seen.content == bus::Content::Held;
}

} // namespace

Finding Playback::holdOn(const Plan &plan, int frame)
{
    Finding finding;
    finding.problem = _player.standOn(_single, frame);
    if (!finding.holds())
        return finding;
    const std::size_t from = _player.watch().count();
    _player.waitForFrames(from, static_cast<std::size_t>(plan.stillFrames));
    return follow(_player.watch().since(from), _single, {frame, Speed {0}, false}, 0);
}

void Playback::holdStill(const Plan &plan)
{
    if (plan.stillFrames == 0 || !load(_single))
        return;
    for (const int frame : {0, _single.length() / 2, _single.length() - 1}) {
        const Finding finding = _player.watched([&] { return holdOn(plan, frame); });
        add(QStringLiteral("0"), false, QStringLiteral("still on %1").arg(frame), finding);
    }
}

/// One cue or step, from still or on the way.
Finding Playback::cueBy(const Material &material, const Command &command)
{
    VtrObject &vtr = _player.vtr();
    Finding finding;
    finding.problem = _player.standOn(material, command.before.start);
    if (!finding.holds())
        return finding;
    const int lateBefore = _player.lateBeats();
    const std::size_t from = _player.watch().count();
    if (command.before.speed.hundredths != 0) {
        vtr.play(command.before.speed.value());
        _player.waitForFrames(from, 8);
    }
    if (command.isStep)
        vtr.step(command.value);
    else
        vtr.cue(command.value);
    const std::size_t commanded = _player.watch().count();
    _player.waitFor([&] { return _player.watch().last().number == command.target; }, 2000);
    _player.waitForFrames(std::max(commanded, _player.watch().count()), 6);
    return followCue(_player.watch().since(from), material, command.before, command.target,
                     _player.lateBeats() - lateBefore);
}

void Playback::cueOnce(const Material &material, std::mt19937 &random)
{
    const int length = material.length();
    std::uniform_int_distribution<int> anyFrame(0, length - 1);
    const int kind = std::uniform_int_distribution<int>(0, 9)(random);
    const int start = anyFrame(random);
    const int target = anyFrame(random);
    Command command {{start, Speed {0}, false}, false, target, target};
    QString where = QStringLiteral("cue to %1 from %2").arg(target).arg(start);
    if (kind < 2) {
        constexpr int speeds[] = {100, 200, -100, -400, 50};
        command.before.speed = Speed {speeds[static_cast<std::size_t>(target % 5)]};
        where = QStringLiteral("cue to %1 at %2").arg(target).arg(command.before.speed.value());
    } else if (kind < 6) {
        command.isStep = true;
        command.value = target - start;
        where = QStringLiteral("step %1 from %2").arg(command.value).arg(start);
    } else if (kind == 6) {
        const int outside[] = {-7, length, length + 1000};
        command.value = outside[static_cast<std::size_t>(target % 3)];
        command.target = command.value < 0 ? 0 : length - 1;
        where = QStringLiteral("cue outside, %1").arg(command.value);
    } else if (kind == 7) {
        command.isStep = true;
        command.value = target % 2 == 0 ? -length - 3 : length + 3;
        command.target = command.value < 0 ? 0 : length - 1;
        where = QStringLiteral("step outside, %1").arg(command.value);
    }
    add(QString(), false, where, _player.watched([&] { return cueBy(material, command); }));
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

/// From Standby Off straight into a speed: the first frame of the clip on the bus is the start, new.
Finding Playback::enterAt(Speed speed, int start)
{
    Finding finding;
    finding.problem = _player.standbyOff();
    if (!finding.holds())
        return finding;
    _player.offer(_single, start);
    const int lateBefore = _player.lateBeats();
    const std::size_t from = _player.watch().count();
    _player.vtr().play(speed.value());
    const auto isPlaying = [this] { return _player.watch().last().content == bus::Content::Playback; };
    if (!_player.waitFor(isPlaying, 3000)) {
        finding.problem = QStringLiteral("nothing is played");
        return finding;
    }
    _player.waitForFrames(_player.watch().count(), 20);
    const std::vector<Shown> seen = _player.watch().since(from);
    std::size_t first = 0;
    while (first < seen.size() && seen[first].number < 0)
        ++first;
    return follow(std::span(seen).subspan(first), _single, {start, speed, false}, _player.lateBeats() - lateBefore,
                  12, Start::New);
}

void Playback::enterPlay(const Plan &plan)
{
    for (const int hundredths : plan.entries) {
        const Speed speed {hundredths};
        const int start = hundredths > 0 ? 9 : _single.length() - 5;
        const Finding finding = _player.watched([&] { return enterAt(speed, start); });
        _player.vtr().still();
        add(textOf(speed), false, QStringLiteral("from Standby Off"), finding);
    }
}

/// Other material takes the place of the one being shown: no frame of the old one comes after it, and
/// its frame 0 is new although a frame 0 was on the bus.
Finding Playback::openAnother()
{
    Finding finding;
    finding.problem = _player.load(_single);
    if (!finding.holds())
        return finding;
    _player.offer(_second);
    const std::size_t from = _player.watch().count();
    _player.vtr().reopenPlaybackStream();
    _player.waitFor([this] { return _second.differs(_player.watch().last(), 0).isEmpty(); }, 3000);
    _player.waitForFrames(_player.watch().count(), 10);
    const std::vector<Shown> seen = _player.watch().since(from);
    std::size_t i = 0;
    while (i < seen.size() && _single.differs(seen[i], 0).isEmpty())
        ++i;
    finding = follow(std::span(seen).subspan(i), _second, {0, Speed {0}, false}, 0, 12, Start::New);
    if (i == seen.size())
        finding.problem = QStringLiteral("the other clip never comes");
    return finding;
}

void Playback::openOther(const Plan &plan)
{
    if (plan.entries.empty())
        return;
    add(QString(), false, QStringLiteral("another clip opened"), _player.watched([&] { return openAnother(); }));
}

/// The same material is opened anew while it plays. It goes on where reading had come to: behind the
/// frame on output by what was queued.
Finding Playback::openAgain()
{
    constexpr int mostQueued = 12;
    const Run run {10, Speed {100}, false};
    Finding finding;
    finding.problem = _player.standOn(_single, run.start);
    if (!finding.holds())
        return finding;
    const int lateBefore = _player.lateBeats();
    const std::size_t from = _player.watch().count();
    _player.vtr().play(run.speed.value());
    _player.waitForFrames(from, 15);
    _player.vtr().reopenPlaybackStream();
    _player.waitForFrames(_player.watch().count(), 30);
    const std::vector<Shown> seen = _player.watch().since(from);
    _player.vtr().still();
    const auto jump = std::adjacent_find(seen.begin(), seen.end(), [](const Shown &a, const Shown &b) {
        return b.number > a.number + 1;
    });
    if (jump == seen.end()) {
        finding.problem = QStringLiteral("it does not go on from where reading was");
        return finding;
    }
    const auto before = static_cast<std::size_t>(jump - seen.begin()) + 1;
    std::size_t running = before;
    while (running > 1 && seen[running - 1].number == seen[running - 2].number)
        --running; // held while the stream opens
    const int late = _player.lateBeats() - lateBefore;
    const Finding first = follow(std::span(seen).first(running), _single, run, late);
    const int next = static_cast<int>(seen[before].number);
    if (!first.holds() || next > jump->number + mostQueued) {
        finding.problem = first.holds() ? QStringLiteral("it goes on at frame %1").arg(next) : first.problem;
        return finding;
    }
    finding = follow(std::span(seen).subspan(before), _single, {next, run.speed, false}, late, 12, Start::New);
    finding.frames += first.frames;
    return finding;
}

void Playback::openSameAgain(const Plan &plan)
{
    if (plan.entries.empty() || !load(_single))
        return;
    add(QStringLiteral("1"), false, QStringLiteral("same clip opened again"),
        _player.watched([&] { return openAgain(); }));
}

/// The device needs another setup at the join: the last frame before it stands until that is done, and
/// no frame of either clip is lost.
Finding Playback::overMixedJoin(Speed speed)
{
    const int join = _mixed.firstFrameOf(1);
    const bool isForward = speed.hundredths > 0;
    const int last = isForward ? join - 1 : join;
    const int next = isForward ? join : join - 1;
    const Run run {isForward ? join - 9 : join + 8, speed, false};
    Finding finding;
    finding.problem = _player.standOn(_mixed, run.start);
    if (!finding.holds())
        return finding;
    const int lateBefore = _player.lateBeats();
    const std::size_t from = _player.watch().count();
    _player.vtr().play(speed.value());
    _player.waitFor([&] { return _player.watch().last().number == next; }, 12'000);
    _player.waitForFrames(_player.watch().count(), 15);
    const std::vector<Shown> seen = _player.watch().since(from);
    const int late = _player.lateBeats() - lateBefore;

    const auto turn = std::ranges::find(seen, last, &Shown::number);
    const auto firstNew = std::ranges::find(seen, next, &Shown::number);
    if (turn == seen.end() || firstNew == seen.end()) {
        finding.problem = QStringLiteral("it does not come to frame %1").arg(next);
        return finding;
    }
    _player.vtr().still();
    _player.runFor(700); // a reset that was asked for is over
    finding = follow({seen.begin(), turn + 1}, _mixed, run, late);
    int black = 0;
    for (auto frame = turn + 1; frame != firstNew && finding.holds(); ++frame) {
        black += frame->content == bus::Content::Black ? 1 : 0;
        const bool isHeld = frame->content == bus::Content::Held && _mixed.differs(*frame, last).isEmpty();
        if ((!isHeld && frame->content != bus::Content::Black) || frame->samples > 0)
            finding.problem = QStringLiteral("between the formats: ") + frame->toString();
    }
    if (black > mostBlack)
        finding.problem = QStringLiteral("%1 black frames between the formats").arg(black);
    if (finding.holds())
        finding = follow({firstNew, seen.end()}, _mixed, {next, speed, false}, late, 12, Start::New);
    return finding;
}

void Playback::playMixed(const Plan &plan)
{
    if (!plan.hasOddities || !load(_mixed))
        return;
    for (const int hundredths : {100, -100, 50, -50, 25, 10}) {
        const Finding finding = _player.watched([&] { return overMixedJoin(Speed {hundredths}); });
        add(textOf(Speed {hundredths}), false, QStringLiteral("join of two formats"), finding);
    }
}

/// Commands faster than they can be carried out. Whatever comes on the bus is a true frame of the material, and
/// the last command is obeyed.
Finding Playback::stormOnce(const Material &material, std::mt19937 &random)
{
    const auto any = [&](int most) { return std::uniform_int_distribution<int>(0, most)(random); };
    constexpr double speeds[] = {1, 2, 4, 0.5, 20, -1, -2, -0.25, -20, 0, 1.1, 16};
    VtrObject &vtr = _player.vtr();
    Finding finding;
    finding.problem = _player.standOn(material, any(material.length() - 1));
    const std::size_t from = _player.watch().count();
    for (int i = 0; i < 12 && finding.holds(); ++i) {
        switch (any(5)) {
        case 0: vtr.cue(any(material.length() - 1)); break;
        case 1: vtr.step(any(40) - 20); break;
        case 2: vtr.setLooping(any(1) == 1); break;
        default: vtr.play(speeds[any(11)]); break;
        }
        if (any(2) > 0)
            _player.runFor(any(150));
    }
    vtr.setLooping(false);
    _player.runFor(150); // a step that is under way would be added to a cue
    if (finding.holds())
        finding.problem = _player.standOn(material, any(material.length() - 1));
    for (const Shown &seen : _player.watch().since(from)) {
        ++finding.frames;
        if (material.hasFormats() && seen.content == bus::Content::Black && seen.samples == 0)
            continue; // while the device goes from one to the other
        QString problem = isOfClip(seen) ? material.differs(seen, static_cast<int>(seen.number))
                                         : QStringLiteral("not a frame of the clip");
        if (problem.isEmpty() && seen.samples > 0 && seen.sound != material.soundOf(static_cast<int>(seen.number)))
            problem = QStringLiteral("the sound of another frame");
        if (!problem.isEmpty() && finding.holds())
            finding.problem = problem + QStringLiteral("; seen ") + seen.toString();
    }
    return finding;
}

void Playback::storm(const Plan &plan, std::uint32_t seed)
{
    std::mt19937 random(seed);
    for (int i = 0; i < plan.storms; ++i) {
        const bool isMixed = plan.hasOddities && i % 5 == 4;
        const Material &material = isMixed ? _mixed : i % 2 == 0 ? _single : _list;
        if (!load(material))
            return;
        add(QString(), false, QStringLiteral("storm %1").arg(i + 1),
            _player.watched([&] { return stormOnce(material, random); }));
    }
}

} // namespace law
