// The clips that stand in for a lost input are those that the engine looks for, and look as they say.

#include "stockclips.h"

#include "libclip/clipreader.h"
#include "libclip/clipwriter.h"
#include "transport/lossofvideo.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <set>
#include <vector>

class TestStockClips : public QObject
{
    Q_OBJECT
private slots:
    void everyClipIsTheOneThatTheEngineLooksFor();
    void everyClipHasItsRasterScanAndFamily_data();
    void everyClipHasItsRasterScanAndFamily();
    void theSamePictureGivesTheSameClip();
    void aClipThatIsThereIsReplaced();
    void aFolderThatCannotBeMadeIsAnError();

private:
    QTemporaryDir _dir;
};

void TestStockClips::everyClipIsTheOneThatTheEngineLooksFor()
{
    std::set<std::string> files;
    for (const LossOfVideoClip &stock : lossOfVideoClips) {
        OrbImageDesc desc;
        desc.setSize(stock.width, stock.height);
        desc.setScanMode(stock.isInterlaced ? OrbImageDesc::Interlaced : OrbImageDesc::Progressive);
        desc.setDataType(OrbId(stock.family));
        QCOMPARE(findLossOfVideoFile(desc), QString::fromLatin1(stock.file));
        files.insert(stock.file);
    }
    QCOMPARE(files.size(), std::size_t(22));
}

void TestStockClips::everyClipHasItsRasterScanAndFamily_data()
{
    QTest::addColumn<int>("index");
    for (int i = 0; i < int(std::size(lossOfVideoClips)); ++i)
        QTest::newRow(lossOfVideoClips[std::size_t(i)].file) << i;
}

void TestStockClips::everyClipHasItsRasterScanAndFamily()
{
    QFETCH(int, index);
    const LossOfVideoClip &stock = lossOfVideoClips[std::size_t(index)];
    const std::string folder = _dir.path().toStdString();
    const clip::Error error = makeStockClip(stock, folder);
    QVERIFY2(!error, error.text.c_str());
    clip::ClipReader reader;
    QVERIFY(!reader.open(folder + "/" + stock.file));
    const clip::ClipInfo &info = reader.info();
    QCOMPARE(info.frames, std::int64_t(1));
    QCOMPARE(info.video.width, stock.width);
    QCOMPARE(info.video.height, stock.height);
    const bool is422 = stock.family == lossOfVideoFamily422;
    QVERIFY(info.video.codec == (is422 ? clip::Codec::ProRes422 : clip::Codec::ProRes4444));
    QVERIFY(info.video.scan == (stock.isInterlaced ? clip::Scan::Interlaced : clip::Scan::Progressive));
    QVERIFY(!stock.isInterlaced || info.video.topFieldFirst == (stock.height != 486));
    QVERIFY(info.isComplete);
    QVERIFY(reader.pictureSize(0) > 1000);
}

/// What stands in memory below a 4:4:4 picture of an odd number of macroblocks a field does not show.
void TestStockClips::theSamePictureGivesTheSameClip()
{
    const std::string folder = _dir.path().toStdString();
    for (const LossOfVideoClip &stock : lossOfVideoClips) {
        if (stock.family != lossOfVideoFamily444 || !stock.isInterlaced || stock.width > 2048)
            continue;
        QByteArray before;
        for (int i = 0; i < 3; ++i) {
            const std::vector<char> litter(std::size_t(1) << (22 + i), char(i + 1));
            QVERIFY(!makeStockClip(stock, folder) && litter.back() == char(i + 1));
            QFile file(QString::fromStdString(folder + "/" + stock.file));
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QByteArray bytes = file.readAll();
            QVERIFY(before.isEmpty() || before == bytes);
            before = bytes;
        }
    }
}

void TestStockClips::aClipThatIsThereIsReplaced()
{
    const std::string folder = _dir.path().toStdString();
    const LossOfVideoClip &stock = lossOfVideoClips[0];
    QVERIFY(!makeStockClip(stock, folder));
    QFile file(QString::fromStdString(folder + "/" + stock.file));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.close();
    QVERIFY(!makeStockClip(stock, folder));
    QVERIFY(file.size() > 1000);
    QVERIFY(!QFile::exists(file.fileName() + ".new"));
}

void TestStockClips::aFolderThatCannotBeMadeIsAnError()
{
    QVERIFY(bool(makeStockClip(lossOfVideoClips[0], "/proc/nowhere")));
}

QTEST_APPLESS_MAIN(TestStockClips)
#include "tst_stockclips.moc"
