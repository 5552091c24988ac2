#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "tst_streamscript.h"

#include <QSignalSpy>
#include <QTest>

class TestStreamReading : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void readsAheadFromTheFirstFrameUpToItsSize();
    void asksForNoMoreThanEightFramesAtATime();
    void framesSayTheirNumberAndWhetherTheyAreFirstOrLast();
    void peekLeavesTheFrameAndReadTakesIt();
    void onlyFramesWithoutAGapBeforeThemCount();
    void anEmptyCacheGivesANullFrame();
    void readyComesOnceATurn();
    void readyDoesNotComeOnTopOfManyFrames();

    void everySpeedHandsOutItsFramesAndReadsEachOnce_data();
    void everySpeedHandsOutItsFramesAndReadsEachOnce();
    void atSpeedZeroTheSameFrameComesAgain();
    void aChangeOfSpeedKeepsFramesAndReadsThatAreStillWanted();
    void aChangeOfDirectionRefillsAroundThePosition();
    void runningOffAnEndIsSaidAndStandingOnItIsNot();

    void seekRefillsAndSaysReady();
    void seekWithinTheFramesHeldReadsOnlyWhatIsNew();
    void seekOutsideIsAtThatEndAndEmpty();
    void seekToFirstAndLastFrame();
    void seekBeforeTheStreamIsOpenIsWhereReadingBegins();
    void seekInTheOpenSignalHoldsWhoeverHearsItFirst();
    void seekIsForgottenByAnOpenForWriting();

    void closingEmptiesTheCache();
    void aReopenedStreamBeginsAtItsFirstFrame();
    void lateAnswersOfAnEarlierOpenAreIgnored();
    void lateAnswersFromBeforeASeekAreIgnored();
    void seekingFastLeavesFewReadsBehind();
    void aStreamThatGoesAwayLeavesAnEmptyCache();
    void aSmallerCacheHoldsLess();

    void aFrameThatFailsIsReportedOnceAndLeftOut();
    void aFailedFrameAtTheHeadIsPassedByThePosition();
    void theLastFrameThatCanBeReadIsTheLast();
    void theFirstFrameThatCanBeReadIsTheFirst();
    void seekTriesAFailedFrameAnew();
    void anUnreadableStreamDoesNotSpin();
    void aChangeOfSpeedWhileReadsFailDoesNotEndTheTries();
    void aShortUnreadableStreamEndsEmpty();

private:
    void open();
    QList<int> take(int count);

    std::unique_ptr<MediaScript> _script;
    std::unique_ptr<OrbStream> _stream;
    std::unique_ptr<OrbStreamCache> _cache;
    std::unique_ptr<QSignalSpy> _ready;
    std::unique_ptr<QSignalSpy> _error;
};

void TestStreamReading::init()
{
    _script = std::make_unique<MediaScript>();
    _stream = std::make_unique<OrbStream>();
    _stream->setDesc(QStringLiteral("/m/a.mov"));
    _cache = std::make_unique<OrbStreamCache>();
    _cache->setCacheSize(45);
    _cache->setStream(_stream.get());
    _ready = std::make_unique<QSignalSpy>(_cache.get(), &OrbStreamCache::ready);
    _error = std::make_unique<QSignalSpy>(_cache.get(), &OrbStreamCache::error);
}

void TestStreamReading::cleanup()
{
    _ready.reset();
    _error.reset();
    _cache.reset();
    _stream.reset();
    _script.reset();
}

void TestStreamReading::open()
{
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    QVERIFY(_stream->isOpen());
}

/// Takes frames as a device does, giving the cache time; ends early when none come any more.
QList<int> TestStreamReading::take(int count)
{
    QList<int> frames;
    while (count-- > 0) {
        MediaScript::settle();
        const OrbFrame frame = _cache->read();
        if (frame.isNull())
            break;
        frames << tagOf(frame);
    }
    return frames;
}

void TestStreamReading::readsAheadFromTheFirstFrameUpToItsSize()
{
    QCOMPARE(_cache->framesInCache(), 0);
    open();
    QCOMPARE(_cache->framesInCache(), 45);
    QCOMPARE(_cache->position(), 0);
    QCOMPARE(_script->reads.size(), 45);
    QCOMPARE(_script->reads.first(), 0);
    QCOMPARE(_script->reads.last(), 44);
    QCOMPARE(tagOf(_cache->read()), 0);
    MediaScript::settle();
    QCOMPARE(_script->reads.last(), 45);
    QCOMPARE(_script->reads.size(), 46);
    QCOMPARE(_cache->framesInCache(), 45);
}

void TestStreamReading::asksForNoMoreThanEightFramesAtATime()
{
    _script->hold(MediaScript::Reads);
    open();
    QCOMPARE(_script->reads.size(), 8);
    _script->release(MediaScript::Reads, 3);
    MediaScript::settle();
    QCOMPARE(_script->reads.size(), 11);
    QCOMPARE(_stream->pending(), 8);
}

void TestStreamReading::framesSayTheirNumberAndWhetherTheyAreFirstOrLast()
{
    _script->length = 3;
    open();
    for (int number = 0; number < 3; ++number) {
        const OrbFrame frame = _cache->read();
        QCOMPARE(frame.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt(), number);
        QCOMPARE(frame.meta().valueFor(OrbId(OrbIdStartOfStream)).toBool(), number == 0);
        QCOMPARE(frame.meta().valueFor(OrbId(OrbIdEndOfStream)).toBool(), number == 2);
    }
}

void TestStreamReading::peekLeavesTheFrameAndReadTakesIt()
{
    open();
    QCOMPARE(tagOf(_cache->peek()), 0);
    QCOMPARE(tagOf(_cache->peek()), 0);
    QCOMPARE(_cache->position(), 0);
    QCOMPARE(tagOf(_cache->read()), 0);
    QCOMPARE(tagOf(_cache->peek()), 1);
    QCOMPARE(_cache->position(), 1);
}

void TestStreamReading::onlyFramesWithoutAGapBeforeThemCount()
{
    _script->hold(MediaScript::Reads);
    open();
    // Backward from 3, with 0 to 7 on their way in that order.
    _cache->setSpeed(-1.0);
    _cache->seek(3);
    _script->release(MediaScript::Reads, 3);
    MediaScript::settle();
    QCOMPARE(_cache->framesInCache(), 0);
    QCOMPARE(_ready->size(), 0);
    _script->release(MediaScript::Reads, 1);
    MediaScript::settle();
    QCOMPARE(_cache->framesInCache(), 4);
    QCOMPARE(_ready->size(), 1);
}

void TestStreamReading::anEmptyCacheGivesANullFrame()
{
    QVERIFY(_cache->read().isNull());
    QVERIFY(_cache->peek().isNull());
    _script->hold(MediaScript::Reads);
    open();
    QVERIFY(_cache->read().isNull());
    QVERIFY(_cache->peek().isNull());
    QCOMPARE(_cache->position(), 0);
}

void TestStreamReading::readyComesOnceATurn()
{
    _script->hold(MediaScript::Reads);
    open();
    QCOMPARE(_ready->size(), 0);
    _script->release(MediaScript::Reads, 5);
    MediaScript::settle();
    QCOMPARE(_ready->size(), 1);
    _script->release(MediaScript::Reads, 1);
    MediaScript::settle();
    QCOMPARE(_ready->size(), 2);
}

void TestStreamReading::readyDoesNotComeOnTopOfManyFrames()
{
    open();
    _ready->clear();
    QCOMPARE(take(30).size(), 30);
    QCOMPARE(_ready->size(), 0);
}

void TestStreamReading::everySpeedHandsOutItsFramesAndReadsEachOnce_data()
{
    QTest::addColumn<double>("speed");
    for (const double speed : {0.1, 0.2, 0.5, 1.0, 2.0, 4.0, 20.0, -0.1, -0.5, -1.0, -2.0, -4.0,
                               -20.0}) {
        QTest::addRow("%g", speed) << speed;
    }
}

void TestStreamReading::everySpeedHandsOutItsFramesAndReadsEachOnce()
{
    QFETCH(double, speed);
    const int start = speed > 0 ? 0 : 99;
    _script->hold(MediaScript::Reads);
    open();
    _cache->setSpeed(speed);
    _cache->seek(start);
    _script->release(MediaScript::Reads);

    QList<int> expected;
    // In tenths, which are exact.
    const int tenths = qRound(speed * 10);
    for (int at = start * 10; at >= 0 && at < 1000; at += tenths)
        expected << at / 10;
    QCOMPARE(take(2000), expected);
    QCOMPARE(speed > 0 ? _cache->atEndOfStream() : _cache->atStartOfStream(), true);

    QList<int> once;
    for (const int frame : expected)
        if (once.isEmpty() || once.last() != frame)
            once << frame;
    // Of the frames asked for when the stream opened, those that came while not wanted come twice.
    for (const int frame : once) {
        const auto count = _script->reads.count(frame);
        QVERIFY2(count == 1 || (frame < 8 && count == 2), qPrintable(QString::number(frame)));
    }
}

void TestStreamReading::atSpeedZeroTheSameFrameComesAgain()
{
    open();
    _cache->setSpeed(0.0);
    _cache->seek(10);
    QCOMPARE(take(4), (QList<int>{10, 10, 10, 10}));
    QCOMPARE(_cache->position(), 10);
    // What comes when it moves on is there already.
    _script->reads.clear();
    _cache->setSpeed(1.0);
    QCOMPARE(_cache->framesInCache(), 45);
    QCOMPARE(tagOf(_cache->read()), 10);
    QCOMPARE(tagOf(_cache->read()), 11);
}

void TestStreamReading::aChangeOfSpeedKeepsFramesAndReadsThatAreStillWanted()
{
    open();
    _script->reads.clear();
    _cache->setSpeed(2.0);
    MediaScript::settle();
    QCOMPARE(_cache->framesInCache(), 45);
    QList<int> expected; // 0, 2 .. 44 were there
    for (int frame = 46; frame <= 88; frame += 2)
        expected << frame;
    QCOMPARE(_script->reads, expected);
    _script->reads.clear();
    _cache->setSpeed(2.0);
    MediaScript::settle();
    QVERIFY(_script->reads.isEmpty());
}

void TestStreamReading::aChangeOfDirectionRefillsAroundThePosition()
{
    open();
    QCOMPARE(take(30).last(), 29);
    _script->reads.clear();
    _cache->setSpeed(-1.0);
    QCOMPARE(take(3), (QList<int>{30, 29, 28}));
    QVERIFY(!_script->reads.contains(30));
    QCOMPARE(_script->reads.first(), 29);
    _cache->setSpeed(1.0);
    QCOMPARE(take(2), (QList<int>{27, 28}));
}

void TestStreamReading::runningOffAnEndIsSaidAndStandingOnItIsNot()
{
    _script->length = 3;
    open();
    QCOMPARE(take(2), (QList<int>{0, 1}));
    QVERIFY(!_cache->atStartOfStream() && !_cache->atEndOfStream());
    QCOMPARE(take(5), QList<int>{2});
    QVERIFY(_cache->atEndOfStream() && !_cache->atStartOfStream());
    QCOMPARE(_cache->framesInCache(), 0);
    _cache->seekToLastFrame();
    QVERIFY(!_cache->atEndOfStream());
    _cache->setSpeed(-20.0);
    QCOMPARE(take(5), QList<int>{2});
    QVERIFY(_cache->atStartOfStream() && !_cache->atEndOfStream());
}

void TestStreamReading::seekRefillsAndSaysReady()
{
    open();
    _ready->clear();
    _script->reads.clear();
    _cache->seek(60);
    QCOMPARE(_cache->position(), 60);
    QCOMPARE(_cache->framesInCache(), 0);
    MediaScript::settle();
    QVERIFY(_ready->size() >= 1);
    QCOMPARE(_cache->framesInCache(), 40);
    QCOMPARE(_script->reads.first(), 60);
    QCOMPARE(tagOf(_cache->peek()), 60);
}

void TestStreamReading::seekWithinTheFramesHeldReadsOnlyWhatIsNew()
{
    open();
    _ready->clear();
    _script->reads.clear();
    _cache->seek(10);
    QCOMPARE(_cache->framesInCache(), 35);
    MediaScript::settle();
    QCOMPARE(_script->reads.first(), 45);
    QCOMPARE(_script->reads.size(), 10);
    QCOMPARE(_ready->size(), 1);
}

void TestStreamReading::seekOutsideIsAtThatEndAndEmpty()
{
    open();
    _cache->seek(-5);
    MediaScript::settle();
    QVERIFY(_cache->atStartOfStream() && !_cache->atEndOfStream());
    QCOMPARE(_cache->framesInCache(), 0);
    QVERIFY(_cache->read().isNull());
    _cache->seek(100);
    MediaScript::settle();
    QVERIFY(_cache->atEndOfStream() && !_cache->atStartOfStream());
    QCOMPARE(_cache->framesInCache(), 0);
    QVERIFY(_cache->read().isNull());
}

void TestStreamReading::seekToFirstAndLastFrame()
{
    open();
    _cache->seekToLastFrame();
    QCOMPARE(take(1), QList<int>{99});
    _cache->seekToFirstFrame();
    QCOMPARE(take(1), QList<int>{0});
}

void TestStreamReading::seekBeforeTheStreamIsOpenIsWhereReadingBegins()
{
    _cache->seek(30);
    open();
    QCOMPARE(_script->reads.first(), 30);
    QCOMPARE(_cache->position(), 30);
    _stream->close();
    MediaScript::settle();
    open();
    QCOMPARE(_cache->position(), 0);
    _stream->close();
    MediaScript::settle();
    _cache->seekToLastFrame();
    open();
    QCOMPARE(_cache->position(), 99);
    // Closing forgets what was sought before it, not what is sought while it is under way.
    _cache->seek(10);
    _stream->close();
    _cache->seek(20);
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    QCOMPARE(_cache->position(), 20);
}

void TestStreamReading::seekInTheOpenSignalHoldsWhoeverHearsItFirst()
{
    OrbStream stream;
    stream.setDesc(QStringLiteral("/m/a.mov"));
    OrbStreamCache cache;
    connect(&stream, &OrbStream::openIsDone, this, [&] { cache.seek(70); });
    cache.setStream(&stream); // hears of the open after the engine
    QVERIFY(stream.open(1));
    MediaScript::settle();
    QCOMPARE(cache.position(), 70);
    QCOMPARE(tagOf(cache.peek()), 70);
}

void TestStreamReading::seekIsForgottenByAnOpenForWriting()
{
    _cache->seek(30);
    QVERIFY(_stream->open(2));
    MediaScript::settle();
    _stream->close();
    MediaScript::settle();
    open();
    QCOMPARE(_cache->position(), 0);
}

void TestStreamReading::closingEmptiesTheCache()
{
    open();
    QCOMPARE(_cache->framesInCache(), 45);
    _stream->close();
    QCOMPARE(_cache->framesInCache(), 0);
    QVERIFY(_cache->peek().isNull());
    MediaScript::settle();
    QCOMPARE(_cache->framesInCache(), 0);
    QVERIFY(!_cache->atStartOfStream() && !_cache->atEndOfStream());
}

void TestStreamReading::aReopenedStreamBeginsAtItsFirstFrame()
{
    open();
    take(5);
    _stream->close();
    _script->length = 20;
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    QCOMPARE(_cache->position(), 0);
    QCOMPARE(_cache->framesInCache(), 20);
}

void TestStreamReading::lateAnswersOfAnEarlierOpenAreIgnored()
{
    _script->hold(MediaScript::Reads);
    open();
    _stream->close();
    _script->release(MediaScript::Reads); // while closing
    _script->hold(MediaScript::Reads);
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    QVERIFY(_stream->isOpen());
    QCOMPARE(_cache->framesInCache(), 0);
    // As an answer would be that comes when the stream is open anew.
    emit _stream->readIsDone(0, taggedFrame(777), OrbError(), reinterpret_cast<void *>(1));
    QCOMPARE(_cache->framesInCache(), 0);
    _script->release(MediaScript::Reads, 1);
    MediaScript::settle();
    QCOMPARE(tagOf(_cache->peek()), 0);
}

void TestStreamReading::lateAnswersFromBeforeASeekAreIgnored()
{
    _script->hold(MediaScript::Reads);
    open();
    _cache->seek(50);
    _script->release(MediaScript::Reads, 8);
    MediaScript::settle();
    QCOMPARE(_cache->framesInCache(), 0);
    QCOMPARE(_ready->size(), 0);
    _script->release(MediaScript::Reads);
    MediaScript::settle();
    QCOMPARE(tagOf(_cache->peek()), 50);
    QCOMPARE(_script->reads.count(50), 1);
}

void TestStreamReading::seekingFastLeavesFewReadsBehind()
{
    _script->hold(MediaScript::Reads);
    open();
    for (int frame = 10; frame < 90; frame += 2)
        _cache->seek(frame);
    QCOMPARE(_stream->pending(), 16);
    _script->release(MediaScript::Reads);
    MediaScript::settle();
    QCOMPARE(tagOf(_cache->peek()), 88);
    QCOMPARE(_cache->framesInCache(), 12);
}

void TestStreamReading::aStreamThatGoesAwayLeavesAnEmptyCache()
{
    open();
    _stream.reset();
    QCOMPARE(_cache->framesInCache(), 0);
    QVERIFY(_cache->read().isNull());
    _cache->seek(3);
    _cache->setSpeed(-1.0);
    _cache->write(taggedFrame(1));
    QCOMPARE(_error->size(), 1);
    _cache->setStream(nullptr);
    QCOMPARE(_cache->position(), 0);
}

void TestStreamReading::aSmallerCacheHoldsLess()
{
    open();
    _cache->setCacheSize(4);
    QCOMPARE(_cache->framesInCache(), 4);
    _cache->setCacheSize(0);
    QCOMPARE(_cache->framesInCache(), 1);
    QCOMPARE(take(3), (QList<int>{0, 1, 2}));
}

void TestStreamReading::aFrameThatFailsIsReportedOnceAndLeftOut()
{
    _script->unreadable = {3, 4};
    open();
    QCOMPARE(_error->size(), 2);
    QCOMPARE((*_error)[0][0].toInt(), 3);
    QCOMPARE((*_error)[0][1].value<OrbError>(), OrbError(EIO));
    QCOMPARE(_cache->framesInCache(), 45);
    QCOMPARE(take(5), (QList<int>{0, 1, 2, 5, 6}));
    _cache->setSpeed(-1.0);
    QCOMPARE(take(4), (QList<int>{7, 6, 5, 2}));
    QCOMPARE(_error->size(), 2);
    QCOMPARE(_script->reads.count(3), 1);
}

void TestStreamReading::aFailedFrameAtTheHeadIsPassedByThePosition()
{
    _script->unreadable = {0, 1, 50, 49};
    open();
    QCOMPARE(_cache->position(), 2);
    for (const double speed : {-0.5, 0.5, 0.0, -1.0}) {
        _cache->setSpeed(speed);
        _cache->seek(50);
        MediaScript::settle();
        QCOMPARE(_cache->position(), speed < 0 ? 48 : 51);
        QCOMPARE(tagOf(_cache->peek()), speed < 0 ? 48 : 51);
    }
}

void TestStreamReading::theLastFrameThatCanBeReadIsTheLast()
{
    _script->length = 10;
    _script->unreadable = {8, 9};
    open();
    QCOMPARE(take(7).last(), 6);
    const OrbFrame last = _cache->read();
    QCOMPARE(tagOf(last), 7);
    QVERIFY(last.meta().valueFor(OrbId(OrbIdEndOfStream)).toBool());
    QVERIFY(_cache->atEndOfStream());
    _cache->seekToLastFrame();
    QVERIFY(!_cache->atEndOfStream());
    QCOMPARE(take(1), QList<int>{7});
    QCOMPARE(_error->size(), 2);
}

void TestStreamReading::theFirstFrameThatCanBeReadIsTheFirst()
{
    _script->unreadable = {0};
    open();
    QVERIFY(_cache->peek().meta().valueFor(OrbId(OrbIdStartOfStream)).toBool());
    QCOMPARE(tagOf(_cache->peek()), 1);
    take(3);
    _cache->seekToFirstFrame();
    QCOMPARE(take(1), QList<int>{1});
    QCOMPARE(_error->size(), 1);
}

void TestStreamReading::seekTriesAFailedFrameAnew()
{
    _script->unreadable = {20};
    open();
    QCOMPARE(_error->size(), 1);
    _script->unreadable.clear();
    _cache->seek(20);
    QCOMPARE(take(1), QList<int>{20});
}

void TestStreamReading::anUnreadableStreamDoesNotSpin()
{
    _script->length = 100'000;
    _script->isAllUnreadable = true;
    open();
    // Those under way when the eighth failed, and what time has let through since.
    const auto atOnce = _script->reads.size();
    QVERIFY2(atOnce < 40, qPrintable(QString::number(atOnce)));
    QCOMPARE(_error->size(), atOnce - _stream->pending());
    // It recovers by itself when the medium does.
    _script->isAllUnreadable = false;
    QVERIFY(_ready->wait());
    MediaScript::settle();
    QCOMPARE(_cache->framesInCache(), 45);
}

void TestStreamReading::aChangeOfSpeedWhileReadsFailDoesNotEndTheTries()
{
    _script->length = 100'000;
    _script->isAllUnreadable = true;
    open();
    QTRY_VERIFY(_stream->pending() == 0);
    // The one frame that is tried is not wanted any more when its answer comes.
    _script->hold(MediaScript::Reads);
    QTRY_VERIFY(_stream->pending() == 1);
    _cache->setSpeed(-1.0);
    _cache->setSpeed(20.0);
    _script->release(MediaScript::Reads);
    QTRY_VERIFY(_stream->pending() == 0);
    _script->isAllUnreadable = false;
    QTRY_VERIFY(_cache->framesInCache() > 0);
}

void TestStreamReading::aShortUnreadableStreamEndsEmpty()
{
    _script->length = 5;
    _script->isAllUnreadable = true;
    open();
    QCOMPARE(_error->size(), 5);
    QVERIFY(_cache->atEndOfStream());
    // What an engine does at an end must not make it read for ever.
    for (int pass = 0; pass < 10; ++pass) {
        _cache->seekToLastFrame();
        _cache->seekToFirstFrame();
        MediaScript::settle();
    }
    QCOMPARE(_script->reads.size(), 5);
    QCOMPARE(_cache->framesInCache(), 0);
}

QTEST_GUILESS_MAIN(TestStreamReading)
#include "tst_streamreading.moc"
