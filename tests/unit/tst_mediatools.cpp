// What operators see of media: columns, data rates, times, slots.

#include "libvanta/mediaslot.h"
#include "services/rvctl/datarate.h"
#include "services/rvctl/mediareport.h"
#include "services/rvctl/names.h"
#include "services/rvctl/plaintext.h"

#include <QTest>

#include <cmath>
#include <set>

class TestMediaTools : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { CreateDescriptors(); }

    void textIsPrintedSafely_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("shown");
        QTest::addColumn<int>("columns");
        // clang-format off
        QTest::newRow("plain")         << QByteArray("a b.mov")               << QByteArray("a b.mov")                << 7;
        QTest::newRow("accent")        << QByteArray("\xc3\x84.mov")          << QByteArray("\xc3\x84.mov")           << 5;
        QTest::newRow("wide")          << QByteArray("\xe6\x98\xa0.mov")      << QByteArray("\xe6\x98\xa0.mov")       << 6;
        QTest::newRow("film")          << QByteArray("\xf0\x9f\x8e\xa5")      << QByteArray("\xf0\x9f\x8e\xa5")       << 2;
        QTest::newRow("combining")     << QByteArray("e\xcc\x81")             << QByteArray("e\xcc\x81")              << 1;
        QTest::newRow("escape")        << QByteArray("a\x1b[2J")              << QByteArray("a\\x1b[2J")              << 8;
        QTest::newRow("line end")      << QByteArray("a\nb")                  << QByteArray("a\\x0ab")                << 6;
        QTest::newRow("delete")        << QByteArray("\x7f")                  << QByteArray("\\x7f")                  << 4;
        QTest::newRow("second set")    << QByteArray("\xc2\x9b" "2J")         << QByteArray("\\xc2\\x9b2J")           << 10;
        QTest::newRow("turned around") << QByteArray("a\xe2\x80\xae")         << QByteArray("a\\xe2\\x80\\xae")       << 13;
        QTest::newRow("no text")       << QByteArray("\xff" "a")              << QByteArray("\\xffa")                 << 5;
        QTest::newRow("cut")           << QByteArray("a\xe6\x98")             << QByteArray("a\\xe6\\x98")            << 9;
        QTest::newRow("overlong")      << QByteArray("\xc0\xaf")              << QByteArray("\\xc0\\xaf")             << 8;
        QTest::newRow("surrogate")     << QByteArray("\xed\xa0\x80")          << QByteArray("\\xed\\xa0\\x80")        << 12;
        // clang-format on
    }

    void textIsPrintedSafely()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, shown);
        QFETCH(int, columns);
        QCOMPARE(QByteArray::fromStdString(printable(text.toStdString())), shown);
        QCOMPARE(int(columnsOf(printable(text.toStdString()))), columns);
    }

    void bytesThatAreNoTextAreReplacedInJson()
    {
        QCOMPARE(jsonString("a\"\\\n\xff\xed\xa0\x80\xc3\x84"),
                 std::string("\"a\\\"\\\\\\u000a\\ufffd\\ufffd\\ufffd\\ufffd\xc3\x84\""));
    }

    void tablesAreAsWideAsTheirWidestText()
    {
        using enum TextTable::Align;
        TextTable table{Right, Left, Right, Left};
        table.add({"1", "\xe6\x98\xa0.mov", "25", "x"});
        table.add({"10", "a\n", "1", ""});
        QCOMPARE(table.text(), std::string(" 1  \xe6\x98\xa0.mov  25  x\n10  a\\x0a    1\n"));
    }

    void ratesAreThoseOfTheFormat_data()
    {
        QTest::addColumn<QString>("raster");
        QTest::addColumn<unsigned int>("type");
        QTest::addColumn<double>("megabits"); // of pictures, as makers of the formats tell
        QTest::newRow("422") << "1080p25" << 0u << 122.0;
        QTest::newRow("HQ") << "1080i59.94" << 1u << 220.0;
        QTest::newRow("LT") << "720p50" << 2u << 84.0;
        QTest::newRow("Proxy") << "1080p25" << 3u << 38.0;
        QTest::newRow("4444") << "2Kp24" << 7u << 283.0;
        QTest::newRow("DNxHR") << "1080p29.97" << 8u << 220.0;
        QTest::newRow("UHD DNxHR") << "UHDp29.97" << 8u << 873.0;
        QTest::newRow("uncompressed") << "1080psf25" << 9u << 1105.9;
        QTest::newRow("of a clip") << "1280x720p25" << 0u << 60.5;
        QTest::newRow("of an interlaced clip") << "1920x1080i29.97" << 1u << 220.0;
        QTest::newRow("uncompressed 525") << "486i59.94" << 9u << 223.7;
    }

    void ratesAreThoseOfTheFormat()
    {
        QFETCH(QString, raster);
        QFETCH(unsigned int, type);
        QFETCH(double, megabits);
        const double sound = 2 * 48000 * 3;
        const DataRate rate = dataRateOf(raster.toStdString(), type, "X", 2);
        QCOMPARE(rate.format, raster.toStdString() + " X");
        const double seen = (rate.bytesPerSecond - sound) * 8 / 1e6;
        QVERIFY2(std::abs(seen - megabits) < megabits * 0.02, qPrintable(QString::number(seen)));
        QCOMPARE(dataRateOf(raster.toStdString(), type, "X", 8).bytesPerSecond - rate.bytesPerSecond, 3 * sound);
    }

    void everyNamedFormatAndTypeHasARate()
    {
        for (const ParamValueName &format : GetDescriptor(eParamMediaFormat)->values()) {
            for (const ParamValueName &type : GetDescriptor(eParamEncodeType)->values()) {
                const bool hasRate = dataRateOf(format.name, type.value, type.name, 2).bytesPerSecond > 1e6;
                QVERIFY2(hasRate == (format.value > 1), format.name);
            }
        }
        const char *const none[] = {
            "", "1080", "1080p", "1080x25", "p25", "1080pp25", "1080p-3", "1080p0", "0x0p25", "1920xp25", "1920x1080",
            "99999999x1080p25", "-4x4p25", "4x99999999999999p1", "x",
        };
        for (const char *raster : none) {
            QCOMPARE(dataRateOf(raster, 0, "", 2).bytesPerSecond, 0.0);
        }
        QCOMPARE(dataRateOf("1080p25", 77, "", 2).bytesPerSecond, 0.0);
    }

    void aTenthOfTheMediumStaysFree()
    {
        QCOMPARE(recordingSeconds(1000, 1000, 9), 100.0);
        QCOMPARE(recordingSeconds(100, 1000, 9), 0.0);
        QCOMPARE(recordingSeconds(50, 1000, 9), 0.0);
    }

    void timesAreToldInWords()
    {
        QCOMPARE(durationText(0), std::string("0 s"));
        QCOMPARE(durationText(59.9), std::string("59 s"));
        QCOMPARE(durationText(60), std::string("1 min"));
        QCOMPARE(durationText(83 * 60), std::string("1 h 23 min"));
        QCOMPARE(durationText(100.0 * 3600), std::string("100 h 0 min"));
    }

    void slotsComeBackAsTheyWere()
    {
        const MediaSlot several[] = {
            {SlotState::Ready, false, 12345678901234, 99999999999999, "/media/slot 1"},
            {SlotState::Ready, true, 0, 1, "/media/\xe6\x98\xa0"},
            {SlotState::Empty, false, 0, 0, "/a"},
            {SlotState::Ejected, false, 0, 0, "/a b  c"},
        };
        for (const MediaSlot &slot : several) {
            QVERIFY(mediaSlotOf(textOf(slot)) == slot);
        }
        for (const char *text : {"", "ready", "ready rw 1 2", "ready rw 1 2 ", "odd rw 1 2 /a", "ready rx 1 2 /a",
                                 "ready rw -1 2 /a", "ready rw 1 2x /a", "ready rw 99999999999999999999 2 /a"}) {
            QVERIFY2(!mediaSlotOf(text), text);
        }
        std::set<eParam_t> parameters;
        for (int i = 0; i < mediaSlotCount; i++) {
            parameters.insert(mediaSlotParameter(i));
            QCOMPARE(GetDescriptor(mediaSlotParameter(i))->name(), "eParamMediaSlot" + std::to_string(i + 1));
        }
        QCOMPARE(parameters.size(), std::size_t(mediaSlotCount));
    }
};

QTEST_APPLESS_MAIN(TestMediaTools)
#include "tst_mediatools.moc"
