#include "libconfig/packet.h"
#include "libconfig/storelink.h"
#include "services/rvstore/storecore.h"

#include <QStringList>
#include <QTest>

#include <memory>
#include <random>

using lumo::store::Packet;
using lumo::store::Status;

namespace
{

std::span<const std::uint8_t> bytesOf(const std::string &datagram)
{
    return {reinterpret_cast<const std::uint8_t *>(datagram.data()), datagram.size()};
}

/// A store and its clients in simulated time, with a network that loses, repeats and delays as
/// asked.
class World
{
public:
    struct Client {
        std::unique_ptr<StoreLink> link;
        QStringList events;
    };

    explicit World(unsigned int seed = 1) : _random(seed) { startStore(); }

    void startStore()
    {
        core = std::make_unique<StoreCore>(
            ++_epoch,
            [this](const Peer &peer, const std::string &datagram) { post(peer.port, datagram); },
            [this](eParam_t id, const ParamValue &value) { kept[id] = value; });
        for (const auto &[id, value] : kept) {
            core->values().restore(id, value, {});
        }
    }
    void stopStore() { core.reset(); }

    int addClient()
    {
        const auto index = static_cast<std::uint16_t>(clients.size());
        clients.push_back({std::make_unique<StoreLink>(100 + index,
                                                       [this, index](const std::string &datagram) {
                                                           post(storePort, datagram, index);
                                                       }),
                           {}});
        return index;
    }

    StoreLink &link(int client) { return *clients[std::size_t(client)].link; }
    QStringList &events(int client) { return clients[std::size_t(client)].events; }

    /// Let time go by in steps of one millisecond.
    void run(int ms)
    {
        for (int i = 0; i < ms; i++) {
            _now++;
            deliver();
            for (Client &client : clients) {
                client.link->step(_now);
            }
            if (core) {
                core->step({_now, {_now, 0}});
            }
        }
    }

    std::unique_ptr<StoreCore> core;
    std::vector<Client> clients;
    std::map<eParam_t, ParamValue> kept;
    unsigned int lossPercent = 0;
    unsigned int repeatPercent = 0;
    unsigned int longestDelayMs = 1;

private:
    static constexpr std::uint16_t storePort = 0xffff;

    struct Letter {
        std::int64_t dueMs;
        std::uint16_t to;
        std::uint16_t from;
        std::string datagram;
    };

    void post(std::uint16_t to, const std::string &datagram, std::uint16_t from = 0)
    {
        const int copies = 1 + (_random() % 100 < repeatPercent);
        for (int i = 0; i < copies; i++) {
            if (_random() % 100 >= lossPercent) {
                _letters.push_back(
                    {_now + 1 + std::int64_t(_random() % longestDelayMs), to, from, datagram});
            }
        }
    }

    void deliver()
    {
        std::vector<Letter> due;
        std::erase_if(_letters, [&](const Letter &letter) {
            if (letter.dueMs > _now) {
                return false;
            }
            due.push_back(letter);
            return true;
        });
        for (const Letter &letter : due) {
            if (letter.to == storePort) {
                if (core) {
                    core->receive({0x7f000001, letter.from}, bytesOf(letter.datagram),
                                  {_now, {_now, 0}});
                }
                continue;
            }
            std::vector<ConfigEvent> changes;
            clients[letter.to].link->receive(bytesOf(letter.datagram), _now, changes);
            for (const ConfigEvent &change : changes) {
                const auto *number = std::get_if<std::uint32_t>(&change.value);
                clients[letter.to].events
                    << QString::fromStdString(GetDescriptor(change.id)->name()).mid(6) + "=" +
                           (number ? QString::number(*number)
                                   : QString::fromStdString(std::get<std::string>(change.value)));
            }
        }
    }

    std::mt19937 _random;
    std::int64_t _now = 1000;
    std::uint64_t _epoch = 0;
    std::vector<Letter> _letters;
};

std::uint32_t numberOf(StoreLink &link, eParam_t id)
{
    return std::get<std::uint32_t>(*link.value(id));
}

} // namespace

class TestStoreProtocol : public QObject
{
    Q_OBJECT

private slots:
    void setShowsAtOnceHereAndSoonElsewhere()
    {
        World world;
        const int a = world.addClient();
        const int b = world.addClient();
        world.run(50);
        QVERIFY(world.link(a).isReady());
        QVERIFY(world.link(a).set(eParamEncodeType, 3u));
        QCOMPARE(numberOf(world.link(a), eParamEncodeType), 3u);
        QCOMPARE(numberOf(world.link(b), eParamEncodeType), 0u);
        world.run(10);
        QCOMPARE(numberOf(world.link(b), eParamEncodeType), 3u);
        QCOMPARE(world.events(a), QStringList("EncodeType=3"));
        QCOMPARE(world.events(b), QStringList("EncodeType=3"));
    }

    void ownEchoNeverTakesAReaderBack()
    {
        World world;
        const int a = world.addClient();
        world.run(50);
        world.longestDelayMs = 5;
        for (std::uint32_t i = 1; i <= 200; i++) {
            world.link(a).set(eParamRecordInterval, i);
            world.run(1);
            QCOMPARE(numberOf(world.link(a), eParamRecordInterval), i);
        }
        world.run(100);
        QCOMPARE(world.events(a).last(), QString("RecordInterval=200"));
    }

    void threeEqualCommandsAreThreeEventsInOrder()
    {
        World world;
        const int a = world.addClient();
        const int b = world.addClient();
        world.run(50);
        world.link(a).set(eParamTransportCommand, 7u);
        world.link(a).set(eParamTransportCommand, 7u);
        world.link(a).set(eParamTransportCommand, 8u);
        world.link(a).set(eParamTransportCommand, 7u);
        world.run(20);
        const QStringList expected{"TransportCommand=7", "TransportCommand=7", "TransportCommand=8",
                                   "TransportCommand=7"};
        QCOMPARE(world.events(b), expected);
        QCOMPARE(world.events(a), expected);
    }

    void nothingOvertakesACommand()
    {
        World world;
        const int a = world.addClient();
        const int b = world.addClient();
        world.run(50);
        world.link(a).set(eParamPlayMedia, 1u);
        world.link(a).set(eParamTransportCommand, 1u);
        world.link(a).set(eParamPlayMedia, 2u);
        world.link(a).set(eParamPlayMedia, 0u);
        world.run(20);
        QCOMPARE(world.events(b),
                 QStringList({"PlayMedia=1", "TransportCommand=1", "PlayMedia=0"}));
    }

    void commandsAreNotReplayedToALateClient()
    {
        World world;
        const int a = world.addClient();
        world.run(50);
        world.link(a).set(eParamTransportCommand, 3u);
        world.run(10);
        const int late = world.addClient();
        world.run(50);
        QVERIFY(world.link(late).isReady());
        QVERIFY(world.events(late).isEmpty());
    }

    void commandsAreRefusedWhileTheStoreIsAway()
    {
        World world;
        world.stopStore();
        const int a = world.addClient();
        world.run(500);
        QVERIFY(!world.link(a).set(eParamTransportCommand, 3u));
        QVERIFY(!world.link(a).set(eParamEncodeType, 2u));
        QVERIFY(!world.link(a).set(eParamEncodeType, 3u));
        QCOMPARE(numberOf(world.link(a), eParamEncodeType), 3u);
        world.startStore();
        world.run(500);
        QVERIFY(world.link(a).isReachable());
        QCOMPARE(std::get<std::uint32_t>(world.core->values().find(eParamEncodeType)->value), 3u);
        QCOMPARE(world.core->counters().sets, std::uint64_t(1));
        QCOMPARE(world.events(a), QStringList("EncodeType=3"));
    }

    void restartedStoreKeepsSettingsAndGetsStatusBack()
    {
        World world;
        const int daemon = world.addClient();
        const int panel = world.addClient();
        world.run(50);
        world.link(daemon).set(eParamTransportRunning, 1u);
        world.link(daemon).set(eParamTransportState, 3u);
        world.link(panel).set(eParamEncodeType, 2u);
        world.link(panel).set(eParamTransportCommand, 1u);
        world.run(50);
        world.events(daemon).clear();
        world.stopStore();
        world.run(10000);
        QVERIFY(!world.link(daemon).isReachable());
        world.startStore();
        world.run(1000);
        const auto stored = [&world](eParam_t id) {
            return std::get<std::uint32_t>(world.core->values().find(id)->value);
        };
        QCOMPARE(stored(eParamTransportRunning), 1u);
        QCOMPARE(stored(eParamTransportState), 3u);
        QCOMPARE(stored(eParamEncodeType), 2u);
        QCOMPARE(numberOf(world.link(panel), eParamTransportState), 3u);
        // The daemon's own status did not change, and no command comes twice.
        QVERIFY2(world.events(daemon).isEmpty(), qPrintable(world.events(daemon).join(' ')));
    }

    void restartTellsListenersOnlyOfDifferences()
    {
        World world;
        const int a = world.addClient();
        const int b = world.addClient();
        world.run(50);
        world.link(a).set(eParamEncodeType, 2u);
        world.run(50);
        world.events(b).clear();
        world.stopStore();
        world.run(5000);
        world.kept[eParamEncodeType] = 3u;
        world.kept[eParamLoopPlayback] = 1u;
        world.clients[std::size_t(a)].link =
            std::make_unique<StoreLink>(999, [](const std::string &) {});
        world.startStore();
        world.run(1000);
        QCOMPARE(world.events(b), QStringList({"EncodeType=3", "LoopPlayback=1"}));
    }

    void repeatedRequestIsCarriedOutOnceAndAnsweredTwice()
    {
        std::vector<std::string> sent;
        StoreCore core(
            5, [&sent](const Peer &, const std::string &datagram) { sent.push_back(datagram); },
            [](eParam_t, const ParamValue &) {});
        Packet packet;
        packet.set_client(1);
        packet.set_request(1);
        auto *set = packet.mutable_set_request()->add_set();
        set->set_parameter(eParamTransportCommand);
        set->mutable_value()->set_number(7);
        const std::string datagram = encodePacket(packet);
        core.receive({1, 1}, bytesOf(datagram), {1, {}});
        core.receive({1, 1}, bytesOf(datagram), {2, {}});
        QCOMPARE(core.counters().sets, std::uint64_t(1));
        QCOMPARE(core.counters().duplicates, std::uint64_t(1));
        QCOMPARE(sent.size(), std::size_t(2));
        QCOMPARE(sent[0], sent[1]);
        QCOMPARE(core.values().find(eParamTransportCommand)->revision, std::uint64_t(1));
    }

    void requestsAreAnswered_data()
    {
        QTest::addColumn<unsigned int>("id");
        QTest::addColumn<bool>("isText");
        QTest::addColumn<int>("status");
        QTest::newRow("fits") << unsigned(eParamEncodeType) << false << int(Status::Ok);
        QTest::newRow("unknown") << 1u << false << int(Status::UnknownParameter);
        QTest::newRow("kind") << unsigned(eParamEncodeType) << true << int(Status::WrongKind);
        QTest::newRow("range") << unsigned(eParamLoopPlayback) << false << int(Status::OutOfRange);
        QTest::newRow("other epoch")
            << unsigned(eParamTransportCommand) << false << int(Status::OtherEpoch);
    }

    void requestsAreAnswered()
    {
        QFETCH(unsigned int, id);
        QFETCH(bool, isText);
        QFETCH(int, status);
        std::string sent;
        StoreCore core(
            5, [&sent](const Peer &, const std::string &datagram) { sent = datagram; },
            [](eParam_t, const ParamValue &) {});
        Packet packet;
        packet.set_client(1);
        packet.set_request(1);
        auto *set = packet.mutable_set_request()->add_set();
        set->set_parameter(id);
        set->set_epoch(4);
        if (isText) {
            set->mutable_value()->set_bytes("3");
        } else {
            set->mutable_value()->set_number(3);
        }
        core.receive({1, 1}, bytesOf(encodePacket(packet)), {1, {}});
        PacketError error;
        const auto reply = decodePacket(bytesOf(sent), error);
        QVERIFY(reply);
        QCOMPARE(int(reply->set_reply().result(0).status()), status);
    }

    void attributesAndSingleValuesAreServed()
    {
        std::string sent;
        StoreCore core(
            5, [&sent](const Peer &, const std::string &datagram) { sent = datagram; },
            [](eParam_t, const ParamValue &) {});
        PacketError error;
        Packet packet;
        packet.set_client(1);
        packet.mutable_attributes_request()->set_parameter(eParamAlarm1903);
        core.receive({1, 1}, bytesOf(encodePacket(packet)), {1, {}});
        auto reply = decodePacket(bytesOf(sent), error);
        QCOMPARE(reply->attributes_reply().attribute(0), std::string("raise_on_record_pressed"));
        packet.mutable_get_request()->set_parameter(eParamCurrentClip);
        core.receive({1, 1}, bytesOf(encodePacket(packet)), {1, {}});
        reply = decodePacket(bytesOf(sent), error);
        QCOMPARE(reply->get_reply().item().value().bytes(), std::string("N/A"));
    }

    void lostDaemonIsShownAsNotRunning()
    {
        World world;
        const int daemon = world.addClient();
        const int panel = world.addClient();
        world.run(50);
        world.link(daemon).set(eParamTransportRunning, 1u);
        world.run(50);
        world.clients[std::size_t(daemon)].link =
            std::make_unique<StoreLink>(999, [](const std::string &) {});
        world.run(4000);
        QCOMPARE(numberOf(world.link(panel), eParamTransportRunning), 1u);
        world.run(2000);
        QCOMPARE(numberOf(world.link(panel), eParamTransportRunning), 0u);
        QCOMPARE(world.core->subscribers(), std::size_t(1));
    }

    void subscribersAreBounded()
    {
        World world;
        for (int i = 0; i < 40; i++) {
            world.addClient();
        }
        world.run(300);
        QCOMPARE(world.core->subscribers(), StoreCore::maxSubscribers);
        QVERIFY(!world.link(39).isReachable());
    }

    void tooManyCommandsForAStalledClientEndInAResync()
    {
        World world;
        const int a = world.addClient();
        const int stalled = world.addClient();
        world.run(50);
        auto link = std::move(world.clients[std::size_t(stalled)].link);
        world.clients[std::size_t(stalled)].link =
            std::make_unique<StoreLink>(999, [](const std::string &) {});
        for (int i = 0; i < 400; i++) {
            world.link(a).set(eParamTransportCommand, 7u);
            world.link(a).set(eParamTransportCommand, 8u);
            world.run(2);
        }
        world.link(a).set(eParamEncodeType, 3u);
        world.run(5);
        QVERIFY(world.core->counters().overflows > 0);
        world.clients[std::size_t(stalled)].link = std::move(link);
        world.run(2000);
        QCOMPARE(numberOf(world.link(stalled), eParamEncodeType), 3u);
        QVERIFY(world.events(stalled).size() <= 600);
        QCOMPARE(world.events(stalled).filter("EncodeType").size(), 1);
    }

    void badNetworkLosesNothing_data()
    {
        QTest::addColumn<unsigned int>("seed");
        for (unsigned int seed = 1; seed <= 25; seed++) {
            QTest::addRow("seed %u", seed) << seed;
        }
    }

    void badNetworkLosesNothing()
    {
        QFETCH(unsigned int, seed);
        World world(seed);
        for (int i = 0; i < 3; i++) {
            world.addClient();
        }
        world.run(100);
        world.lossPercent = 10;
        world.repeatPercent = 20;
        world.longestDelayMs = 8;
        std::mt19937 random(seed);
        QStringList commands;
        for (std::uint32_t i = 0; i < 200; i++) {
            if (random() % 3 == 0) {
                QVERIFY(world.link(0).set(eParamGotoClipIndex, i));
                commands << QString("GotoClipIndex=%1").arg(i);
            }
            world.link(int(random() % 3)).set(eParamRecordInterval, std::uint32_t(random() % 3000));
            world.link(int(random() % 3)).set(eParamReelName, std::to_string(i));
            world.run(int(random() % 20));
        }
        world.run(3000);
        world.lossPercent = 0;
        world.run(3000);
        for (int client = 0; client < 3; client++) {
            QCOMPARE(world.events(client).filter("GotoClipIndex"), commands);
            for (const auto &entry : world.core->values().entries()) {
                if (!entry.descriptor->isMomentary()) {
                    QCOMPARE(*world.link(client).value(entry.descriptor->id()), entry.value);
                }
            }
            const auto interval = world.core->values().find(eParamRecordInterval)->value;
            QCOMPARE(world.events(client).filter("RecordInterval").last(),
                     QString("RecordInterval=%1").arg(std::get<std::uint32_t>(interval)));
        }
    }

    void storeThatRestartsAtAnyTimeEndsInAgreement_data() { badNetworkLosesNothing_data(); }

    void storeThatRestartsAtAnyTimeEndsInAgreement()
    {
        QFETCH(unsigned int, seed);
        World world(seed);
        for (int i = 0; i < 3; i++) {
            world.addClient();
        }
        world.lossPercent = 5;
        world.repeatPercent = 5;
        world.longestDelayMs = 4;
        std::mt19937 random(seed);
        std::map<eParam_t, std::uint32_t> last;
        for (std::uint32_t i = 0; i < 300; i++) {
            // Every parameter has one writer, as in the recorder; its last word must stand.
            const eParam_t ids[] = {eParamRecordInterval, eParamCurrentPlayListIndex,
                                    eParamTransportState};
            const auto who = random() % 3;
            const auto value = std::uint32_t(who == 2 ? 1 + random() % 3 : random() % 3000);
            world.link(int(who)).set(ids[who], value);
            last[ids[who]] = value;
            world.run(int(random() % 40));
            if (random() % 40 == 0) {
                world.stopStore();
                world.run(int(random() % 6000));
                world.startStore();
            }
        }
        world.lossPercent = 0;
        world.run(8000);
        for (const auto &[id, value] : last) {
            QCOMPARE(std::get<std::uint32_t>(world.core->values().find(id)->value), value);
            for (int client = 0; client < 3; client++) {
                QCOMPARE(numberOf(world.link(client), id), value);
                QCOMPARE(world.events(client)
                             .filter(QString::fromStdString(GetDescriptor(id)->name()).mid(6))
                             .last()
                             .section('=', 1),
                         QString::number(value));
            }
        }
    }
};

QTEST_APPLESS_MAIN(TestStoreProtocol)
#include "tst_store_protocol.moc"
