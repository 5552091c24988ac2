#include "liborb/orbreadorder.h"

#include <QTest>

#include <cmath>
#include <limits>

class TestStreamOrder : public QObject
{
    Q_OBJECT

private slots:
    void everyFrameComesAsOftenAsTheSpeedSays_data();
    void everyFrameComesAsOftenAsTheSpeedSays();
    void tenStepsOfATenthAreOneFrameHoweverLong();
    void aPositionBelowZeroIsBeforeTheStartAlthoughItTruncatesToZero();
    void skippingLeavesTheFrameAtEverySpeed_data();
    void skippingLeavesTheFrameAtEverySpeed();
    void movingOutsideStopsOneFrameOutside();
    void aSpeedThatIsNoNumberStands();
    void anEmptyStreamHasNoInside();
};

void TestStreamOrder::everyFrameComesAsOftenAsTheSpeedSays_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<int>("start");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("0.1") << 0.1 << 3
                         << QList<int>{3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4};
    QTest::newRow("0.2") << 0.2 << 0 << QList<int>{0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 2};
    QTest::newRow("0.5") << 0.5 << 0 << QList<int>{0, 0, 1, 1, 2, 2};
    QTest::newRow("1") << 1.0 << 0 << QList<int>{0, 1, 2, 3};
    QTest::newRow("2") << 2.0 << 0 << QList<int>{0, 2, 4, 6};
    QTest::newRow("4") << 4.0 << 1 << QList<int>{1, 5, 9};
    QTest::newRow("20") << 20.0 << 5 << QList<int>{5, 25, 45};
    QTest::newRow("0") << 0.0 << 7 << QList<int>{7, 7, 7};
    QTest::newRow("-0.1") << -0.1 << 2
                          << QList<int>{2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0};
    QTest::newRow("-0.5") << -0.5 << 3 << QList<int>{3, 2, 2, 1, 1, 0, 0};
    QTest::newRow("-1") << -1.0 << 3 << QList<int>{3, 2, 1, 0};
    QTest::newRow("-2") << -2.0 << 9 << QList<int>{9, 7, 5, 3, 1};
    QTest::newRow("-4") << -4.0 << 9 << QList<int>{9, 5, 1};
    QTest::newRow("-20") << -20.0 << 45 << QList<int>{45, 25, 5};
}

void TestStreamOrder::everyFrameComesAsOftenAsTheSpeedSays()
{
    QFETCH(double, speed);
    QFETCH(int, start);
    QFETCH(QList<int>, expected);
    OrbReadOrder order;
    order.reset(100);
    order.moveTo(start);
    order.setSpeed(speed);
    QList<int> frames;
    for (int i = 0; i < expected.size() && order.isInside(); ++i) {
        frames << order.position();
        order.advance();
    }
    QCOMPARE(frames, expected);
}

void TestStreamOrder::tenStepsOfATenthAreOneFrameHoweverLong()
{
    OrbReadOrder order;
    order.reset(1'000'000);
    for (const double speed : {0.1, -0.1}) {
        order.moveTo(speed > 0 ? 0 : 999'999);
        order.setSpeed(speed);
        const int start = order.position();
        for (int step = 1; step <= 200'000; ++step) {
            order.advance();
            if (step % 10 == 0)
                QCOMPARE(order.position(), start + step / 10 * (speed > 0 ? 1 : -1));
        }
    }
}

void TestStreamOrder::aPositionBelowZeroIsBeforeTheStartAlthoughItTruncatesToZero()
{
    OrbReadOrder order;
    order.reset(10);
    order.setSpeed(-0.5);
    QVERIFY(order.isInside());
    order.advance();
    QCOMPARE(order.position(), 0);
    QVERIFY(order.isBeforeStart());
}

void TestStreamOrder::skippingLeavesTheFrameAtEverySpeed_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<int>("next");
    QTest::newRow("0") << 0.0 << 51;
    QTest::newRow("0.1") << 0.1 << 51;
    QTest::newRow("1") << 1.0 << 51;
    QTest::newRow("3") << 3.0 << 53;
    QTest::newRow("-0.1") << -0.1 << 49;
    QTest::newRow("-1e-9") << -1e-9 << 49;
    QTest::newRow("-1") << -1.0 << 49;
    QTest::newRow("-20") << -20.0 << 30;
}

void TestStreamOrder::skippingLeavesTheFrameAtEverySpeed()
{
    QFETCH(double, speed);
    QFETCH(int, next);
    OrbReadOrder order;
    order.reset(100);
    order.moveTo(50);
    order.setSpeed(speed);
    order.skipFrame();
    QCOMPARE(order.position(), next);
    for (int i = 0; i < 100; ++i)
        order.skipFrame();
    QVERIFY(!order.isInside());
}

void TestStreamOrder::movingOutsideStopsOneFrameOutside()
{
    OrbReadOrder order;
    order.reset(10);
    order.moveTo(std::numeric_limits<int>::min());
    QCOMPARE(order.position(), -1);
    QVERIFY(order.isBeforeStart());
    order.moveTo(std::numeric_limits<int>::max());
    QCOMPARE(order.position(), 10);
    QVERIFY(order.isBehindEnd());
    order.moveTo(5);
    order.setSpeed(1e300);
    order.advance();
    QVERIFY(order.isBehindEnd());
    QCOMPARE(order.position(), 10);
}

void TestStreamOrder::aSpeedThatIsNoNumberStands()
{
    OrbReadOrder order;
    order.reset(10);
    order.setSpeed(std::nan(""));
    order.advance();
    QCOMPARE(order.position(), 0);
    QCOMPARE(order.speed(), 0.0);
}

void TestStreamOrder::anEmptyStreamHasNoInside()
{
    OrbReadOrder order;
    order.reset(0);
    QVERIFY(!order.isInside());
    order.moveTo(5);
    QVERIFY(!order.isInside());
}

QTEST_APPLESS_MAIN(TestStreamOrder)
#include "tst_streamorder.moc"
