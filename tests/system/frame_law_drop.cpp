// Drop-frame labels over a minute and over a tenth one: while a recording is made, in its file, and played
// forward and in reverse. The labels that must be seen come from the rule, not from the toolkit.

#include "frame_law_table.h"

#include <QProcess>

#include <algorithm>

namespace law {

namespace {

constexpr int secondsBefore = 2;
constexpr int settleMs = 1'200; ///< settings reset the device half a second after the last one

struct Minute {
    const char *inputFormat;
    int fps;
    int minute; ///< that the recording runs into
};

/// The test's own count of a label's frames, by looking for it.
std::int64_t countOf(const Label &label)
{
    const std::int64_t about = (label.hour * 3600LL + label.min * 60LL + label.sec) * label.fps + label.frame;
    const std::int64_t mostLeftOut = (label.hour * 60LL + label.min) * 4;
    for (std::int64_t count = std::max<std::int64_t>(about - mostLeftOut, 0); count <= about; ++count) {
        if (labelOf(count, label.fps, label.isDrop) == label)
            return count;
    }
    return -1;
}

class DropFrame
{
public:
    DropFrame(Table &table, const Minute &minute, const QString &folder, int seconds)
        : _table(table)
        , _format(QString::fromLatin1(minute.inputFormat))
        , _player("pattern", minute.inputFormat)
        , _start {0, minute.minute - 1, 60 - secondsBefore, 0, minute.fps, true}
        , _path(QStringLiteral("%1-drop-%2-%3.mov").arg(folder).arg(minute.fps).arg(minute.minute))
        , _seconds(seconds)
    {
    }

    [[nodiscard]] bool run(bool isLastTry);

private:
    QString recordOver();
    QString recordingHolds(const std::vector<Shown> &seen);
    QString probe();
    Finding playBack(int hundredths);
    void add(const QString &speed, const QString &where, const Finding &finding);

    Table &_table;
    const QString _format;
    Player _player;
    const Label _start;
    const QString _path;
    const int _seconds;
    int _framesSeen = 0;
    std::uint32_t _firstPicture = 0;
    int _length = 0;
};

void DropFrame::add(const QString &speed, const QString &where, const Finding &finding)
{
    _table.add(_format, speed, false, where, finding.frames, finding.late, finding.problem);
}

/// Every frame of the recording has the label after the one before it.
QString DropFrame::recordingHolds(const std::vector<Shown> &seen)
{
    const std::int64_t first = countOf(_start);
    std::int64_t count = first;
    std::int64_t difference = -1;
    for (const Shown &frame : seen) {
        const bool isPicture = frame.content == bus::Content::Live && frame.picture;
        if (!isPicture || !frame.hasLabel)
            continue;
        if (count == first && frame.label == _start)
            continue; // held until the recording begins
        const std::int64_t now = countOf(frame.label);
        if (difference < 0)
            difference = *frame.picture - now;
        else if (now == count)
            break; // held again after it
        if (now < 0 || *frame.picture - now != difference || now <= count)
            return QStringLiteral("after %1 comes %2").arg(labelOf(count, _start.fps, true).toString(),
                                                           frame.toString());
        count = now;
        ++_framesSeen;
    }
    const std::int64_t minute = countOf({0, _start.min + 1, 1, 0, _start.fps, true});
    if (count < minute)
        return QStringLiteral("it ends at %1").arg(labelOf(count, _start.fps, true).toString());
    _firstPicture = static_cast<std::uint32_t>(first + difference);
    return QString();
}

QString DropFrame::recordOver()
{
    VtrObject &vtr = _player.vtr();
    vtr.setEncodeFormat(OrbId(OrbIdImageProRes422Proxy));
    vtr.setTCGSource(OrbId(OrbIdTimecodePreset));
    vtr.setTimecodeDropFrame(true);
    vtr.setTimecodeValue(
        OrbTimecode(_start.hour, _start.min, _start.sec, _start.frame, _start.fps, OrbTimecode::DropFrame));
    _player.runFor(settleMs);
    const std::size_t from = _player.watch().count();
    if (const QString problem = _player.record(_path, _seconds * 1000); !problem.isEmpty())
        return problem;
    if (_player.droppedFrames() > 0)
        return QStringLiteral("the machine was too slow: the recording stopped at a dropped frame");
    return recordingHolds(_player.watch().since(from));
}

/// What others read in the file.
QString DropFrame::probe()
{
    QProcess ffprobe;
    ffprobe.start(QStringLiteral("ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                   QStringLiteral("stream=codec_type,nb_frames:stream_tags=timecode"), QStringLiteral("-of"),
                   QStringLiteral("compact=nk=1:p=0"), _path});
    if (!ffprobe.waitForFinished(20'000) || ffprobe.exitCode() != 0)
        return QStringLiteral("ffprobe: ") + QString::fromLocal8Bit(ffprobe.readAllStandardError());
    QString start;
    for (const QString &row : QString::fromLatin1(ffprobe.readAllStandardOutput()).split(u'\n')) {
        const QStringList fields = row.split(u'|');
        if (fields.size() < 2 || fields[0] != QLatin1String("video"))
            continue;
        _length = fields[1].toInt();
        start = fields.value(2);
    }
    const QString wanted = QStringLiteral("00:%1:%2;00").arg(_start.min, 2, 10, QLatin1Char('0'))
                               .arg(_start.sec, 2, 10, QLatin1Char('0'));
    return start == wanted ? QString() : QStringLiteral("the file begins at \"%1\"").arg(start);
}

Finding DropFrame::playBack(int hundredths)
{
    TestClip clip;
    clip.name = QStringLiteral("recorded");
    clip.path = _path;
    clip.length = _length;
    clip.firstPicture = _firstPicture;
    clip.soundIsPicture = false;
    clip.fps = _start.fps;
    clip.isDrop = true;
    clip.startLabel = countOf(_start);
    const Material material(clip.name, {clip});
    Finding finding;
    finding.problem = _player.load(material);
    if (!finding.holds())
        return finding;
    const int start = hundredths > 0 ? 0 : _length - 1;
    finding = _player.play(material, {start, Speed {hundredths}, false}, _length + 4);
    if (finding.holds() && finding.outputs < _length)
        finding.problem = QStringLiteral("only %1 frames came").arg(finding.outputs);
    return finding;
}

/// False when the machine was too busy for a recording that proves anything.
bool DropFrame::run(bool isLastTry)
{
    const QString minute = _start.min == 9 ? QStringLiteral("tenth minute") : QStringLiteral("minute");
    Finding recorded;
    recorded.problem = recordOver();
    recorded.frames = _framesSeen;
    const bool isTooBusy = _player.watch().missed() > 0 || _player.droppedFrames() > 0;
    if (isTooBusy && !isLastTry) {
        std::printf("# the machine was too busy to record: %s\n", qPrintable(recorded.problem));
        return false;
    }
    if (_player.watch().missed() > 0)
        recorded.problem.prepend(QStringLiteral("THE WATCH MISSED FRAMES OF THE BUS; "));
    add(QStringLiteral("record"), QStringLiteral("over a ") + minute, recorded);
    if (!recorded.holds())
        return true;
    Finding probed;
    probed.problem = probe();
    add(QString(), QStringLiteral("start label in the file"), probed);
    if (_length <= 0)
        return true;
    for (const int hundredths : {100, -100})
        add(QString::number(hundredths / 100), QStringLiteral("over a ") + minute,
            _player.watched([&] { return playBack(hundredths); }));
    return true;
}

} // namespace

void runDropFrame(Table &table, Extent extent, const QString &folder)
{
    static constexpr Minute minutes[] = {
        // input                 labels a second  minute
        {"1280x720p30000/1001",  30,              1},
        {"1280x720p30000/1001",  30,              10},
        {"1280x720p60000/1001",  60,              1},
        {"1280x720p60000/1001",  60,              10},
    };
    const bool isFull = extent == Extent::Full;
    for (const Minute &minute : minutes) {
        for (int tries = 3; tries > 0; --tries) {
            if (DropFrame(table, minute, QStringLiteral("%1/%2").arg(folder).arg(tries), isFull ? 5 : 4)
                    .run(tries == 1))
                break;
        }
        if (!isFull)
            return;
    }
}

} // namespace law
