// What clients send to the parameter store.
// links: store

#include "driver.h"
#include "services/rvstore/storecore.h"
#include "storepackets.h"

namespace
{

constexpr Peer honest{0x7f000001, 1000};
constexpr Peer stranger{0x7f000001, 2000};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::uint64_t subscription = 0;
    std::uint64_t cookie = 0;
    std::size_t toStranger = 0;
    StoreCore core(
        5, StoreSecret{1, 2},
        [&](const Peer &peer, const std::string &datagram) {
            fuzzCheck(datagram.size() <= maxPacketBytes);
            PacketError error;
            const auto packet = decodePacket(fuzzBytes(datagram), error);
            fuzzCheck(packet.has_value());
            if (peer == stranger) {
                toStranger += datagram.size();
            } else if (packet->has_subscribe_reply()) {
                subscription = packet->subscribe_reply().subscription();
                cookie = packet->subscribe_reply().cookie();
            }
        },
        [](eParam_t id, const ParamValue &value, std::uint64_t) {
            fuzzCheck(GetDescriptor(id)->isPersistent() && GetDescriptor(id)->check(value) == ValueError::None);
        },
        {});
    for (int i = 0; i < 2; i++) {
        lumo::store::Packet ask;
        ask.set_client(1);
        ask.set_padding(std::string(64, 'p'));
        ask.mutable_subscribe_request()->set_cookie(cookie);
        core.receive(honest, fuzzBytes(encodePacket(ask)), {1, {}});
    }
    fuzzCheck(subscription != 0);
    std::int64_t now = 1;
    for (const FuzzDatagram &input : fuzzDatagrams(data, size)) {
        const std::string datagram = fuzzDatagram(input, [&](lumo::store::Packet &packet) {
            packet.set_client(1);
            packet.set_subscription(subscription);
        });
        core.receive(honest, fuzzBytes(datagram), {now, {}});
        toStranger = 0;
        core.receive(stranger, fuzzBytes(datagram), {now, {}});
        fuzzCheck(toStranger <= datagram.size() || core.subscribers() > 1);
        now += input.kind;
        core.step({now, {}});
        core.kept(static_cast<std::uint64_t>(now));
        core.setKeeping(input.kind % 2);
    }
    for (const auto &entry : core.values().entries()) {
        fuzzCheck(entry.descriptor->check(entry.value) == ValueError::None);
    }
    fuzzCheck(core.subscribers() <= StoreCore::maxSubscribers);
    return 0;
}
