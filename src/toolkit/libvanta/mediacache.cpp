#include "libvanta/mediacache.h"

#include "libclip/clipreader.h"
#include "liborb/orbtimecode.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

struct CodecName {
    clip::Codec codec;
    const char *name;
};

constexpr CodecName codecNames[] = {
    {clip::Codec::ProRes422, "ProRes 422"},       {clip::Codec::ProRes422Hq, "ProRes 422 HQ"},
    {clip::Codec::ProRes422Lt, "ProRes 422 LT"},  {clip::Codec::ProRes422Proxy, "ProRes 422 Proxy"},
    {clip::Codec::ProRes4444, "ProRes 4444"},     {clip::Codec::DnxHqx, "DNxHR HQX"},
    {clip::Codec::V210, "Uncompressed 4:2:2 10 bit"},
};

std::string formatText(const clip::VideoFormat &video)
{
    const auto row = std::ranges::find(codecNames, video.codec, &CodecName::codec);
    const char *scan = video.scan == clip::Scan::Progressive  ? "p"
                       : video.scan == clip::Scan::Interlaced ? "i"
                                                              : "psf";
    char text[96];
    std::snprintf(text, sizeof text, "%dx%d%s%.4g %s", video.width, video.height, scan,
                  video.rateDen ? double(video.rateNum) / video.rateDen : 0.0,
                  row == std::end(codecNames) ? "" : row->name);
    return text;
}

} // namespace

lumo::media::MediaCache::MediaCache(const std::string &prefix)
    : _clips(prefix + "SharedClipCache", clipCacheSize),
      _playlist(prefix + "SharedPlaylistCache", playlistCacheSize)
{
}

bool lumo::media::MediaCache::GrokDescriptor(Clip &clip, int descriptor, bool completeOnly)
{
    clip::ClipReader reader;
    struct stat st = {};
    const bool isThere = fstat(descriptor, &st) == 0;
    if (reader.open(descriptor) || !isThere)
        return false;
    const clip::ClipInfo &info = reader.info();
    if (info.frames < 1 || info.frames > std::numeric_limits<int>::max() ||
        (completeOnly && !info.isComplete))
        return false;
    clip.setFrameCount(static_cast<int>(info.frames));
    clip.setFileSize(st.st_size);
    clip.setModifiedNs(st.st_mtim.tv_sec * std::int64_t(1000000000) + st.st_mtim.tv_nsec);
    clip.setFormat(formatText(info.video));
    clip.setComplete(info.isComplete);
    if (info.timecode) {
        const OrbTimecode start(static_cast<qint64>(info.timecode->frameCount), info.timecode->fps,
                                info.timecode->dropFrame);
        clip.setTimecode(start.toString().toStdString());
    }
    return true;
}

bool lumo::media::MediaCache::GrokClip(Clip &clip, std::string path, bool completeOnly)
{
    // Without O_NONBLOCK a named pipe would hold the thread for good.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0 || !GrokDescriptor(clip, descriptor, completeOnly))
        return false;
    const std::size_t slash = path.rfind('/');
    clip.setName(slash == std::string::npos ? path : path.substr(slash + 1));
    clip.setPath(slash == std::string::npos ? std::string() : path.substr(0, slash));
    return true;
}
