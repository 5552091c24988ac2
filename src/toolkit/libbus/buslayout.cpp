#include "libbus/buslayout.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bus {

void describe(Header &header)
{
    header.version = busVersion;
    header.headerBytes = sizeof(Header);
    header.objectBytes = objectBytes;
    header.slotBytes = slotBytes;
    header.ringSlots = slotCount;
    header.pictureOffset = pictureOffset;
    header.audioOffset = audioOffset;
}

bool isOurs(const Header &header)
{
    return header.magic == busMagic && header.version == busVersion
           && header.headerBytes == sizeof(Header) && header.objectBytes == objectBytes
           && header.slotBytes == slotBytes && header.ringSlots == slotCount
           && header.pictureOffset == pictureOffset && header.audioOffset == audioOffset;
}

bool fits(const Format &format)
{
    return format.isValid() && format.width <= maxWidth && format.width % 2 == 0
           && format.height <= maxHeight && format.scanMode >= 0 && format.scanMode <= 2
           && format.audioChannels >= 0 && format.audioChannels <= maxChannels;
}

bool isSound(const Record &record)
{
    Format format;
    format.width = record.width;
    format.height = record.height;
    format.rateNum = record.rateNum;
    format.rateDen = record.rateDen;
    format.scanMode = record.scanMode;
    format.audioChannels = record.audioChannels;
    return fits(format) && record.samples >= 0 && record.samples <= maxSamples
           && record.content <= static_cast<std::uint32_t>(Content::Black)
           && std::memchr(record.clip, 0, sizeof record.clip) != nullptr;
}

Record recordOf(const Format &format, const FrameInfo &info)
{
    Record record {};
    record.sequence = info.sequence;
    record.timeNs = info.timeNs;
    record.frameNumber = info.frameNumber;
    record.width = format.width;
    record.height = format.height;
    record.rateNum = format.rateNum;
    record.rateDen = format.rateDen;
    record.scanMode = format.scanMode;
    record.audioChannels = format.audioChannels;
    record.content = static_cast<std::uint32_t>(info.content);
    record.samples = std::clamp(info.samples, 0, maxSamples);
    record.tcHour = info.tcHour;
    record.tcMin = info.tcMin;
    record.tcSec = info.tcSec;
    record.tcFrame = info.tcFrame;
    record.tcFps = info.tcFps;
    record.tcFlags = info.tcFlags;
    record.recordFlag = info.recordFlag ? 1 : 0;
    const std::size_t length = std::min(info.clip.size(), sizeof record.clip - 1);
    std::copy_n(info.clip.data(), length, record.clip);
    return record;
}

void takeRecord(const Record &record, Format &format, FrameInfo &info)
{
    format.width = record.width;
    format.height = record.height;
    format.rateNum = record.rateNum;
    format.rateDen = record.rateDen;
    format.scanMode = record.scanMode;
    format.audioChannels = record.audioChannels;
    info.sequence = record.sequence;
    info.timeNs = record.timeNs;
    info.content = static_cast<Content>(record.content);
    info.frameNumber = record.frameNumber;
    info.tcHour = static_cast<std::int8_t>(record.tcHour);
    info.tcMin = static_cast<std::int8_t>(record.tcMin);
    info.tcSec = static_cast<std::int8_t>(record.tcSec);
    info.tcFrame = static_cast<std::int8_t>(record.tcFrame);
    info.tcFps = static_cast<std::int16_t>(record.tcFps);
    info.tcFlags = static_cast<std::uint16_t>(record.tcFlags);
    info.recordFlag = record.recordFlag != 0;
    info.samples = record.audioChannels == 0 ? 0 : record.samples;
    info.clip = record.clip;
}

std::int64_t monotonicNs()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// The thread sanitizer does not know fences and says so; what they order lies in memory shared with
// other processes, which it does not watch either.
#if defined(__SANITIZE_THREAD__) && defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wtsan"
#endif

void orderWrites()
{
    std::atomic_thread_fence(std::memory_order_release);
}

void orderReads()
{
    std::atomic_thread_fence(std::memory_order_acquire);
}

#if defined(SYS_futex)
constexpr long futexCall = SYS_futex;
#else
constexpr long futexCall = SYS_futex_time64; // 32-bit machines born after 2038 became a concern
#endif

bool waitOnWord(const std::atomic<std::uint32_t> *word, std::uint32_t seen, int timeoutMs)
{
    struct KernelTime {
        long seconds;
        long nanoseconds;
    };
#if defined(SYS_futex)
    const KernelTime timeout = {timeoutMs / 1000, timeoutMs % 1000 * 1'000'000L};
#else
    const timespec timeout = {timeoutMs / 1000, timeoutMs % 1000 * 1'000'000L};
#endif
    const long result = syscall(futexCall, word, FUTEX_WAIT, seen, &timeout, nullptr, 0);
    return result == 0 || errno == EAGAIN || errno == EINTR || errno == ETIMEDOUT;
}

void wakeWord(const std::atomic<std::uint32_t> *word)
{
    syscall(futexCall, word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace bus
