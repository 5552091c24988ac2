#include "proresdecodegolden.h"

#include <cinttypes>
#include <cstdio>

// For machines without the tests' tools: 0 when the portable paths give the frames, and the pictures, that they give
// everywhere.

int main()
{
    int wrong = 0;
    for (const prorestest::GoldenRow &row : prorestest::goldenRows) {
        const std::uint64_t hash = prorestest::goldenHash(prorestest::goldenFormat(row), prores::Path::Portable);
        std::printf("profile %d: 0x%016" PRIx64 " %s\n", static_cast<int>(row.profile), hash,
                    hash == row.hash ? "as everywhere" : "DIFFERENT");
        wrong += hash != row.hash ? 1 : 0;
        const std::uint64_t decoded = prorestest::decodedHash(prorestest::goldenFormat(row), prores::Path::Portable);
        const std::uint64_t expected = prorestest::decodedHashes[&row - prorestest::goldenRows];
        std::printf("  decoded: 0x%016" PRIx64 " %s\n", decoded, decoded == expected ? "as everywhere" : "DIFFERENT");
        wrong += decoded != expected ? 1 : 0;
    }
    return wrong;
}
