#include "libconfig/packet.h"
#include "libconfig/storelink.h"
#include "services/rvstore/storecore.h"

#include <QTest>

#include <random>

using lumo::store::Packet;

namespace
{

std::span<const std::uint8_t> bytesOf(const std::string &datagram)
{
    return {reinterpret_cast<const std::uint8_t *>(datagram.data()), datagram.size()};
}

PacketError errorOf(const std::string &datagram)
{
    PacketError error;
    decodePacket(bytesOf(datagram), error);
    return error;
}

std::string sample()
{
    Packet packet;
    packet.set_client(7);
    packet.set_request(1);
    auto *set = packet.mutable_set_request()->add_set();
    set->set_parameter(eParamReelName);
    set->mutable_value()->set_bytes("tape");
    return encodePacket(packet);
}

/// One packet of every kind.
std::vector<std::string> everyPacket()
{
    std::vector<std::string> all{sample()};
    const auto add = [&all](auto fill) {
        Packet packet;
        packet.set_client(7);
        packet.set_request(2);
        packet.set_epoch(1);
        fill(packet);
        all.push_back(encodePacket(packet));
    };
    add([](Packet &p) { p.mutable_get_request()->set_parameter(eParamReelName); });
    add([](Packet &p) { p.mutable_list_request()->set_from(0); });
    add([](Packet &p) { p.mutable_attributes_request()->set_parameter(eParamAlarm1904); });
    add([](Packet &p) { p.mutable_subscribe_request()->set_subscription(0); });
    add([](Packet &p) { p.mutable_goodbye(); });
    add([](Packet &p) { p.mutable_events_ack()->set_sequence(1); });
    add([](Packet &p) { p.mutable_subscribe_reply()->set_subscription(1); });
    add([](Packet &p) { p.mutable_heartbeat()->set_sequence(3); });
    add([](Packet &p) { p.mutable_set_reply()->add_result(); });
    add([](Packet &p) {
        auto *item = p.mutable_events()->add_item();
        item->set_parameter(eParamReelName);
        item->mutable_value()->set_bytes("x");
        item->set_revision(5);
    });
    add([](Packet &p) { p.mutable_list_reply()->set_next(1); });
    add([](Packet &p) { p.mutable_refusal()->set_status(lumo::store::NoSubscription); });
    add([](Packet &p) { p.mutable_keep_request()->set_revision(1); });
    add([](Packet &p) { p.mutable_keep_reply()->set_revision(1); });
    return all;
}

} // namespace

class TestStorePacket : public QObject
{
    Q_OBJECT

private slots:
    void packetsComeBackAsTheyWent()
    {
        PacketError error;
        const auto packet = decodePacket(bytesOf(sample()), error);
        QVERIFY(packet);
        QCOMPARE(packet->client(), std::uint64_t(7));
        QCOMPARE(packet->set_request().set(0).value().bytes(), std::string("tape"));
    }

    void checksumIsCrc32c()
    {
        QCOMPARE(crc32c(bytesOf("123456789")), 0xe3069283u);
        QCOMPARE(crc32c(bytesOf("6789"), crc32c(bytesOf("12345"))), 0xe3069283u);
        // However it is cut, and whichever of the two ways each part goes.
        std::string text;
        for (int i = 0; i < 100; i++) {
            text += static_cast<char>(i * 37);
            std::uint32_t bytewise = 0;
            for (const char c : text) {
                bytewise = crc32c(bytesOf(std::string(1, c)), bytewise);
            }
            QCOMPARE(crc32c(bytesOf(text)), bytewise);
        }
    }

    void frameIsBigEndian()
    {
        const std::string datagram = sample();
        QCOMPARE(datagram.substr(0, 6), std::string("RVPS\2\0", 6));
        QCOMPARE(std::size_t(datagram[7]), datagram.size() - packetFrameBytes);
        QCOMPARE(datagram[6], '\0');
    }

    void brokenFramesAreNamed()
    {
        const std::string good = sample();
        QCOMPARE(errorOf(good), PacketError::None);
        QCOMPARE(errorOf(""), PacketError::Length);
        QCOMPARE(errorOf(good.substr(0, 11)), PacketError::Length);
        QCOMPARE(errorOf(good + "x"), PacketError::Length);
        QCOMPARE(errorOf(std::string(1201, 'x')), PacketError::Length);
        QCOMPARE(errorOf("X" + good.substr(1)), PacketError::Magic);
        QCOMPARE(errorOf(good.substr(0, 4) + '\1' + good.substr(5)), PacketError::Version);
        std::string flipped = good;
        flipped.back() ^= 1;
        QCOMPARE(errorOf(flipped), PacketError::Checksum);
        Packet nobody;
        nobody.mutable_goodbye();
        QCOMPARE(errorOf(encodePacket(nobody)), PacketError::Message);
    }

    void packetsThatAreTooLongAreNotMade()
    {
        Packet packet;
        packet.set_client(1);
        auto *value = packet.mutable_set_request()->add_set()->mutable_value();
        value->set_bytes(std::string(maxPacketBytes, 'x'));
        QVERIFY(encodePacket(packet).empty());
        value->set_bytes(std::string(maxValueBytes, 'x'));
        QVERIFY(!encodePacket(packet).empty());
    }

    void storeAndClientSurviveAnyDatagram_data()
    {
        QTest::addColumn<unsigned int>("seed");
        for (unsigned int seed = 1; seed <= 20; seed++) {
            QTest::addRow("seed %u", seed) << seed;
        }
    }

    void storeAndClientSurviveAnyDatagram()
    {
        QFETCH(unsigned int, seed);
        std::mt19937 random(seed);
        StoreCore core(
            1, StoreSecret{}, [](const Peer &, const std::string &) {},
            [](eParam_t, const ParamValue &, std::uint64_t) {},
            {});
        StoreLink link(7, [](const std::string &) {});
        std::vector<ConfigEvent> events;
        const auto packets = everyPacket();
        std::uint64_t accepted = 0;
        for (int i = 0; i < 3000; i++) {
            std::string datagram = packets[random() % packets.size()];
            const auto kind = random() % 4;
            if (kind == 0) {
                datagram.resize(random() % 1300);
                std::ranges::generate(datagram, [&random] { return static_cast<char>(random()); });
            } else if (kind == 1) {
                datagram[random() % datagram.size()] ^= static_cast<char>(1 + random() % 255);
            } else if (kind == 2) {
                // Garbage in a sound frame reaches the message parser and what is behind it.
                std::string body = datagram.substr(packetFrameBytes);
                for (unsigned int n = random() % 4; n > 0; n--) {
                    body[random() % body.size()] = static_cast<char>(random());
                }
                datagram = datagram.substr(0, 8) + std::string(4, '\0') + body;
                const std::uint32_t crc = crc32c(bytesOf(body), crc32c(bytesOf(datagram).first(8)));
                for (std::size_t k = 0; k < 4; k++) {
                    datagram[8 + k] = static_cast<char>(crc >> (24 - 8 * k));
                }
            }
            core.receive({loopbackHost(), 1000}, bytesOf(datagram), {i, {}});
            link.receive(bytesOf(datagram), i, events);
            core.step({i, {}});
            link.step(i);
            accepted += errorOf(datagram) == PacketError::None;
        }
        QCOMPARE(core.counters().received, std::uint64_t(3000));
        QVERIFY(core.counters().malformed > 500);
        QVERIFY(accepted > 500);
        for (const auto &entry : core.values().entries()) {
            QCOMPARE(entry.descriptor->check(entry.value), ValueError::None);
        }
        QVERIFY(core.subscribers() <= StoreCore::maxSubscribers);
    }

private:
    static std::uint32_t loopbackHost() { return 0x7f000001; }
};

QTEST_APPLESS_MAIN(TestStorePacket)
#include "tst_store_packet.moc"
