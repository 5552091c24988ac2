#include "services/rvstore/cookie.h"

#include "services/rvstore/subscriber.h"

#include <bit>

namespace
{

constexpr std::int64_t slotMs = 10000;

struct SipState {
    std::uint64_t v0;
    std::uint64_t v1;
    std::uint64_t v2;
    std::uint64_t v3;

    void round()
    {
        v0 += v1;
        v2 += v3;
        v1 = std::rotl(v1, 13) ^ v0;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 = std::rotl(v0, 32);
        v2 += v1;
        v0 += v3;
        v1 = std::rotl(v1, 17) ^ v2;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 = std::rotl(v2, 32);
    }

    void take(std::uint64_t word)
    {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
    }
};

void putLittle64(std::uint8_t *to, std::uint64_t number)
{
    for (int i = 0; i < 8; i++) {
        to[i] = static_cast<std::uint8_t>(number >> (8 * i));
    }
}

std::uint64_t cookieOfSlot(const StoreSecret &secret, std::uint64_t client, const Peer &peer, std::int64_t slot)
{
    std::array<std::uint8_t, 24> bytes;
    putLittle64(bytes.data(), client);
    putLittle64(bytes.data() + 8, std::uint64_t(peer.host) << 16 | peer.port);
    putLittle64(bytes.data() + 16, static_cast<std::uint64_t>(slot));
    const std::uint64_t cookie = sipHash(secret, bytes);
    return cookie ? cookie : 1;
}

} // namespace

std::uint64_t sipHash(const StoreSecret &key, std::span<const std::uint8_t> bytes)
{
    SipState state{key[0] ^ 0x736f6d6570736575u, key[1] ^ 0x646f72616e646f6du, key[0] ^ 0x6c7967656e657261u,
                   key[1] ^ 0x7465646279746573u};
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < bytes.size(); i++) {
        word |= std::uint64_t(bytes[i]) << (8 * (i % 8));
        if (i % 8 == 7) {
            state.take(word);
            word = 0;
        }
    }
    state.take(word | std::uint64_t(bytes.size() & 0xff) << 56);
    state.v2 ^= 0xff;
    for (int i = 0; i < 4; i++) {
        state.round();
    }
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

std::uint64_t makeCookie(const StoreSecret &secret, std::uint64_t client, const Peer &peer, std::int64_t nowMs)
{
    return cookieOfSlot(secret, client, peer, nowMs / slotMs);
}

bool isCookieGood(const StoreSecret &secret, std::uint64_t client, const Peer &peer, std::int64_t nowMs,
                  std::uint64_t cookie)
{
    const std::int64_t slot = nowMs / slotMs;
    return cookie == cookieOfSlot(secret, client, peer, slot) || cookie == cookieOfSlot(secret, client, peer, slot - 1);
}
