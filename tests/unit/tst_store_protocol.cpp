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
            ++_epoch, StoreSecret{_epoch, 7},
            [this](const Peer &peer, const std::string &datagram) { post(peer.port, datagram); },
            [this](eParam_t id, const ParamValue &value, std::uint64_t revision) {
                kept[id] = value;
                keptRevision = revision;
            },
            [this] { hurried++; });
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
    std::uint64_t keptRevision = 0;
    int hurried = 0;
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

/// One client that says exactly what a test wants, and what the store answered it.
class Asker
{
public:
    explicit Asker(bool isSubscribed = true)
        : core(
              5, StoreSecret{1, 2},
              [this](const Peer &to, const std::string &datagram) {
                  PacketError error;
                  answers.push_back(*decodePacket(bytesOf(datagram), error));
                  peers.push_back(to);
                  sizes.push_back(datagram.size());
              },
              [this](eParam_t, const ParamValue &, std::uint64_t revision) { toKeep = revision; }, {})
    {
        if (isSubscribed) {
            subscribe();
        }
    }

    Packet packet(std::uint64_t request) const
    {
        Packet made;
        made.set_client(1);
        made.set_request(request);
        made.set_subscription(subscription);
        return made;
    }

    std::size_t send(const Packet &packet, Peer from = {0x7f000001, 1}, std::int64_t nowMs = 1)
    {
        const std::string datagram = encodePacket(packet);
        core.receive(from, bytesOf(datagram), {nowMs, {}});
        return datagram.size();
    }

    void subscribe(Peer from = {0x7f000001, 1}, std::uint64_t client = 1)
    {
        Packet ask = packet(0);
        ask.set_client(client);
        ask.set_padding(std::string(64, 'p'));
        ask.mutable_subscribe_request()->set_subscription(subscription);
        send(ask, from);
        ask.mutable_subscribe_request()->set_cookie(answers.back().subscribe_reply().cookie());
        send(ask, from);
        subscription = answers.back().subscribe_reply().subscription();
    }

    StoreCore core;
    std::vector<Packet> answers;
    std::vector<Peer> peers;
    std::vector<std::size_t> sizes;
    std::uint64_t subscription = 0;
    std::uint64_t toKeep = 0;
};

Packet setPacket(const Asker &asker, std::uint64_t request, std::uint32_t id, std::uint32_t value)
{
    Packet packet = asker.packet(request);
    auto *set = packet.mutable_set_request()->add_set();
    set->set_parameter(id);
    set->mutable_value()->set_number(value);
    return packet;
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
        Asker asker;
        const Packet set = setPacket(asker, 1, eParamTransportCommand, 7);
        asker.send(set);
        asker.send(set);
        QCOMPARE(asker.core.counters().sets, std::uint64_t(1));
        QCOMPARE(asker.core.counters().duplicates, std::uint64_t(1));
        QCOMPARE(asker.answers.size(), std::size_t(4));
        QCOMPARE(asker.answers[2].SerializeAsString(), asker.answers[3].SerializeAsString());
        QCOMPARE(asker.core.values().find(eParamTransportCommand)->revision, std::uint64_t(1));
    }

    void setWithoutANumberIsMalformed()
    {
        Asker asker;
        const std::size_t answers = asker.answers.size();
        asker.send(setPacket(asker, 0, eParamTransportCommand, 7));
        QCOMPARE(asker.answers.size(), answers);
        QCOMPARE(asker.core.counters().sets, std::uint64_t(0));
        QCOMPARE(asker.core.counters().malformed, std::uint64_t(1));
    }

    void lateCopyOfARequestIsNotCarriedOutAfterItsSubscriptionEnded()
    {
        Asker asker;
        const Packet set = setPacket(asker, 1, eParamTransportCommand, 7);
        asker.send(set);
        Packet goodbye = asker.packet(0);
        goodbye.mutable_goodbye();
        asker.send(goodbye);
        asker.subscribe();
        asker.send(set);
        QCOMPARE(asker.core.counters().sets, std::uint64_t(1));
        QCOMPARE(int(asker.answers.back().refusal().status()), int(Status::NoSubscription));
    }

    void floodOfOtherClientsForgetsNoRequest()
    {
        Asker asker;
        const Packet set = setPacket(asker, 1, eParamTransportCommand, 7);
        asker.send(set);
        const std::uint64_t mine = asker.subscription;
        for (std::uint64_t client = 2; client < 5000; client++) {
            asker.subscribe({0x7f000001, std::uint16_t(client)}, client);
            Packet other = setPacket(asker, 1, eParamTransportCommand, 8);
            other.set_client(client);
            asker.send(other, {0x7f000001, std::uint16_t(client)});
        }
        QCOMPARE(asker.core.subscribers(), StoreCore::maxSubscribers);
        QCOMPARE(asker.core.counters().sets, std::uint64_t(StoreCore::maxSubscribers));
        QVERIFY(asker.core.counters().busy > 4000);
        asker.subscription = mine;
        asker.send(set);
        QCOMPARE(asker.core.counters().sets, std::uint64_t(StoreCore::maxSubscribers));
        QCOMPARE(asker.core.counters().duplicates, std::uint64_t(1));
    }

    void strangersAreNeverSentMoreThanTheySent()
    {
        Asker asker(false);
        std::mt19937 random(1);
        for (int i = 0; i < 2000; i++) {
            Packet packet = asker.packet(random());
            packet.set_client(1 + random());
            if (random() % 2) {
                packet.set_padding(std::string(random() % 90, 'p'));
            }
            switch (random() % 6) {
            case 0: packet.mutable_list_request(); break;
            case 1: packet.mutable_get_request()->set_parameter(eParamCurrentClip); break;
            case 2: packet.mutable_attributes_request()->set_parameter(eParamAlarm1904); break;
            case 3: packet.mutable_subscribe_request()->set_cookie(random()); break;
            case 4: packet.mutable_keep_request(); break;
            default: packet = setPacket(asker, random(), eParamEncodeType, 2); break;
            }
            asker.sizes.clear();
            const std::size_t sent = asker.send(packet, {0x7f000001, 9});
            std::size_t got = 0;
            for (const std::size_t size : asker.sizes) {
                got += size;
            }
            QVERIFY2(got <= sent, qPrintable(QString("%1 for %2").arg(got).arg(sent)));
        }
        QCOMPARE(asker.core.subscribers(), std::size_t(0));
        QCOMPARE(asker.core.counters().sets, std::uint64_t(0));
        QVERIFY(asker.core.counters().withheld > 0);
    }

    void cookieOfOneAddressIsWorthNothingAtAnother()
    {
        Asker asker(false);
        Packet ask = asker.packet(1);
        ask.set_padding(std::string(64, 'p'));
        ask.mutable_subscribe_request();
        asker.send(ask);
        const std::uint64_t cookie = asker.answers.back().subscribe_reply().cookie();
        ask.mutable_subscribe_request()->set_cookie(cookie);
        asker.send(ask, {0x7f000001, 2});
        QCOMPARE(int(asker.answers.back().subscribe_reply().status()), int(Status::Prove));
        asker.send(ask, {0x7f000001, 1}, 40000);
        QCOMPARE(int(asker.answers.back().subscribe_reply().status()), int(Status::Prove));
        asker.send(ask);
        QCOMPARE(int(asker.answers.back().subscribe_reply().status()), int(Status::Ok));
    }

    void subscriptionIsNotTakenOverFromAnotherAddress()
    {
        Asker asker;
        const std::uint64_t mine = asker.subscription;
        asker.subscribe({0x7f000001, 2});
        // The second asker named the first one's subscription: it has moved.
        QCOMPARE(asker.subscription, mine);
        asker.subscription = 0;
        asker.subscribe({0x7f000001, 3});
        QCOMPARE(int(asker.answers.back().subscribe_reply().status()), int(Status::Busy));
        asker.subscription = mine;
        asker.send(setPacket(asker, 1, eParamEncodeType, 2), {0x7f000001, 3});
        QCOMPARE(asker.core.counters().sets, std::uint64_t(0));
        asker.send(setPacket(asker, 1, eParamEncodeType, 2), {0x7f000001, 2});
        QCOMPARE(asker.core.counters().sets, std::uint64_t(1));
    }

    void anyPacketOfItsClientRenewsASubscription()
    {
        Asker asker;
        Packet ack = asker.packet(0);
        ack.mutable_events_ack()->set_sequence(0);
        for (std::int64_t now = 4000; now <= 40000; now += 4000) {
            asker.send(ack, {0x7f000001, 1}, now);
            asker.core.step({now + 3999, {}});
            QCOMPARE(asker.core.subscribers(), std::size_t(1));
        }
        // Of somebody else, it does not.
        asker.send(ack, {0x7f000001, 2}, 44000);
        asker.core.step({45000, {}});
        QCOMPARE(asker.core.subscribers(), std::size_t(0));
    }

    void keptValuesAreConfirmedOnlyWhenTheyAreOnTheMedium()
    {
        Asker asker;
        asker.send(setPacket(asker, 1, eParamEncodeType, 2));
        asker.send(setPacket(asker, 2, eParamTransportState, 3));
        QCOMPARE(asker.toKeep, std::uint64_t(1));
        asker.answers.clear();
        Packet keep = asker.packet(3);
        keep.mutable_keep_request()->set_revision(2);
        asker.send(keep);
        asker.send(keep);
        QVERIFY(asker.answers.empty());
        asker.core.kept(1);
        QCOMPARE(asker.answers.size(), std::size_t(1));
        QCOMPARE(int(asker.answers[0].keep_reply().status()), int(Status::Ok));
        QCOMPARE(asker.answers[0].request(), std::uint64_t(3));
        asker.send(setPacket(asker, 4, eParamEncodeType, 3));
        asker.answers.clear();
        asker.send(keep);
        QCOMPARE(asker.answers.size(), std::size_t(0));
        asker.core.setKeeping(false);
        QCOMPARE(int(asker.answers.at(0).keep_reply().status()), int(Status::NotKept));
    }

    void clientWaitsForTheMediumWhenItIsAskedTo()
    {
        World world;
        const int a = world.addClient();
        world.run(50);
        world.link(a).set(eParamEncodeType, 2u);
        world.run(50);
        QVERIFY(world.link(a).isIdle());
        QCOMPARE(world.hurried, 0);
        world.link(a).wantKept(true);
        QVERIFY(!world.link(a).isIdle());
        world.run(50);
        QVERIFY(!world.link(a).isIdle());
        QVERIFY(world.hurried > 0);
        world.core->kept(world.keptRevision);
        world.run(50);
        QVERIFY(world.link(a).isIdle());
        QVERIFY(world.link(a).takeRefusals().empty());
        world.link(a).set(eParamEncodeType, 3u);
        world.core->setKeeping(false);
        world.run(50);
        QVERIFY(world.link(a).isIdle());
        const auto refusals = world.link(a).takeRefusals();
        QCOMPARE(refusals.size(), std::size_t(1));
        QCOMPARE(int(refusals[0].status), int(Status::NotKept));
        QCOMPARE(refusals[0].id, eParamEncodeType);
    }

    void frozenClientComesBackAndNoCommandOfItIsCarriedOutTwice()
    {
        World world;
        const int a = world.addClient();
        const int b = world.addClient();
        world.run(50);
        auto frozen = std::move(world.clients[std::size_t(a)].link);
        world.clients[std::size_t(a)].link = std::make_unique<StoreLink>(999, [](const std::string &) {});
        world.run(7000);
        QCOMPARE(world.core->subscribers(), std::size_t(1));
        world.clients[std::size_t(a)].link = std::move(frozen);
        world.run(100);
        QVERIFY(world.link(a).isReachable());
        world.link(a).set(eParamTransportCommand, 7u);
        world.run(50);
        QCOMPARE(world.events(b), QStringList("TransportCommand=7"));
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
        Asker asker;
        Packet packet = setPacket(asker, 1, id, 3);
        auto *set = packet.mutable_set_request()->mutable_set(0);
        set->set_epoch(4);
        if (isText) {
            set->mutable_value()->set_bytes("3");
        }
        asker.send(packet);
        QCOMPARE(int(asker.answers.back().set_reply().result(0).status()), status);
    }

    void attributesAndSingleValuesAreServed()
    {
        Asker asker;
        Packet packet = asker.packet(1);
        packet.mutable_attributes_request()->set_parameter(eParamAlarm1903);
        asker.send(packet);
        QCOMPARE(asker.answers.back().attributes_reply().attribute(0), std::string("raise_on_record_pressed"));
        packet.mutable_get_request()->set_parameter(eParamCurrentClip);
        asker.send(packet);
        QCOMPARE(asker.answers.back().get_reply().item().value().bytes(), std::string("N/A"));
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
        for (std::size_t i = 0; i < StoreCore::maxSubscribers + 8; i++) {
            world.addClient();
        }
        world.run(300);
        QCOMPARE(world.core->subscribers(), StoreCore::maxSubscribers);
        QVERIFY(!world.link(int(StoreCore::maxSubscribers) + 7).isReachable());
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
        world.lossPercent = 30;
        world.repeatPercent = 30;
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
