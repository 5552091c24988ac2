#include "liborb/drivers/software/decoder.h"
#include "liborb/drivers/software/encoder.h"
#include "liborb/drivers/software/pictureconverter.h"
#include "liborb/orb.h"
#include "libpicture/patterns.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

// coder_speed [WIDTH HEIGHT [PICTURES]]: milliseconds a picture of processor time on one worker, for the
// moving pattern and for the same with camera-like noise.

using namespace ferin;

namespace {

double processorMs()
{
    timespec time {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

void addNoise(const picture::View &view)
{
    std::minstd_rand random(5);
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < view.height; ++y) {
            for (int x = 0; x < (p == 0 ? view.width : view.width / 2); ++x) {
                const int is = view.line(p, y)[x] + static_cast<int>(random() % 13) - 6;
                view.line(p, y)[x] = static_cast<std::uint16_t>(is < 64 ? 64 : is);
            }
        }
    }
}

void measure(const OrbImageDesc &desc, const std::vector<RawPictureRef> &pictures, const char *content)
{
    EncoderPool coders(1);
    DecoderPool decoders(1);
    std::vector<OrbBuffer> coded;
    std::int64_t number = 0;
    coders.promise(pictures.front(), desc, number).wait(); // makes the coder, and finds the rate
    double begun = processorMs();
    double bytes = 0;
    for (const RawPictureRef &picture : pictures) {
        coded.push_back(coders.promise(picture, desc, ++number));
        if (!coded.back().wait())
            return;
        bytes += coded.back().size();
    }
    const auto count = static_cast<double>(pictures.size());
    const double codingMs = (processorMs() - begun) / count;
    decoders.decode(OrbImage(desc, coded.front()))->wait(60'000);
    begun = processorMs();
    for (const OrbBuffer &buffer : coded)
        decoders.decode(OrbImage(desc, buffer))->wait(60'000);
    std::printf("%-40s %-8s code %7.2f ms  decode %7.2f ms  %8.0f bytes\n", qPrintable(desc.toString()),
                content, codingMs, (processorMs() - begun) / count, bytes / count);
}

/// A live source's pictures on their way to raw ones.
void measureConversion(AVPixelFormat format, const char *name, bool interlaced, int width, int height)
{
    const FramePtr from(av_frame_alloc());
    from->width = width;
    from->height = height;
    from->format = format;
    if (av_frame_get_buffer(from.get(), 0) < 0)
        return;
    for (int p = 0; p < 4 && from->buf[p] != nullptr; ++p)
        std::fill_n(from->buf[p]->data, from->buf[p]->size, std::uint8_t {1});
    RawPicturePool pool(width, height, 1);
    const RawPictureRef to = pool.take();
    PictureConverter converter;
    converter.convert(*from, interlaced, to->view);
    constexpr int rounds = 20;
    const double begun = processorMs();
    for (int i = 0; i < rounds; ++i)
        converter.convert(*from, interlaced, to->view);
    std::printf("%-14s %-11s to raw %6.2f ms\n", name, interlaced ? "interlaced" : "progressive",
                (processorMs() - begun) / rounds);
}

} // namespace

int main(int argc, char **argv)
{
    Orb::init(0);
    const int width = argc > 2 ? std::atoi(argv[1]) : 1920;
    const int height = argc > 2 ? std::atoi(argv[2]) : 1080;
    const int count = argc > 3 ? std::atoi(argv[3]) : 10;
    if (width < 256 || height < 120 || count < 1)
        return 1;
    RawPicturePool pool(width, height, count);
    std::vector<RawPictureRef> pictures;
    const picture::MovingPattern pattern(width, height);
    for (int i = 0; i < count; ++i) {
        pictures.push_back(pool.take());
        if (!pictures.back())
            return 1;
        pattern.draw(pictures.back()->view, static_cast<std::uint32_t>(i));
    }
    for (const char *content : {"pattern", "noisy"}) {
        for (const OrbIdValue type : {OrbIdImageProRes422, OrbIdImageProRes422Hq, OrbIdImageProRes422Lt,
                                      OrbIdImageProRes422Proxy, OrbIdImageProRes4444, OrbIdImageDnxHqx,
                                      OrbIdImageV210}) {
            OrbImageDesc desc;
            desc.setSize(width, height);
            desc.setFrameRate(25, 1);
            desc.setDataType(type);
            measure(desc, pictures, content);
        }
        for (const RawPictureRef &picture : pictures)
            addNoise(picture->view);
    }
    for (const bool interlaced : {false, true}) {
        measureConversion(AV_PIX_FMT_YUV420P, "yuv420p", interlaced, width, height);
        measureConversion(AV_PIX_FMT_YUV420P10, "yuv420p10", interlaced, width, height);
        measureConversion(AV_PIX_FMT_YUV422P, "yuv422p", interlaced, width, height);
        measureConversion(AV_PIX_FMT_YUV422P10, "yuv422p10", interlaced, width, height);
        measureConversion(AV_PIX_FMT_YUV444P10, "yuv444p10", interlaced, width, height);
        measureConversion(AV_PIX_FMT_NV12, "nv12", interlaced, width, height);
        measureConversion(AV_PIX_FMT_RGB24, "rgb24", interlaced, width, height);
    }
    return 0;
}
