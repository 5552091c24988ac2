#include "libconfig/config.h"

#include <QFile>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

namespace
{

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const char *goodCatalogue = R"(
value_set { name: "OffOn" value { number: 0 name: "Off" } value { number: 1 name: "On" } }
parameter { number: 5 name: "eParamSwitch" description: "d" 
            kind: Enumerated values: "OffOn" writer: Clients }
parameter { number: 6 name: "eParamLevel" description: "d" 
            kind: Unsigned minimum: 0 maximum: 9 writer: Clients }
)";

} // namespace

class TestStoreCatalogue : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { CreateDescriptors(); }

    void numbersAscendAndNamesDiffer()
    {
        QSet<QString> names;
        unsigned int before = 0;
        for (const ParamDescriptor *descriptor : allDescriptors()) {
            QVERIFY2(descriptor->id() > before, descriptor->name().c_str());
            before = descriptor->id();
            names.insert(QString::fromStdString(descriptor->name()));
        }
        QCOMPARE(std::size_t(names.size()), allDescriptors().size());
    }

    void everyDefaultFitsItsParameter()
    {
        for (const ParamDescriptor *descriptor : allDescriptors()) {
            QVERIFY2(descriptor->check(descriptor->defaultValue()) == ValueError::None,
                     descriptor->name().c_str());
        }
    }

    void momentaryParametersAreNotKept()
    {
        QStringList momentary;
        for (const ParamDescriptor *descriptor : allDescriptors()) {
            QVERIFY(!descriptor->isMomentary() || !descriptor->isPersistent());
            if (descriptor->isMomentary()) {
                momentary << QString::fromStdString(descriptor->name());
            }
        }
        QCOMPARE(momentary,
                 QStringList({"eParamPlayList", "eParamPlayListEdit", "eParamMediaRequest", "eParamMediaAnswer",
                              "eParamMediaLoading", "eParamTransportCommand", "eParamGotoClipName",
                              "eParamGotoClipIndex", "eParamMediaUpdated"}));
    }

    void defaultsAreThoseOfARecorderOutOfTheBox_data()
    {
        QTest::addColumn<unsigned int>("id");
        QTest::addColumn<unsigned int>("value");
        QTest::addColumn<QString>("name");
        QTest::newRow("encode") << unsigned(eParamEncodeType) << 0u << "ProRes 422";
        QTest::newRow("loss of video stops record")
            << unsigned(eParamStopOnLossOfVideo) << 0u << "On";
        QTest::newRow("running timecode") << unsigned(eParamRecordOnRunningTimecode) << 1u << "Off";
        QTest::newRow("segmented output") << unsigned(eParamPsfOutput) << 1u << "Off";
        QTest::newRow("state") << unsigned(eParamTransportState) << 0u << "Unknown";
        QTest::newRow("generator") << unsigned(eParamVideoSignalGenFormat) << 12u << "1080p25";
        QTest::newRow("no play-list entry")
            << unsigned(eParamCurrentPlayListIndex) << 0xffffffffu << "";
    }

    void defaultsAreThoseOfARecorderOutOfTheBox()
    {
        QFETCH(unsigned int, id);
        QFETCH(unsigned int, value);
        QFETCH(QString, name);
        const ParamDescriptor *descriptor = GetDescriptor(static_cast<eParam_t>(id));
        QCOMPARE(std::get<std::uint32_t>(descriptor->defaultValue()), value);
        QCOMPARE(QString::fromStdString(descriptor->valueName(int(value))), name);
    }

    void typeCodesTellEnumeratedAndStrings()
    {
        QCOMPARE(GetDescriptor(eParamEncodeType)->typeCode(), 3);
        QCOMPARE(GetDescriptor(eParamReelName)->typeCode(), 12);
        const int plain = GetDescriptor(eParamRecordInterval)->typeCode();
        QVERIFY(plain != 3 && plain != 12);
    }

    void dataAndAlarmsHaveDataDescriptors()
    {
        QVERIFY(dynamic_cast<const DataDescriptor *>(GetDescriptor(eParamLutFile)));
        QVERIFY(dynamic_cast<const DataDescriptor *>(GetDescriptor(eParamAlarm1920)));
        QVERIFY(!dynamic_cast<const DataDescriptor *>(GetDescriptor(eParamReelName)));
        QVERIFY(!dynamic_cast<const DataDescriptor *>(GetDescriptor(eParamEncodeType)));
    }

    void unknownNumbersHaveNoDescriptor()
    {
        QVERIFY(!GetDescriptor(static_cast<eParam_t>(0)));
        QVERIFY(!GetDescriptor(static_cast<eParam_t>(0x12345678)));
        QVERIFY(!GetDescriptor(static_cast<eParam_t>(0xffffffff)));
    }

    void everyAlarmHasThePolicyOfItsKind_data()
    {
        // clang-format off
        QTest::addColumn<unsigned int>("id");
        QTest::addColumn<QStringList>("attributes");
        const QStringList shownWhileItLasts;
        const QStringList happenedOnce{"clear_on_record_pressed", "clear_on_play_pressed"};
        const QStringList mattersToARecording{"raise_on_record_pressed"};
        QTest::newRow("medium failed")         << unsigned(eParamAlarm1901) << shownWhileItLasts;
        QTest::newRow("clip exists")           << unsigned(eParamAlarm1902) << happenedOnce;
        QTest::newRow("medium full")           << unsigned(eParamAlarm1903) << mattersToARecording;
        QTest::newRow("frame dropped")         << unsigned(eParamAlarm1904) << happenedOnce;
        QTest::newRow("loss-of-video picture") << unsigned(eParamAlarm1905) << happenedOnce;
        QTest::newRow("medium slow")           << unsigned(eParamAlarm1906) << happenedOnce;
        QTest::newRow("video lost")            << unsigned(eParamAlarm1907) << happenedOnce;
        QTest::newRow("temperature")           << unsigned(eParamAlarm1908) << shownWhileItLasts;
        QTest::newRow("fan")                   << unsigned(eParamAlarm1909) << shownWhileItLasts;
        QTest::newRow("reference missing")     << unsigned(eParamAlarm1910) << shownWhileItLasts;
        QTest::newRow("audio channels")        << unsigned(eParamAlarm1911) << shownWhileItLasts;
        QTest::newRow("power")                 << unsigned(eParamAlarm1912) << shownWhileItLasts;
        QTest::newRow("reference unlocked")    << unsigned(eParamAlarm1913) << shownWhileItLasts;
        QTest::newRow("variable frame rate")   << unsigned(eParamAlarm1914) << shownWhileItLasts;
        QTest::newRow("firmware")              << unsigned(eParamAlarm1915) << shownWhileItLasts;
        QTest::newRow("camera data")           << unsigned(eParamAlarm1916) << QStringList("raise_on_record");
        QTest::newRow("timecode")              << unsigned(eParamAlarm1917) << mattersToARecording;
        QTest::newRow("clock")                 << unsigned(eParamAlarm1918) << mattersToARecording;
        QTest::newRow("battery")               << unsigned(eParamAlarm1919) << shownWhileItLasts;
        QTest::newRow("look-up table")         << unsigned(eParamAlarm1920) << shownWhileItLasts;
        // clang-format on
    }

    void everyAlarmHasThePolicyOfItsKind()
    {
        QFETCH(unsigned int, id);
        QFETCH(QStringList, attributes);
        const ParamDescriptor *descriptor = GetDescriptor(static_cast<eParam_t>(id));
        QVERIFY(descriptor && descriptor->kind() == ParamKind::Alarm);
        QStringList found;
        for (const char *name : descriptor->attributes().names()) {
            found << QString::fromLatin1(name);
        }
        QCOMPARE(found, attributes);
    }

    void thereAreTwentyAlarmsAndNoneForgetsACauseThatLasts()
    {
        int alarms = 0;
        for (const ParamDescriptor *descriptor : allDescriptors()) {
            alarms += descriptor->kind() == ParamKind::Alarm;
            bool waits = false;
            bool isCleared = false;
            for (const std::string name : descriptor->attributes().names()) {
                waits = waits || name.starts_with("raise_on_");
                isCleared = isCleared || name.starts_with("clear_on_");
            }
            QVERIFY2(!(waits && isCleared), descriptor->name().c_str());
        }
        QCOMPARE(alarms, 20);
    }

    void formatValuesHaveNames()
    {
        QCOMPARE(GetDescriptor(eParamInputFormat)->valueName(3), std::string("1080i59.94"));
        QCOMPARE(GetDescriptor(eParamRecordFormat)->valueName(4), std::string("1080i59.94"));
        QCOMPARE(GetDescriptor(eParamRecordFormat)->valueName(2), std::string("Inhibited"));
        QCOMPARE(GetDescriptor(eParamMediaFormat)->valueName(17), std::string("720p59.94"));
        QCOMPARE(GetDescriptor(eParamVideoSignalGenFormat)->values().size(), std::size_t(71));
        QCOMPARE(GetDescriptor(eParamVideoSignalGenFormat)->valueName(1), std::string());
    }

    void manualIsUpToDate()
    {
        const QByteArray made = contents(RV_GENERATED_MANUAL);
        QVERIFY(!made.isEmpty());
        QVERIFY2(contents(RV_SOURCE_DIR "/docs/parameters.md") == made,
                 "copy generated/catalogue/parameters.md of the build to docs/parameters.md");
    }

    void generatorRefusesABrokenCatalogue_data()
    {
        // clang-format off
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("after");
        QTest::newRow("as it is") << "" << "";
        QTest::newRow("number twice") << "number: 6" << "number: 5";
        QTest::newRow("name twice") << "eParamLevel" << "eParamSwitch";
        QTest::newRow("no prefix") << "eParamLevel" << "Level";
        QTest::newRow("default without a name") << "values: \"OffOn\"" << "values: \"OffOn\" default_number: 2";
        QTest::newRow("no such values") << "values: \"OffOn\"" << "values: \"NoYes\"";
        QTest::newRow("value twice") << "number: 1 name" << "number: 0 name";
        QTest::newRow("value name twice") << "\"On\"" << "\"Off\"";
        QTest::newRow("half a range") << "minimum: 0" << "";
        QTest::newRow("default out of range") << "minimum: 0" << "minimum: 1";
        QTest::newRow("no writer") << "writer: Clients" << "";
        QTest::newRow("kept command") << "writer: Clients" << "writer: Clients momentary: true persistent: true";
        QTest::newRow("attribute of no alarm") << "writer: Clients" << "writer: Clients attribute: \"raise_on_play\"";
        QTest::newRow("attribute misspelt") << "kind: Unsigned minimum: 0 maximum: 9" << "kind: Alarm attribute: \"raise_on_plya\"";
        QTest::newRow("raised and cleared by one thing") << "kind: Unsigned minimum: 0 maximum: 9"
            << "kind: Alarm attribute: \"raise_on_record\" attribute: \"clear_on_record\"";
        QTest::newRow("unit of a text") << "kind: Unsigned minimum: 0 maximum: 9" << "kind: String unit: \"frames\"";
        QTest::newRow("not a catalogue") << "parameter" << "parmeter";
        // clang-format on
    }

    void generatorRefusesABrokenCatalogue()
    {
        QFETCH(QString, before);
        QFETCH(QString, after);
        QString text = goodCatalogue;
        const bool isBroken = !before.isEmpty();
        if (isBroken) {
            const auto at = text.indexOf(before);
            QVERIFY(at >= 0);
            text.replace(at, before.size(), after);
        }
        QTemporaryDir folder;
        QFile file(folder.filePath("c.txtpb"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text.toUtf8());
        file.close();
        QProcess generator;
        generator.start(RV_GENERATOR, {file.fileName(), "--header", folder.filePath("h")});
        QVERIFY(generator.waitForFinished());
        QCOMPARE(generator.exitCode(), isBroken ? 1 : 0);
        QCOMPARE(QFile::exists(folder.filePath("h")), !isBroken);
        QCOMPARE(generator.readAllStandardError().isEmpty(), !isBroken);
    }
};

QTEST_GUILESS_MAIN(TestStoreCatalogue)
#include "tst_store_catalogue.moc"
