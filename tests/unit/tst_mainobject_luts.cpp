#include "controllerrig.h"
#include "libmessages/alarm.h"
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
    void theTableOfTheStoreIsLoadedAtTheStart();
    void aCubeIsATableLikeAnyOther();
    void aFolderIsNoFile();
    void alarmComesBeforeTheLogAndTheLogBeforeTheTables_data();
    void alarmComesBeforeTheLogAndTheLogBeforeTheTables();
    void theAlarmIsInTheStoreAndClearedByAGoodTable();
    void firmwareLoadsArePublished();

private:
    void use(quint32 mode, const QString &path);
    QString writeTable(const QString &name, int entries);
    OrbImageLut input() const { return _rig->vtr->state().inputLut(); }
    OrbImageLut output() const { return _rig->vtr->state().outputLut(); }
    QStringList alarmTexts() const;

    QTemporaryDir _kept; ///< for what a rig must find
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

void TestMainObjectLuts::theTableOfTheStoreIsLoadedAtTheStart()
{
    const QString table = writeTable(QStringLiteral("good.lut"), 1024);
    QVERIFY(QFile::copy(table, _kept.filePath(QStringLiteral("good.lut"))));
    const QString path = _kept.filePath(QStringLiteral("good.lut"));
    _alarms.reset();
    _rig.reset();
    ControllerRig::Start start;
    start.prepare = [&](ControllerRig &rig) {
        lumo::config::DataFile file;
        file.set_path(path.toStdString());
        rig.store.putUnchecked(eParamLutMode, 2u);
        rig.store.putUnchecked(eParamLutFile, file.SerializeAsString());
    };
    _rig.emplace(start);
    _rig->settle();
    QVERIFY(_rig->logged(3, QStringLiteral("LUT Enabled 2, LUT path '%1'").arg(path)));
    QCOMPARE(output().entries(), 1024);
    QCOMPARE(output().filename(), path);
    QVERIFY(!input().isValid());
}

void TestMainObjectLuts::aCubeIsATableLikeAnyOther()
{
    QFile file(_rig->pathOf(QStringLiteral("film.cube")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("TITLE \"film\"\nLUT_1D_SIZE 1024\n");
    for (int i = 0; i < 1024; ++i)
        file.write(QByteArray::number(i / 1023.0, 'f', 8) + " 0.5 " + QByteArray::number(1 - i / 1023.0, 'f', 8)
                   + '\n');
    file.close();
    use(1, file.fileName());
    QCOMPARE(alarmTexts(), QStringList{QStringLiteral("1920 0 mainobject.cpp ")});
    for (const int i : {0, 1, 512, 1023}) {
        QCOMPARE(int(input().lutData()[i]), i);
        QCOMPARE(int(input().lutData()[1024 + i]), 512);
        QCOMPARE(int(input().lutData()[2048 + i]), 1023 - i);
    }
}

void TestMainObjectLuts::aFolderIsNoFile()
{
    use(1, _rig->path());
    QCOMPARE(alarmTexts(), QStringList());
    QCOMPARE(_rig->controllerLines(), QStringList{QStringLiteral("3 LUT Enabled 0, LUT path ''")});
}

void TestMainObjectLuts::alarmComesBeforeTheLogAndTheLogBeforeTheTables_data()
{
    QTest::addColumn<quint32>("mode");
    QTest::addColumn<int>("entries");
    QTest::addColumn<int>("logged"); // before the alarm
    QTest::newRow("none") << 0u << 1024 << 0;
    QTest::newRow("good") << 1u << 1024 << 1;
    QTest::newRow("another length") << 2u << 1023 << 2;
    QTest::newRow("no table") << 2u << 0 << 2;
}

void TestMainObjectLuts::alarmComesBeforeTheLogAndTheLogBeforeTheTables()
{
    QFETCH(quint32, mode);
    QFETCH(int, entries);
    QFETCH(int, logged);
    const QString table = writeTable(QStringLiteral("a.lut"), entries);
    QStringList order;
    const auto tables = [this] { return input().entries() == 2 && output().entries() == 2 ? "old" : "new"; };
    bool isOn = false;
    connect(_rig->main.get(), &MainObject::alarmTriggered, this, [&] {
        if (isOn)
            order << QStringLiteral("alarm, %1").arg(QLatin1String(tables()));
    });
    const int sink = OrbLog::defaultLog()->addSink([&](int, const QString &file, int, const QString &) {
        if (isOn && file == QLatin1String("mainobject.cpp"))
            order << QStringLiteral("log, %1").arg(QLatin1String(tables()));
    });
    use(mode, table); // puts all in place, and loads once
    OrbImageLut old(OrbId(OrbIdLutRgb16), 2);
    _rig->vtr->setLuts(old, old);
    isOn = true;
    _rig->main->loadLuts();
    isOn = false;
    OrbLog::defaultLog()->removeSink(sink);
    QStringList wanted(logged, QStringLiteral("log, old"));
    wanted << QStringLiteral("alarm, old") << QStringLiteral("log, old");
    QCOMPARE(order, wanted);
    QCOMPARE(tables(), "new");
}

void TestMainObjectLuts::theAlarmIsInTheStoreAndClearedByAGoodTable()
{
    const auto last = [this] {
        lumo::alarms::Alarm alarm;
        alarm.ParseFromString(_rig->store.text(eParamAlarm1920));
        return QStringLiteral("%1 %2").arg(alarm.active() ? int(alarm.severity()) : 0)
            .arg(QString::fromStdString(alarm.message()));
    };
    use(1, writeTable(QStringLiteral("short.lut"), 1000));
    QCOMPARE(last(), QStringLiteral("2 Parse of LUT returned unexpected number of entries. "
                                    "Expected 1024, found 1000"));
    // A file that is missing neither raises nor clears.
    use(1, QStringLiteral("/no/such/table"));
    use(1, writeTable(QStringLiteral("none.lut"), 0));
    QCOMPARE(last(), QStringLiteral("2 LUT parse error"));
    use(2, writeTable(QStringLiteral("good.lut"), 1024));
    QCOMPARE(last(), QStringLiteral("0 "));
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
