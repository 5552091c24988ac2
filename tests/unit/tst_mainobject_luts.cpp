#include "controllerrig.h"
#include "libmessages/datafile.h"

#include <QFile>

/// Look-up tables and firmware: every outcome with its texts and its alarm.
class TestMainObjectLuts : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void thePathIsThatOfAFileThatExists();
    void modeNoneClearsAlarmAndTables();
    void aMissingFileClearsTheTablesSilently_data();
    void aMissingFileClearsTheTablesSilently();
    void aGoodTableGoesWhereTheModeSays_data();
    void aGoodTableGoesWhereTheModeSays();
    void anotherModeLeavesTheTables();
    void aTableOfAnotherLengthRaisesTheAlarm_data();
    void aTableOfAnotherLengthRaisesTheAlarm();
    void aTableThatCannotBeReadRaisesTheAlarm();
    void theInvertedRampTakesThePlaceOfAnyFile();
    void theInvertedRampNeedsAFile();
    void bothParametersLoadTheTable();
    void firmwareLoadsArePublished();

private:
    void use(quint32 mode, const QString &path);
    QString writeTable(const QString &name, int entries);
    OrbImageLut input() const { return _rig->vtr->state().inputLut(); }
    OrbImageLut output() const { return _rig->vtr->state().outputLut(); }
    QStringList alarmTexts() const;

    std::optional<ControllerRig> _rig;
    std::optional<QSignalSpy> _alarms;
};

void TestMainObjectLuts::init()
{
    _rig.emplace();
    _rig->settle();
    // A table from before, so that it can be seen to go.
    OrbImageLut old(OrbId(OrbIdLutRgb16), 2);
    _rig->vtr->setLuts(old, old);
    _alarms.emplace(_rig->main.get(), SIGNAL(alarmTriggered(OrbAlarm)));
    _rig->clear();
}

void TestMainObjectLuts::cleanup()
{
    qunsetenv("RVD_FORCE_LUT_INVERT");
    _alarms.reset();
    _rig.reset();
}

QString TestMainObjectLuts::writeTable(const QString &name, int entries)
{
    QFile file(_rig->pathOf(name));
    if (!file.open(QIODevice::WriteOnly))
        return QString();
    for (int i = 0; i < entries; ++i)
        file.write(QByteArray::number(i % 1024) + '\n');
    return file.fileName();
}

/// Puts both into the store without a notice and loads.
void TestMainObjectLuts::use(quint32 mode, const QString &path)
{
    lumo::config::DataFile file;
    file.set_path(path.toStdString());
    _rig->store.putUnchecked(eParamLutMode, mode);
    _rig->store.putUnchecked(eParamLutFile, file.SerializeAsString());
    _rig->settle();
    OrbImageLut old(OrbId(OrbIdLutRgb16), 2);
    _rig->vtr->setLuts(old, old);
    _alarms->clear();
    _rig->clear();
    _rig->main->loadLuts();
}

QStringList TestMainObjectLuts::alarmTexts() const
{
    QStringList texts;
    for (const QVariantList &call : *_alarms) {
        const auto alarm = call.at(0).value<OrbAlarm>();
        texts << QStringLiteral("%1 %2 %3 %4")
                     .arg(QString::number(int(alarm.id().value())),
                          QString::number(int(alarm.level())), alarm.file(), alarm.text());
    }
    return texts;
}

void TestMainObjectLuts::thePathIsThatOfAFileThatExists()
{
    const QString table = writeTable(QStringLiteral("a.lut"), 4);
    lumo::config::DataFile file;
    const auto data = [&] { return QByteArray::fromStdString(file.SerializeAsString()); };
    QCOMPARE(getLUTPath(QByteArray()), QString());
    file.set_path(table.toStdString());
    QCOMPARE(getLUTPath(data()), table);
    file.set_path(table.toStdString() + ".gone");
    QCOMPARE(getLUTPath(data()), QString());
    QCOMPARE(getLUTPath(QByteArray("\xff\xff\xff no message")), QString());
}

void TestMainObjectLuts::modeNoneClearsAlarmAndTables()
{
    const QString table = writeTable(QStringLiteral("a.lut"), 1024);
    use(0, table);
    QCOMPARE(alarmTexts(), QStringList{QStringLiteral("1920 0 mainobject.cpp ")});
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("3 LUT Enabled 0, LUT path '%1'").arg(table)});
    QVERIFY(!input().isValid());
    QVERIFY(!output().isValid());
}

void TestMainObjectLuts::aMissingFileClearsTheTablesSilently_data()
{
    QTest::addColumn<quint32>("mode");
    QTest::addColumn<QString>("path");
    QTest::newRow("no path, input") << 1u << QString();
    QTest::newRow("no path, output") << 2u << QString();
    QTest::newRow("no file") << 1u << QStringLiteral("/no/such/table");
    QTest::newRow("no file, other mode") << 3u << QStringLiteral("/no/such/table");
}

void TestMainObjectLuts::aMissingFileClearsTheTablesSilently()
{
    QFETCH(quint32, mode);
    QFETCH(QString, path);
    use(mode, path);
    QCOMPARE(alarmTexts(), QStringList());
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("3 LUT Enabled 0, LUT path ''")});
    QVERIFY(!input().isValid());
    QVERIFY(!output().isValid());
}

void TestMainObjectLuts::aGoodTableGoesWhereTheModeSays_data()
{
    QTest::addColumn<quint32>("mode");
    QTest::newRow("input") << 1u;
    QTest::newRow("output") << 2u;
}

void TestMainObjectLuts::aGoodTableGoesWhereTheModeSays()
{
    QFETCH(quint32, mode);
    const QString table = writeTable(QStringLiteral("good %2.lut"), 1024);
    use(mode, table);
    QCOMPARE(alarmTexts(), QStringList{QStringLiteral("1920 0 mainobject.cpp ")});
    QCOMPARE(_rig->log->records().at(0).text,
             QStringLiteral("Parsing %1 ").replace(QLatin1String("%1"), table));
    QVERIFY(_rig->logged(3, QStringLiteral("LUT Enabled %1, LUT path '").arg(mode) + table +
                                QLatin1Char('\'')));
    const OrbImageLut lut = mode == 1 ? input() : output();
    QVERIFY(!(mode == 1 ? output() : input()).isValid());
    QCOMPARE(lut.type(), OrbId(1100));
    QCOMPARE(lut.entries(), 1024);
    QCOMPARE(lut.filename(), table);
    for (int plane = 0; plane < 3; ++plane) {
        QCOMPARE(int(lut.lutData()[plane * 1024]), 0);
        QCOMPARE(int(lut.lutData()[plane * 1024 + 1023]), 1023);
    }
}

void TestMainObjectLuts::anotherModeLeavesTheTables()
{
    const QString table = writeTable(QStringLiteral("good.lut"), 1024);
    use(3, table);
    QVERIFY(_rig->logged(3, QStringLiteral("LUT Enabled 3, LUT path '%1'").arg(table)));
    QCOMPARE(input().entries(), 2);
    QCOMPARE(output().entries(), 2);
}

/// The texts of the log and of the alarm differ, deliberately.
void TestMainObjectLuts::aTableOfAnotherLengthRaisesTheAlarm_data()
{
    QTest::addColumn<int>("entries");
    QTest::newRow("shorter") << 1000;
    QTest::newRow("longer") << 2000;
}

void TestMainObjectLuts::aTableOfAnotherLengthRaisesTheAlarm()
{
    QFETCH(int, entries);
    const QString table = writeTable(QStringLiteral("other.lut"), entries);
    use(1, table);
    QCOMPARE(
        alarmTexts(),
        QStringList{QStringLiteral("1920 2 mainobject.cpp Parse of LUT returned unexpected number "
                                   "of entries. Expected 1024, found %1")
                        .arg(entries)});
    QCOMPARE(
        _rig->controllerLines().mid(1),
        QStringList({QStringLiteral("1 Parse of LUT '%1' returned unexpected number of entries.  "
                                    "Expected 1024, Got %2")
                         .arg(table)
                         .arg(entries),
                     QStringLiteral("3 LUT Enabled 0, LUT path '%1'").arg(table)}));
    QVERIFY(!input().isValid());
    QVERIFY(!output().isValid());
}

void TestMainObjectLuts::aTableThatCannotBeReadRaisesTheAlarm()
{
    QFile file(_rig->pathOf(QStringLiteral("bad.lut")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("one two three\n");
    file.close();
    use(2, file.fileName());
    QCOMPARE(alarmTexts(), QStringList{QStringLiteral("1920 2 mainobject.cpp LUT parse error")});
    const QStringList lines = _rig->controllerLines();
    QCOMPARE(lines.size(), 3);
    QVERIFY(lines.at(1).startsWith(
        QStringLiteral("1 Parse of LUT '%1' failed: line 1: ").arg(file.fileName())));
    QCOMPARE(lines.at(2), QStringLiteral("3 LUT Enabled 0, LUT path '%1'").arg(file.fileName()));
    QVERIFY(!output().isValid());
}

void TestMainObjectLuts::theInvertedRampTakesThePlaceOfAnyFile()
{
    QFile file(_rig->pathOf(QStringLiteral("bad.lut")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("no table at all");
    file.close();
    qputenv("RVD_FORCE_LUT_INVERT", "");
    use(1, file.fileName());
    QCOMPARE(alarmTexts(), QStringList());
    QCOMPARE(_rig->controllerLines(),
             QStringList{QStringLiteral("3 LUT Enabled 1, LUT path '%1'").arg(file.fileName())});
    const OrbImageLut lut = input();
    QCOMPARE(lut.filename(), file.fileName());
    for (int plane = 0; plane < 3; ++plane) {
        for (const int i : {0, 1, 511, 1023})
            QCOMPARE(int(lut.lutData()[plane * 1024 + i]), 1023 - i);
    }
    QVERIFY(!output().isValid());
}

void TestMainObjectLuts::theInvertedRampNeedsAFile()
{
    qputenv("RVD_FORCE_LUT_INVERT", "1");
    use(1, QStringLiteral("/no/such/table"));
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("3 LUT Enabled 0, LUT path ''")});
    QVERIFY(!input().isValid());
}

void TestMainObjectLuts::bothParametersLoadTheTable()
{
    for (const quint32 id : {eParamLutMode, eParamLutFile}) {
        _rig->clear();
        _rig->change(id, 77u);
        QCOMPARE(_rig->controllerLines(),
                 QStringList{QStringLiteral("3 LUT Enabled 0, LUT path ''")});
    }
}

void TestMainObjectLuts::firmwareLoadsArePublished()
{
    _rig->video->reportFirmware(QStringLiteral("board 1"), false);
    _rig->video->reportFirmware(QStringLiteral("board 1"), true);
    QCOMPARE(_rig->written(eParamFirmwareLoadState), QList<quint32>({1, 2}));
    QVERIFY(_rig->logged(3, QStringLiteral("Started 'board 1' firmware load")));
    QVERIFY(_rig->logged(3, QStringLiteral("Finished 'board 1' firmware load")));
}

QTEST_APPLESS_MAIN(TestMainObjectLuts)
#include "tst_mainobject_luts.moc"
