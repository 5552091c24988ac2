#include "libvanta/cliprecord.h"

#include "clipcache.pb.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

constexpr std::size_t longestName = 255;
constexpr std::size_t longestPath = 4096;
constexpr std::size_t longestText = 255;
constexpr auto lastState = static_cast<std::uint32_t>(ClipState::Missing);

bool isText(const std::string &text, std::size_t longest)
{
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    return text.size() <= longest && std::ranges::none_of(text, isControl);
}

/// False, and \a clip untouched, for what no clip can be.
bool readRecord(const lumo::media::ClipRecord &record, Clip &clip)
{
    const bool isPlausible = !record.name().empty() && isText(record.name(), longestName) &&
        record.name().find('/') == std::string::npos && isText(record.path(), longestPath) &&
        isText(record.format(), longestText) && isText(record.timecode(), longestText) &&
        record.frames() >= 0 && record.file_size() >= 0 && record.state() <= lastState;
    if (!isPlausible)
        return false;
    clip = Clip();
    clip.setName(record.name());
    clip.setPath(record.path());
    clip.setFrameCount(record.frames());
    clip.setFileSize(record.file_size());
    clip.setModifiedNs(record.modified_ns());
    clip.setFormat(record.format());
    clip.setTimecode(record.timecode());
    clip.setState(static_cast<ClipState>(record.state()));
    return true;
}

void fillRecord(const Clip &clip, lumo::media::ClipRecord &record)
{
    record.set_name(clip.getName());
    record.set_path(clip.path());
    record.set_frames(clip.getFrameCount());
    record.set_file_size(clip.fileSize());
    record.set_modified_ns(clip.modifiedNs());
    record.set_format(clip.format());
    record.set_timecode(clip.timecode());
    record.set_state(static_cast<std::uint32_t>(clip.state()));
}

} // namespace

std::string lumo::media::recordOf(const Clip &clip)
{
    ClipRecord record;
    fillRecord(clip, record);
    return record.SerializeAsString();
}

bool lumo::media::clipOf(const std::string &record, Clip &clip)
{
    ClipRecord message;
    return message.ParseFromString(record) && readRecord(message, clip);
}

std::string lumo::media::listRecordOf(const std::list<Clip> &clips)
{
    ClipList list;
    for (const Clip &clip : clips)
        fillRecord(clip, *list.add_clip());
    return list.SerializeAsString();
}

bool lumo::media::clipListOf(const std::string &record, std::list<Clip> &clips)
{
    ClipList list;
    if (record.size() > std::numeric_limits<int>::max() || !list.ParseFromString(record))
        return false;
    std::list<Clip> read;
    for (const ClipRecord &clip : list.clip()) {
        if (!readRecord(clip, read.emplace_back()))
            return false;
    }
    clips = std::move(read);
    return true;
}
