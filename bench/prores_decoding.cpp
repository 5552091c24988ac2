#include "prores_clips.h"
#include "prores_ffmpeg.h"

#include "libprores/decoder.h"
#include "libprores/encoder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <thread>

// prores_decoding [WIDTH HEIGHT [PICTURES]]: what decoding costs on each path and at each size, in processor time of
// one core, beside FFmpeg's decoder on one thread.

namespace {

using namespace prores;
using Frames = std::vector<std::vector<std::uint8_t>>;

constexpr int rounds = 5; // the best counts, as others use the machine too

double seconds(clockid_t clock)
{
    timespec time {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

Frames coded(Clip &clip, Profile profile, int index)
{
    Format format;
    format.profile = profile;
    format.width = clip.width;
    format.height = clip.height;
    format.rateNumerator = 25;
    Settings settings;
    settings.index = index;
    Encoder encoder(format, settings);
    Frames frames;
    for (std::size_t i = 0; i < clip.frames.size(); ++i) {
        const picture::View view = clip.view(i);
        Picture picture;
        for (int p = 0; p < 3; ++p) {
            picture.plane[p] = view.plane[p];
            picture.stride[p] = view.stride[p];
        }
        std::vector<std::uint8_t> bytes(encoder.room());
        bytes.resize(encoder.encode(picture, bytes.data(), bytes.size()).bytes);
        frames.push_back(std::move(bytes));
    }
    return frames;
}

// Lines on borders of 64 bytes, as raw pictures have them and FFmpeg's own.
struct Memory {
    std::unique_ptr<std::uint16_t, decltype(&std::free)> samples {nullptr, &std::free};
    DecodedPicture picture;

    Memory(const FrameInfo &info, Reduction reduction)
    {
        constexpr int border = 64;
        picture.width = info.planeWidth(0, reduction);
        picture.height = info.planeHeight(reduction);
        picture.is444 = info.is444;
        const int stride = (picture.width + border - 1) / border * border;
        const auto plane = static_cast<std::size_t>(stride) * static_cast<std::size_t>(picture.height);
        samples.reset(static_cast<std::uint16_t *>(std::aligned_alloc(border, plane * 3 * sizeof(std::uint16_t))));
        std::fill_n(samples.get(), plane * 3, std::uint16_t {0});
        for (std::size_t p = 0; p < 3; ++p) {
            picture.plane[p] = samples.get() + plane * p;
            picture.stride[p] = p == 0 ? stride : stride / 2;
        }
    }
};

// Seconds a frame.
double measure(const Frames &frames, const DecoderSettings &settings, Workers *workers, const char **path)
{
    Decoder decoder(settings, workers);
    if (path != nullptr)
        *path = decoder.pathName();
    const FrameInfo info = readFrameInfo(frames[0].data(), frames[0].size()).value();
    std::vector<Memory> memory; // as a player has them, beyond the caches
    for (int i = 0; i < 3; ++i)
        memory.emplace_back(info, settings.reduction);
    const clockid_t clock = workers != nullptr ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID;
    double best = 1e9;
    std::size_t next = 0;
    for (int round = 0; round < rounds; ++round) {
        const double begun = seconds(clock);
        for (const auto &frame : frames) {
            if (!decoder.decode(frame.data(), frame.size(), memory[next++ % 3].picture).isSound())
                return -1;
        }
        best = std::min(best, seconds(clock) - begun);
    }
    return best / static_cast<double>(frames.size());
}

double measureFfmpeg(const Frames &frames, int width, int height)
{
    const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_PRORES);
    AVCodecContext *context = avcodec_alloc_context3(codec);
    context->width = width;
    context->height = height;
    context->codec_tag = MKTAG('a', 'p', 'c', 'h');
    context->thread_count = 1;
    avcodec_open2(context, codec, nullptr);
    AVFrame *frame = av_frame_alloc();
    std::vector<AVPacket *> packets;
    for (const auto &bytes : frames) {
        packets.push_back(av_packet_alloc());
        av_new_packet(packets.back(), static_cast<int>(bytes.size()));
        std::memcpy(packets.back()->data, bytes.data(), bytes.size());
    }
    double best = 1e9;
    for (int round = 0; round < rounds; ++round) {
        const double begun = seconds(CLOCK_THREAD_CPUTIME_ID);
        for (AVPacket *packet : packets) {
            if (avcodec_send_packet(context, packet) != 0 || avcodec_receive_frame(context, frame) != 0)
                return -1;
        }
        best = std::min(best, seconds(CLOCK_THREAD_CPUTIME_ID) - begun);
    }
    for (AVPacket *packet : packets)
        av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return best / static_cast<double>(frames.size());
}

void printRow(const char *clip, const char *what, double time, double theirs)
{
    std::printf("  %-9s %-28s %8.1f fps  %5.1fx\n", clip, what, 1 / time, theirs / time);
    std::fflush(stdout);
}

void measureClip(const char *name, Clip &clip, Profile profile, int index)
{
    const Frames frames = coded(clip, profile, index);
    std::size_t bytes = 0;
    for (const auto &frame : frames)
        bytes += frame.size();
    char what[64];
    constexpr const char *profileNames[] = {"Proxy", "LT", "422", "HQ"};
    const char *profileName = profileNames[static_cast<int>(profile)];
    if (index == 0)
        std::snprintf(what, sizeof what, "%s, usual size", profileName);
    else
        std::snprintf(what, sizeof what, "%s, index %d", profileName, index);
    std::printf("  %-9s %s: %zu bytes a frame\n", name, what, bytes / frames.size());
    const double theirs = measureFfmpeg(frames, clip.width, clip.height);
    printRow(name, "FFmpeg, 1 thread", theirs, theirs);
    for (const Path path : {Path::Portable, Path::Avx2, Path::Avx512}) {
        DecoderSettings settings;
        settings.path = path;
        const char *used = "";
        const double time = measure(frames, settings, nullptr, &used);
        if (path == Path::Portable || std::strcmp(used, "portable") != 0)
            printRow(name, used, time, theirs);
    }
    for (const auto &[reduction, text] : {std::pair {Reduction::Half, "1/2 size"}, {Reduction::Quarter, "1/4 size"},
                                          {Reduction::Eighth, "1/8 size"}}) {
        DecoderSettings settings;
        settings.reduction = reduction;
        printRow(name, text, measure(frames, settings, nullptr, nullptr), theirs);
    }
    ThreadPool pool(std::max(static_cast<int>(std::thread::hardware_concurrency()), 1));
    std::snprintf(what, sizeof what, "all %d cores together", pool.count());
    printRow(name, what, measure(frames, {}, &pool, nullptr), theirs);
}

} // namespace

int main(int argc, char **argv)
{
    const int width = argc > 2 ? std::atoi(argv[1]) : 1920;
    const int height = argc > 2 ? std::atoi(argv[2]) : 1080;
    const int count = argc > 3 ? std::atoi(argv[3]) : 6;
    if (width < 256 || height < 120 || width % 4 != 0 || count < 1)
        return 1;
    std::printf("Decoding ProRes 422, %dx%d, %d pictures, one core\n", width, height, count);
    Clip natural = NaturalClip::make(width, height, count);
    measureClip("natural", natural, Profile::Hq, 0);
    measureClip("natural", natural, Profile::Hq, 5);
    measureClip("natural", natural, Profile::Standard, 0);
    measureClip("natural", natural, Profile::Lt, 0);
    measureClip("natural", natural, Profile::Proxy, 0);
    Clip card = cardClip(width, height, count);
    measureClip("card", card, Profile::Hq, 0);
    measureClip("card", card, Profile::Proxy, 0);
    return 0;
}
