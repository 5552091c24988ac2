// What is known of clips outlives the service and the machine, and nothing in its file is believed.

#include "tst_clip_tools.h"

#include "cliplister.h"
#include "knownclipsfile.h"
#include "mediumid.h"

#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

Clip clipNamed(const std::string &name, ClipState state = ClipState::Ready)
{
    Clip clip;
    clip.setName(name);
    clip.setFrameCount(25);
    clip.setFileSize(1000);
    clip.setModifiedNs(123456789012345678);
    clip.setFormat("1920x1080p25 ProRes 422");
    clip.setTimecode("10:00:00:00");
    clip.setState(state);
    return clip;
}

bool knows(const KnownClips &known, const std::string &medium, const std::string &name)
{
    return known.find(medium, name, 1000, 123456789012345678).has_value();
}

KnownClips &twoMedia(KnownClips &known)
{
    known.remember("A", clipNamed("a.mov"));
    known.remember("A", clipNamed("\xe6\x98\xa0 b.mov"));
    known.remember("B", clipNamed("a.mov"));
    known.remember("B", clipNamed("bad.mov", ClipState::Bad));
    return known;
}

} // namespace

class TestMediaKnown : public QObject
{
    Q_OBJECT
private slots:
    void clipsAreKnownByTheirMedium();
    void whatIsGoneFromAMediumIsForgotten();
    void whatIsKnownComesBackAsItWas();
    void badClipsAreReadAgain();
    void noDamagedFileIsBelieved();
    void recordsThatNoClipCanHaveAreNotBelieved();
    void theFileIsWrittenInOneStepAndRead();
    void aPlaceThatCannotBeWrittenCostsNothing();
    void whatIsNoFileIsNotRead_data();
    void whatIsNoFileIsNotRead();
    void aMediumIsListedWithoutAReaderAfterARestart();

private:
    QTemporaryDir _dir{cliptest::scratchTemplate()};
};

void TestMediaKnown::clipsAreKnownByTheirMedium()
{
    KnownClips known;
    twoMedia(known);
    QVERIFY(knows(known, "A", "a.mov") && knows(known, "B", "a.mov"));
    QVERIFY(!knows(known, "B", "\xe6\x98\xa0 b.mov") && !knows(known, "C", "a.mov"));
    QVERIFY(!known.find("A", "a.mov", 1001, 123456789012345678));
    QVERIFY(!known.find("A", "a.mov", 1000, 123456789012345679));
}

void TestMediaKnown::whatIsGoneFromAMediumIsForgotten()
{
    KnownClips known;
    twoMedia(known);
    const std::uint64_t before = known.revision();
    known.keepOnly("A", {"a.mov", "other.mov"});
    QVERIFY(knows(known, "A", "a.mov") && knows(known, "B", "a.mov"));
    QVERIFY(!knows(known, "A", "\xe6\x98\xa0 b.mov"));
    QVERIFY(known.revision() != before);
}

void TestMediaKnown::whatIsKnownComesBackAsItWas()
{
    KnownClips known;
    const std::string text = knownClipsText(twoMedia(known).good());
    KnownClips read;
    QVERIFY(readKnownClips(text, read));
    QVERIFY(*read.find("A", "a.mov", 1000, 123456789012345678) == clipNamed("a.mov"));
    QVERIFY(knows(read, "A", "\xe6\x98\xa0 b.mov") && knows(read, "B", "a.mov"));
    QCOMPARE(knownClipsText(read.good()), text);
}

/// A reader of tomorrow may know the format.
void TestMediaKnown::badClipsAreReadAgain()
{
    KnownClips known;
    KnownClips read;
    QVERIFY(readKnownClips(knownClipsText(twoMedia(known).good()), read));
    QVERIFY(knows(known, "B", "bad.mov"));
    QVERIFY(!knows(read, "B", "bad.mov"));
}

void TestMediaKnown::noDamagedFileIsBelieved()
{
    KnownClips known;
    const std::string text = knownClipsText(twoMedia(known).good());
    for (std::size_t length = 0; length < text.size(); ++length) {
        KnownClips read;
        QVERIFY2(!readKnownClips(text.substr(0, length), read), qPrintable(QString::number(length)));
        QVERIFY(read.good().empty());
    }
    for (std::size_t at = 0; at < text.size(); ++at) {
        std::string spoilt = text;
        spoilt[at] = char(spoilt[at] ^ (1 << at % 8));
        KnownClips read;
        QVERIFY2(!readKnownClips(spoilt, read), qPrintable(QString::number(at)));
        QVERIFY(read.good().empty());
    }
}

void TestMediaKnown::recordsThatNoClipCanHaveAreNotBelieved()
{
    KnownClips read;
    QVERIFY(!readKnownClips(knownClipsText({{"A", {clipNamed("a/b.mov")}}}), read));
    QVERIFY(!readKnownClips(knownClipsText({{"A", {clipNamed("a\nb.mov")}}}), read));
    QVERIFY(!readKnownClips(knownClipsText({{std::string(300, 'A'), {clipNamed("a.mov")}}}), read));
    // A sound record of what is no clip's name, or no sound clip, says nothing.
    QVERIFY(readKnownClips(knownClipsText({{"A", {clipNamed("notes.txt"), clipNamed("m.mov", ClipState::Missing)}}}),
                           read));
    QVERIFY(read.good().empty());
}

void TestMediaKnown::theFileIsWrittenInOneStepAndRead()
{
    const std::string path = _dir.filePath("state/of/it/clips").toStdString();
    KnownClips known;
    {
        KnownClipsFile file(known, path);
        QVERIFY(file.load());
        twoMedia(known);
        file.changed();
    }
    QCOMPARE(QDir(_dir.filePath("state/of/it")).entryList(QDir::Files), QStringList("clips"));
    KnownClips again;
    KnownClipsFile file(again, path);
    QVERIFY(file.load());
    QVERIFY(knows(again, "A", "a.mov"));
}

void TestMediaKnown::aPlaceThatCannotBeWrittenCostsNothing()
{
    for (const char *path : {"/proc/nowhere/clips", "/dev/null/clips", ""}) {
        KnownClips known;
        KnownClipsFile file(known, path);
        QVERIFY(file.load());
        twoMedia(known);
        file.changed();
    }
}

void TestMediaKnown::whatIsNoFileIsNotRead_data()
{
    QTest::addColumn<QString>("path");
    QVERIFY(cliptest::setContent(_dir.filePath("text"), "no clips\n"));
    QVERIFY(cliptest::setContent(_dir.filePath("huge"), "x"));
    QCOMPARE(::truncate(_dir.filePath("huge").toLocal8Bit().constData(), off_t(1) << 40), 0);
    QCOMPARE(::mkfifo(_dir.filePath("pipe").toLocal8Bit().constData(), 0666), 0);
    QTest::newRow("text") << _dir.filePath("text");
    QTest::newRow("terabyte") << _dir.filePath("huge");
    QTest::newRow("pipe") << _dir.filePath("pipe");
    QTest::newRow("folder") << _dir.path();
    QTest::newRow("device") << "/dev/zero";
}

void TestMediaKnown::whatIsNoFileIsNotRead()
{
    QFETCH(QString, path);
    KnownClips known;
    KnownClipsFile file(known, path.toStdString());
    QVERIFY(!file.load());
    QVERIFY(known.good().empty());
}

void TestMediaKnown::aMediumIsListedWithoutAReaderAfterARestart()
{
    const QTemporaryDir medium(cliptest::scratchTemplate());
    const QString clip = medium.filePath("R001C0001.mov");
    const clip::ClipInfo info = cliptest::sampleInfo();
    clip::ClipWriter writer;
    QVERIFY(!writer.open(clip.toStdString(), info) && !cliptest::writeFrames(writer, info, 5) && !writer.close());
    const timeval old[2] = {{1000, 0}, {1000, 0}};
    QCOMPARE(::utimes(clip.toLocal8Bit().constData(), old), 0);
    const std::string path = _dir.filePath("kept").toStdString();
    int error = 0;
    {
        KnownClips known;
        KnownClipsFile file(known, path);
        ClipLister lister(known, RVGROK);
        QCOMPARE(lister.list(medium.path().toStdString(), error).size(), std::size_t(1));
        file.changed();
    }
    KnownClips known;
    KnownClipsFile file(known, path);
    QVERIFY(file.load());
    ClipLister blind(known, "/nonexistent");
    const std::list<Clip> clips = blind.list(medium.path().toStdString(), error);
    QVERIFY(clips.size() == 1 && clips.front().isComplete());
    QCOMPARE(clips.front().getFrameCount(), 5);
    QCOMPARE(clips.front().timecode(), std::string("01:00:00:00"));
}

QTEST_APPLESS_MAIN(TestMediaKnown)
#include "tst_media_known.moc"
