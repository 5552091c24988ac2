#include "libclip/movtables.h"

#include <algorithm>
#include <limits>
#include <span>

namespace clip {

namespace {

constexpr std::uint64_t max32 = std::numeric_limits<std::uint32_t>::max();

void writeTimes(BoxWriter &writer, std::uint64_t samples, std::uint32_t duration)
{
    writer.full("stts", 0, 0, [&] {
        writer.u32(samples > 0 ? 1 : 0);
        if (samples > 0) {
            writer.u32(std::uint32_t(samples)).u32(duration);
        }
    });
}

/// Chunk offsets and the runs of chunks with the same number of samples.
void writeChunks(BoxWriter &writer, std::span<const Chunk> chunks)
{
    std::vector<std::size_t> runs;
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        if (i == 0 || chunks[i].samples != chunks[i - 1].samples) {
            runs.push_back(i);
        }
    }
    writer.full("stsc", 0, 0, [&] {
        writer.u32(std::uint32_t(runs.size()));
        for (const std::size_t first : runs) {
            writer.u32(std::uint32_t(first + 1)).u32(chunks[first].samples).u32(1);
        }
    });
    writer.full("co64", 0, 0, [&] {
        writer.u32(std::uint32_t(chunks.size()));
        for (const Chunk &chunk : chunks) {
            writer.u64(chunk.offset);
        }
    });
}

void writeEqualSizes(BoxWriter &writer, std::uint32_t size, std::uint64_t samples)
{
    writer.full("stsz", 0, 0, [&] { writer.u32(size).u32(std::uint32_t(samples)); });
}

} // namespace

void writeEmptyTables(BoxWriter &writer)
{
    writer.full("stts", 0, 0, [&] { writer.u32(0); });
    writer.full("stsc", 0, 0, [&] { writer.u32(0); });
    writer.full("stsz", 0, 0, [&] { writer.u32(0).u32(0); });
    writer.full("stco", 0, 0, [&] { writer.u32(0); });
}

void writePictureTables(BoxWriter &writer, const MovieTables &tables, std::uint32_t duration)
{
    const auto &sizes = tables.pictureSizes;
    writeTimes(writer, sizes.size(), duration);
    if (!sizes.empty() && std::ranges::all_of(sizes, [&](auto size) { return size == sizes[0]; })) {
        writeEqualSizes(writer, sizes[0], sizes.size());
    } else {
        writer.full("stsz", 0, 0, [&] {
            writer.u32(0).u32(std::uint32_t(sizes.size()));
            for (const std::uint32_t size : sizes) {
                writer.u32(size);
            }
        });
    }
    writeChunks(writer, tables.pictureChunks);
}

void writeSoundTables(BoxWriter &writer, const MovieTables &tables, std::uint32_t block)
{
    writeTimes(writer, tables.soundSamples, 1);
    writeEqualSizes(writer, block, tables.soundSamples);
    writeChunks(writer, tables.soundChunks);
}

void writeTimecodeTables(BoxWriter &writer, const MovieTables &tables, std::uint64_t duration)
{
    std::vector<Chunk> chunks;
    if (tables.timecodeOffset != 0) {
        chunks.push_back({ tables.timecodeOffset, 1 });
    }
    writeTimes(writer, chunks.size(), std::uint32_t(std::min(duration, max32)));
    writeEqualSizes(writer, 4, chunks.size());
    writeChunks(writer, chunks);
}

} // namespace clip
