#include "controllerrig.h"

/// Every number of the transport command, in every state that the engine may be in: who is told,
/// what is logged and where the engine goes.
class TestControllerTransport : public QObject
{
    Q_OBJECT
private slots:
    void everyNumberInEveryState_data();
    void everyNumberInEveryState();
    void aFirstStopPausesAndASecondOneLeavesDeliberately();
};

namespace
{

enum Start {
    StandbyOff,
    Playing,
    Still,
    Shuttling,
    Reversing,
    Recording,
    RecordingUnderCamera,
    OffUnderCamera
};

struct StartName {
    Start start;
    const char *name;
    VtrState::Mode mode;
    double speed;
};
constexpr StartName starts[] = {
    {StandbyOff, "standby off", VtrState::StandbyOff, 0.0},
    {Playing, "playing", VtrState::Play, 1.0},
    {Still, "still", VtrState::Play, 0.0},
    {Shuttling, "fast forward", VtrState::Play, 8.0},
    {Reversing, "rewind", VtrState::Play, -16.0},
    {Recording, "recording", VtrState::Record, 1.0},
    {RecordingUnderCamera, "recording for a camera", VtrState::Record, 1.0},
    {OffUnderCamera, "standby off for a camera", VtrState::StandbyOff, 0.0},
};

/// What a command is to do, seen at once.
struct Outcome {
    QString key;       ///< the alarms that are told
    QStringList lines; ///< of commands, and what the controller says about them
    VtrState::Mode mode;
    double speed;
};

Outcome play(const StartName &from, const QString &key, double speed)
{
    const bool isThere = from.mode == VtrState::Play && from.speed == speed;
    const QString line = QStringLiteral("3 ** PLAY %1").arg(speed, 0, 'f', 3);
    return {key, isThere ? QStringList() : QStringList{line}, VtrState::Play, speed};
}

Outcome stop(const StartName &from)
{
    if (from.start == RecordingUnderCamera)
        return {"stop",
                {"2 Ignoring stop command while in record due to camera data input"},
                from.mode,
                from.speed};
    if (from.start == Recording || from.start == Still)
        return {"stop", {"3 ** STANDBY OFF"}, VtrState::StandbyOff, 0.0};
    if (from.mode == VtrState::StandbyOff)
        return {"stop", {}, from.mode, from.speed};
    return play(from, "stop", 0.0);
}

Outcome step(const StartName &from, int count)
{
    if (from.mode != VtrState::Play)
        return play(from, "play", 0.0);
    return {"play", {QStringLiteral("3 Step %1 from ").arg(count)}, VtrState::Play, 0.0};
}

Outcome nextClip(const StartName &from, int count)
{
    if (from.mode == VtrState::Record)
        return {"",
                {QStringLiteral("1 Go to relative clip index %1: Failed to find current clip index")
                     .arg(count)},
                from.mode,
                from.speed};
    const QString line = QStringLiteral("2 Go to playlist index 0: A.mov");
    if (from.mode == VtrState::Play)
        return {"", {line}, from.mode, from.speed};
    return {"", {line, "3 ** PLAY 0.000"}, VtrState::Play, 0.0};
}

Outcome outcomeOf(const StartName &from, int command)
{
    const Outcome nothing{"", {}, from.mode, from.speed};
    const bool isUnderCamera = from.start == RecordingUnderCamera || from.start == OffUnderCamera;
    switch (command) {
    case 1:
        return play(from, "play", 1.0);
    case 3:
        if (isUnderCamera)
            return {"record",
                    {"2 Ignoring record command due to camera data input"},
                    from.mode,
                    from.speed};
        return {"record", {}, VtrState::Record, 1.0};
    case 4:
        return stop(from);
    case 5:
        return play(from, "play", from.start == Shuttling ? 16.0 : 2.0);
    case 6:
        // At the top of its ladder the key does nothing more.
        return from.start == Reversing ? Outcome{"play", {}, from.mode, -16.0}
                                       : play(from, "play", -2.0);
    case 7:
        return step(from, 1);
    case 8:
        return step(from, -1);
    case 9:
        return nextClip(from, 1);
    case 10:
        return nextClip(from, -1);
    case 15:
        return {
            "", {"3 Got shutdown from config, asking for program exit."}, from.mode, from.speed};
    default:
        return nothing;
    }
}

/// A connection whose first alarm is cleared by every key, whatever the catalogue says.
class Keyed : public Config
{
public:
    explicit Keyed(Config *config) : _config(config) {}

    bool getUInt32(eParam_t id, unsigned int &value) override
    {
        return _config->getUInt32(id, value);
    }
    bool getString(eParam_t id, std::string &value) override
    {
        return _config->getString(id, value);
    }
    bool getData(eParam_t id, std::string &value) override { return _config->getData(id, value); }
    bool setUInt32(eParam_t id, unsigned int value) override
    {
        return _config->setUInt32(id, value);
    }
    bool setString(eParam_t id, const std::string &value) override
    {
        return _config->setString(id, value);
    }
    bool setData(eParam_t id, const std::string &value) override
    {
        return _config->setData(id, value);
    }
    void registerListener(ConfigEventListener *listener) override
    {
        _config->registerListener(listener);
    }
    const AttributeSet *attributes(eParam_t id) const override
    {
        static constexpr const char *names[] = {"clear_on_play_pressed", "clear_on_record_pressed",
                                                "clear_on_stop_pressed"};
        static const AttributeSet keys(names);
        static const AttributeSet none(std::span<const char *const>{});
        return id == eParamAlarm1901 ? &keys : &none;
    }

private:
    std::unique_ptr<Config> _config;
};

ControllerRig::Start withKeys()
{
    ControllerRig::Start start;
    start.prepare = [](ControllerRig &rig) {
        ConfigFactoryImpl::GetInstance()->setCreator(
            [&rig](const std::string &) { return new Keyed(rig.store.connect()); });
    };
    return start;
}

void bring(ControllerRig &rig, const StartName &to)
{
    rig.settle();
    rig.connectInput();
    rig.setClips({{QStringLiteral("A.mov"), 5000}});
    rig.change(eParamMediaUpdated, 1);
    rig.settle();
    if (to.mode == VtrState::Play) {
        rig.vtr->play(1.0);
        rig.settle(20000);
        if (to.speed != 1.0)
            rig.vtr->play(to.speed);
        rig.settle(200);
    } else if (to.mode == VtrState::Record) {
        rig.vtr->record();
        rig.settle();
    }
    if (to.start == RecordingUnderCamera || to.start == OffUnderCamera) {
        rig.change(eParamCameraInput, 4);
        rig.settle();
    }
    rig.clear();
}

/// Which keys the alarms were told of, from what they cleared for it.
QString keysOf(const ControllerRig &rig)
{
    QStringList keys;
    for (const LogCollector::Record &r : rig.log->records()) {
        for (const char *key : {"play", "record", "stop"}) {
            if (r.file == "alarmhandler.cpp" &&
                r.text.contains(QStringLiteral("(clear_on_%1_pressed)").arg(QLatin1String(key))))
                keys << QString::fromLatin1(key);
        }
    }
    keys.removeDuplicates();
    return keys.join(u',');
}

QStringList commandLines(const ControllerRig &rig)
{
    QStringList lines;
    for (const LogCollector::Record &r : rig.log->records()) {
        const bool isCommand =
            r.file == "vtrobject.cpp" && (r.text.startsWith("** ") || r.text.startsWith("Step "));
        const bool isSaid =
            r.file == "mainobject.cpp" && (r.level < 3 || r.text.startsWith("Got "));
        if (isCommand || isSaid)
            lines << QStringLiteral("%1 %2").arg(r.level).arg(r.text);
    }
    return lines;
}

} // namespace

void TestControllerTransport::everyNumberInEveryState_data()
{
    QTest::addColumn<int>("start");
    QTest::addColumn<int>("command");
    for (const StartName &from : starts) {
        for (int command = -1; command <= 20; ++command)
            QTest::addRow("%s: %d", from.name, command) << int(from.start) << command;
    }
}

void TestControllerTransport::everyNumberInEveryState()
{
    QFETCH(int, start);
    QFETCH(int, command);
    const StartName &from = starts[start];
    ControllerRig rig(withKeys());
    bring(rig, from);
    QCOMPARE(rig.vtr->state().mode(), from.mode);
    if (from.mode == VtrState::Record)
        QVERIFY(rig.writeClip(rig.currentClip(), 12));
    rig.change(eParamTransportCommand, command);
    const Outcome wanted = outcomeOf(from, command);
    QCOMPARE(keysOf(rig), wanted.key);
    const QStringList seen = commandLines(rig);
    QCOMPARE(seen.size(), wanted.lines.size());
    for (qsizetype i = 0; i < seen.size(); ++i)
        QVERIFY2(seen.at(i).startsWith(wanted.lines.at(i)), qPrintable(seen.at(i)));
    QCOMPARE(rig.vtr->state().mode(), wanted.mode);
    if (wanted.mode == VtrState::Play)
        QCOMPARE(rig.vtr->state().speed(), wanted.speed);
    // Stop alone ends a recording with a pending start frame; the clip stands behind one of 5000
    // frames.
    QCOMPARE(rig.main->findInitialFrame(), from.start == Recording && command == 4 ? 5000 : 0);
}

void TestControllerTransport::aFirstStopPausesAndASecondOneLeavesDeliberately()
{
    for (const Start start : {Playing, Shuttling, Reversing}) {
        ControllerRig rig;
        bring(rig, starts[start]);
        rig.command(4);
        QCOMPARE(rig.vtr->state().mode(), VtrState::Play);
        QCOMPARE(rig.vtr->state().speed(), 0.0);
        rig.settle();
        rig.command(4);
        QCOMPARE(rig.vtr->state().mode(), VtrState::StandbyOff);
    }
}

QTEST_APPLESS_MAIN(TestControllerTransport)
#include "tst_controller_transport.moc"
