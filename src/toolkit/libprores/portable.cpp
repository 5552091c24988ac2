#include "libprores/dct.h"
#include "libprores/kernels.h"
#include "libprores/scalarcoding.h"

#include <algorithm>

// The portable path: plain loops over lanes, the definition of what the others compute. A lane is a
// block here, tile by tile, line by line.

namespace prores {

namespace {

using Lanes = std::int16_t[mostBlocks];

// Eight rows of lanes, transformed in place. Sums and differences of the samples fit 16 bits, the four
// products of each output 32.
void transformEight(Lanes *rows, std::ptrdiff_t step)
{
    for (int lane = 0; lane < mostBlocks; ++lane) {
        int sum[4];
        int difference[4];
        for (int i = 0; i < 4; ++i) {
            const int low = rows[i * step][lane];
            const int high = rows[(7 - i) * step][lane];
            sum[i] = low + high;
            difference[i] = low - high;
        }
        for (int k = 0; k < 8; ++k) {
            const int *of = k % 2 == 0 ? sum : difference;
            int product = dctRounding;
            for (int i = 0; i < 4; ++i)
                product += dctWeights[k][i] * of[i];
            rows[k * step][lane] = static_cast<std::int16_t>(product >> dctShift);
        }
    }
}

void transform(const Tiles &tiles, int depthShift, const std::array<std::uint8_t, 64> &positions,
               Coefficients &to)
{
    const int largest = (8192 >> depthShift) - 1;
    Lanes rows[64];
    for (int lane = 0; lane < mostBlocks; ++lane) {
        const int block = lane % tileBlocks;
        const std::uint16_t *from = tiles.tile[lane / tileBlocks] + block / 8 * 8 * tiles.stride + block % 8 * 8;
        for (int y = 0; y < 8; ++y, from += tiles.stride) {
            for (int x = 0; x < 8; ++x) {
                const int sample = std::min<int>(from[x], largest);
                rows[y * 8 + x][lane] = static_cast<std::int16_t>((sample << depthShift) - 4096);
            }
        }
    }
    for (int y = 0; y < 8; ++y)
        transformEight(rows + y * 8, 1);
    for (int x = 0; x < 8; ++x)
        transformEight(rows + x, 8);
    for (std::size_t i = 0; i < 64; ++i)
        std::copy_n(rows[i], mostBlocks, to.at[positions[i]]);
}

// The lane that holds each block of a tile in coding order.
constexpr int laneOf(Order order, int block)
{
    const int tile = block / tileBlocks * tileBlocks;
    const int inTile = block % tileBlocks;
    if (order == Order::Columns)
        return tile + inTile % 2 * 8 + inTile / 2;
    return tile + inTile / 2 % 2 * 8 + inTile / 4 * 2 + inTile % 2;
}

std::uint32_t quantised(int coefficient, std::uint32_t reciprocal, std::uint32_t offset)
{
    const auto magnitude = static_cast<std::uint32_t>(coefficient < 0 ? -coefficient : coefficient);
    return ((magnitude + offset) & 0xffff) * reciprocal >> 16;
}

void quantisePlane(const Coefficients &from, const Quantiser &quantiser, Order order, int firstLane, Levels &to)
{
    int lanes[mostBlocks];
    for (int i = 0; i < to.blocks; ++i) {
        lanes[i] = firstLane + laneOf(order, i);
        const int coefficient = from.at[0][lanes[i]];
        const auto level = static_cast<int>(quantised(coefficient, quantiser.reciprocal[0], quantiser.offset[0]));
        to.dc[i] = static_cast<std::int16_t>(coefficient < 0 ? -level : level);
    }
    std::uint16_t *level = to.level + Levels::lead;
    std::uint16_t *position = to.position + Levels::lead;
    for (int k = 1; k < 64; ++k) {
        std::uint16_t row[mostBlocks]; // all lanes, which a compiler can do side by side
        std::uint32_t any = 0;
        for (int lane = 0; lane < mostBlocks; ++lane) {
            const int coefficient = from.at[k][lane];
            const std::uint32_t magnitude = quantised(coefficient, quantiser.reciprocal[k], quantiser.offset[k]);
            any |= magnitude;
            row[lane] = static_cast<std::uint16_t>(magnitude * 2 + (coefficient < 0 ? 1 : 0));
        }
        if (any == 0)
            continue;
        // Written always and kept when it counts: which it is nobody can predict.
        for (int i = 0; i < to.blocks; ++i) {
            *level = row[lanes[i]];
            *position = static_cast<std::uint16_t>(k * to.blocks + i);
            const int taken = row[lanes[i]] > 1 ? 1 : 0;
            level += taken;
            position += taken;
        }
    }
    to.count = static_cast<int>(level - to.level) - Levels::lead;
}

void quantise(const Coefficients &from, const Quantiser &quantiser, Order order, int blocks, Levels &first,
              Levels *second, const Ahead &ahead)
{
    for (int k = 0; k < 64; ++k)
        ahead.fetch(k);
    first.begin(blocks);
    quantisePlane(from, quantiser, order, 0, first);
    if (second == nullptr)
        return;
    second->begin(blocks);
    quantisePlane(from, quantiser, order, tileBlocks, *second);
}

std::uint8_t *code(const Levels &levels, std::uint8_t *to)
{
    BitWriter writer(to);
    codeDc(writer, levels);
    for (int i = Levels::lead; i < Levels::lead + levels.count; ++i)
        codeLevel(writer, levels, i);
    return writer.end();
}

constexpr Kernels portable = {"portable", transform, quantise, code};

} // namespace

const Kernels &portableKernels()
{
    return portable;
}

const Kernels &bestKernels()
{
    if (const Kernels *kernels = avx512Kernels())
        return *kernels;
    if (const Kernels *kernels = avx2Kernels())
        return *kernels;
    return portable;
}

} // namespace prores
