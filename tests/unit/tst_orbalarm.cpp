#include "liborb/orbalarm.h"
#include "liborb/orbalarmcontroller.h"

#include <QSignalSpy>
#include <QTest>

class TestOrbAlarm : public QObject
{
    Q_OBJECT

private slots:
    void theDefaultAlarmIsClear();
    void anAlarmIsMadeOfFive();
    void everyFieldTakesPartInComparison();
    void aCopyNeverSeesAChange();
    void theControllerPassesOnEveryReport();
    void aReceiverMayReportAgain();
};

static OrbAlarm dropped(int level, const QString &text = QStringLiteral("late"))
{
    return OrbAlarm(OrbIdAlarmDroppedFrame, level, text, QStringLiteral("vtrobject.cpp"), 12);
}

void TestOrbAlarm::theDefaultAlarmIsClear()
{
    const OrbAlarm alarm;
    QVERIFY(!alarm.id().isValid());
    QCOMPARE(alarm.level(), OrbAlarm::Clear);
    QVERIFY(alarm.text().isEmpty() && alarm.file().isEmpty());
    QCOMPARE(alarm.line(), 0);
    QVERIFY(!alarm.isActive());
}

void TestOrbAlarm::anAlarmIsMadeOfFive()
{
    const OrbAlarm alarm = dropped(2);
    QCOMPARE(alarm.id(), OrbId(1904));
    QCOMPARE(alarm.level(), OrbAlarm::Error);
    QCOMPARE(alarm.text(), QStringLiteral("late"));
    QCOMPARE(alarm.file(), QStringLiteral("vtrobject.cpp"));
    QCOMPARE(alarm.line(), 12);
    QVERIFY(alarm.isActive());
    QVERIFY(!alarm.isWarning());
    QVERIFY(dropped(1).isWarning());
}

void TestOrbAlarm::everyFieldTakesPartInComparison()
{
    const QString file = QStringLiteral("a.cpp");
    const QString text = QStringLiteral("text");
    const OrbAlarm alarm(OrbId(1), 1, text, file, 1);
    QVERIFY(alarm == OrbAlarm(OrbId(1), OrbAlarm::Warning, text, file, 1));
    QVERIFY(alarm != OrbAlarm(OrbId(2), 1, text, file, 1));
    QVERIFY(alarm != OrbAlarm(OrbId(1), 2, text, file, 1));
    QVERIFY(alarm != OrbAlarm(OrbId(1), 1, QString(), file, 1));
    QVERIFY(alarm != OrbAlarm(OrbId(1), 1, text, QString(), 1));
    QVERIFY(alarm != OrbAlarm(OrbId(1), 1, text, file, 2));
}

void TestOrbAlarm::aCopyNeverSeesAChange()
{
    OrbAlarm alarm = dropped(2);
    const OrbAlarm copy = alarm;
    alarm.setLevel(OrbAlarm::Clear);
    QCOMPARE(copy.level(), OrbAlarm::Error);
}

void TestOrbAlarm::theControllerPassesOnEveryReport()
{
    OrbAlarmController controller;
    QSignalSpy spy(&controller, &OrbAlarmController::alarmTriggered);
    controller.setAlarm(dropped(0));
    controller.setAlarm(dropped(2));
    controller.setAlarm(dropped(2));
    QCOMPARE(spy.count(), 3);
    QCOMPARE(spy.first().first().value<OrbAlarm>(), dropped(0));
    QCOMPARE(spy.last().first().value<OrbAlarm>(), dropped(2));
}

void TestOrbAlarm::aReceiverMayReportAgain()
{
    OrbAlarmController controller;
    int count = 0;
    connect(&controller, &OrbAlarmController::alarmTriggered, this, [&](const OrbAlarm &alarm) {
        ++count;
        if (alarm.isActive())
            controller.setAlarm(dropped(0));
    });
    controller.setAlarm(dropped(2));
    QCOMPARE(count, 2);
    controller.setAlarm(dropped(2));
    QCOMPARE(count, 4);
}

QTEST_APPLESS_MAIN(TestOrbAlarm)
#include "tst_orbalarm.moc"
