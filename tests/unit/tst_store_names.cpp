#include "libmessages/alarm.h"
#include "services/rvctl/names.h"

#include <QTest>

class TestStoreNames : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { CreateDescriptors(); }

    void editDistanceCountsChanges()
    {
        QCOMPARE(editDistance("", ""), std::size_t(0));
        QCOMPARE(editDistance("abc", ""), std::size_t(3));
        QCOMPARE(editDistance("kitten", "sitting"), std::size_t(3));
        QCOMPARE(editDistance("PLAY", "play"), std::size_t(0));
    }

    void parametersAreFoundByNameOrNumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("full") << "eParamEncodeType";
        QTest::newRow("short") << "EncodeType";
        QTest::newRow("any case") << "ENCODEtype";
        QTest::newRow("prefix in any case") << "EPARAMencodetype";
        QTest::newRow("hexadecimal") << "0x0e01000a";
        QTest::newRow("decimal") << "234946570";
    }

    void parametersAreFoundByNameOrNumber()
    {
        QFETCH(QString, text);
        std::string problem;
        const ParamDescriptor *descriptor = findParameter(text.toStdString(), problem);
        QVERIFY2(descriptor, problem.c_str());
        QCOMPARE(descriptor->id(), eParamEncodeType);
    }

    void unknownNamesAndNumbersNameTheNearest()
    {
        std::string problem;
        QVERIFY(!findParameter("encodtype", problem));
        QCOMPARE(problem,
                 std::string("no parameter is called \"encodtype\"; did you mean \"EncodeType\"?"));
        QVERIFY(!findParameter("eParamLutFil", problem));
        QVERIFY(problem.find("\"LutFile\"") != std::string::npos);
        QVERIFY(!findParameter("0x0e010009", problem));
        QVERIFY(problem.find("0x0e01000a, EncodeType") != std::string::npos);
        QVERIFY(!findParameter("", problem));
    }

    void valuesAreTakenByNameOrNumber()
    {
        std::string problem;
        const auto &encode = *GetDescriptor(eParamEncodeType);
        QCOMPARE(parseValue(encode, "prores 4444", problem), std::optional<ParamValue>(7u));
        QCOMPARE(parseValue(encode, "7", problem), std::optional<ParamValue>(7u));
        QVERIFY(!parseValue(encode, "4", problem));
        QVERIFY(!parseValue(encode, "ProRes 422HQ", problem));
        QVERIFY(problem.find("\"ProRes 422 HQ\"") != std::string::npos);
        const auto &hours = *GetDescriptor(eParamTimecodeValue);
        QCOMPARE(parseValue(hours, "0x17", problem), std::optional<ParamValue>(23u));
        QVERIFY(!parseValue(hours, "24", problem));
        QCOMPARE(problem, std::string("TimecodeValue goes from 0 to 23"));
        QVERIFY(!parseValue(hours, "ten", problem));
        QVERIFY(!parseValue(hours, "-1", problem));
        QVERIFY(!parseValue(*GetDescriptor(eParamReelName), std::string(901, 'x'), problem));
    }

    void lookUpTableFilesAreSetByPath()
    {
        std::string problem;
        const auto &lut = *GetDescriptor(eParamLutFile);
        const auto value = parseValue(lut, "/luts/one.cube", problem);
        QVERIFY(value);
        QCOMPARE(valueText(lut, *value), std::string("/luts/one.cube"));
    }

    void alarmsReadAsSentences()
    {
        const auto &descriptor = *GetDescriptor(eParamAlarm1904);
        QCOMPARE(valueText(descriptor, std::string()), std::string("clear"));
        lumo::alarms::Alarm alarm;
        alarm.set_active(true);
        alarm.set_severity(lumo::alarms::Alarm_ERROR);
        alarm.set_message("frame 12\n");
        QCOMPARE(valueText(descriptor, alarm.SerializeAsString()),
                 std::string("error: frame 12\\x0a"));
        QVERIFY(valueText(descriptor, std::string("\xff\xff")).find("not an alarm") == 0);
    }

    void jsonStringsAreEscapedAndAlwaysUtf8()
    {
        QCOMPARE(jsonString("a\"\\\n"), std::string("\"a\\\"\\\\\\u000a\""));
        QCOMPARE(jsonString("\xc3\xa4"), std::string("\"\xc3\xa4\""));
        QCOMPARE(jsonString("\xff\xc3"), std::string("\"\\ufffd\\ufffd\""));
    }
};

QTEST_APPLESS_MAIN(TestStoreNames)
#include "tst_store_names.moc"
