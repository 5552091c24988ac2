#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "tst_streamscript.h"

#include <QSignalSpy>
#include <QTest>

namespace {

/// Counts how often it is started; is kept when the test says.
class Promise : public OrbBufferPromise
{
public:
    explicit Promise(int *started) : _started(started) {}
    void start(const OrbBuffer &) override { ++*_started; }

private:
    int *_started;
};

} // namespace

class TestStreamWriting : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void framesGoToTheStreamWhileItHasFewPending();
    void framesThatWaitFollowInOrder();
    void thePositionCountsFramesWrittenSinceTheOpen();
    void promisedBuffersAreRequestedAtOnce();
    void pushingHandsOverWhateverIsPending();
    void closingWritesEveryFrameThatWaits();
    void aFrameForAStreamNotOpenForWritingIsAnErrorAndDropped();
    void aFrameThatIsNotWrittenIsReported();
    void tooManyFramesWaitingAreRefused();
    void readingFromAStreamOpenForWritingGivesNothing();

private:
    void open();
    QStringList writesAsked() const { return _script->calls.filter("write"); }

    std::unique_ptr<MediaScript> _script;
    std::unique_ptr<OrbStream> _stream;
    std::unique_ptr<OrbStreamCache> _cache;
    std::unique_ptr<QSignalSpy> _error;
};

void TestStreamWriting::init()
{
    _script = std::make_unique<MediaScript>();
    _stream = std::make_unique<OrbStream>();
    _stream->setDesc(QStringLiteral("/m/a.mov"));
    _cache = std::make_unique<OrbStreamCache>();
    _cache->setStream(_stream.get());
    _error = std::make_unique<QSignalSpy>(_cache.get(), &OrbStreamCache::error);
}

void TestStreamWriting::cleanup()
{
    _error.reset();
    _cache.reset();
    _stream.reset();
    _script.reset();
}

void TestStreamWriting::open()
{
    QVERIFY(_stream->open(2));
    MediaScript::settle();
    QVERIFY(_stream->isOpen());
    _script->calls.clear();
}

void TestStreamWriting::framesGoToTheStreamWhileItHasFewPending()
{
    open();
    _script->hold(MediaScript::Writes);
    for (int frame = 0; frame < 20; ++frame)
        _cache->write(taggedFrame(frame));
    QCOMPARE(_stream->pending(), 8);
    QCOMPARE(_cache->framesInCache(), 12);
    QCOMPARE(writesAsked().size(), 8);
    _script->release(MediaScript::Writes, 3);
    MediaScript::settle();
    QCOMPARE(_stream->pending(), 8);
    QCOMPARE(_cache->framesInCache(), 9);
}

void TestStreamWriting::framesThatWaitFollowInOrder()
{
    open();
    _script->hold(MediaScript::Writes);
    QStringList expected;
    for (int frame = 0; frame < 30; ++frame) {
        _cache->write(taggedFrame(frame));
        expected << QStringLiteral("write %1").arg(frame);
    }
    _script->release(MediaScript::Writes);
    MediaScript::settle();
    QCOMPARE(writesAsked(), expected);
    QCOMPARE(_cache->framesInCache(), 0);
    QCOMPARE(_stream->pending(), 0);
}

void TestStreamWriting::thePositionCountsFramesWrittenSinceTheOpen()
{
    open();
    QCOMPARE(_cache->position(), 0);
    _script->hold(MediaScript::Writes);
    for (int frame = 0; frame < 10; ++frame)
        _cache->write(taggedFrame(frame));
    QCOMPARE(_cache->position(), 10);
    _script->release(MediaScript::Writes);
    _stream->close();
    MediaScript::settle();
    open();
    QCOMPARE(_cache->position(), 0);
}

void TestStreamWriting::promisedBuffersAreRequestedAtOnce()
{
    open();
    _script->hold(MediaScript::Writes);
    int started = 0;
    for (int i = 0; i < 12; ++i) {
        OrbFrame frame;
        frame.vids().append(
            OrbImage(OrbImageDesc(), OrbBuffer(std::make_shared<Promise>(&started))));
        _cache->write(frame);
        QCOMPARE(started, i + 1);
    }
}

void TestStreamWriting::pushingHandsOverWhateverIsPending()
{
    open();
    _script->hold(MediaScript::Writes);
    for (int frame = 0; frame < 20; ++frame)
        _cache->write(taggedFrame(frame));
    _cache->pushCachedToPending(5);
    QCOMPARE(_stream->pending(), 13);
    QCOMPARE(_cache->framesInCache(), 7);
    _cache->pushCachedToPending(_cache->framesInCache());
    QCOMPARE(_stream->pending(), 20);
    QCOMPARE(_cache->framesInCache(), 0);
    _cache->pushCachedToPending(-1);
    QCOMPARE(_cache->position(), 20);
}

void TestStreamWriting::closingWritesEveryFrameThatWaits()
{
    open();
    _script->hold(MediaScript::Writes);
    for (int frame = 0; frame < 25; ++frame)
        _cache->write(taggedFrame(frame));
    _stream->close();
    QCOMPARE(writesAsked().size(), 25);
    QCOMPARE(_script->calls.last(), QStringLiteral("close"));
    _script->release(MediaScript::Writes);
    MediaScript::settle();
    QVERIFY(_stream->isClosed());
    QCOMPARE(_error->size(), 0);
}

void TestStreamWriting::aFrameForAStreamNotOpenForWritingIsAnErrorAndDropped()
{
    _cache->write(taggedFrame(1));
    QCOMPARE(_error->size(), 1);
    QCOMPARE((*_error)[0][1].value<OrbError>(), OrbError(EBADF));
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    _cache->write(taggedFrame(2));
    QCOMPARE(_error->size(), 2);
    MediaScript::settle();
    QVERIFY(writesAsked().isEmpty());
    QVERIFY(_cache->position() == 0);
}

void TestStreamWriting::aFrameThatIsNotWrittenIsReported()
{
    open();
    _script->writeError = OrbError(ENOSPC);
    _cache->write(taggedFrame(0));
    _cache->write(taggedFrame(1));
    MediaScript::settle();
    QCOMPARE(_error->size(), 2);
    QCOMPARE((*_error)[1][0].toInt(), 1);
    QCOMPARE((*_error)[1][1].value<OrbError>(), OrbError(ENOSPC));
}

void TestStreamWriting::tooManyFramesWaitingAreRefused()
{
    open();
    _script->hold(MediaScript::Writes);
    for (int frame = 0; frame < 1024 + 8; ++frame)
        _cache->write(taggedFrame(frame));
    QCOMPARE(_error->size(), 0);
    _cache->write(taggedFrame(9999));
    QCOMPARE(_error->size(), 1);
    QCOMPARE((*_error)[0][1].value<OrbError>(), OrbError(ENOBUFS));
    QCOMPARE(_cache->framesInCache(), 1024);
}

void TestStreamWriting::readingFromAStreamOpenForWritingGivesNothing()
{
    open();
    QVERIFY(_cache->read().isNull());
    QVERIFY(_cache->peek().isNull());
    QVERIFY(!_cache->atStartOfStream() && !_cache->atEndOfStream());
    MediaScript::settle();
    QVERIFY(_script->reads.isEmpty());
}

QTEST_GUILESS_MAIN(TestStreamWriting)
#include "tst_streamwriting.moc"
