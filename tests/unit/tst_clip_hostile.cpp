#include "tst_clip_tools.h"

#include "libclip/movtrack.h"

#include <QRandomGenerator>
#include <QTest>
#include <QtEndian>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

using namespace cliptest;
using clip::ClipInfo;
using clip::ClipReader;
using clip::ClipWriter;

namespace {

QByteArray be32(quint32 value)
{
    QByteArray bytes(4, 0);
    qToBigEndian(value, bytes.data());
    return bytes;
}

QByteArray be64(quint64 value)
{
    return be32(quint32(value >> 32)) + be32(quint32(value));
}

QByteArray box(const char *type, const QByteArray &content)
{
    return be32(quint32(content.size() + 8)) + type + content;
}

/// Numbers that programs trip over.
constexpr quint32 nastyNumbers[] = {
    0, 1, 2, 7, 8, 15, 16, 0x7f, 0x80, 0xff, 0x100, 0x7fff, 0x8000, 0xffff, 0x10000,
    0x7fffffff, 0x80000000, 0xfffffff0, 0xfffffff7, 0xffffffff,
};

} // namespace

/// Files that nobody vouches for: the reader refuses or reads them, and stays within them.
class TestClipHostile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void mutatedClipsNeverCrashTheReader_data();
    void mutatedClipsNeverCrashTheReader();
    void filesThatAreNoClipsAreRefused_data();
    void filesThatAreNoClipsAreRefused();
    void hugeCountsTakeNoMemory_data();
    void hugeCountsTakeNoMemory();
    void namedPipesAndDevicesAreRefused();
    void aCutOrdinaryClipGivesTheFramesItHolds();
    void aFileThatShrinksGivesErrors();
    void commonDurationsWinTheVote();

private:
    QString path(const QString &name) const { return _dir.filePath(name); }
    std::string stdPath(const QString &name) const { return path(name).toStdString(); }
    int read(const QString &name) const;

    QTemporaryDir _dir { scratchTemplate() };
    QByteArray _closed;
    QByteArray _growing;
};

void TestClipHostile::initTestCase()
{
    ClipInfo info = sampleInfo(25, 1, 2);
    info.video.scan = clip::Scan::Segmented;
    ClipWriter writer;
    QCOMPARE(writer.open(stdPath("seed.mov"), info).code, 0);
    for (int i = 0; i < 40; ++i) {
        QCOMPARE(writer.write(bytesOf(noise(40 + i % 3, quint32(i))), bytesOf(noise(60, 5))).code,
                 0);
    }
    QCOMPARE(writer.flush().code, 0);
    _growing = contentOf(path("seed.mov"));
    QCOMPARE(writer.close().code, 0);
    _closed = contentOf(path("seed.mov"));
}

/// Reads all there is of a file; its frames, or -1 when it is refused.
int TestClipHostile::read(const QString &name) const
{
    ClipReader reader;
    if (reader.open(stdPath(name))) {
        return -1;
    }
    const auto &info = reader.info();
    const qint64 frames = info.frames;
    if (frames < 1 || info.video.rateNum < 1 || info.video.rateDen < 1
        || info.video.codec == clip::Codec::Unknown) {
        qFatal("the reader opened what has no frames");
    }
    for (qint64 i = 0; i < std::min<qint64>(frames, 60); ++i) {
        readPicture(reader, i);
        readSound(reader, i);
    }
    readPicture(reader, frames - 1);
    readSound(reader, frames - 1);
    return int(std::min<qint64>(frames, 1'000'000'000));
}

void TestClipHostile::mutatedClipsNeverCrashTheReader_data()
{
    QTest::addColumn<bool>("isClosed");
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 4; ++seed) {
        QTest::addRow("closed, seed %u", seed) << true << seed;
        QTest::addRow("growing, seed %u", seed) << false << seed;
    }
}

void TestClipHostile::mutatedClipsNeverCrashTheReader()
{
    QFETCH(bool, isClosed);
    QFETCH(quint32, seed);
    const QByteArray &whole = isClosed ? _closed : _growing;
    QRandomGenerator generator(seed);
    int refused = 0;
    int opened = 0;
    for (int round = 0; round < 1500; ++round) {
        QByteArray bytes = whole;
        for (quint32 i = 0, changes = generator.bounded(1u, 6u); i < changes; ++i) {
            const int at = int(generator.bounded(int(bytes.size()) - 8));
            const int length = int(generator.bounded(1, 64));
            switch (generator.bounded(6)) {
            case 0:
                bytes[at] = char(generator.generate());
                break;
            case 1:
                bytes[at] = char(bytes[at] ^ 1 << generator.bounded(8));
                break;
            case 2:
            case 3:
                bytes.replace(at & ~3, 4, be32(nastyNumbers[generator.bounded(20)]));
                break;
            case 4:
                bytes.insert(at, bytes.mid(int(generator.bounded(int(bytes.size()))), length));
                break;
            case 5:
                bytes.remove(at, std::min(length, int(bytes.size()) - 16 - at));
                break;
            }
        }
        QVERIFY(setContent(path("mutant.mov"), bytes));
        ++(read("mutant.mov") < 0 ? refused : opened);
    }
    // Both ways are taken, or the test proves little.
    QVERIFY(refused > 10);
    QVERIFY(opened > 10);
}

void TestClipHostile::filesThatAreNoClipsAreRefused_data()
{
    QTest::addColumn<QByteArray>("content");
    const QByteArray ftyp = box("ftyp", "qt  0000qt  ");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("text") << QByteArray("This is no clip, but it is long enough to be mistaken.");
    QTest::newRow("zeros") << QByteArray(100'000, 0);
    QTest::newRow("ones") << QByteArray(100'000, char(0xff));
    QTest::newRow("only a type") << ftyp;
    QTest::newRow("empty movie") << ftyp + box("moov", { });
    QTest::newRow("movie to the end of the file") << ftyp + be32(0) + "moov" + QByteArray(500, 1);
    QTest::newRow("movie longer than the file") << ftyp + be32(5000) + "moov" + QByteArray(100, 0);
    QTest::newRow("movie of 64 bits") << ftyp + be32(1) + "moov" + be64(~quint64(0)) + QByteArray(99, 0);
    QTest::newRow("box shorter than its head") << ftyp + be32(4) + "moov" + QByteArray(100, 0);
    QTest::newRow("wrapping sizes") << ftyp + be32(1) + "mdat" + be64(~quint64(0) - 15)
                                          + box("moov", { });
    QTest::newRow("fragment without a movie") << ftyp + box("moof", box("traf", { }));
    QByteArray nested;
    for (int i = 0; i < 20'000; ++i) {
        nested = i % 1000 == 0 ? box("trak", nested) : nested;
        nested.prepend(be32(quint32(nested.size() + 8)) + "moov");
    }
    QTest::newRow("boxes in boxes in boxes") << ftyp + nested;
    QTest::newRow("a hundred thousand small boxes") << box("free", { }).repeated(100'000);
}

void TestClipHostile::filesThatAreNoClipsAreRefused()
{
    QFETCH(QByteArray, content);
    QVERIFY(setContent(path("noclip.mov"), content));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("noclip.mov")).code, EINVAL);
    QVERIFY(!reader.isOpen());
    QCOMPARE(reader.info().frames, std::int64_t(0));
    QCOMPARE(reader.pictureSize(0), std::size_t(0));
}

void TestClipHostile::hugeCountsTakeNoMemory_data()
{
    QTest::addColumn<QByteArray>("table");
    QTest::addColumn<int>("offset"); // of the count from the start of the table's type
    QTest::newRow("times") << QByteArray("stts") << 8;
    QTest::newRow("samples of a chunk") << QByteArray("stsc") << 16;
    QTest::newRow("runs of chunks") << QByteArray("stsc") << 8;
    QTest::newRow("size of all samples") << QByteArray("stsz") << 8;
    QTest::newRow("sizes") << QByteArray("stsz") << 12;
    QTest::newRow("chunks") << QByteArray("co64") << 8;
}

void TestClipHostile::hugeCountsTakeNoMemory()
{
    QFETCH(QByteArray, table);
    QFETCH(int, offset);
    for (const quint32 count : { 0xffffffffu, 0x7fffffffu, 0x10000000u, 1u }) {
        QByteArray bytes = _closed;
        for (qsizetype at = 0; (at = bytes.indexOf(table, at)) >= 0; ++at) {
            bytes.replace(at + offset, 4, be32(count));
        }
        QVERIFY(bytes != _closed);
        QVERIFY(setContent(path("counts.mov"), bytes));
        QVERIFY(read("counts.mov") <= 40 * 60);
    }
}

void TestClipHostile::namedPipesAndDevicesAreRefused()
{
    QCOMPARE(::mkfifo(stdPath("pipe.mov").c_str(), 0600), 0);
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("pipe.mov")).code, EINVAL);
    QCOMPARE(reader.open("/dev/zero").code, EINVAL);
    QCOMPARE(reader.open("/dev/null").code, EINVAL);
}

void TestClipHostile::aCutOrdinaryClipGivesTheFramesItHolds()
{
    // The movie in front of its data, as writers for the web have it.
    QVERIFY(!run("ffmpeg", {"-v", "error", "-nostats", "-progress", "-", "-y", "-f", "lavfi", "-i",
                            "testsrc2=s=128x96:r=25:d=1", "-c:v", "prores", "-movflags",
                            "faststart", path("front.mov")})
                 .isEmpty());
    const QByteArray whole = contentOf(path("front.mov"));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("front.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(25));
    QVERIFY(reader.info().isComplete);
    const auto last = std::ptrdiff_t(reader.pictureSize(24));
    QVERIFY(setContent(path("front.mov"), whole.left(whole.size() - last - 1)));
    QCOMPARE(reader.open(stdPath("front.mov")).code, 0);
    QCOMPARE(reader.info().frames, std::int64_t(23));
    QVERIFY(!reader.info().isComplete);
}

void TestClipHostile::aFileThatShrinksGivesErrors()
{
    QVERIFY(setContent(path("shrinks.mov"), _closed));
    ClipReader reader;
    QCOMPARE(reader.open(stdPath("shrinks.mov")).code, 0);
    QCOMPARE(::truncate(stdPath("shrinks.mov").c_str(), 100), 0);
    std::vector<std::byte> bytes(reader.pictureSize(39));
    QCOMPARE(reader.readPicture(39, bytes).code, EIO);
    QCOMPARE(reader.readSound(0, bytes).code, EIO);
    QVERIFY(bytes.empty());
}

void TestClipHostile::commonDurationsWinTheVote()
{
    clip::DurationVote vote;
    for (const auto &[duration, samples] : { std::pair(7u, 2u), { 1001u, 50u }, { 3u, 4u } }) {
        vote.count(duration, samples);
    }
    QCOMPARE(vote.duration, 1001u);
}

QTEST_GUILESS_MAIN(TestClipHostile)
#include "tst_clip_hostile.moc"
