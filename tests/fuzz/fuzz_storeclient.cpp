// What the parameter store, or somebody in its place, sends to a client.
// links: config

#include "driver.h"
#include "libconfig/storelink.h"
#include "storepackets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    std::uint64_t lastRequest = 0;
    StoreLink link(7, [&](const std::string &datagram) {
        PacketError error;
        const auto packet = decodePacket(fuzzBytes(datagram), error);
        fuzzCheck(packet.has_value());
        lastRequest = packet->request() ? packet->request() : lastRequest;
    });
    std::int64_t now = 1;
    std::vector<ConfigEvent> events;
    link.step(now);
    for (const FuzzDatagram &input : fuzzDatagrams(data, size)) {
        const std::string datagram = fuzzDatagram(input, [&](lumo::store::Packet &packet) {
            packet.set_client(7);
            packet.set_epoch(packet.epoch() ? packet.epoch() : 5);
            packet.set_request(lastRequest);
        });
        link.receive(fuzzBytes(datagram), now, events);
        link.set(eParamEncodeType, std::uint32_t(input.kind % 4));
        link.set(eParamTransportCommand, 7u);
        link.wantKept(input.kind % 2);
        now += input.kind;
        link.step(now);
    }
    for (const ConfigEvent &event : events) {
        fuzzCheck(GetDescriptor(event.id) && GetDescriptor(event.id)->check(event.value) == ValueError::None);
    }
    fuzzCheck(events.size() <= 64 * maxPacketBytes);
    return 0;
}
