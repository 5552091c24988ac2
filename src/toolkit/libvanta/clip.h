#pragma once

#include <cstdint>
#include <string>

/// What can be done with a clip that a list shows.
enum class ClipState {
    Ready,     ///< it plays, also after an interrupted recording
    Recording, ///< somebody still writes it
    Bad,       ///< its file is no clip, torn beyond use, or was not read in time
    Missing,   ///< a play list names it and the medium has no such clip
};

/// One clip as the lists show it: its file name, its length and what the media header says.
class Clip
{
public:
    const std::string &getName() const { return _name; }
    int getFrameCount() const { return _frameCount; }
    void setName(const std::string &name) { _name = name; }
    void setFrameCount(int frames) { _frameCount = frames; }

    /// Directory of the medium that the clip lies on.
    const std::string &path() const { return _path; }
    void setPath(const std::string &path) { _path = path; }
    std::int64_t fileSize() const { return _fileSize; }
    void setFileSize(std::int64_t bytes) { _fileSize = bytes; }
    /// When the file was last written, since the epoch.
    std::int64_t modifiedNs() const { return _modifiedNs; }
    std::int64_t modified() const { return _modifiedNs / 1000000000; } ///< seconds
    void setModifiedNs(std::int64_t nanoseconds) { _modifiedNs = nanoseconds; }
    /// A few words for people: "1920x1080p25 ProRes 422", start timecode.
    const std::string &format() const { return _format; }
    void setFormat(const std::string &text) { _format = text; }
    const std::string &timecode() const { return _timecode; }
    void setTimecode(const std::string &text) { _timecode = text; }
    ClipState state() const { return _state; }
    void setState(ClipState state) { _state = state; }
    /// True for what can be played to its end: false while it is recorded, when it is bad or missing.
    bool isComplete() const { return _state == ClipState::Ready; }
    void setComplete(bool on) { _state = on ? ClipState::Ready : ClipState::Recording; }
    bool operator==(const Clip &) const = default;

private:
    std::string _name;
    std::string _path;
    std::string _format;
    std::string _timecode;
    std::int64_t _fileSize = 0;
    std::int64_t _modifiedNs = 0;
    int _frameCount = 0;
    ClipState _state = ClipState::Ready;
};
