#include "frame_law.h"

#include "liborb/orbplaylist.h"

#include <algorithm>

namespace law {

namespace {

constexpr int framesAfterCommand = 2; ///< of the old speed, until the device is flushed
constexpr std::size_t framesToLand = 12;
constexpr int whole = 100;            ///< hundredths

/// Rounded towards minus infinity.
std::int64_t floorDiv(std::int64_t value, std::int64_t by)
{
    const std::int64_t quotient = value / by;
    return quotient - (value % by < 0 ? 1 : 0);
}

QString contentName(bus::Content content)
{
    switch (content) {
    case bus::Content::None: return QStringLiteral("none");
    case bus::Content::Live: return QStringLiteral("live");
    case bus::Content::Playback: return QStringLiteral("new");
    case bus::Content::Held: return QStringLiteral("held");
    case bus::Content::Black: return QStringLiteral("black");
    }
    return QStringLiteral("?");
}

/// Walks along the law, one frame of the bus after the other.
class Walk
{
public:
    Walk(const Material &material, const Run &run, int lateAllowed)
        : _material(material), _run(run), _lateAllowed(lateAllowed), _previous(run.start)
    {
    }

    /// The start frame, held.
    QString atStart(const Shown &seen, bool isNew) { return compare(seen, _run.start, isNew); }
    /// Output \a k comes next.
    void jumpTo(std::int64_t k) { _k = k; }
    std::int64_t outputs() const { return _k; }
    int late() const { return _late; }

    /// The frame of the next output, or a late one.
    QString next(const Shown &seen)
    {
        const int wanted =
            frameAt(_run.start, _k, _material.length(), _run.speed, _run.looping);
        const bool isNew = wanted != _previous;
        const QString problem = compare(seen, wanted, isNew);
        if (problem.isEmpty()) {
            _previous = wanted;
            ++_k;
            return QString();
        }
        const bool isLate = isNew && seen.number == _previous && compare(seen, _previous, false).isEmpty();
        if (isLate && ++_late <= _lateAllowed)
            return QString();
        return QStringLiteral("output %1 should be frame %2: %3%4")
            .arg(_k).arg(wanted).arg(problem, isLate ? QStringLiteral(" (late)") : QString());
    }

private:
    QString compare(const Shown &seen, int wanted, bool isNew) const
    {
        const QString problem = _material.differs(seen, wanted);
        if (!problem.isEmpty())
            return problem;
        const bus::Content content = isNew ? bus::Content::Playback : bus::Content::Held;
        if (seen.content != content)
            return QStringLiteral("content is %1").arg(contentName(seen.content));
        if (!isNew || !_run.speed.isNormal())
            return seen.samples == 0 ? QString() : QStringLiteral("sound where silence belongs");
        if (seen.samples == 0)
            return QStringLiteral("no sound at normal speed");
        const std::optional<int> sound = _material.soundOf(wanted);
        if (sound && seen.sound != sound)
            return QStringLiteral("the sound of another frame (%1)").arg(seen.sound.value_or(-1));
        return QString();
    }

    const Material &_material;
    const Run _run;
    const int _lateAllowed;
    int _previous;
    std::int64_t _k = 0;
    int _late = 0;
};

QString at(const Shown &seen, const QString &problem)
{
    return QStringLiteral("%1; seen %2").arg(problem, seen.toString());
}

/// Whether the frames follow the run, however many or few of its outputs they reach.
Finding followPart(std::span<const Shown> seen, const Material &material, const Run &run,
                   int lateAllowed, int patience, Start start = Start::Held)
{
    Finding finding;
    finding.frames = static_cast<int>(seen.size());
    Walk walk(material, run, lateAllowed);
    std::size_t i = 0;
    for (; i < seen.size() && seen[i].number == run.start; ++i) {
        if (const QString problem = walk.atStart(seen[i], i == 0 && start == Start::New); !problem.isEmpty()) {
            finding.problem = at(seen[i], problem);
            return finding;
        }
    }
    finding.startHeld = static_cast<int>(i);
    const auto onStart = outputsOnStart(run.start, material.length(), run.speed, run.looping);
    if (!onStart) {
        if (i < seen.size())
            finding.problem = at(seen[i], QStringLiteral("frame %1 should stay").arg(run.start));
        finding.outputs = static_cast<std::int64_t>(i);
        return finding;
    }
    if (i < seen.size() && static_cast<std::int64_t>(i) < *onStart) {
        finding.problem = at(seen[i], QStringLiteral("the start frame stood for %1 outputs of %2")
                                          .arg(i).arg(*onStart));
        return finding;
    }
    if (static_cast<std::int64_t>(i) > *onStart + patience) {
        finding.problem = QStringLiteral("still on the start frame after %1 frames").arg(i);
        return finding;
    }
    walk.jumpTo(*onStart);
    for (; i < seen.size(); ++i) {
        if (const QString problem = walk.next(seen[i]); !problem.isEmpty()) {
            finding.problem = at(seen[i], problem);
            break;
        }
    }
    finding.late = walk.late();
    finding.outputs = walk.outputs();
    return finding;
}

} // namespace

// The law -----------------------------------------------------------------------------------------

int frameAt(int start, std::int64_t k, int length, Speed speed, bool looping)
{
    const std::int64_t forward = floorDiv(start * std::int64_t {whole} + k * speed.hundredths, whole);
    if (speed.hundredths >= 0) {
        const std::int64_t frame = looping ? forward % length : std::min<std::int64_t>(forward, length - 1);
        return static_cast<int>(frame);
    }
    if (!looping)
        return static_cast<int>(std::max<std::int64_t>(forward, 0));
    // Outputs up to and with the first frame, one turn after the other.
    const std::int64_t slow = -speed.hundredths;
    for (std::int64_t from = start;; from = length - 1) {
        const std::int64_t last = from == 0 ? 0 : (from - 1) * whole / slow + 1;
        if (k <= last)
            return static_cast<int>(
                std::max<std::int64_t>(floorDiv(from * whole - k * slow, whole), 0));
        k -= last + 1;
    }
}

std::optional<std::int64_t> outputsOnStart(int start, int length, Speed speed, bool looping)
{
    for (std::int64_t k = 1; k <= whole + 1; ++k) {
        if (frameAt(start, k, length, speed, looping) != start)
            return k;
    }
    return std::nullopt;
}

// Labels ------------------------------------------------------------------------------------------

QString Label::toString() const
{
    return QStringLiteral("%1:%2:%3%4%5@%6")
        .arg(hour, 2, 10, QLatin1Char('0')).arg(min, 2, 10, QLatin1Char('0'))
        .arg(sec, 2, 10, QLatin1Char('0')).arg(isDrop ? QLatin1Char(';') : QLatin1Char(':'))
        .arg(frame, 2, 10, QLatin1Char('0')).arg(fps);
}

Label labelOf(std::int64_t count, int fps, bool isDrop)
{
    // Minute by minute, as the rule is worded: slow and plain, unlike what it is held against.
    const std::int64_t left = isDrop ? fps / 15 : 0;
    Label label {0, 0, 0, 0, fps, isDrop};
    for (int minute = 0;; ++minute) {
        const std::int64_t skipped = minute % 10 == 0 ? 0 : left;
        const std::int64_t inMinute = 60LL * fps - skipped;
        if (count >= inMinute) {
            count -= inMinute;
            continue;
        }
        count += skipped;
        label.hour = minute / 60 % 24;
        label.min = minute % 60;
        label.sec = static_cast<int>(count / fps);
        label.frame = static_cast<int>(count % fps);
        return label;
    }
}

QString Shown::toString() const
{
    return QStringLiteral("#%1 %2 frame %3 picture %4 %5 %6 samples of %7 '%8'")
        .arg(sequence).arg(contentName(content)).arg(number)
        .arg(picture ? QString::number(*picture) : QStringLiteral("-"))
        .arg(hasLabel ? label.toString() : QStringLiteral("--"))
        .arg(samples).arg(sound ? QString::number(*sound) : QStringLiteral("-"))
        .arg(QString::fromStdString(clip));
}

// Material ----------------------------------------------------------------------------------------

int Material::length() const
{
    return firstFrameOf(static_cast<int>(_clips.size()));
}

int Material::firstFrameOf(int clip) const
{
    int frames = 0;
    for (int i = 0; i < clip; ++i)
        frames += _clips[static_cast<std::size_t>(i)].length;
    return frames;
}

QVariant Material::desc() const
{
    if (!isJoined())
        return _clips.front().path;
    OrbPlayList list;
    for (const TestClip &clip : _clips) {
        OrbPlayListEntry entry;
        entry.setName(clip.name);
        entry.setDesc(clip.path);
        entry.setLength(clip.length);
        list.append(entry);
    }
    return QVariant::fromValue(list);
}

const TestClip &Material::clipOf(int number, int &inClip) const
{
    std::size_t clip = 0;
    for (inClip = number; inClip >= _clips[clip].length && clip + 1 < _clips.size(); ++clip)
        inClip -= _clips[clip].length;
    return _clips[clip];
}

std::optional<int> Material::soundOf(int number) const
{
    int inClip = 0;
    const TestClip &clip = clipOf(number, inClip);
    if (!clip.soundIsPicture)
        return std::nullopt;
    return static_cast<int>(clip.pictureOf(inClip));
}

QString Material::differs(const Shown &seen, int number) const
{
    int inClip = 0;
    const TestClip &clip = clipOf(number, inClip);
    if (seen.number != number)
        return QStringLiteral("the bus says frame %1").arg(seen.number);
    if (seen.picture != clip.pictureOf(inClip))
        return QStringLiteral("the picture is not %1").arg(clip.pictureOf(inClip));
    const Label label = labelOf(clip.startLabel + inClip, clip.fps, clip.isDrop);
    if (!seen.hasLabel || seen.label != label)
        return QStringLiteral("the label is not %1").arg(label.toString());
    if (isJoined() && QString::fromStdString(seen.clip) != clip.name)
        return QStringLiteral("the clip is not %1").arg(clip.name);
    return QString();
}

// Comparisons -------------------------------------------------------------------------------------

Finding follow(std::span<const Shown> seen, const Material &material, const Run &run, int lateAllowed,
               int patience, Start start)
{
    Finding finding = followPart(seen, material, run, lateAllowed, patience, start);
    const bool moves = outputsOnStart(run.start, material.length(), run.speed, run.looping).has_value();
    if (finding.holds() && moves && finding.startHeld == finding.frames)
        finding.problem = QStringLiteral("it does not move");
    if (finding.holds() && 2 * finding.late > finding.frames)
        finding.problem = QStringLiteral("most frames are late");
    return finding;
}

Finding followChange(std::span<const Shown> seen, std::size_t commandAt, const Material &material,
                     const Run &before, Speed after, int lateAllowed)
{
    Finding best;
    for (std::size_t more = 0; more <= framesAfterCommand; ++more) {
        const std::size_t turn = std::min(commandAt + more, seen.size());
        if (turn == 0)
            continue;
        Finding old = followPart(seen.first(turn), material, before, lateAllowed, 12);
        if (!old.holds()) {
            if (more == 0)
                best = old;
            break;
        }
        const Run run {static_cast<int>(seen[turn - 1].number), after, before.looping};
        Finding changed = follow(seen.subspan(turn), material, run, lateAllowed - old.late);
        changed.frames += old.frames;
        changed.late += old.late;
        if (changed.holds())
            return changed;
        best = changed;
    }
    return best;
}

Finding followCue(std::span<const Shown> seen, const Material &material, const Run &before, int target,
                  int lateAllowed)
{
    std::size_t landed = seen.size();
    while (landed > 0 && seen[landed - 1].number == target)
        --landed;
    Finding finding;
    finding.frames = static_cast<int>(seen.size());
    if (landed == seen.size()) {
        finding.problem = seen.empty() ? QStringLiteral("nothing seen")
                                       : at(seen.back(), QStringLiteral("not on frame %1").arg(target));
        return finding;
    }
    std::size_t running = landed;
    while (running > 1 && seen[running - 1].content == bus::Content::Held
           && seen[running - 1].number == seen[running - 2].number)
        --running; // the frame on output stays until the target is there
    if (landed - running > framesToLand && before.speed.hundredths != 0) {
        finding.problem = QStringLiteral("the frame before the cue stays for %1 frames").arg(landed - running);
        return finding;
    }
    const Finding way = followPart(seen.first(running), material, before, lateAllowed, 1 << 20);
    if (!way.holds()) {
        finding.problem = way.problem;
        return finding;
    }
    for (const Shown &frame : seen.subspan(landed)) {
        QString problem = material.differs(frame, target);
        if (problem.isEmpty() && frame.content != bus::Content::Playback
            && frame.content != bus::Content::Held)
            problem = QStringLiteral("content is %1").arg(contentName(frame.content));
        if (problem.isEmpty() && frame.samples > 0)
            problem = QStringLiteral("sound at still");
        if (!problem.isEmpty()) {
            finding.problem = at(frame, problem);
            return finding;
        }
    }
    finding.late = way.late;
    finding.startHeld = static_cast<int>(landed);
    return finding;
}

} // namespace law
