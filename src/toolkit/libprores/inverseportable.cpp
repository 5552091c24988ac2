#include "libprores/inverse.h"

#include <algorithm>

// The portable path: plain loops over lanes, the definition of what the others compute. A lane is a block in coding
// order.

namespace prores {

namespace {

using Lanes = std::int16_t[mostBlocks];

// Sums may leave 32 bits when the stream is not an encoder's; they wrap then, as vectors do.
std::int16_t shifted(std::uint32_t sum, int shift)
{
    return static_cast<std::int16_t>(std::clamp(static_cast<std::int32_t>(sum) >> shift, -32768, 32767));
}

template <int Count = 4>
std::uint32_t product(const short *weights, const std::int16_t *inputs, int step)
{
    std::uint32_t sum = 0;
    for (int i = 0; i < Count; ++i)
        sum += static_cast<std::uint32_t>(std::int32_t {weights[i]} * std::int32_t {inputs[i * step]});
    return sum;
}

// Where all after the first \a Inputs are 0.
template <std::ptrdiff_t Step, std::uint32_t Rounding, int Shift, int Inputs>
void inverseEight(Lanes *rows)
{
    for (int lane = 0; lane < mostBlocks; ++lane) {
        std::int16_t x[Inputs];
        for (int i = 0; i < Inputs; ++i)
            x[i] = rows[i * Step][lane];
        for (int k = 0; k < 4; ++k) {
            const std::uint32_t even = product<Inputs / 2>(inverseEven[k], x, 2) + Rounding;
            const std::uint32_t odd = product<Inputs / 2>(inverseOdd[k], x + 1, 2);
            rows[k * Step][lane] = shifted(even + odd, Shift);
            rows[(7 - k) * Step][lane] = shifted(even - odd, Shift);
        }
    }
}

// The even part of the eight-point one on the four lowest coefficients.
template <std::ptrdiff_t Step, std::uint32_t Rounding, int Shift>
void inverseFour(Lanes *rows)
{
    for (int lane = 0; lane < mostBlocks; ++lane) {
        std::int16_t x[4];
        for (int i = 0; i < 4; ++i)
            x[i] = rows[i * Step][lane];
        for (int k = 0; k < 4; ++k)
            rows[k * Step][lane] = shifted(product(inverseEven[k], x, 1) + Rounding, Shift);
    }
}

// The size x size lowest coefficients, row by row.
void dequantise(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions, int size,
                Lanes *to)
{
    for (int i = 0; i < size * size; ++i) {
        const int k = positions[static_cast<std::size_t>(i / size * 8 + i % size)];
        if (k >= from.positions) {
            std::fill_n(to[i], mostBlocks, std::int16_t {0});
            continue;
        }
        const int scale = dequantiser.scale[k];
        for (int tile = 0; tile < 2; ++tile) {
            const std::int16_t *levels = from.tile[tile] + k * from.stride;
            for (int block = 0; block < tileBlocks; ++block)
                to[i][tile * tileBlocks + block] = static_cast<std::int16_t>(levels[block] * scale);
        }
    }
}

bool isAllZero(const Lanes *rows, int count)
{
    int any = 0;
    for (int i = 0; i < count; ++i) {
        for (int lane = 0; lane < mostBlocks; ++lane)
            any |= rows[i][lane];
    }
    return any == 0;
}

void addMiddle(Lanes &row)
{
    for (std::int16_t &value : row)
        value = static_cast<std::int16_t>(value + inverseMiddle);
}

template <int Size>
void put(Lanes *rows, Order order, const SampleTiles &to)
{
    for (int i = 0; i < Size * Size; ++i) {
        for (std::int16_t &sample : rows[i])
            sample = std::clamp<std::int16_t>(sample, leastSample, largestSample);
    }
    for (int lane = 0; lane < mostBlocks; ++lane) {
        const int block = lane % tileBlocks;
        const int column = order == Order::Columns ? block / 2 : block / 4 * 2 + block % 2;
        const int line = order == Order::Columns ? block % 2 : block / 2 % 2;
        std::uint16_t *at = to.tile[lane / tileBlocks] + line * Size * to.stride + column * Size;
        for (int y = 0; y < Size; ++y, at += to.stride) {
            for (int x = 0; x < Size; ++x)
                at[x] = static_cast<std::uint16_t>(rows[y * Size + x][lane]);
        }
    }
}

void full(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions, Order order,
          const SampleTiles &to)
{
    Lanes rows[64];
    dequantise(from, dequantiser, positions, 8, rows);
    bool isLow = true; // the lower four rows are 0
    for (int y = 0; y < 8; ++y) {
        Lanes *row = rows + y * 8;
        if (!isAllZero(row + 4, 4))
            inverseEight<1, inverseRowRounding, inverseRowShift, 8>(row);
        else if (!isAllZero(row, 4))
            inverseEight<1, inverseRowRounding, inverseRowShift, 4>(row);
        else
            continue;
        isLow = y < 4;
    }
    for (int x = 0; x < 8; ++x) {
        addMiddle(rows[x]);
        if (isLow)
            inverseEight<8, 0, inverseColumnShift, 4>(rows + x);
        else
            inverseEight<8, 0, inverseColumnShift, 8>(rows + x);
    }
    put<8>(rows, order, to);
}

void half(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions, Order order,
          const SampleTiles &to)
{
    Lanes rows[16];
    dequantise(from, dequantiser, positions, 4, rows);
    for (int y = 0; y < 4; ++y)
        inverseFour<1, inverseRowRounding, inverseRowShift>(rows + y * 4);
    for (int x = 0; x < 4; ++x) {
        addMiddle(rows[x]);
        inverseFour<4, 0, inverseColumnShift>(rows + x);
    }
    put<4>(rows, order, to);
}

// Two points are a sum and a difference, one is the mean; neither needs a rounding in between.
constexpr int meanShift = 5;
constexpr int meanMiddle = (512 << meanShift) + (1 << (meanShift - 1));

void quarter(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions, Order order,
             const SampleTiles &to)
{
    Lanes rows[4];
    dequantise(from, dequantiser, positions, 2, rows);
    for (int lane = 0; lane < mostBlocks; ++lane) {
        const int left = rows[0][lane] + rows[2][lane]; // summed down the columns
        const int leftLow = rows[0][lane] - rows[2][lane];
        const int right = rows[1][lane] + rows[3][lane];
        const int rightLow = rows[1][lane] - rows[3][lane];
        const int sums[4] = {left + right, left - right, leftLow + rightLow, leftLow - rightLow};
        for (int i = 0; i < 4; ++i)
            rows[i][lane] = static_cast<std::int16_t>((sums[i] + meanMiddle) >> meanShift);
    }
    put<2>(rows, order, to);
}

void eighth(const LevelTiles &from, const Dequantiser &dequantiser, const ScanPositions &positions, Order order,
            const SampleTiles &to)
{
    Lanes rows[1];
    dequantise(from, dequantiser, positions, 1, rows);
    for (std::int16_t &value : rows[0])
        value = static_cast<std::int16_t>((value + meanMiddle) >> meanShift);
    put<1>(rows, order, to);
}

void publish()
{
}

constexpr InverseKernels portable = {"portable", false, full, half, quarter, eighth, publish};

} // namespace

const InverseKernels &portableInverse()
{
    return portable;
}

const InverseKernels &bestInverse()
{
    if (const InverseKernels *kernels = avx512Inverse())
        return *kernels;
    if (const InverseKernels *kernels = avx2Inverse())
        return *kernels;
    return portable;
}

} // namespace prores
