#include "liborb/drivers/software/deviceconfig.h"
#include "liborb/drivers/software/programoutput.h"
#include "liborb/drivers/software/reference.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace ferin;

class tst_device_config : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void aMissingFileMeansDefaults();
    void theEnvironmentSaysWhatTheFileDoesNot();
    void theFileNamesSourcesAndBounds();
    void nonsenseIsReplacedByDefaults();
    void formatsAreRead_data();
    void formatsAreRead();
    void generatorsAreSourcesByName();
    void theReferenceIsFixedOrAsTheKernelSays();
    void superShowsWhatIsAskedFor();

private:
    QString written(const QByteArray &text);
    QTemporaryDir _dir;
};

void tst_device_config::init()
{
    qunsetenv("RVD_INPUT");
    qunsetenv("RVD_INPUT_FORMAT");
    qunsetenv("RVD_PROGRAM_BUS");
}

QString tst_device_config::written(const QByteArray &text)
{
    QFile file(_dir.filePath(QStringLiteral("%1.ini").arg(qHash(text))));
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        return QString();
    return file.fileName();
}

void tst_device_config::aMissingFileMeansDefaults()
{
    const DeviceConfig config = DeviceConfig::fromFile(_dir.filePath("none.ini"));
    QCOMPARE(config.source(OrbIdVideoPort601), QStringLiteral("none"));
    QCOMPARE(config.source(OrbIdVideoPort663), QStringLiteral("none"));
    QCOMPARE(config.programBus, QStringLiteral("/rvd_program"));
    QCOMPARE(config.patternFormat.size(), QSize(1920, 1080));
    QCOMPARE(config.patternFormat.frameRate(), OrbVideoRate(25, 1));
    QCOMPARE(config.rawMegabytes, 560);
    QCOMPARE(config.coderWorkers, 0);
    QCOMPARE(config.proRes, ProResBy::Own);
    QCOMPARE(config.refPresent, RefAnswer::Auto);
}

void tst_device_config::theEnvironmentSaysWhatTheFileDoesNot()
{
    qputenv("RVD_INPUT", "pattern");
    qputenv("RVD_INPUT_FORMAT", "1280x720p50");
    qputenv("RVD_PROGRAM_BUS", "/other");
    const DeviceConfig bare = DeviceConfig::fromFile(_dir.filePath("none.ini"));
    QCOMPARE(bare.source(OrbIdVideoPort601), QStringLiteral("pattern"));
    QCOMPARE(bare.source(OrbIdVideoPort602), QStringLiteral("none"));
    QCOMPARE(bare.patternFormat.size(), QSize(1280, 720));
    QCOMPARE(bare.programBus, QStringLiteral("/other"));
    QCOMPARE(bare.proRes, ProResBy::Own);
    QCOMPARE(bare.proResDecoder, ProResBy::Own);

    const DeviceConfig both = DeviceConfig::fromFile(written("[inputs]\n601=bus:/cam\n"));
    QCOMPARE(both.source(OrbIdVideoPort601), QStringLiteral("bus:/cam"));
}

void tst_device_config::theFileNamesSourcesAndBounds()
{
    const DeviceConfig config = DeviceConfig::fromFile(written(
        "[inputs]\n601=pattern\n602=udp://127.0.0.1:5000?a=1,b=2\nformat=1920x1080i25\n"
        "[output]\nbus=/mine\n[reference]\npresent=true\nlocked=no\n"
        "[coder]\nworkers=3\nprores=FFmpeg\n[decoder]\nprores=ffmpeg\n[memory]\nrawMegabytes=64\n"));
    QCOMPARE(config.source(OrbIdVideoPort601), QStringLiteral("pattern"));
    QCOMPARE(config.source(OrbIdVideoPort602), QStringLiteral("udp://127.0.0.1:5000?a=1,b=2"));
    QVERIFY(config.patternFormat.isInterlaced());
    QCOMPARE(config.programBus, QStringLiteral("/mine"));
    QCOMPARE(config.refPresent, RefAnswer::Yes);
    QCOMPARE(config.refLocked, RefAnswer::No);
    QCOMPARE(config.coderWorkers, 3);
    QCOMPARE(config.proRes, ProResBy::Ffmpeg);
    QCOMPARE(config.proResDecoder, ProResBy::Ffmpeg);
    QCOMPARE(config.rawMegabytes, 64);
}

void tst_device_config::nonsenseIsReplacedByDefaults()
{
    const DeviceConfig config = DeviceConfig::fromFile(
        written("[inputs]\nformat=huge\n[coder]\nworkers=many\nprores=mine\n"
                "[decoder]\nprores=yours\n[memory]\nrawMegabytes=-5\n"
                "[reference]\npresent=perhaps\n"));
    QCOMPARE(config.patternFormat.size(), QSize(1920, 1080));
    QCOMPARE(config.coderWorkers, 0);
    QCOMPARE(config.rawMegabytes, 16);
    QCOMPARE(config.proResDecoder, ProResBy::Own);
    QCOMPARE(config.refPresent, RefAnswer::Auto);
}

void tst_device_config::formatsAreRead_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("meaning"); // width height num den scan, empty when refused
    QTest::newRow("progressive") << "1280x720p50" << "1280 720 50 1 0";
    QTest::newRow("interlaced") << "1920x1080i25" << "1920 1080 25 1 1";
    QTest::newRow("segmented") << "1920x1080psf24" << "1920 1080 24 1 2";
    QTest::newRow("fraction") << "1920x1080p30000/1001" << "1920 1080 30000 1001 0";
    QTest::newRow("capitals and blanks") << " 720X486I30000/1001 " << "720 486 30000 1001 1";
    QTest::newRow("largest") << "4096x2160p60" << "4096 2160 60 1 0";
    QTest::newRow("empty") << "" << "";
    QTest::newRow("odd width") << "1921x1080p25" << "";
    QTest::newRow("too large") << "4098x2160p25" << "";
    QTest::newRow("no rate") << "1920x1080p" << "";
    QTest::newRow("rate 0") << "1920x1080p0" << "";
    QTest::newRow("over 0") << "1920x1080p25/0" << "";
    QTest::newRow("below one a second") << "1920x1080p1/2" << "";
    QTest::newRow("trailing text") << "1920x1080p25 please" << "";
}

void tst_device_config::formatsAreRead()
{
    QFETCH(QString, text);
    QFETCH(QString, meaning);
    const std::optional<OrbImageDesc> format = parseFormat(text);
    QString read;
    if (format) {
        read = QStringLiteral("%1 %2 %3 %4 %5")
                   .arg(format->width())
                   .arg(format->height())
                   .arg(format->frameRate().num())
                   .arg(format->frameRate().den())
                   .arg(format->scanMode());
    }
    QCOMPARE(read, meaning);
}

void tst_device_config::generatorsAreSourcesByName()
{
    QCOMPARE(generatorOf("pattern"), OrbId(OrbIdVideoGenMoving));
    QCOMPARE(generatorOf("bars"), OrbId(OrbIdVideoGenBars));
    QCOMPARE(generatorOf("black"), OrbId(OrbIdVideoGenBlack));
    QVERIFY(!generatorOf("none").isValid());
    QVERIFY(!generatorOf("bus:/pattern").isValid());
}

void tst_device_config::theReferenceIsFixedOrAsTheKernelSays()
{
    DeviceConfig config;
    QCOMPARE(referenceState(config, {false, false}).present(), false);
    QCOMPARE(referenceState(config, {true, false}).present(), true);
    QCOMPARE(referenceState(config, {true, false}).locked(), false);
    QCOMPARE(referenceState(config, {true, true}).locked(), true);
    config.refPresent = RefAnswer::Yes;
    config.refLocked = RefAnswer::Yes;
    QCOMPARE(referenceState(config, {false, false}).locked(), true);
    config.refPresent = RefAnswer::No;
    QCOMPARE(referenceState(config, {true, true}).present(), false);
    QCOMPARE(referenceState(config, {true, true}).locked(), false); // nothing to be locked to
}

void tst_device_config::superShowsWhatIsAskedFor()
{
    const OrbTimecode tc(1, 2, 3, 4, 25, 0);
    const auto lines = [&](const OrbId &id) { return superLines(id, tc, "Clip", "PLAY", "R1"); };
    QCOMPARE(lines(OrbId()), QList<QByteArray>());
    QCOMPARE(lines(OrbIdSuperTimecode), (QList<QByteArray> {"01:02:03:04"}));
    QCOMPARE(lines(OrbIdSuperTimecodeClip), (QList<QByteArray> {"01:02:03:04", "Clip"}));
    QCOMPARE(lines(OrbIdSuperAll), (QList<QByteArray> {"01:02:03:04 PLAY", "Clip", "R1"}));
    QCOMPARE(superLines(OrbIdSuperAll, OrbTimecode(), "", "E-E", ""),
             (QList<QByteArray> {"--:--:--:-- E-E"}));
}

QTEST_APPLESS_MAIN(tst_device_config)
#include "tst_device_config.moc"
