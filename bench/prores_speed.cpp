#include "prores_clips.h"
#include "prores_ffmpeg.h"

#include "libprores/encoder.h"
#include "libprores/kernels.h"
#include "libprores/slicecoder.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

// prores_speed [WIDTH HEIGHT [PICTURES]]: what coding costs on each path beside FFmpeg's encoders, in processor
// time, and what comes out at equal size.

namespace {

using namespace prores;

double threadSeconds()
{
    timespec time {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double wallSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Cycles a second, of a chain of additions, each of which takes one.
double cyclesPerSecond()
{
    double best = 0;
    for (int round = 0; round < 20; ++round) {
        constexpr int count = 1 << 20;
        std::uint64_t value = 1;
        const double begun = threadSeconds();
        for (int i = 0; i < count / 16; ++i) {
            for (int k = 0; k < 16; ++k) {
                value += 3;
                asm volatile("" : "+r"(value));
            }
        }
        best = std::max(best, count / (threadSeconds() - begun));
    }
    return best;
}

Picture pictureOf(const picture::View &view)
{
    Picture picture;
    for (int p = 0; p < 3; ++p) {
        picture.plane[p] = view.plane[p];
        picture.stride[p] = view.stride[p];
    }
    return picture;
}

Format formatOf(const Clip &clip, Profile profile)
{
    Format format;
    format.profile = profile;
    format.width = clip.width;
    format.height = clip.height;
    format.rateNumerator = 25;
    return format;
}

struct Outcome {
    double seconds = 0; // of processor, a frame
    double bytes = 0;
    double psnr = 0;
    double ssim = 0;
};

// The best of three rounds, as others use the machine too; by rate the first round only finds the scale.
Outcome measure(Encoder &encoder, Clip &clip, Comparison &comparison)
{
    Outcome outcome;
    std::vector<std::uint8_t> to(encoder.room());
    const auto count = static_cast<double>(clip.frames.size());
    for (int round = 0; round < 4; ++round) {
        double seconds = 0;
        double bytes = 0;
        double psnr = 0;
        double ssim = 0;
        for (std::size_t i = 0; i < clip.frames.size(); ++i) {
            const double begun = threadSeconds();
            const std::size_t size = encoder.encode(pictureOf(clip.view(i)), to.data(), to.size()).bytes;
            seconds += threadSeconds() - begun;
            bytes += static_cast<double>(size);
            if (round < 3 || !comparison.decode({to.begin(), to.begin() + static_cast<std::ptrdiff_t>(size)}))
                continue;
            psnr += comparison.psnr(clip.view(i));
            ssim += comparison.ssim(clip.view(i));
        }
        outcome.bytes = bytes / count;
        outcome.psnr = psnr / count;
        outcome.ssim = ssim / count;
        if (round == 1 || (round > 1 && seconds / count < outcome.seconds))
            outcome.seconds = seconds / count;
    }
    return outcome;
}

// What a slice's stages take: in turn, and each once more at once, when its samples are near and its branches known.
// That is what could be had.
constexpr std::size_t stages = 4;
constexpr const char *stageNames[stages] = {"load+transform", "quantise+scan", "entropy", "assembly"};

struct StageTimes {
    std::array<double, stages> seconds {1, 1, 1, 1};
    std::array<double, stages> bound {1, 1, 1, 1};
};

template <typename Stage>
void timeTwice(StageTimes &times, std::size_t stage, const Stage &run)
{
    const double begun = wallSeconds();
    run();
    const double done = wallSeconds();
    run();
    times.seconds[stage] = std::min(times.seconds[stage], done - begun);
    times.bound[stage] = std::min(times.bound[stage], wallSeconds() - done);
}

// Cycles a pixel of each stage, one after the other on each slice as in earnest, at one index; of each slice the
// best of some rounds, as others use the machine too.
void printStages(const char *name, const Kernels *kernels, Clip &clip, Profile profile, int index, double cycles)
{
    if (kernels == nullptr)
        return;
    const Format format = formatOf(clip, profile);
    const auto scratch = std::make_unique<SliceScratch>();
    const SliceCoder coder(format, *kernels);
    std::vector<std::uint8_t> to(SliceCoder::largestSliceBytes());
    std::vector<std::uint8_t> frame(static_cast<std::size_t>(clip.width) * static_cast<std::size_t>(clip.height) * 4);
    const int slices = pictureGeometry(format, 0).slices();
    std::vector<StageTimes> best(clip.frames.size() * static_cast<std::size_t>(slices));
    double nonZero = 0;
    for (int round = 0; round < 6; ++round) {
        nonZero = 0;
        for (std::size_t i = 0; i < clip.frames.size(); ++i) {
            const Lines lines(format, pictureOf(clip.view(i)), 0);
            std::size_t used = 0;
            for (int s = 0; s < slices; ++s) {
                StageTimes &times = best[i * static_cast<std::size_t>(slices) + static_cast<std::size_t>(s)];
                const SlicePlace place = lines.geometry.slice(s);
                const SliceAhead ahead = coder.ahead(lines, lines.geometry.slice(std::min(s + 1, slices - 1)));
                std::uint8_t *end = to.data();
                timeTwice(times, 0, [&] { coder.transform(lines, place, *scratch); });
                timeTwice(times, 1, [&] { coder.quantiseTransformed(place, index, *scratch, ahead); });
                timeTwice(times, 2, [&] { end = coder.codeQuantised(lines, place, index, *scratch, to.data()); });
                const auto size = static_cast<std::size_t>(end - to.data());
                used = used + size > frame.size() ? 0 : used;
                timeTwice(times, 3, [&] { std::memcpy(frame.data() + used, to.data(), size); });
                used += size;
                for (const Levels &levels : scratch->levels)
                    nonZero += levels.count;
            }
        }
    }
    const double pixels = static_cast<double>(clip.frames.size()) * clip.width * clip.height;
    std::printf("  %-9s %-9s index %-3d %5.2f levels/px  ", name, kernels->name, index, nonZero / pixels);
    double sum = 0;
    for (std::size_t k = 0; k < stages; ++k) {
        double seconds = 0;
        double bound = 0;
        for (const StageTimes &times : best) {
            seconds += times.seconds[k];
            bound += times.bound[k];
        }
        sum += seconds;
        std::printf(" %s %.2f (%.2f) ", stageNames[k], seconds * cycles / pixels, bound * cycles / pixels);
    }
    std::printf(" all %.2f cycles/px (bound)\n", sum * cycles / pixels);
    std::fflush(stdout);
}

void printOutcome(const char *clip, const char *what, const Outcome &outcome, double pixels, double cycles)
{
    std::printf("  %-9s %-30s %9.0f bytes  %6.2f dB  SSIM %.5f  %7.2f cycles/px  %7.1f fps\n", clip, what,
                outcome.bytes, outcome.psnr, outcome.ssim, outcome.seconds * cycles / pixels, 1 / outcome.seconds);
    std::fflush(stdout);
}

Outcome measureFfmpeg(const char *encoder, int profile, Clip &clip, Comparison &comparison)
{
    Outcome outcome;
    FfmpegEncoder coder(encoder, profile, clip.width, clip.height);
    const std::size_t count = std::min<std::size_t>(clip.frames.size(), 3);
    for (std::size_t i = 0; coder.isOpen() && i < count; ++i) {
        const double begun = threadSeconds();
        const std::vector<std::uint8_t> bytes = coder.encode(clip.view(i));
        outcome.seconds += threadSeconds() - begun;
        outcome.bytes += static_cast<double>(bytes.size());
        if (!comparison.decode(bytes))
            continue;
        outcome.psnr += comparison.psnr(clip.view(i));
        outcome.ssim += comparison.ssim(clip.view(i));
    }
    const auto frames = static_cast<double>(count);
    return {outcome.seconds / frames, outcome.bytes / frames, outcome.psnr / frames, outcome.ssim / frames};
}

void measureThreads(const char *name, Clip &clip, Profile profile)
{
    const int cores = static_cast<int>(std::thread::hardware_concurrency());
    ThreadPool pool(std::max(cores, 1));
    Encoder encoder(formatOf(clip, profile), {}, &pool);
    std::vector<std::uint8_t> to(encoder.room());
    double best = 1e9;
    for (int round = 0; round < 4; ++round) {
        const double begun = wallSeconds();
        for (std::size_t i = 0; i < clip.frames.size(); ++i)
            encoder.encode(pictureOf(clip.view(i)), to.data(), to.size());
        best = std::min(best, wallSeconds() - begun);
    }
    std::printf("  %-9s all %d cores together, usual size    %7.1f fps\n", name, pool.count(),
                static_cast<double>(clip.frames.size()) / best);
}

void measureProfile(const char *name, Clip &clip, Profile profile, double cycles)
{
    constexpr Path paths[] = {Path::Portable, Path::Avx2, Path::Avx512};
    const double pixels = static_cast<double>(clip.width) * clip.height;
    const int number = static_cast<int>(profile); // FFmpeg counts them alike
    Comparison comparison(clip.width, clip.height);
    for (const char *other : {"prores_aw", "prores_ks"}) {
        const Outcome theirs = measureFfmpeg(other, number, clip, comparison);
        printOutcome(name, other, theirs, pixels, cycles);
        for (const Path path : paths) {
            Settings settings;
            settings.path = path;
            settings.wantedBytes = static_cast<std::size_t>(theirs.bytes);
            settings.largestBytes = settings.wantedBytes * 2;
            Encoder encoder(formatOf(clip, profile), settings);
            if (path != Path::Portable && std::strcmp(encoder.pathName(), "portable") == 0)
                continue;
            const Outcome ours = measure(encoder, clip, comparison);
            char what[64];
            std::snprintf(what, sizeof what, "%s at its size: %.1fx", encoder.pathName(),
                          theirs.seconds / ours.seconds);
            printOutcome(name, what, ours, pixels, cycles);
        }
    }
    Encoder encoder(formatOf(clip, profile));
    printOutcome(name, "usual size", measure(encoder, clip, comparison), pixels, cycles);
    measureThreads(name, clip, profile);
    for (const int index : {2, 5, 9}) {
        for (const Kernels *kernels : {&portableKernels(), avx2Kernels(), avx512Kernels()})
            printStages(name, kernels, clip, profile, index, cycles);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const int width = argc > 2 ? std::atoi(argv[1]) : 1920;
    const int height = argc > 2 ? std::atoi(argv[2]) : 1080;
    const int count = argc > 3 ? std::atoi(argv[3]) : 6;
    if (width < 256 || height < 120 || width % 2 != 0 || count < 1)
        return 1;
    const double cycles = cyclesPerSecond();
    std::printf("ProRes 422 HQ, %dx%d, %d pictures, %.2f GHz\n", width, height, count, cycles / 1e9);
    Clip natural = NaturalClip::make(width, height, count);
    measureProfile("natural", natural, Profile::Hq, cycles);
    Clip card = cardClip(width, height, count);
    measureProfile("card", card, Profile::Hq, cycles);
    return 0;
}
