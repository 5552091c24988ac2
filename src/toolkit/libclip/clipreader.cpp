#include "libclip/clipreader.h"

#include "libclip/clipsound.h"
#include "libclip/movindex.h"
#include "libclip/rawfile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <numeric>

namespace clip {

namespace {

constexpr int maxRateTerm = 1'000'000;
constexpr std::int64_t maxFps = 1000;
constexpr int maxMergedChannels = 8;

struct Rate
{
    int num = 0;
    int den = 0;
};

/// The exact rates that whole hundredths and thousandths stand for.
constexpr Rate exactRates[] = {
    { 24000, 1001 }, { 30000, 1001 }, { 48000, 1001 }, { 60000, 1001 },
};

/// A rate of the file in lowest terms; nothing when it is not one a clip can have.
Rate rateOf(std::uint32_t timeScale, std::uint32_t duration)
{
    if (timeScale == 0 || duration == 0) {
        return { };
    }
    const std::uint32_t divisor = std::gcd(timeScale, duration);
    const std::uint32_t num = timeScale / divisor;
    const std::uint32_t den = duration / divisor;
    if (den != 1 && den != 1001) {
        const double value = double(num) / double(den);
        for (const Rate &rate : exactRates) {
            const double exact = double(rate.num) / rate.den;
            if (std::abs(value - exact) < exact * 0.0003) {
                return rate;
            }
        }
    }
    if (num > std::uint32_t(maxRateTerm) || den > num || num > maxFps * den) {
        return { };
    }
    return { int(num), int(den) };
}

/// Sets the scan from the first picture where the description does not state it.
void scanFromPicture(std::span<const std::byte> picture, VideoFormat &video)
{
    BoxCursor cursor(picture);
    if (video.codec == Codec::DnxHqx) {
        const bool isDnx = cursor.u32() == 0x00000280;
        cursor.skip(1);
        const std::uint32_t field = cursor.u8();
        if (isDnx && !cursor.failed() && (field & 2)) {
            video.scan = Scan::Interlaced;
            video.topFieldFirst = (field & 1) == 0;
        }
        return;
    }
    cursor.skip(4);
    const bool isProRes = cursor.u32() == fourcc("icpf");
    cursor.skip(12);
    const std::uint32_t mode = cursor.u8() >> 2 & 3;
    if (isProRes && !cursor.failed() && (mode == 1 || mode == 2)) {
        video.scan = Scan::Interlaced;
        video.topFieldFirst = mode == 1;
    }
}

} // namespace

struct ClipReader::Private
{
    RawFile file;
    MovIndex index;
    ClipInfo info;
    const MovTrack *video = nullptr;
    std::size_t firstPicture = 0;
    std::vector<SoundSource> sounds;

    Error load();
    Error loadTracks();
    bool loadAnew();
    Error loadVideo();
    std::int64_t framesNow() const;
    void loadSound();
    void loadTimecode();
    bool has(std::int64_t frame) const { return frame >= 0 && frame < info.frames; }
};

ClipReader::ClipReader() : _d(std::make_unique<Private>())
{
}

ClipReader::~ClipReader() = default;

Error ClipReader::open(const std::string &path)
{
    close();
    const Error error = _d->file.openToRead(path);
    return error ? error : load();
}

Error ClipReader::open(int descriptor)
{
    close();
    const Error error = _d->file.adoptToRead(descriptor);
    return error ? error : load();
}

Error ClipReader::load()
{
    Error error = _d->load();
    if (error) {
        close();
    }
    return error;
}

void ClipReader::close()
{
    _d = std::make_unique<Private>();
}

bool ClipReader::isOpen() const
{
    return _d->file.isOpen();
}

const ClipInfo &ClipReader::info() const
{
    return _d->info;
}

Error ClipReader::Private::load()
{
    if (const Error error = readIndex(file, index)) {
        return error;
    }
    return loadTracks();
}

Error ClipReader::Private::loadTracks()
{
    info = { };
    if (const Error error = loadVideo()) {
        return error;
    }
    loadSound();
    loadTimecode();
    info.isComplete = !index.isFragmented;
    for (const MovTrack &track : index.tracks) {
        info.isComplete = info.isComplete && !track.isCut;
    }
    return { };
}

/// Takes over the index of a clip that was closed, unless it is worse than what is known.
bool ClipReader::Private::loadAnew()
{
    MovIndex other;
    const std::int64_t frames = info.frames;
    if (readIndex(file, other)) {
        return false;
    }
    std::swap(index, other);
    if (!loadTracks() && info.frames >= frames) {
        return true;
    }
    std::swap(index, other);
    (void)loadTracks();
    return false;
}

bool ClipReader::lookAgain()
{
    Private &d = *_d;
    if (!isOpen() || !d.index.isFragmented) {
        return false;
    }
    const std::int64_t frames = d.info.frames;
    const bool isClosed = readMore(d.file, d.index);
    d.info.frames = d.framesNow();
    return (isClosed && d.loadAnew()) || d.info.frames != frames;
}

Error ClipReader::Private::loadVideo()
{
    video = index.first(MovTrack::Kind::Video);
    if (!video || video->video.codec == Codec::Unknown || video->video.width < 1
        || video->video.height < 1) {
        return systemError(EINVAL, "open clip: no video of a known kind");
    }
    const Rate rate = rateOf(video->timeScale, video->durations.duration);
    const std::uint32_t duration = std::max(1u, video->durations.duration);
    const std::uint64_t skipped = std::uint64_t(video->start) / duration;
    if (rate.num == 0 || skipped >= video->offsets.size()) {
        return systemError(EINVAL, "open clip: no frame");
    }
    firstPicture = std::size_t(skipped);
    info.frames = framesNow();
    info.video = video->video;
    info.video.rateNum = rate.num;
    info.video.rateDen = rate.den;
    if (!video->hasFields) {
        std::array<std::byte, 64> start { };
        const std::size_t length = std::min<std::size_t>(start.size(), video->sizes[firstPicture]);
        const auto bytes = std::span(start).first(length);
        if (!file.readAt(video->offsets[firstPicture], bytes)) {
            scanFromPicture(bytes, info.video);
        }
    }
    if (index.isSegmented && info.video.scan == Scan::Progressive) {
        info.video.scan = Scan::Segmented;
    }
    return { };
}

/// Those from the first that is shown to the last that is: a clip may be cut without its pictures being so.
std::int64_t ClipReader::Private::framesNow() const
{
    const auto held = std::int64_t(video->offsets.size() - firstPicture);
    if (video->shown == 0 || index.timeScale == 0 || index.isFragmented) {
        return held;
    }
    // The length stands in units of the movie, which may be coarse: the nearest whole frame is meant.
    const double seconds = double(video->shown) / index.timeScale;
    const double frames = std::round(seconds * video->timeScale / std::max(1u, video->durations.duration));
    return frames >= 1 && frames < double(held) ? std::int64_t(frames) : held;
}

/// The first usable track gives the sound; when it is mono, the mono tracks after it are its other
/// channels.
void ClipReader::Private::loadSound()
{
    sounds.clear();
    int channels = 0;
    for (const MovTrack &track : index.tracks) {
        if (track.kind != MovTrack::Kind::Sound || track.soundBlock() == 0) {
            continue;
        }
        const bool isFirst = sounds.empty();
        if (!isFirst && (track.channels != 1 || channels >= maxMergedChannels)) {
            continue;
        }
        sounds.emplace_back(track, index.timeScale);
        channels += track.channels;
        if (isFirst && track.channels != 1) {
            break;
        }
    }
    if (channels > 0) {
        info.audio = AudioFormat { channels, 48000 };
    }
}

void ClipReader::Private::loadTimecode()
{
    info.reel = index.reel;
    const MovTrack *track = index.first(MovTrack::Kind::Timecode);
    if (!track || track->timecode.fps == 0) {
        return;
    }
    info.reel = track->reel;
    std::array<std::byte, 4> sample { };
    if (track->offsets.empty() || track->sizes[0] < sample.size()
        || file.readAt(track->offsets[0], sample)) {
        return;
    }
    info.timecode = track->timecode;
    info.timecode->frameCount = BoxCursor(sample).u32();
}

std::size_t ClipReader::pictureSize(std::int64_t frame) const
{
    return _d->has(frame) ? _d->video->sizes[_d->firstPicture + std::size_t(frame)] : 0;
}

Error ClipReader::readPicture(std::int64_t frame, std::span<std::byte> out) const
{
    if (!_d->has(frame) || out.size() != pictureSize(frame)) {
        return systemError(EINVAL, "read picture");
    }
    return _d->file.readAt(_d->video->offsets[_d->firstPicture + std::size_t(frame)], out);
}

Error ClipReader::readSound(std::int64_t frame, std::vector<std::byte> &out) const
{
    out.clear();
    if (!_d->has(frame)) {
        return systemError(EINVAL, "read sound");
    }
    if (!_d->info.audio) {
        return { };
    }
    const AudioFormat &audio = *_d->info.audio;
    const std::int64_t from = samplesBeforeFrame(frame, _d->info.video, audio.sampleRate);
    const std::int64_t to = samplesBeforeFrame(frame + 1, _d->info.video, audio.sampleRate);
    std::int64_t end = 0;
    for (const SoundSource &source : _d->sounds) {
        end = std::max(end, std::min(to, source.end()));
    }
    if (end <= from) {
        return { };
    }
    out.resize(std::size_t(end - from) * std::size_t(audio.channels) * 3);
    int channel = 0;
    for (const SoundSource &source : _d->sounds) {
        if (const Error error = source.read(_d->file, from, end - from, channel, audio.channels, out)) {
            out.clear();
            return error;
        }
        channel += source.channels();
    }
    return { };
}

} // namespace clip
