#pragma once

#include <cstdint>
#include <string>

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
    /// Seconds since the epoch when the file was last written.
    std::int64_t modified() const { return _modified; }
    void setModified(std::int64_t seconds) { _modified = seconds; }
    /// A few words for people: "1920x1080p25 ProRes 422", start timecode.
    const std::string &format() const { return _format; }
    void setFormat(const std::string &text) { _format = text; }
    const std::string &timecode() const { return _timecode; }
    void setTimecode(const std::string &text) { _timecode = text; }
    /// False while it is being recorded or after a crash.
    bool isComplete() const { return _complete; }
    void setComplete(bool on) { _complete = on; }
    bool operator==(const Clip &) const = default;

private:
    std::string _name;
    std::string _path;
    std::string _format;
    std::string _timecode;
    std::int64_t _fileSize = 0;
    std::int64_t _modified = 0;
    int _frameCount = 0;
    bool _complete = true;
};
