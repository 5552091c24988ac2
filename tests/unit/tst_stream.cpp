#include "liborb/orbplaylist.h"
#include "liborb/orbstream.h"
#include "tst_streamscript.h"

#include <QSignalSpy>
#include <QTest>

namespace {

OrbPlayList playList(const QStringList &paths)
{
    OrbPlayList list;
    for (const QString &path : paths) {
        OrbPlayListEntry entry;
        entry.setName(path);
        entry.setDesc(path);
        entry.setLength(10);
        list.append(entry);
    }
    return list;
}

} // namespace

class TestStream : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    // Closed
    void aNewStreamIsClosedAndNeitherReadableNorWritable();
    void closingAClosedStreamDoesNothingAndSignalsNothing();
    void readingAClosedStreamAnswersAnErrorLater();
    void writingToAClosedStreamDoesNothing();
    void openIsRefusedForAnUnknownAccess();
    void openIsRefusedWhenNoDriverTakesTheDescriptor();

    // Opening
    void openCompletesByOneSignalWithItsAccess();
    void openIsRefusedWhileOpening();
    void aFailedOpenLeavesTheStreamClosedWhenTheSignalComes();
    void aStreamCanBeOpenedAnewAfterAFailure();
    void aStreamClosedWhileOpeningAnswersByCloseAlone();
    void aStreamClosedWhileAnOpenFailsAnswersByCloseAlone();

    // Open
    void openIsRefusedWhenOpen();
    void readsAnswerWithNumberFrameAndContext();
    void readingAStreamOpenForWritingIsAnError();
    void writingToAStreamOpenForReadingDoesNothing();
    void pendingCountsRequestsNotCompleted();
    void flushReachesOnlyAWritableStream();
    void aReadStreamTakesTheInformationOfTheMedium();
    void aWriteStreamKeepsTheInformationItWasGiven();
    void theTypeGoesToTheDriver();
    void theBenchmarkReportsEveryFrameDoneAndNoFailedOne();

    // Closing
    void closeAnnouncesItselfAndTakesTheLastFrames();
    void framesThatWaitAreWrittenBeforeTheStreamIsClosed();
    void openOnAClosingStreamWaitsForTheClose();
    void aClosingStreamTakesOneOpenAtATime();
    void closeTakesBackAnOpenThatWaits();
    void anOpenBegunByACloseCanBeClosedInTheSignal();

    // Descriptors
    void samePathIsTheSameMedia();
    void playListsAreTheSameMediaByTheirEntries();

private:
    void openFor(int access);

    std::unique_ptr<MediaScript> _script;
    std::unique_ptr<OrbStream> _stream;
    std::unique_ptr<QSignalSpy> _opened;
    std::unique_ptr<QSignalSpy> _closed;
};

void TestStream::init()
{
    _script = std::make_unique<MediaScript>();
    _stream = std::make_unique<OrbStream>();
    _stream->setDesc(QStringLiteral("/m/a.mov"));
    _opened = std::make_unique<QSignalSpy>(_stream.get(), &OrbStream::openIsDone);
    _closed = std::make_unique<QSignalSpy>(_stream.get(), &OrbStream::closeIsDone);
}

void TestStream::cleanup()
{
    _opened.reset();
    _closed.reset();
    _stream.reset();
    _script.reset();
}

void TestStream::openFor(int access)
{
    QVERIFY(_stream->open(access));
    MediaScript::settle();
    QVERIFY(_stream->isOpen());
    _opened->clear();
    _script->calls.clear();
}

void TestStream::aNewStreamIsClosedAndNeitherReadableNorWritable()
{
    QVERIFY(_stream->isClosed());
    QVERIFY(!_stream->isOpen() && !_stream->isOpening() && !_stream->isClosing());
    QVERIFY(!_stream->isReadable() && !_stream->isWritable());
    QCOMPARE(_stream->pending(), 0);
}

void TestStream::closingAClosedStreamDoesNothingAndSignalsNothing()
{
    QSignalSpy about(_stream.get(), &OrbStream::aboutToClose);
    _stream->close();
    MediaScript::settle();
    QCOMPARE(_closed->size() + about.size(), 0);
    QVERIFY(_stream->isClosed());
}

void TestStream::readingAClosedStreamAnswersAnErrorLater()
{
    QSignalSpy read(_stream.get(), &OrbStream::readIsDone);
    int context = 0;
    _stream->read(7, &context);
    QCOMPARE(read.size(), 0);
    MediaScript::settle();
    QCOMPARE(read.size(), 1);
    QCOMPARE(read[0][0].toInt(), 7);
    QCOMPARE(read[0][2].value<OrbError>(), OrbError(EBADF));
    QCOMPARE(read[0][3].value<void *>(), &context);
    QCOMPARE(_stream->pending(), 0);
}

void TestStream::writingToAClosedStreamDoesNothing()
{
    _stream->write(taggedFrame(1));
    _stream->flush();
    MediaScript::settle();
    QVERIFY(_script->calls.isEmpty());
    QCOMPARE(_stream->pending(), 0);
}

void TestStream::openIsRefusedForAnUnknownAccess()
{
    QVERIFY(!_stream->open(0));
    QVERIFY(!_stream->open(3));
    QVERIFY(_stream->isClosed());
}

void TestStream::openIsRefusedWhenNoDriverTakesTheDescriptor()
{
    _script->isRefusing = true;
    QVERIFY(!_stream->open(1));
    MediaScript::settle();
    QVERIFY(_stream->isClosed());
    QCOMPARE(_opened->size(), 0);
}

void TestStream::openCompletesByOneSignalWithItsAccess()
{
    for (const int access : {1, 2}) {
        QVERIFY(_stream->open(access));
        QVERIFY(_stream->isOpening());
        QCOMPARE(_stream->isReadable(), access == 1);
        QCOMPARE(_stream->isWritable(), access == 2);
        QCOMPARE(_opened->size(), 0);
        MediaScript::settle();
        QVERIFY(_stream->isOpen());
        QCOMPARE(_opened->size(), 1);
        QCOMPARE((*_opened)[0][0].toInt(), access);
        QVERIFY(!(*_opened)[0][1].value<OrbError>().isError());
        _stream->close();
        MediaScript::settle();
        _opened->clear();
    }
    QCOMPARE(_stream->openSerial(), quint64(2));
}

void TestStream::openIsRefusedWhileOpening()
{
    _script->hold(MediaScript::Opens);
    QVERIFY(_stream->open(1));
    QVERIFY(!_stream->open(1));
    QVERIFY(!_stream->open(2));
    _script->release(MediaScript::Opens);
    MediaScript::settle();
    QCOMPARE(_opened->size(), 1);
}

void TestStream::aFailedOpenLeavesTheStreamClosedWhenTheSignalComes()
{
    _script->openError = OrbError(ENOENT);
    bool wasClosed = false;
    connect(_stream.get(), &OrbStream::openIsDone, this,
            [&] { wasClosed = _stream->isClosed() && !_stream->isReadable(); });
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    QVERIFY(wasClosed);
    QCOMPARE(_opened->size(), 1);
    QCOMPARE((*_opened)[0][0].toInt(), 1);
    QCOMPARE((*_opened)[0][1].value<OrbError>(), OrbError(ENOENT));
    QCOMPARE(_stream->openSerial(), quint64(0));
}

void TestStream::aStreamCanBeOpenedAnewAfterAFailure()
{
    _script->openError = OrbError(ENOENT);
    // From within the signal, as an engine that tries another clip does.
    connect(_stream.get(), &OrbStream::openIsDone, this, [this](int, const OrbError &error) {
        if (!error.isError())
            return;
        _script->openError = OrbError();
        QVERIFY(_stream->open(2));
    });
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    QVERIFY(_stream->isOpen() && _stream->isWritable());
    QCOMPARE(_opened->size(), 2);
}

void TestStream::aStreamClosedWhileOpeningAnswersByCloseAlone()
{
    QSignalSpy about(_stream.get(), &OrbStream::aboutToClose);
    _script->hold(MediaScript::Opens);
    QVERIFY(_stream->open(1));
    _stream->close();
    QVERIFY(_stream->isClosing());
    _script->release(MediaScript::Opens);
    MediaScript::settle();
    QVERIFY(_stream->isClosed());
    QCOMPARE(_opened->size(), 0);
    QCOMPARE(_closed->size(), 1);
    QCOMPARE(about.size(), 0);
}

void TestStream::aStreamClosedWhileAnOpenFailsAnswersByCloseAlone()
{
    _script->openError = OrbError(EIO);
    QVERIFY(_stream->open(1));
    _stream->close();
    MediaScript::settle();
    QVERIFY(_stream->isClosed());
    QCOMPARE(_opened->size(), 0);
    QCOMPARE(_closed->size(), 1);
}

void TestStream::openIsRefusedWhenOpen()
{
    openFor(1);
    QVERIFY(!_stream->open(1));
    QVERIFY(!_stream->open(2));
    QVERIFY(_stream->isOpen() && _stream->isReadable());
}

void TestStream::readsAnswerWithNumberFrameAndContext()
{
    openFor(1);
    _script->unreadable = {5};
    QSignalSpy read(_stream.get(), &OrbStream::readIsDone);
    int context = 0;
    _stream->read(4, &context);
    _stream->read(5, nullptr);
    MediaScript::settle();
    QCOMPARE(read.size(), 2);
    QCOMPARE(read[0][0].toInt(), 4);
    QCOMPARE(tagOf(read[0][1].value<OrbFrame>()), 4);
    QVERIFY(!read[0][2].value<OrbError>().isError());
    QCOMPARE(read[0][3].value<void *>(), &context);
    QCOMPARE(read[1][2].value<OrbError>(), OrbError(EIO));
}

void TestStream::readingAStreamOpenForWritingIsAnError()
{
    openFor(2);
    QSignalSpy read(_stream.get(), &OrbStream::readIsDone);
    _stream->read(0, nullptr);
    MediaScript::settle();
    QCOMPARE(read[0][2].value<OrbError>(), OrbError(EBADF));
    QVERIFY(_script->reads.isEmpty());
}

void TestStream::writingToAStreamOpenForReadingDoesNothing()
{
    openFor(1);
    _stream->write(taggedFrame(1));
    _stream->flush();
    QVERIFY(_script->calls.isEmpty());
}

void TestStream::pendingCountsRequestsNotCompleted()
{
    openFor(2);
    _script->hold(MediaScript::Writes);
    for (int frame = 0; frame < 3; ++frame)
        _stream->write(taggedFrame(frame));
    QCOMPARE(_stream->pending(), 3);
    _script->release(MediaScript::Writes, 2);
    MediaScript::settle();
    QCOMPARE(_stream->pending(), 1);
    _script->release(MediaScript::Writes);
    MediaScript::settle();
    QCOMPARE(_stream->pending(), 0);
}

void TestStream::flushReachesOnlyAWritableStream()
{
    openFor(2);
    _stream->flush();
    QCOMPARE(_script->calls, QStringList{"flush"});
    _script->hold(MediaScript::Closes);
    _stream->close();
    _stream->flush();
    QCOMPARE(_script->calls, (QStringList{"flush", "close"}));
}

void TestStream::aReadStreamTakesTheInformationOfTheMedium()
{
    OrbStreamInfo stale;
    stale.setReelName("old");
    _stream->setInfo(stale);
    _script->length = 42;
    openFor(1);
    QCOMPARE(_stream->info().length(), 42);
    QCOMPARE(_stream->info().reelName(), QString());
}

void TestStream::aWriteStreamKeepsTheInformationItWasGiven()
{
    OrbStreamInfo info;
    info.setReelName("A001");
    _stream->setInfo(info);
    openFor(2);
    QCOMPARE(_stream->info(), info);
}

void TestStream::theTypeGoesToTheDriver()
{
    _stream->setType(OrbId(OrbIdStreamTypeRecord));
    QVERIFY(_stream->open(2));
    QCOMPARE(_script->lastType, OrbId(OrbIdStreamTypeRecord));
    MediaScript::settle();
    _stream->close();
    MediaScript::settle();
    _stream->setAutoType();
    QVERIFY(_stream->open(1));
    QVERIFY(!_script->lastType.isValid());
}

void TestStream::theBenchmarkReportsEveryFrameDoneAndNoFailedOne()
{
    openFor(1);
    _script->unreadable = {1};
    QSignalSpy benchmark(_stream.get(), &OrbStream::benchmark);
    _stream->read(0, nullptr);
    MediaScript::settle();
    QCOMPARE(benchmark.size(), 0);
    _stream->setBenchmarkEnable(true);
    for (int frame = 0; frame < 3; ++frame)
        _stream->read(frame, nullptr);
    MediaScript::settle();
    QCOMPARE(benchmark.size(), 2);
    QCOMPARE(benchmark[0][0].toInt(), 0);
    QCOMPARE(benchmark[1][0].toInt(), 2);
    QVERIFY(benchmark[0][1].value<OrbTimeStamp>().sec() > 0);
}

void TestStream::closeAnnouncesItselfAndTakesTheLastFrames()
{
    openFor(2);
    connect(_stream.get(), &OrbStream::aboutToClose, this, [this] {
        QVERIFY(_stream->isOpen());
        _stream->write(taggedFrame(9));
        _stream->close(); // of no effect: it is on its way
    });
    _stream->close();
    MediaScript::settle();
    QCOMPARE(_script->calls, (QStringList{"write 9", "close"}));
    QCOMPARE(_closed->size(), 1);
}

void TestStream::framesThatWaitAreWrittenBeforeTheStreamIsClosed()
{
    openFor(2);
    QStringList story;
    connect(_stream.get(), &OrbStream::frameWritten, this,
            [&](int frame) { story << QStringLiteral("written %1").arg(frame); });
    connect(_stream.get(), &OrbStream::closeIsDone, this, [&] { story << "closed"; });
    _script->hold(MediaScript::Writes);
    _script->hold(MediaScript::Closes);
    _stream->write(taggedFrame(0));
    _stream->write(taggedFrame(1));
    _stream->close();
    QVERIFY(_stream->isClosing() && _stream->isWritable());
    _script->release(MediaScript::Writes);
    _script->release(MediaScript::Closes);
    MediaScript::settle();
    QCOMPARE(story, (QStringList{"written 0", "written 1", "closed"}));
    QVERIFY(_stream->isClosed() && !_stream->isWritable());
}

void TestStream::openOnAClosingStreamWaitsForTheClose()
{
    openFor(2);
    QStringList story;
    connect(_stream.get(), &OrbStream::closeIsDone, this,
            [&] { story << (_stream->isOpening() ? "closed, opening" : "closed"); });
    connect(_stream.get(), &OrbStream::openIsDone, this, [&] { story << "opened"; });
    _stream->close();
    _stream->setDesc(QStringLiteral("/m/b.mov"));
    QVERIFY(_stream->open(1));
    QVERIFY(_stream->isClosing());
    QVERIFY(_stream->isReadable() && !_stream->isWritable());
    MediaScript::settle();
    QCOMPARE(story, (QStringList{"closed, opening", "opened"}));
    QCOMPARE(_script->calls, (QStringList{"close", "open /m/b.mov 1"}));
    QVERIFY(_stream->isOpen() && _stream->isReadable());
}

void TestStream::aClosingStreamTakesOneOpenAtATime()
{
    openFor(1);
    _stream->close();
    QVERIFY(_stream->open(1));
    QVERIFY(!_stream->open(2));
    MediaScript::settle();
    QCOMPARE(_opened->size(), 1);
}

void TestStream::closeTakesBackAnOpenThatWaits()
{
    openFor(2);
    _stream->close();
    QVERIFY(_stream->open(1));
    _stream->close();
    QVERIFY(_stream->isWritable());
    MediaScript::settle();
    QVERIFY(_stream->isClosed());
    QCOMPARE(_opened->size(), 0);
    QCOMPARE(_closed->size(), 1);

    QVERIFY(_stream->open(1));
    _stream->close();
    QVERIFY(_stream->open(2));
    MediaScript::settle();
    QVERIFY(_stream->isOpen() && _stream->isWritable());
    QCOMPARE(_opened->size(), 1);
}

void TestStream::anOpenBegunByACloseCanBeClosedInTheSignal()
{
    openFor(1);
    bool isFirst = true;
    connect(_stream.get(), &OrbStream::closeIsDone, this, [&] {
        if (std::exchange(isFirst, false))
            _stream->close();
    });
    _stream->close();
    QVERIFY(_stream->open(1));
    MediaScript::settle();
    QVERIFY(_stream->isClosed());
    QCOMPARE(_opened->size(), 0);
    QCOMPARE(_closed->size(), 2);
    QCOMPARE(_script->calls, QStringList{"close"});
}

void TestStream::samePathIsTheSameMedia()
{
    QVERIFY(_stream->hasDesc(QStringLiteral("/m/a.mov")));
    QVERIFY(_stream->hasDesc(QStringLiteral("/m//a.mov")));
    QVERIFY(!_stream->hasDesc(QStringLiteral("/m/b.mov")));
    QVERIFY(!_stream->hasDesc(QVariant()));
    QVERIFY(!_stream->hasDesc(QVariant::fromValue(playList({"/m/a.mov"}))));
    _stream->setDesc(QVariant());
    QVERIFY(!_stream->hasDesc(QVariant()));
}

void TestStream::playListsAreTheSameMediaByTheirEntries()
{
    _stream->setDesc(QVariant::fromValue(playList({"a", "b"})));
    QVERIFY(_stream->hasDesc(QVariant::fromValue(playList({"a", "b"}))));
    QVERIFY(!_stream->hasDesc(QVariant::fromValue(playList({"a"}))));
    QVERIFY(!_stream->hasDesc(QVariant::fromValue(playList({"b", "a"}))));
    QVERIFY(!_stream->hasDesc(QStringLiteral("a")));
    OrbPlayList longer = playList({"a", "b"});
    longer[1].setLength(11);
    QVERIFY(!_stream->hasDesc(QVariant::fromValue(longer)));
}

QTEST_GUILESS_MAIN(TestStream)
#include "tst_stream.moc"
