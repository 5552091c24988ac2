// The law's own rulings on made-up frames: what it lets pass and, above all, what it does not.

#include "frame_law.h"

#include <QTest>

#include <functional>

using namespace law;

namespace {

constexpr int length = 40;

TestClip clipAt(std::uint32_t firstPicture, int frames)
{
    TestClip clip;
    clip.name = QStringLiteral("clip%1").arg(firstPicture);
    clip.path = clip.name;
    clip.length = frames;
    clip.firstPicture = firstPicture;
    clip.fps = 25;
    clip.startLabel = 3600 * 25;
    return clip;
}

const Material &oneClip()
{
    static const Material material(QStringLiteral("one"), {clipAt(1000, length)});
    return material;
}

Shown frameOf(int number, bool isNew, bool hasSound)
{
    Shown seen;
    seen.sequence = 1;
    seen.content = isNew ? bus::Content::Playback : bus::Content::Held;
    seen.number = number;
    seen.picture = 1000 + static_cast<std::uint32_t>(number);
    seen.label = labelOf(3600 * 25 + number, 25, false);
    seen.hasLabel = true;
    seen.samples = isNew && hasSound ? 1920 : 0;
    seen.sound = 1000 + number;
    return seen;
}

std::vector<Shown> framesOf(const std::vector<int> &numbers, bool isNormal, int before)
{
    std::vector<Shown> frames;
    for (const int number : numbers) {
        frames.push_back(frameOf(number, number != before, isNormal));
        before = number;
    }
    return frames;
}

std::vector<int> lawOf(const Run &run, int outputs)
{
    std::vector<int> numbers;
    for (int k = 0; k < outputs; ++k)
        numbers.push_back(frameAt(run.start, k, length, run.speed, run.looping));
    return numbers;
}

} // namespace

class tst_frame_law : public QObject
{
    Q_OBJECT
private slots:
    void theLawInFigures_data();
    void theLawInFigures();
    void dropFrameLeavesOutLabelsOfEveryMinuteButEachTenth();
    void framesThatFollowTheLawHold_data();
    void framesThatFollowTheLawHold();
    void aFaultIsFound_data();
    void aFaultIsFound();
    void aLateFrameIsToldFromAWrongOne();
    void aSpeedChangeGoesOnFromTheFrameOnOutput();
    void aCueShowsNothingBetween();
};

void tst_frame_law::theLawInFigures_data()
{
    QTest::addColumn<int>("start");
    QTest::addColumn<int>("hundredths");
    QTest::addColumn<bool>("looping");
    QTest::addColumn<QList<int>>("frames");
    // clang-format off
    QTest::newRow("1")                << 37 <<   100 << false << QList<int> {37, 38, 39, 39, 39};
    QTest::newRow("1 looping")        << 37 <<   100 << true  << QList<int> {37, 38, 39, 0, 1};
    QTest::newRow("0.5")              << 38 <<    50 << true  << QList<int> {38, 38, 39, 39, 0, 0, 1};
    QTest::newRow("1.1")              <<  0 <<   110 << false << QList<int> {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 11};
    QTest::newRow("20")               << 10 <<  2000 << false << QList<int> {10, 30, 39, 39};
    QTest::newRow("20 looping")       << 10 <<  2000 << true  << QList<int> {10, 30, 10, 30};
    QTest::newRow("-1")               <<  2 <<  -100 << false << QList<int> {2, 1, 0, 0};
    QTest::newRow("-1 looping")       <<  2 <<  -100 << true  << QList<int> {2, 1, 0, 39, 38};
    QTest::newRow("-0.5")             <<  2 <<   -50 << false << QList<int> {2, 1, 1, 0, 0, 0};
    QTest::newRow("-0.5 looping")     <<  2 <<   -50 << true  << QList<int> {2, 1, 1, 0, 39, 38, 38};
    QTest::newRow("-4 meets 0")       <<  8 <<  -400 << true  << QList<int> {8, 4, 0, 39, 35};
    QTest::newRow("-4 misses 0")      <<  9 <<  -400 << true  << QList<int> {9, 5, 1, 0, 39, 35};
    QTest::newRow("-20 from 0")       <<  0 << -2000 << true  << QList<int> {0, 39, 19, 0, 39};
    QTest::newRow("still")            <<  5 <<     0 << true  << QList<int> {5, 5, 5};
    // clang-format on
}

void tst_frame_law::theLawInFigures()
{
    QFETCH(int, start);
    QFETCH(int, hundredths);
    QFETCH(bool, looping);
    QFETCH(QList<int>, frames);
    for (int k = 0; k < frames.size(); ++k)
        QCOMPARE(frameAt(start, k, length, Speed {hundredths}, looping), frames[k]);
}

void tst_frame_law::dropFrameLeavesOutLabelsOfEveryMinuteButEachTenth()
{
    QCOMPARE(labelOf(1799, 30, true).toString(), QStringLiteral("00:00:59;29@30"));
    QCOMPARE(labelOf(1800, 30, true).toString(), QStringLiteral("00:01:00;02@30"));
    QCOMPARE(labelOf(3600, 60, true).toString(), QStringLiteral("00:01:00;04@60"));
    QCOMPARE(labelOf(17982, 30, true).toString(), QStringLiteral("00:10:00;00@30"));
    QCOMPARE(labelOf(35964, 60, true).toString(), QStringLiteral("00:10:00;00@60"));
    QCOMPARE(labelOf(1800, 30, false).toString(), QStringLiteral("00:01:00:00@30"));
}

void tst_frame_law::framesThatFollowTheLawHold_data()
{
    QTest::addColumn<int>("hundredths");
    QTest::addColumn<bool>("looping");
    for (const int speed : {10, 50, 100, 110, 400, 2000, 0, -10, -50, -100, -110, -400, -2000}) {
        for (const bool looping : {false, true})
            QTest::addRow("%d %d", speed, looping) << speed << looping;
    }
}

void tst_frame_law::framesThatFollowTheLawHold()
{
    QFETCH(int, hundredths);
    QFETCH(bool, looping);
    const Run run {11, Speed {hundredths}, looping};
    std::vector<int> numbers = lawOf(run, 100);
    numbers.insert(numbers.begin(), 3, run.start); // the command is on its way
    const Finding finding = follow(framesOf(numbers, hundredths == 100, run.start), oneClip(), run, 0);
    QVERIFY2(finding.holds(), qPrintable(finding.problem));
}

void tst_frame_law::aFaultIsFound_data()
{
    using Fault = std::function<void(std::vector<Shown> &)>;
    QTest::addColumn<int>("hundredths");
    QTest::addColumn<Fault>("fault");
    const auto row = [](const char *name, int hundredths, const Fault &fault) {
        QTest::newRow(name) << hundredths << fault;
    };
    row("a frame is skipped", 100, [](auto &seen) { seen.erase(seen.begin() + 6); });
    row("a frame is doubled", 100, [](auto &seen) { seen.insert(seen.begin() + 6, frameOf(16, false, false)); });
    row("a slow frame stands too short", 50, [](auto &seen) { seen.erase(seen.begin() + 6); });
    row("a slow frame stands too long", 50, [](auto &seen) { seen.insert(seen.begin() + 7, seen[7]); });
    row("the start stands too short", 10, [](auto &seen) { seen.erase(seen.begin()); });
    row("the start stands for ever", 100, [](auto &seen) { seen.assign(40, frameOf(11, false, false)); });
    row("the wrong speed", 400, [](auto &seen) { seen = framesOf(lawOf({11, Speed {200}, false}, 10), false, 11); });
    row("black", 100, [](auto &seen) { seen[5].content = bus::Content::Black; });
    row("no bar", 100, [](auto &seen) { seen[5].picture.reset(); });
    row("another clip's picture", 100, [](auto &seen) { *seen[5].picture += 1000; });
    row("the picture before", 200, [](auto &seen) { seen[5].picture = seen[4].picture; });
    row("another label", 100, [](auto &seen) { ++seen[5].label.frame; });
    row("no label", 100, [](auto &seen) { seen[5].hasLabel = false; });
    row("no sound", 100, [](auto &seen) { seen[5].samples = 0; });
    row("the sound before", 100, [](auto &seen) { seen[5].sound = seen[4].sound; });
    row("sound at double speed", 200, [](auto &seen) { seen[5].samples = 1920; });
    row("sound in reverse", -100, [](auto &seen) { seen[5].samples = 1920; });
    row("sound while held", 100, [](auto &seen) { seen[0].samples = 1920; });
    row("a repeat told as new", 50, [](auto &seen) { seen[5].content = bus::Content::Playback; });
    row("a new one told as repeat", 100, [](auto &seen) { seen[5].content = bus::Content::Held; });
}

void tst_frame_law::aFaultIsFound()
{
    using Fault = std::function<void(std::vector<Shown> &)>;
    QFETCH(int, hundredths);
    QFETCH(Fault, fault);
    const Run run {11, Speed {hundredths}, false};
    std::vector<Shown> seen = framesOf(lawOf(run, 25), hundredths == 100, run.start);
    const Finding good = follow(seen, oneClip(), run, 0);
    QVERIFY2(good.holds(), qPrintable(good.problem));
    fault(seen);
    QVERIFY(!follow(seen, oneClip(), run, 0).holds());
}

void tst_frame_law::aLateFrameIsToldFromAWrongOne()
{
    const Run run {11, Speed {100}, false};
    std::vector<Shown> seen = framesOf({11, 12, 13, 13, 14, 15}, true, 11);
    QVERIFY(!follow(seen, oneClip(), run, 0).holds());
    const Finding late = follow(seen, oneClip(), run, 1);
    QVERIFY2(late.holds(), qPrintable(late.problem));
    QCOMPARE(late.late, 1);
    seen[3] = frameOf(12, true, true); // back instead of held
    QVERIFY(!follow(seen, oneClip(), run, 5).holds());
    const std::vector<Shown> crawling = framesOf({11, 12, 12, 12, 12, 13, 13, 13, 13}, true, 11);
    QVERIFY(!follow(crawling, oneClip(), run, 100).holds());
}

void tst_frame_law::aSpeedChangeGoesOnFromTheFrameOnOutput()
{
    std::vector<Shown> seen = framesOf({5, 6, 7, 8, 9}, true, 5);
    for (const Shown &frame : framesOf({9, 13, 17, 21}, false, 9))
        seen.push_back(frame);
    const Run before {5, Speed {100}, false};
    const Finding good = followChange(seen, 4, oneClip(), before, Speed {400}, 0);
    QVERIFY2(good.holds(), qPrintable(good.problem));
    seen.erase(seen.begin() + 5); // the speed changes without the frame that was on output
    seen[5] = frameOf(14, true, false);
    QVERIFY(!followChange(seen, 4, oneClip(), before, Speed {400}, 0).holds());
}

void tst_frame_law::aCueShowsNothingBetween()
{
    const Run still {5, Speed {0}, false};
    QVERIFY(followCue(framesOf({5, 5, 30, 30}, false, 5), oneClip(), still, 30, 0).holds());
    QVERIFY(!followCue(framesOf({5, 6, 30, 30}, false, 5), oneClip(), still, 30, 0).holds());
    QVERIFY(!followCue(framesOf({5, 5, 29, 29}, false, 5), oneClip(), still, 30, 0).holds());
    QVERIFY(!followCue(framesOf({5, 30, 5, 30}, false, 5), oneClip(), still, 30, 0).holds());
    std::vector<Shown> running = framesOf({5, 6, 7}, true, 5);
    for (const Shown &frame : framesOf({7, 7, 30, 30}, false, 7))
        running.push_back(frame);
    QVERIFY(followCue(running, oneClip(), {5, Speed {100}, false}, 30, 0).holds());
    running.insert(running.begin() + 3, 20, running[3]);
    QVERIFY(!followCue(running, oneClip(), {5, Speed {100}, false}, 30, 0).holds());
    QVERIFY(!followCue(framesOf({5, 30, 31}, false, 5), oneClip(), still, 30, 0).holds());
}

QTEST_APPLESS_MAIN(tst_frame_law)
#include "frame_law_test.moc"
