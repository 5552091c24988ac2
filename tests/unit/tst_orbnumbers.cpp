#include "liborb/orberror.h"
#include "liborb/orbrational.h"
#include "liborb/orbtimestamp.h"
#include "liborb/orbvideorate.h"

#include <QTest>

#include <cmath>
#include <limits>

Q_DECLARE_METATYPE(OrbVideoRate::StdRate)

class TestOrbNumbers : public QObject
{
    Q_OBJECT

private slots:
    void zeroIsSuccessAndEverythingElseAnError();
    void theDefaultFractionIsInvalid();
    void onlyTheDenominatorMakesAFractionValid();
    void fractionsConvertToDoubles();
    void theCommonFactorFollowsEuclid_data();
    void theCommonFactorFollowsEuclid();
    void reducing_data();
    void reducing();
    void fractionsCompareReduced_data();
    void fractionsCompareReduced();
    void theSmallestNumbersDoNotTrap();
    void timecodeRateTruncatesDeliberately_data();
    void timecodeRateTruncatesDeliberately();
    void standardRates_data();
    void standardRates();
    void timeStampsConvertToSeconds();
    void theCurrentTimeStampIsOfThisCentury();
};

void TestOrbNumbers::zeroIsSuccessAndEverythingElseAnError()
{
    QVERIFY(!OrbError().isError());
    QVERIFY(!OrbError(0).isError());
    QVERIFY(OrbError(5).isError());
    QVERIFY(OrbError(-1).isError());
    QCOMPARE(OrbError(5).value(), 5);
    QCOMPARE(OrbError(5), OrbError(5));
    QVERIFY(OrbError(5) != OrbError());
}

void TestOrbNumbers::theDefaultFractionIsInvalid()
{
    QCOMPARE(OrbRational().num(), 0);
    QCOMPARE(OrbRational().den(), 0);
    QVERIFY(!OrbRational().isValid());
    QVERIFY(!OrbVideoRate().isValid());
}

void TestOrbNumbers::onlyTheDenominatorMakesAFractionValid()
{
    QVERIFY(OrbRational(0, 1).isValid());
    QVERIFY(OrbRational(1, -1).isValid());
    QVERIFY(!OrbRational(5, 0).isValid());
}

void TestOrbNumbers::fractionsConvertToDoubles()
{
    QCOMPARE(OrbRational(1, 4).toDouble(), 0.25);
    QCOMPARE(OrbRational(30000, 1001).toDouble(), 30000.0 / 1001.0);
    QVERIFY(std::isnan(OrbRational(0, 0).toDouble()));
    QVERIFY(std::isinf(OrbRational(5, 0).toDouble()));
}

void TestOrbNumbers::theCommonFactorFollowsEuclid_data()
{
    QTest::addColumn<int>("a");
    QTest::addColumn<int>("b");
    QTest::addColumn<int>("factor");
    QTest::newRow("none") << 0 << 0 << 0;
    QTest::newRow("one is zero") << 0 << 5 << 5;
    QTest::newRow("other is zero") << 5 << 0 << 5;
    QTest::newRow("relatively prime") << 30000 << 1001 << 1;
    QTest::newRow("smaller first") << 12 << 18 << 6;
    QTest::newRow("larger first") << 18 << 12 << 6;
    QTest::newRow("equal") << 7 << 7 << 7;
    QTest::newRow("signs follow the remainders") << -4 << -2 << -2;
    QTest::newRow("one sign") << -4 << 2 << 2;
}

void TestOrbNumbers::theCommonFactorFollowsEuclid()
{
    QFETCH(int, a);
    QFETCH(int, b);
    QTEST(OrbRational::gcf(a, b), "factor");
    QTEST(OrbRational(a, b).gcf(), "factor");
}

void TestOrbNumbers::reducing_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<int>("reducedNum");
    QTest::addColumn<int>("reducedDen");
    QTest::newRow("zero by zero stays the default") << 0 << 0 << 0 << 0;
    QTest::newRow("factor 1 is unchanged") << 30000 << 1001 << 30000 << 1001;
    QTest::newRow("halved") << 60000 << 2002 << 30000 << 1001;
    QTest::newRow("invalid") << 5 << 0 << 1 << 0;
    QTest::newRow("zero") << 0 << 9 << 0 << 1;
    QTest::newRow("both negative") << -4 << -2 << 2 << 1;
}

void TestOrbNumbers::reducing()
{
    QFETCH(int, num);
    QFETCH(int, den);
    const OrbRational reduced = OrbRational(num, den).reduce();
    QTEST(reduced.num(), "reducedNum");
    QTEST(reduced.den(), "reducedDen");
}

void TestOrbNumbers::fractionsCompareReduced_data()
{
    QTest::addColumn<OrbRational>("a");
    QTest::addColumn<OrbRational>("b");
    QTest::addColumn<bool>("equal");
    QTest::newRow("reduced") << OrbRational(30000, 1001) << OrbRational(60000, 2002) << true;
    QTest::newRow("halves") << OrbRational(1, 2) << OrbRational(2, 4) << true;
    QTest::newRow("two invalid ones") << OrbRational(0, 0) << OrbRational(7, 0) << true;
    QTest::newRow("0/0 and 5/0") << OrbRational(0, 0) << OrbRational(5, 0) << true;
    QTest::newRow("valid and invalid") << OrbRational(0, 1) << OrbRational(0, 0) << false;
    QTest::newRow("signs") << OrbRational(-1, 2) << OrbRational(2, -4) << true;
    QTest::newRow("close") << OrbRational(30, 1) << OrbRational(30000, 1001) << false;
}

void TestOrbNumbers::fractionsCompareReduced()
{
    QFETCH(OrbRational, a);
    QFETCH(OrbRational, b);
    QFETCH(bool, equal);
    QCOMPARE(a == b, equal);
    QCOMPARE(b == a, equal);
    QCOMPARE(a != b, !equal);
}

void TestOrbNumbers::theSmallestNumbersDoNotTrap()
{
    constexpr int smallest = std::numeric_limits<int>::min();
    QCOMPARE(OrbRational(smallest, smallest).reduce(), OrbRational(1, 1));
    QVERIFY(OrbRational(smallest, -1).isValid());
    QCOMPARE(OrbRational(smallest, -1).reduce().num(), smallest);
    QCOMPARE(OrbRational(-1, smallest).reduce().num(), -1); // 1 / 2^31 does not fit
    QCOMPARE(OrbRational::gcf(smallest, 0), smallest);
}

void TestOrbNumbers::timecodeRateTruncatesDeliberately_data()
{
    QTest::addColumn<int>("num");
    QTest::addColumn<int>("den");
    QTest::addColumn<int>("rate");
    QTest::newRow("23.976") << 24000 << 1001 << 24;
    QTest::newRow("24") << 24 << 1 << 24;
    QTest::newRow("25") << 25000 << 1000 << 25;
    QTest::newRow("25.5 is still 25") << 51 << 2 << 25;
    QTest::newRow("26 is nothing") << 26 << 1 << 0;
    QTest::newRow("29.97") << 30000 << 1001 << 30;
    QTest::newRow("30") << 30 << 1 << 30;
    QTest::newRow("47.952") << 48000 << 1001 << 48;
    QTest::newRow("48") << 48 << 1 << 48;
    QTest::newRow("49") << 49 << 1 << 0;
    QTest::newRow("50") << 50 << 1 << 50;
    QTest::newRow("59.94") << 60000 << 1001 << 60;
    QTest::newRow("60") << 60 << 1 << 60;
    QTest::newRow("61") << 61 << 1 << 0;
    QTest::newRow("no denominator") << 25 << 0 << 0;
    QTest::newRow("nothing") << 0 << 0 << 0;
    QTest::newRow("negative") << -25 << 1 << 0;
    QTest::newRow("two negatives") << -25 << -1 << 25;
    QTest::newRow("huge") << std::numeric_limits<int>::min() << -1 << 0;
}

void TestOrbNumbers::timecodeRateTruncatesDeliberately()
{
    QFETCH(int, num);
    QFETCH(int, den);
    QTEST(OrbVideoRate(num, den).timecodeRate(), "rate");
}

void TestOrbNumbers::standardRates_data()
{
    QTest::addColumn<OrbVideoRate::StdRate>("standard");
    QTest::addColumn<OrbRational>("rate");
    QTest::newRow("none") << OrbVideoRate::RateNone << OrbRational();
    QTest::newRow("23.976") << OrbVideoRate::Rate23_976 << OrbRational(24000, 1001);
    QTest::newRow("24") << OrbVideoRate::Rate24 << OrbRational(24, 1);
    QTest::newRow("25") << OrbVideoRate::Rate25 << OrbRational(25, 1);
    QTest::newRow("29.97") << OrbVideoRate::Rate29_97 << OrbRational(30000, 1001);
    QTest::newRow("30") << OrbVideoRate::Rate30 << OrbRational(30, 1);
    QTest::newRow("47.952") << OrbVideoRate::Rate47_952 << OrbRational(48000, 1001);
    QTest::newRow("48") << OrbVideoRate::Rate48 << OrbRational(48, 1);
    QTest::newRow("50") << OrbVideoRate::Rate50 << OrbRational(50, 1);
    QTest::newRow("59.94") << OrbVideoRate::Rate59_94 << OrbRational(60000, 1001);
    QTest::newRow("60") << OrbVideoRate::Rate60 << OrbRational(60, 1);
    QTest::newRow("outside") << static_cast<OrbVideoRate::StdRate>(11) << OrbRational();
}

void TestOrbNumbers::standardRates()
{
    QFETCH(OrbVideoRate::StdRate, standard);
    QFETCH(OrbRational, rate);
    QCOMPARE(static_cast<OrbRational>(OrbVideoRate(standard)), rate);
    QCOMPARE(OrbVideoRate(standard).isValid(), rate.isValid());
}

void TestOrbNumbers::timeStampsConvertToSeconds()
{
    QCOMPARE(OrbTimeStamp().toDouble(), 0.0);
    QCOMPARE(OrbTimeStamp(12, 500000).toDouble(), 12.5);
    timeval tv{};
    tv.tv_sec = 3;
    tv.tv_usec = 250000;
    QCOMPARE(OrbTimeStamp(tv), OrbTimeStamp(3, 250000));
    QVERIFY(!(OrbTimeStamp(3, 0) == OrbTimeStamp(3, 1)));
}

void TestOrbNumbers::theCurrentTimeStampIsOfThisCentury()
{
    const OrbTimeStamp now = OrbTimeStamp::getCurrent();
    QVERIFY(now.sec() > 1577836800); // 2020
    QVERIFY(now.usec() >= 0 && now.usec() < 1000000);
}

QTEST_APPLESS_MAIN(TestOrbNumbers)
#include "tst_orbnumbers.moc"
