#pragma once

#include "libbus/bus.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace bus {

// What stands in the shared memory of a bus: a header, then the slots. Words are in the machine's
// own order and the magic number tells a foreign one; every size is stated, so that another layout
// is refused.
//
// Frame s is written to slot s modulo slotCount. A slot's stamps tell whether it is whole:
//   writer: begin = s; picture, audio, record; end = s; then published = s, and readers are woken
//   reader: begin and end must be s before the copy, and still be s after it
// Stamps and `published` are the low 32 bits of the sequence number, stored in one go everywhere;
// the record inside the slot carries all 64. No frame has number 0: fresh memory is no frame.

constexpr std::uint64_t busMagic = 0x3130'7375'4276'5211ULL;
constexpr std::uint32_t busVersion = 1;

struct Header {
    std::uint64_t magic;                   ///< written last
    std::uint32_t version;
    std::uint32_t headerBytes;
    std::uint64_t objectBytes;
    std::uint64_t slotBytes;
    std::uint32_t ringSlots;
    std::uint32_t pictureOffset;           ///< within a slot
    std::uint64_t audioOffset;             ///< within a slot
    std::uint64_t sequence;                ///< the writer's own count, for the next writer
    std::atomic<std::uint32_t> generation; ///< counts writers
    std::atomic<std::uint32_t> published;  ///< the newest frame; readers wait on this word
};

/// FrameInfo and Format as they stand in a slot.
struct Record {
    std::uint64_t sequence;
    std::int64_t timeNs;      ///< due, CLOCK_MONOTONIC
    std::int64_t publishedNs; ///< published, CLOCK_MONOTONIC
    std::int64_t frameNumber;
    std::int32_t width, height;
    std::int32_t rateNum, rateDen;
    std::int32_t scanMode;
    std::int32_t audioChannels;
    std::uint32_t content;
    std::int32_t samples;
    std::int32_t tcHour, tcMin, tcSec, tcFrame;
    std::int32_t tcFps;
    std::uint32_t tcFlags;
    std::uint32_t recordFlag;
    std::uint32_t reserved;
    char clip[64];            ///< ends with a zero byte
};

struct SlotHeader {
    std::atomic<std::uint32_t> begin;
    std::atomic<std::uint32_t> end;
    Record record;
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "processes share these words");
static_assert(sizeof(std::atomic<std::uint32_t>) == 4);
static_assert(sizeof(Header) == 64);
static_assert(sizeof(SlotHeader) == 168);

constexpr std::size_t blockBytes = 4096;

constexpr std::size_t roundUp(std::size_t bytes)
{
    return (bytes + blockBytes - 1) / blockBytes * blockBytes;
}

constexpr std::size_t headerSpace = blockBytes;
constexpr std::size_t pictureOffset = blockBytes;
constexpr std::size_t pictureSpace = roundUp(picture::bytesFor(maxWidth, maxHeight));
constexpr std::size_t audioOffset = pictureOffset + pictureSpace;
constexpr std::size_t audioSpace = roundUp(std::size_t {maxSamples} * maxChannels * 3);
constexpr std::size_t slotBytes = audioOffset + audioSpace;
constexpr std::size_t objectBytes = headerSpace + slotBytes * slotCount;

constexpr std::size_t slotOffset(std::uint64_t sequence)
{
    return headerSpace + static_cast<std::size_t>(sequence % slotCount) * slotBytes;
}

constexpr std::uint32_t stampOf(std::uint64_t sequence)
{
    return static_cast<std::uint32_t>(sequence & 0xffff'ffffU);
}

/// True when the header, taken from memory that anyone may have written, describes this very
/// layout.
bool isOurs(const Header &header);
/// Fills everything that isOurs() looks at, except the magic number.
void describe(Header &header);

/// True when every value of the record is one that a frame can have.
bool isSound(const Record &record);
/// The record of a frame. Long clip names are cut, values beyond a field's range are limited.
Record recordOf(const Format &format, const FrameInfo &info);
/// The frame's format and information; \a record is sound.
void takeRecord(const Record &record, Format &format, FrameInfo &info);

/// True for formats that fit into a slot.
bool fits(const Format &format);

std::int64_t monotonicNs();

/// Keeps what was written before from passing what is written after, and the same for reading.
void orderWrites();
void orderReads();

/// Sleeps until \a word is no longer \a seen, someone wakes it, or \a timeoutMs have passed. Reads
/// the word only inside the kernel: memory that is no longer there answers at once with false.
bool waitOnWord(const std::atomic<std::uint32_t> *word, std::uint32_t seen, int timeoutMs);
/// Wakes everyone who waits on \a word, in every process.
void wakeWord(const std::atomic<std::uint32_t> *word);

} // namespace bus
