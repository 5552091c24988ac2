#include "alarms/alarmhandler.h"
#include "config/configinterface.h"
#include "libconfig/memoryconfig.h"
#include "libmessages/alarm.h"
#include "liborb/orb.h"
#include "logcollector.h"
#include "transport/vtrstate.h"

#include <QMetaMethod>
#include <QTest>

#include <functional>
#include <memory>

namespace {

struct AlarmRow { int id; quint32 param; };
// clang-format off
constexpr AlarmRow expectedRows[] = {
    {1901, 0x7e070900}, {1902, 0x7e070a00}, {1903, 0x7e070b00}, {1904, 0x7e070c00},
    {1905, 0x7e070e00}, {1906, 0x7e071200}, {1907, 0x7e071300}, {1908, 0x7e071400},
    {1909, 0x7e071500}, {1910, 0x7e071800}, {1911, 0x7e071900}, {1912, 0x7e071a00},
    {1913, 0x7e071b00}, {1914, 0x7e071c00}, {1915, 0x7e071d00}, {1916, 0x7e072000},
    {1917, 0x7e072100}, {1918, 0x7e072200}, {1919, 0x7e072300}, {1920, 0x7e072800},
};
// clang-format on

OrbAlarm alarm(int id, int level, const QString &text = QString())
{
    return OrbAlarm(OrbId(id), level, text, QStringLiteral("test.cpp"), 7);
}

/// A connection with attributes of the test's choosing in front of the memory store. Those that
/// the test says nothing of have no attributes at all, as if the store did not know them.
class PolicyConfig : public Config
{
public:
    PolicyConfig(Config *inner, std::map<quint32, std::vector<const char *>> policy)
        : _inner(inner), _names(std::move(policy))
    {
        for (const auto &[param, names] : _names)
            _sets.emplace(param, AttributeSet(names));
    }
    bool getUInt32(eParam_t id, unsigned int &v) override { return _inner->getUInt32(id, v); }
    bool getString(eParam_t id, std::string &v) override { return _inner->getString(id, v); }
    bool getData(eParam_t id, std::string &v) override { return _inner->getData(id, v); }
    bool setUInt32(eParam_t id, unsigned int v) override { return _inner->setUInt32(id, v); }
    bool setString(eParam_t id, const std::string &v) override { return _inner->setString(id, v); }
    bool setData(eParam_t id, const std::string &v) override { return _inner->setData(id, v); }
    void registerListener(ConfigEventListener *l) override { _inner->registerListener(l); }
    const AttributeSet *attributes(eParam_t id) const override
    {
        const auto it = _sets.find(id);
        return it == _sets.end() ? nullptr : &it->second;
    }

private:
    std::unique_ptr<Config> _inner;
    std::map<quint32, std::vector<const char *>> _names;
    std::map<quint32, AttributeSet> _sets;
};

} // namespace

class TestAlarmHandler : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void everyAlarmHasItsParameter();
    void anEqualReportIsPublishedOnce();
    void levelsAreCrossedInTheLogDeliberately();
    void aDelayedAlarmWaitsForItsEventAndIsRaisedAgainByEach();
    void anEventClearsWhatWasNeverRaised();
    void clearComesBeforeRaise();
    void modeChangesAreEventsAndSpeedChangesAreNot();
    void anUnknownAlarmIsLogged();
    void withoutAStoreAlarmsAreUnhandledAndNotRemembered();
    void theTableIsWalkedInTheOrderOfItsParameters();
    void eachEventHasItsPairOfAttributes_data();
    void eachEventHasItsPairOfAttributes();
    void eachDelayAttributeDelays_data();
    void eachDelayAttributeDelays();
    void otherAttributesDelayNothing();
    void aDelayedAlarmIsClearedThoughItWasNeverPublished();
    void aDelayedWarningIsRaisedAsAWarning();
    void anAlarmClearedByAnEventIsReportedAnew();
    void anEventClearsAgainAndAgain();
    void parametersThatTheStoreDoesNotKnowArePassedOver();
    void aChangeOfAnyFieldIsPublished_data();
    void aChangeOfAnyFieldIsPublished();
    void theTextOfAnAlarm_data();
    void theTextOfAnAlarm();
    void theConfigurationMayComeAndGo();
    void slotsStandInTheirOrder();

private:
    /// A store, its interface and a handler, with a policy.
    struct Rig {
        explicit Rig(std::map<quint32, std::vector<const char *>> policy = {})
        {
            ConfigFactoryImpl::GetInstance()->setCreator([this, policy](const std::string &) {
                return new PolicyConfig(store.connect(), policy);
            });
            config = std::make_unique<ConfigInterface>();
            handler.setConfigInterface(config.get());
            store.clearSets();
        }
        ~Rig() { ConfigFactoryImpl::GetInstance()->setCreator({}); }
        /// The publications since the last call, as "parameter severity text".
        QStringList published()
        {
            QStringList list;
            for (const auto &set : store.sets()) {
                lumo::alarms::Alarm a;
                a.ParseFromString(std::get<std::string>(set.value));
                list << QStringLiteral("%1 %2 %3")
                            .arg(quint32(set.id), 0, 16)
                            .arg(a.active() ? int(a.severity()) : 0)
                            .arg(QString::fromStdString(a.message()));
            }
            store.clearSets();
            return list;
        }
        MemoryStore store;
        std::unique_ptr<ConfigInterface> config;
        AlarmHandler handler;
    };
};

void TestAlarmHandler::initTestCase()
{
    Orb::init(0);
}

void TestAlarmHandler::everyAlarmHasItsParameter()
{
    AlarmHandler handler;
    for (const AlarmRow &row : expectedRows) {
        eParam_t param{};
        OrbAlarm stored;
        QVERIFY(handler.findAlarm(OrbId(row.id), param, stored));
        QCOMPARE(quint32(param), row.param);
        QCOMPARE(stored, OrbAlarm(OrbId(row.id), 0, QString(), QString(), 0));
    }
    eParam_t param{};
    OrbAlarm stored;
    QVERIFY(!handler.findAlarm(OrbId(1921), param, stored));
}

void TestAlarmHandler::anEqualReportIsPublishedOnce()
{
    Rig rig;
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 2 a")});
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("b")));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 2 b")});
    rig.handler.handleAlarm(alarm(1904, 0));
    rig.handler.handleAlarm(alarm(1904, 0));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 0 ")});
}

void TestAlarmHandler::levelsAreCrossedInTheLogDeliberately()
{
    Rig rig;
    LogCollector log;
    rig.handler.handleAlarm(alarm(1904, 1, QStringLiteral("w")));
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("e")));
    rig.handler.handleAlarm(alarm(1904, 0));
    const QString name = OrbId(1904).name();
    QCOMPARE(log.lines(),
             QStringList({QStringLiteral("1 alarmhandler.cpp Raising ALARM: Warn:%1 (Raised) w test.cpp:7").arg(name),
                          QStringLiteral("2 alarmhandler.cpp Raising ALARM: Err:%1 (Raised) e test.cpp:7").arg(name),
                          QStringLiteral("2 alarmhandler.cpp Clearing ALARM: Err:%1 (Clear)  test.cpp:7").arg(name)}));
    QCOMPARE(rig.published(), QStringList({QStringLiteral("7e070c00 1 w"), QStringLiteral("7e070c00 2 e"),
                                           QStringLiteral("7e070c00 0 ")}));
}

void TestAlarmHandler::aDelayedAlarmWaitsForItsEventAndIsRaisedAgainByEach()
{
    Rig rig({{0x7e070c00, {"raise_on_play_pressed"}}});
    LogCollector log;
    QVERIFY(rig.handler.isDelayed(eParamAlarm1904));
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    QCOMPARE(rig.published(), QStringList());
    QVERIFY(log.lines().at(0).startsWith(QStringLiteral("3 alarmhandler.cpp Delayed ALARM: Err:")));
    rig.handler.onStopPressed();
    QCOMPARE(rig.published(), QStringList());
    rig.handler.onPlayPressed();
    rig.handler.onPlayPressed();
    QCOMPARE(rig.published(),
             QStringList({QStringLiteral("7e070c00 2 a"), QStringLiteral("7e070c00 2 a")}));
    QVERIFY(log.lines().last().startsWith(
        QStringLiteral("2 alarmhandler.cpp Raising ALARM (raise_on_play_pressed): Err:")));
    rig.handler.handleAlarm(alarm(1904, 0));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 0 ")});
}

void TestAlarmHandler::anEventClearsWhatWasNeverRaised()
{
    Rig rig({{0x7e070c00, {"clear_on_standby"}}});
    VtrState play;
    play.setMode(VtrState::Play);
    VtrState standby;
    standby.setMode(VtrState::Standby);
    rig.handler.stateChanged(play, standby);
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 0 ")});
}

void TestAlarmHandler::clearComesBeforeRaise()
{
    Rig rig({{0x7e070c00, {"clear_on_record", "raise_on_record"}}});
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    rig.handler.onRecord();
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 0 ")});
}

void TestAlarmHandler::modeChangesAreEventsAndSpeedChangesAreNot()
{
    Rig rig({{0x7e070a00, {"clear_on_playback"}},
             {0x7e070b00, {"clear_on_record"}},
             {0x7e070c00, {"clear_on_standby"}},
             {0x7e070e00, {"clear_on_standby_off"}}});
    VtrState from;
    VtrState to = from;
    for (const auto mode : {VtrState::Play, VtrState::Record, VtrState::Standby,
                            VtrState::StandbyOff, VtrState::Shutdown}) {
        to.setMode(mode);
        rig.handler.stateChanged(from, to);
        from = to;
    }
    QCOMPARE(rig.published(), QStringList({QStringLiteral("7e070a00 0 "), QStringLiteral("7e070b00 0 "),
                                           QStringLiteral("7e070c00 0 ")}));
    from.setMode(VtrState::Play);
    to = from;
    to.setSpeed(2.0);
    rig.handler.stateChanged(from, to);
    QCOMPARE(rig.published(), QStringList());
    QMetaObject::invokeMethod(&rig.handler, "onStandbyOff");
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070e00 0 ")});
}

void TestAlarmHandler::anUnknownAlarmIsLogged()
{
    Rig rig;
    LogCollector log;
    rig.handler.handleAlarm(alarm(1999, 2, QStringLiteral("a")));
    QCOMPARE(log.lines(), QStringList{QStringLiteral("1 alarmhandler.cpp Unable to find alarm for id ") +
                                      rig.handler.alarmToString(alarm(1999, 2, QStringLiteral("a")))});
    QCOMPARE(rig.published(), QStringList());
}

void TestAlarmHandler::withoutAStoreAlarmsAreUnhandledAndNotRemembered()
{
    AlarmHandler handler;
    LogCollector log;
    handler.handleAlarm(alarm(1904, 1, QStringLiteral("a")));
    handler.handleAlarm(alarm(1904, 0));
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().at(0).startsWith(QStringLiteral("2 alarmhandler.cpp Unhandled alarm: Warn:")));
    eParam_t param{};
    OrbAlarm stored;
    QVERIFY(handler.findAlarm(OrbId(1904), param, stored));
    QVERIFY(!stored.isActive());
    handler.onPlayPressed();
}

void TestAlarmHandler::theTableIsWalkedInTheOrderOfItsParameters()
{
    std::map<quint32, std::vector<const char *>> policy;
    QStringList wanted;
    for (const AlarmRow &row : expectedRows) {
        policy[row.param] = {"clear_on_stop_pressed"};
        wanted << QStringLiteral("%1 0 ").arg(row.param, 0, 16);
    }
    Rig rig(policy);
    rig.handler.onStopPressed();
    QCOMPARE(rig.published(), wanted);
}

void TestAlarmHandler::eachEventHasItsPairOfAttributes_data()
{
    QTest::addColumn<QByteArray>("slot");
    QTest::addColumn<QByteArray>("clear");
    QTest::addColumn<QByteArray>("raise");
    for (const char *name : {"PlayPressed", "StopPressed", "RecordPressed", "Playback", "Record", "Standby",
                             "StandbyOff"}) {
        QByteArray event;
        for (const char *c = name; *c; ++c) {
            if (*c >= 'A' && *c <= 'Z')
                event += '_';
            event += QByteArray(1, *c).toLower();
        }
        QTest::newRow(name) << QByteArray("on") + name << "clear_on" + event << "raise_on" + event;
    }
}

void TestAlarmHandler::eachEventHasItsPairOfAttributes()
{
    QFETCH(QByteArray, slot);
    QFETCH(QByteArray, clear);
    QFETCH(QByteArray, raise);
    std::map<quint32, std::vector<const char *>> policy{
        {0x7e070c00, {clear.constData()}}, {0x7e071300, {raise.constData()}}};
    // The attributes of all other events on a parameter that must not move.
    std::vector<const char *> others;
    for (const char *name : {"clear_on_play_pressed", "clear_on_stop_pressed", "clear_on_record_pressed",
                             "clear_on_playback", "clear_on_record", "clear_on_standby", "clear_on_standby_off",
                             "raise_on_play_pressed", "raise_on_stop_pressed", "raise_on_record_pressed",
                             "raise_on_playback", "raise_on_record", "raise_on_standby", "raise_on_standby_off"}) {
        if (clear != name && raise != name)
            others.push_back(name);
    }
    QCOMPARE(others.size(), std::size_t(12));
    policy[0x7e071900] = others;
    Rig all(policy);
    all.handler.handleAlarm(alarm(1904, 1, QStringLiteral("old")));
    all.handler.handleAlarm(alarm(1907, 2, QStringLiteral("late")));
    all.handler.handleAlarm(alarm(1911, 2, QStringLiteral("other")));
    QCOMPARE(all.published(), QStringList{QStringLiteral("7e070c00 1 old")});
    LogCollector log;
    QVERIFY(QMetaObject::invokeMethod(&all.handler, slot.constData()));
    QCOMPARE(all.published(), QStringList({QStringLiteral("7e070c00 0 "), QStringLiteral("7e071300 2 late")}));
    QCOMPARE(log.lines(),
             QStringList({QStringLiteral("2 alarmhandler.cpp Clearing ALARM (%1): Warn:%2 (Raised) old test.cpp:7")
                              .arg(QString::fromLatin1(clear), OrbId(1904).name()),
                          QStringLiteral("2 alarmhandler.cpp Raising ALARM (%1): Err:%2 (Raised) late test.cpp:7")
                              .arg(QString::fromLatin1(raise), OrbId(1907).name())}));
}

void TestAlarmHandler::eachDelayAttributeDelays_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char *name : {"raise_on_play_pressed", "raise_on_record_pressed", "raise_on_stop_pressed",
                             "raise_on_playback", "raise_on_record", "raise_on_standby", "raise_on_standby_off"})
        QTest::newRow(name) << QByteArray(name);
}

void TestAlarmHandler::eachDelayAttributeDelays()
{
    QFETCH(QByteArray, name);
    Rig rig({{0x7e070c00, {"clear_on_record", name.constData()}}});
    LogCollector log;
    QVERIFY(rig.handler.isDelayed(eParamAlarm1904));
    rig.handler.handleAlarm(alarm(1904, 1, QStringLiteral("a")));
    QCOMPARE(rig.published(), QStringList());
    QCOMPARE(log.lines(), QStringList{QStringLiteral("3 alarmhandler.cpp Delayed ALARM: Warn:%1 (Raised) a test.cpp:7")
                                          .arg(OrbId(1904).name())});
    eParam_t param{};
    OrbAlarm stored;
    QVERIFY(rig.handler.findAlarm(OrbId(1904), param, stored));
    QCOMPARE(stored, alarm(1904, 1, QStringLiteral("a")));
}

void TestAlarmHandler::otherAttributesDelayNothing()
{
    Rig rig({{0x7e070c00, {"clear_on_play_pressed", "raise_on", "raise_on_play", "RAISE_ON_RECORD"}}});
    QVERIFY(!rig.handler.isDelayed(eParamAlarm1904));
    QVERIFY(!rig.handler.isDelayed(static_cast<eParam_t>(0x7e070d00)));
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 2 a")});
}

void TestAlarmHandler::aDelayedAlarmIsClearedThoughItWasNeverPublished()
{
    Rig rig({{0x7e070c00, {"raise_on_playback"}}});
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    rig.handler.handleAlarm(alarm(1904, 0));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 0 ")});
    rig.handler.onPlayback();
    QCOMPARE(rig.published(), QStringList());
}

void TestAlarmHandler::aDelayedWarningIsRaisedAsAWarning()
{
    Rig rig({{0x7e070c00, {"raise_on_record"}}});
    rig.handler.handleAlarm(alarm(1904, 1, QStringLiteral("w")));
    rig.handler.onRecord();
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 1 w")});
}

void TestAlarmHandler::anAlarmClearedByAnEventIsReportedAnew()
{
    Rig rig({{0x7e070c00, {"clear_on_standby"}}});
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    rig.handler.onStandby();
    eParam_t param{};
    OrbAlarm stored;
    QVERIFY(rig.handler.findAlarm(OrbId(1904), param, stored));
    QCOMPARE(stored, alarm(1904, 0, QStringLiteral("a"))); // only its level changes
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    QCOMPARE(rig.published(), QStringList({QStringLiteral("7e070c00 2 a"), QStringLiteral("7e070c00 0 "),
                                           QStringLiteral("7e070c00 2 a")}));
}

void TestAlarmHandler::anEventClearsAgainAndAgain()
{
    Rig rig({{0x7e070c00, {"clear_on_standby"}}});
    LogCollector log;
    rig.handler.onStandby();
    rig.handler.onStandby();
    QCOMPARE(rig.published(), QStringList({QStringLiteral("7e070c00 0 "), QStringLiteral("7e070c00 0 ")}));
    const QString line = QStringLiteral("2 alarmhandler.cpp Clearing ALARM (clear_on_standby): Err:%1 (Clear)  :0")
                             .arg(OrbId(1904).name());
    QCOMPARE(log.lines(), QStringList({line, line}));
}

/// No attributes: not delayed, touched by no event, and published all the same.
void TestAlarmHandler::parametersThatTheStoreDoesNotKnowArePassedOver()
{
    Rig rig;
    QVERIFY(!rig.handler.isDelayed(eParamAlarm1904));
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 2 a")});
    LogCollector log;
    rig.handler.onPlayPressed();
    rig.handler.onEvent(QString(), QString());
    QCOMPARE(rig.published(), QStringList());
    QCOMPARE(log.lines(), QStringList());
}

void TestAlarmHandler::aChangeOfAnyFieldIsPublished_data()
{
    QTest::addColumn<OrbAlarm>("next");
    QTest::addColumn<QString>("published");
    const auto make = [](int level, const char *text, const char *file, int line) {
        return OrbAlarm(OrbId(1904), level, QString::fromLatin1(text), QString::fromLatin1(file), line);
    };
    QTest::newRow("nothing") << make(2, "a", "test.cpp", 7) << QString();
    QTest::newRow("level") << make(1, "a", "test.cpp", 7) << QStringLiteral("7e070c00 1 a");
    QTest::newRow("message") << make(2, "b", "test.cpp", 7) << QStringLiteral("7e070c00 2 b");
    QTest::newRow("file") << make(2, "a", "other.cpp", 7) << QStringLiteral("7e070c00 2 a");
    QTest::newRow("line") << make(2, "a", "test.cpp", 8) << QStringLiteral("7e070c00 2 a");
}

void TestAlarmHandler::aChangeOfAnyFieldIsPublished()
{
    QFETCH(OrbAlarm, next);
    QFETCH(QString, published);
    Rig rig;
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    rig.published();
    rig.handler.handleAlarm(next);
    QCOMPARE(rig.published(), published.isEmpty() ? QStringList() : QStringList{published});
}

void TestAlarmHandler::theTextOfAnAlarm_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("pattern");
    const QString percent = QStringLiteral("100%1 %2 %L3 full");
    QTest::newRow("clear") << 0 << QString() << QStringLiteral("Err:%1 (Clear)  test.cpp:7");
    QTest::newRow("warning") << 1 << QStringLiteral("w") << QStringLiteral("Warn:%1 (Raised) w test.cpp:7");
    QTest::newRow("error") << 2 << QStringLiteral("e") << QStringLiteral("Err:%1 (Raised) e test.cpp:7");
    QTest::newRow("message with marks")
        << 2 << percent << QStringLiteral("Err:%1 (Raised) ") + percent + QStringLiteral(" test.cpp:7");
}

void TestAlarmHandler::theTextOfAnAlarm()
{
    QFETCH(int, level);
    QFETCH(QString, text);
    QFETCH(QString, pattern);
    const AlarmHandler handler;
    const qsizetype mark = pattern.indexOf(QLatin1String("%1"));
    pattern.replace(mark, 2, OrbId(1920).name());
    QCOMPARE(handler.alarmToString(alarm(1920, level, text)), pattern);
}

void TestAlarmHandler::theConfigurationMayComeAndGo()
{
    Rig rig;
    rig.handler.setConfigInterface(nullptr);
    LogCollector log;
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().at(0).startsWith(QStringLiteral("2 alarmhandler.cpp Unhandled alarm: Err:")));
    QVERIFY(!rig.handler.isDelayed(eParamAlarm1904));
    QCOMPARE(rig.published(), QStringList());
    // It was not remembered: the same report counts now.
    rig.handler.setConfigInterface(rig.config.get());
    rig.handler.handleAlarm(alarm(1904, 2, QStringLiteral("a")));
    QCOMPARE(rig.published(), QStringList{QStringLiteral("7e070c00 2 a")});
}

void TestAlarmHandler::slotsStandInTheirOrder()
{
    const QMetaObject &meta = AlarmHandler::staticMetaObject;
    QStringList names;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        names << QString::fromLatin1(meta.method(i).methodSignature());
    QCOMPARE(names, QStringList({QStringLiteral("setConfigInterface(ConfigInterface*)"),
                                 QStringLiteral("onEvent(QString,QString)"),
                                 QStringLiteral("onPlayPressed()"), QStringLiteral("onStopPressed()"),
                                 QStringLiteral("onRecordPressed()"), QStringLiteral("onPlayback()"),
                                 QStringLiteral("onRecord()"), QStringLiteral("onStandby()"),
                                 QStringLiteral("onStandbyOff()"),
                                 QStringLiteral("stateChanged(VtrState,VtrState)"),
                                 QStringLiteral("handleAlarm(OrbAlarm)")}));
    const auto parameters = [&meta](int slotNumber) {
        return meta.method(meta.methodOffset() + slotNumber).parameterNames().join(' ');
    };
    QCOMPARE(parameters(0), QByteArray("cfg"));
    QCOMPARE(parameters(1), QByteArray("clear_attribute raise_attribute"));
    QCOMPARE(parameters(9), QByteArray("oldState newState"));
    QCOMPARE(parameters(10), QByteArray("alarm"));
}

QTEST_GUILESS_MAIN(TestAlarmHandler)
#include "tst_alarmhandler.moc"
