#include "transport/droppedframes.h"
#include "transport/lossofvideo.h"
#include "transport/playbackdecisions.h"
#include "transport/recordinterval.h"

#include <QTest>

/// What the engine decides without naming an object.
class TestDecisions : public QObject
{
    Q_OBJECT

private slots:
    void headAction_data();
    void headAction();
    void positionsAfterAFlush();
    void cacheSpeeds();
    void lossOfVideo_data();
    void lossOfVideo();
    void interval_data();
    void interval();
    void intervalCountsOnlyWholeFrames();
    void anUnknownPeriodDeliberatelyCarriesOver();
    void droppedFramesMeanNothingInOtherModes();
};

Q_DECLARE_METATYPE(HeadAction)

void TestDecisions::headAction_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<bool>("isLooping");
    QTest::addColumn<QString>("ends"); // actions in the middle, on the first, last, only frame
    // h: hold, t: take, f: seek to the first, l: seek to the last
    QTest::newRow("still") << 0.0 << false << "hhhh";
    QTest::newRow("still, looping") << 0.0 << true << "hhhh";
    QTest::newRow("forward") << 1.0 << false << "tthh";
    QTest::newRow("forward, looping") << 1.0 << true << "ttff";
    QTest::newRow("reverse") << -20.0 << false << "thth";
    QTest::newRow("reverse, looping") << -0.5 << true << "tltl";
}

void TestDecisions::headAction()
{
    QFETCH(double, speed);
    QFETCH(bool, isLooping);
    QFETCH(QString, ends);
    const VtrSpeedFlags flags = VtrSpeedFlags::fromSpeed(speed);
    const auto letter = [&](bool isFirst, bool isLast) {
        switch (::headAction(flags, isLooping, isFirst, isLast)) {
        case HeadAction::Hold: return 'h';
        case HeadAction::Take: return 't';
        case HeadAction::SeekToFirst: return 'f';
        case HeadAction::SeekToLast: return 'l';
        }
        return '?';
    };
    QString found;
    found += QLatin1Char(letter(false, false));
    found += QLatin1Char(letter(true, false));
    found += QLatin1Char(letter(false, true));
    found += QLatin1Char(letter(true, true));
    QCOMPARE(found, ends);
}

void TestDecisions::positionsAfterAFlush()
{
    QCOMPARE(frameAfterFlush(10, -1, 0), 10);
    QCOMPARE(frameAfterFlush(10, -1, -3), 7);
    QCOMPARE(frameAfterFlush(10, 200, 3), 203);
    QCOMPARE(frameAfterFlush(10, 0, 0), 0);
}

void TestDecisions::cacheSpeeds()
{
    QCOMPARE(cacheSpeedFor(20.0), 1.0);
    QCOMPARE(cacheSpeedFor(0.25), 1.0);
    QCOMPARE(cacheSpeedFor(0.0), 0.0);
    QCOMPARE(cacheSpeedFor(-20.0), -20.0);
    QCOMPARE(cacheSpeedFor(-0.25), -0.25);
}

void TestDecisions::lossOfVideo_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<bool>("isInterlaced");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("file");
    struct Raster {
        int width, height;
        bool isInterlaced;
        const char *name;
    };
    const Raster rasters[] = {
        {720, 486, true, "525i"},    {720, 576, true, "625i"},    {1280, 720, false, "720p"},
        {1920, 1080, true, "1080i"}, {1920, 1080, false, "1080p"}, {2048, 1080, true, "2ki"},
        {2048, 1080, false, "2kp"},  {3840, 2160, true, "qhdi"},  {3840, 2160, false, "qhdp"},
        {4096, 2160, true, "4ki"},   {4096, 2160, false, "4kp"}};
    for (const Raster &r : rasters) {
        for (const int type : {202, 203, 204, 205, 206}) {
            const QString family = type == 206 ? "444" : "422";
            QTest::addRow("%s %d", r.name, type)
                << r.width << r.height << r.isInterlaced << type
                << QString("prores_%1/loss_of_video_%2_%1.mov").arg(family, r.name);
        }
    }
    QTest::newRow("207") << 1920 << 1080 << false << 207 << QString();
    QTest::newRow("201") << 1920 << 1080 << false << 201 << QString();
    QTest::newRow("720i") << 1280 << 720 << true << 202 << QString();
    QTest::newRow("486p") << 720 << 486 << false << 202 << QString();
    QTest::newRow("no raster") << -1 << -1 << false << 202 << QString();
}

void TestDecisions::lossOfVideo()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(bool, isInterlaced);
    QFETCH(int, type);
    QFETCH(QString, file);
    OrbImageDesc desc;
    desc.setSize(width, height);
    desc.setScanMode(isInterlaced ? OrbImageDesc::Interlaced : OrbImageDesc::Progressive);
    desc.setDataType(OrbId(type));
    desc.setFrameRate(60000, 1001);
    QCOMPARE(findLossOfVideoFile(desc), file);
}

void TestDecisions::interval_data()
{
    QTest::addColumn<int>("frames");
    QTest::addColumn<int>("period");
    QTest::addColumn<int>("rate");
    QTest::addColumn<float>("every");
    QTest::addColumn<bool>("isZero");
    QTest::addColumn<bool>("isLess");
    QTest::newRow("one a second") << 1 << 0 << 25 << 25.0F << false << false;
    QTest::newRow("two a minute at 30") << 2 << 1 << 30 << 900.0F << false << false;
    QTest::newRow("one an hour at 60") << 1 << 2 << 60 << 216000.0F << false << false;
    QTest::newRow("a broken step") << 7 << 0 << 24 << 24.0F / 7.0F << false << false;
    QTest::newRow("none a second") << 0 << 0 << 25 << 25.0F << true << false;
    QTest::newRow("more than there are") << 50 << 0 << 25 << 1.0F << false << true;
    QTest::newRow("fewer than none") << -2 << 0 << 25 << 1.0F << false << true;
    QTest::newRow("no rate") << 1 << 0 << 0 << 1.0F << false << true;
}

void TestDecisions::interval()
{
    QFETCH(int, frames);
    QFETCH(int, period);
    QFETCH(int, rate);
    QFETCH(float, every);
    QFETCH(bool, isZero);
    QFETCH(bool, isLess);
    RecordInterval interval;
    interval.count = 17.0F;
    const RecordInterval::Findings findings = interval.start(frames, period, rate);
    QCOMPARE(interval.every, every);
    QCOMPARE(interval.count, 0.0F);
    QCOMPARE(findings.totalIsZero, isZero);
    QCOMPARE(findings.isLessThanOne, isLess);
}

void TestDecisions::intervalCountsOnlyWholeFrames()
{
    RecordInterval interval;
    interval.start(2, 0, 5); // every 2.5
    QList<int> taken;
    for (int i = 1; i <= 20; ++i)
        if (interval.takesNext())
            taken << i;
    QCOMPARE(taken, (QList<int>{3, 5, 8, 10, 13, 15, 18, 20}));
    interval.startOff();
    QVERIFY(interval.takesNext() && interval.takesNext());
}

void TestDecisions::anUnknownPeriodDeliberatelyCarriesOver()
{
    RecordInterval interval;
    QVERIFY(interval.start(1, 3, 25).isLessThanOne); // a new engine has no step before
    QCOMPARE(interval.every, 1.0F);
    interval.start(1, 1, 25);
    interval.start(3, 3, 25);
    QCOMPARE(interval.every, 500.0F);
    interval.start(5, -1, 25);
    QCOMPARE(interval.every, 100.0F);
}

void TestDecisions::droppedFramesMeanNothingInOtherModes()
{
    VtrState state;
    state.setSpeed(1.0);
    state.setStopOnFrameDrop(true);
    for (const int mode : {0, 1, 2, 3}) {
        state.setMode(static_cast<VtrState::Mode>(mode));
        QVERIFY(!droppedFrameRule(state));
    }
    state.setMode(VtrState::Play);
    QVERIFY(droppedFrameRule(state));
    state.setSpeed(-1.0);
    QVERIFY(!droppedFrameRule(state));
}

QTEST_APPLESS_MAIN(TestDecisions)
#include "tst_decisions.moc"
