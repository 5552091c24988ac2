#include "liborb/orbid.h"
#include "app/identifiers.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

class TestOrbId : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultIdentifierIsInvalid();
    void everyOtherNumberIsValid();
    void identifiersCompareByValue();
    void theHashIsTheValueItself();
    void namesAreShortAndDescriptive_data();
    void namesAreShortAndDescriptive();
    void everyEnumeratorHasItsName();
    void noTwoNumbersShareAName();
    void mappedIdentifiersCarryTheNumberOfTheirName_data();
    void mappedIdentifiersCarryTheNumberOfTheirName();
};

void TestOrbId::theDefaultIdentifierIsInvalid()
{
    QVERIFY(!OrbId().isValid());
    QCOMPARE(OrbId().value(), OrbIdNone);
}

void TestOrbId::everyOtherNumberIsValid()
{
    QVERIFY(OrbId(OrbIdFrameNumber).isValid());
    QVERIFY(OrbId(-1).isValid());
    QVERIFY(OrbId(77777).isValid());
    QVERIFY(!OrbId(0).isValid());
}

void TestOrbId::identifiersCompareByValue()
{
    QCOMPARE(OrbId(202), OrbId(OrbIdImageProRes422));
    QVERIFY(OrbId(202) != OrbId(203));
    QVERIFY(OrbId(OrbIdDefaultImageDataType) == OrbId(OrbIdImageProRes422));
}

void TestOrbId::theHashIsTheValueItself()
{
    QCOMPARE(qHash(OrbId(1904)), size_t(1904));
    QCOMPARE(qHash(OrbId(1904), 99), size_t(1904));
    QCOMPARE(qHash(OrbId()), size_t(0));
}

void TestOrbId::namesAreShortAndDescriptive_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("name");
    QTest::newRow("none") << 0 << "None";
    QTest::newRow("first") << 1 << "FrameNumber";
    QTest::newRow("two enumerators, 202") << 202 << "ImageProRes422";
    QTest::newRow("two enumerators, 231") << 231 << "ImageV210";
    QTest::newRow("two enumerators, 800") << 800 << "VideoGenBlack";
    QTest::newRow("sound") << 408 << "AudioDataType";
    QTest::newRow("port") << 663 << "VideoPort663";
    QTest::newRow("alarm") << 1904 << "AlarmDroppedFrame";
    QTest::newRow("last") << 2004 << "InhibitNoMedia";
    QTest::newRow("unnamed") << 2 << "Id2";
    QTest::newRow("beyond the list") << 2005 << "Id2005";
    QTest::newRow("negative") << -3 << "Id-3";
}

void TestOrbId::namesAreShortAndDescriptive()
{
    QFETCH(int, number);
    QTEST(OrbId(number).name(), "name");
}

/// The enumerators of the header, "OrbId" cut off, by number.
static QMultiMap<int, QString> enumerators()
{
    QFile header(QStringLiteral(RV_TOOLKIT_HEADERS "/orbidvalue.h"));
    if (!header.open(QIODevice::ReadOnly))
        return {};
    static const QRegularExpression row(QStringLiteral("^ +OrbId(\\w+) = (\\d+)"),
                                        QRegularExpression::MultilineOption);
    QMultiMap<int, QString> names;
    auto rows = row.globalMatch(QString::fromUtf8(header.readAll()));
    while (rows.hasNext()) {
        const auto match = rows.next();
        names.insert(match.captured(2).toInt(), match.captured(1));
    }
    return names;
}

void TestOrbId::everyEnumeratorHasItsName()
{
    const auto names = enumerators();
    QVERIFY(names.size() > 90);
    for (const int number : names.uniqueKeys()) {
        const QString name = OrbId(number).name();
        QVERIFY2(names.values(number).contains(name), qPrintable(name));
    }
}

void TestOrbId::noTwoNumbersShareAName()
{
    QSet<QString> seen;
    for (int number = -10; number < 3000; ++number)
        seen.insert(OrbId(number).name());
    QCOMPARE(seen.size(), 3010);
}

void TestOrbId::mappedIdentifiersCarryTheNumberOfTheirName_data()
{
    QTest::addColumn<OrbId>("id");
    QTest::addColumn<int>("number");
#define ROW(id, number) QTest::newRow(#id) << id << number
    ROW(idEncode202, 202);
    ROW(idEncode203, 203);
    ROW(idEncode204, 204);
    ROW(idEncode205, 205);
    ROW(idEncode206, 206);
    ROW(idEncode230, 230);
    ROW(idImageData231, 231);
    ROW(idImageData250, 250);
    ROW(idVideoPort601, 601);
    ROW(idVideoPort602, 602);
    ROW(idVideoPort603, 603);
    ROW(idVideoPort604, 604);
    ROW(idVideoPort631, 631);
    ROW(idVideoPort632, 632);
    ROW(idVideoPort633, 633);
    ROW(idVideoPort661, 661);
    ROW(idVideoPort662, 662);
    ROW(idVideoPort663, 663);
    ROW(idAudioInput52, 52);
    ROW(idAudioInput690, 690);
    ROW(idSyncSource501, 501);
    ROW(idSyncSource502, 502);
    ROW(idSyncSource503, 503);
#undef ROW
}

void TestOrbId::mappedIdentifiersCarryTheNumberOfTheirName()
{
    QFETCH(OrbId, id);
    QFETCH(int, number);
    QCOMPARE(static_cast<int>(id.value()), number);
}

QTEST_APPLESS_MAIN(TestOrbId)
#include "tst_orbid.moc"
