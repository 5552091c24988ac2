#include "liborb/orbplaylist.h"
#include "liborb/orbstreamcache.h"
#include "tst_streamfiles.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cerrno>

class TestStreamPlayLists : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void twoClipsAreOneStream();
    void framesSayWhichClipTheyAreOf();
    void thePictureOfEveryFrameIsRightBothWaysAcrossTheJoins();
    void theTimecodeIsTheClips();
    void entriesThatAreNotValidTakeNoFrames();
    void aListOfNoFramesIsAnOpenError();
    void aListWhoseFirstClipCannotBeOpenedIsAnOpenError();
    void aClipThatCannotBeOpenedFailsByFrameAndTheRestPlays();
    void aClipShorterThanTheListSaysFailsBehindItsEnd();
    void noMoreThanThreeFilesAreOpen();
    void theNextClipIsOpenBeforeItsFirstFrameIsRead();
    void aListCannotBeWritten();

private:
    OrbPlayList list(const QList<int> &lengths);
    static int filesOpenIn(const QString &folder);

    std::unique_ptr<QTemporaryDir> _folder;
};

void TestStreamPlayLists::init()
{
    _folder = std::make_unique<QTemporaryDir>();
    QVERIFY(_folder->isValid());
}

/// Clips of these lengths, with their entry's number as seed.
OrbPlayList TestStreamPlayLists::list(const QList<int> &lengths)
{
    OrbPlayList result;
    for (const int length : lengths) {
        const int number = int(result.size());
        OrbPlayListEntry entry;
        entry.setName(QStringLiteral("%1.mov").arg(number));
        entry.setDesc(_folder->filePath(entry.name()));
        entry.setLength(length);
        if (!files::writeClip(entry.desc().toString(), length, number))
            return OrbPlayList();
        result.append(entry);
    }
    return result;
}

int TestStreamPlayLists::filesOpenIn(const QString &folder)
{
    int count = 0;
    const QDir descriptors(QStringLiteral("/proc/self/fd"));
    const auto links =
        descriptors.entryInfoList(QDir::NoDotAndDotDot | QDir::System | QDir::Files);
    for (const QFileInfo &link : links)
        count += link.symLinkTarget().startsWith(folder) ? 1 : 0;
    return count;
}

void TestStreamPlayLists::twoClipsAreOneStream()
{
    const OrbPlayList clips = list({10, 20});
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    QCOMPARE(stream.info().length(), 30);
    QCOMPARE(stream.info().vids(), files::streamInfo().vids());
    QCOMPARE(stream.info().auds(), files::streamInfo().auds());
    QVERIFY(!stream.info().isGrowing());
    for (const auto &answer : files::readFrames(stream, {-1, 30}))
        QCOMPARE(answer.error, EINVAL);
}

void TestStreamPlayLists::framesSayWhichClipTheyAreOf()
{
    const OrbPlayList clips = list({10, 20});
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    const auto answers = files::readFrames(stream, {0, 9, 10, 29});
    const int expected[][3] = {{0, 0, 0}, {9, 0, 9}, {10, 1, 0}, {29, 1, 19}};
    for (size_t i = 0; i < answers.size(); ++i) {
        const OrbMetadataHash meta = answers[i].frame.meta();
        QCOMPARE(meta.valueFor(OrbId(OrbIdFrameNumber)).toInt(), expected[i][0]);
        QCOMPARE(meta.valueFor(OrbId(OrbIdStartOfStream)).toBool(), i == 0);
        QCOMPARE(meta.valueFor(OrbId(OrbIdEndOfStream)).toBool(), i == 3);
        const auto index =
            meta.valueFor(OrbId(OrbIdPlayListIndex)).value<OrbPlayListIndex>();
        QVERIFY(index.isValid());
        QCOMPARE(index.entryIndex(), expected[i][1]);
        QCOMPARE(index.frame(), expected[i][2]);
        QCOMPARE(index.entry().name(), clips[expected[i][1]].name());
        QVERIFY(index.playList() == clips);
    }
}

void TestStreamPlayLists::thePictureOfEveryFrameIsRightBothWaysAcrossTheJoins()
{
    const OrbPlayList clips = list({13, 1, 17, 50});
    OrbStream stream;
    OrbStreamCache cache;
    cache.setStream(&stream);
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    for (const int step : {1, -1, 3, -3}) {
        cache.setSpeed(step);
        step > 0 ? cache.seekToFirstFrame() : cache.seekToLastFrame();
        for (int number = step > 0 ? 0 : 80; number >= 0 && number <= 80; number += step) {
            QTRY_VERIFY_WITH_TIMEOUT(cache.framesInCache() > 0, files::patienceMs);
            const OrbFrame frame = cache.read();
            const int entry = clips.entryOfFrame(number);
            QCOMPARE(frame.meta().valueFor(OrbId(OrbIdFrameNumber)).toInt(), number);
            QCOMPARE(files::bytesOf(frame.vids().first().buffer()),
                     files::pictureBytes(number - clips.firstFrameOfEntry(entry), entry));
        }
        QVERIFY(step > 0 ? cache.atEndOfStream() : cache.atStartOfStream());
    }
}

void TestStreamPlayLists::theTimecodeIsTheClips()
{
    const OrbPlayList clips = list({10, 20});
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    const auto answers = files::readFrames(stream, {9, 10, 11});
    const QStringList expected = {"10:00:00;09", "10:00:00;00", "10:00:00;01"};
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(answers[size_t(i)].frame.meta().valueFor(OrbId(OrbIdTimecode))
                     .value<OrbTimecode>().toString(),
                 expected[i]);
    }
}

void TestStreamPlayLists::entriesThatAreNotValidTakeNoFrames()
{
    OrbPlayList clips = list({5, 5});
    clips.insert(1, OrbPlayListEntry());
    clips.prepend(OrbPlayListEntry());
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    QCOMPARE(stream.info().length(), 10);
    const auto answers = files::readFrames(stream, {4, 5});
    QCOMPARE(files::bytesOf(answers[0].frame.vids().first().buffer()), files::pictureBytes(4, 0));
    QCOMPARE(files::bytesOf(answers[1].frame.vids().first().buffer()), files::pictureBytes(0, 1));
    const auto index =
        answers[1].frame.meta().valueFor(OrbId(OrbIdPlayListIndex)).value<OrbPlayListIndex>();
    QCOMPARE(index.entryIndex(), 3);
}

void TestStreamPlayLists::aListOfNoFramesIsAnOpenError()
{
    OrbStream stream;
    OrbPlayList clips;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), EINVAL);
    clips.append(OrbPlayListEntry());
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), EINVAL);
    QVERIFY(stream.isClosed());
}

void TestStreamPlayLists::aListWhoseFirstClipCannotBeOpenedIsAnOpenError()
{
    OrbPlayList clips = list({5, 5});
    QVERIFY(QFile::remove(clips[0].desc().toString()));
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), ENOENT);
    clips[0].setDesc(7);
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), EINVAL);
}

void TestStreamPlayLists::aClipThatCannotBeOpenedFailsByFrameAndTheRestPlays()
{
    const OrbPlayList clips = list({5, 3, 5});
    QVERIFY(QFile::remove(clips[1].desc().toString()));
    OrbStream stream;
    OrbStreamCache cache;
    cache.setStream(&stream);
    QSignalSpy failed(&cache, &OrbStreamCache::error);
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    QList<int> numbers;
    for (int i = 0; i < 10; ++i) {
        QTRY_VERIFY_WITH_TIMEOUT(cache.framesInCache() > 0, files::patienceMs);
        numbers << cache.read().meta().valueFor(OrbId(OrbIdFrameNumber)).toInt();
    }
    QCOMPARE(numbers, (QList<int>{0, 1, 2, 3, 4, 8, 9, 10, 11, 12}));
    QCOMPARE(failed.size(), 3);
    QCOMPARE(failed[0][1].value<OrbError>(), OrbError(ENOENT));
}

void TestStreamPlayLists::aClipShorterThanTheListSaysFailsBehindItsEnd()
{
    OrbPlayList clips = list({5, 5});
    clips[0].setLength(8);
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    const auto answers = files::readFrames(stream, {4, 5, 7, 8});
    QCOMPARE(answers[0].error, 0);
    QCOMPARE(answers[1].error, EINVAL);
    QCOMPARE(answers[2].error, EINVAL);
    QCOMPARE(files::bytesOf(answers[3].frame.vids().first().buffer()), files::pictureBytes(0, 1));
}

void TestStreamPlayLists::noMoreThanThreeFilesAreOpen()
{
    const OrbPlayList clips = list({4, 4, 4, 4, 4, 4});
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    for (const int number : {0, 5, 9, 13, 17, 23, 1, 12, 8, 20, 0}) {
        QCOMPARE(files::readFrames(stream, {number})[0].error, 0);
        const int open = filesOpenIn(_folder->path());
        QVERIFY2(open >= 1 && open <= 3, qPrintable(QString::number(open)));
    }
}

void TestStreamPlayLists::theNextClipIsOpenBeforeItsFirstFrameIsRead()
{
    const OrbPlayList clips = list({4, 4, 4});
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(clips), 1), 0);
    QCOMPARE(files::readFrames(stream, {0})[0].error, 0);
    QTRY_COMPARE_WITH_TIMEOUT(filesOpenIn(_folder->path()), 2, files::patienceMs);
    // An open file outlives its name: what is read now was opened ahead.
    QVERIFY(QFile::remove(clips[1].desc().toString()));
    QCOMPARE(files::readFrames(stream, {4})[0].error, 0);
}

void TestStreamPlayLists::aListCannotBeWritten()
{
    OrbStream stream;
    QCOMPARE(files::open(stream, QVariant::fromValue(list({4})), 2), -1);
    QVERIFY(stream.isClosed());
}

QTEST_GUILESS_MAIN(TestStreamPlayLists)
#include "tst_streamplaylists.moc"
