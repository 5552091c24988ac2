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

// Of each picture the best of some rounds, as others use the machine too. The first round does not count: by rate it
// only finds the scale, and whoever codes touches memory for the first time.
template <typename Encode>
Outcome measure(Clip &clip, Comparison &comparison, const Encode &encode)
{
    constexpr int rounds = 5;
    Outcome outcome;
    std::vector<double> best(clip.frames.size(), 1e9);
    for (int round = 0; round <= rounds; ++round) {
        outcome = {};
        for (std::size_t i = 0; i < clip.frames.size(); ++i) {
            const double begun = threadSeconds();
            const CodedFrame coded = encode(i);
            const double taken = threadSeconds() - begun;
            best[i] = round == 0 ? best[i] : std::min(best[i], taken);
            outcome.bytes += static_cast<double>(coded.size);
            if (round < rounds || coded.size == 0 || !comparison.decode(coded))
                continue;
            outcome.psnr += comparison.psnr(clip.view(i));
            outcome.ssim += comparison.ssim(clip.view(i));
        }
    }
    const auto count = static_cast<double>(clip.frames.size());
    for (const double seconds : best)
        outcome.seconds += seconds;
    return {outcome.seconds / count, outcome.bytes / count, outcome.psnr / count, outcome.ssim / count};
}

Outcome measureOwn(Encoder &encoder, Clip &clip, Comparison &comparison)
{
    std::vector<std::uint8_t> to(encoder.room());
    return measure(clip, comparison, [&](std::size_t i) -> CodedFrame {
        return {to.data(), encoder.encode(pictureOf(clip.view(i)), to.data(), to.size()).bytes};
    });
}

Outcome measureFfmpeg(const char *name, Profile profile, Clip &clip, Comparison &comparison)
{
    FfmpegEncoder coder(name, static_cast<int>(profile), clip.width, clip.height); // which counts them alike
    if (!coder.isOpen())
        return {};
    return measure(clip, comparison, [&](std::size_t i) { return coder.encode(clip.view(i)); });
}

// Frames a second when the cores share the slices, by the clock.
double measureThreads(Clip &clip, const Format &format, const Settings &settings, int cores)
{
    ThreadPool pool(cores);
    Encoder encoder(format, settings, &pool);
    std::vector<std::uint8_t> to(encoder.room());
    double best = 1e9;
    for (int round = 0; round < 6; ++round) {
        const double begun = wallSeconds();
        for (std::size_t i = 0; i < clip.frames.size(); ++i)
            encoder.encode(pictureOf(clip.view(i)), to.data(), to.size());
        best = std::min(best, wallSeconds() - begun);
    }
    return static_cast<double>(clip.frames.size()) / best;
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
    std::printf("  %-9s %-34s %8.0f bytes  %6.2f dB  SSIM %.5f  %7.2f cycles/px  %6.1f fps a core", clip, what,
                outcome.bytes, outcome.psnr, outcome.ssim, outcome.seconds * cycles / pixels, 1 / outcome.seconds);
}

void printOwn(const char *clip, const char *what, const Outcome &outcome, double pixels, double cycles, double together)
{
    printOutcome(clip, what, outcome, pixels, cycles);
    std::printf(", %6.1f on all %u\n", together, std::thread::hardware_concurrency());
    std::fflush(stdout);
}

void measureProfile(const char *name, Clip &clip, Profile profile, double cycles)
{
    constexpr Path paths[] = {Path::Portable, Path::Avx2, Path::Avx512};
    const double pixels = static_cast<double>(clip.width) * clip.height;
    const int cores = std::max(static_cast<int>(std::thread::hardware_concurrency()), 1);
    const Format format = formatOf(clip, profile);
    Comparison comparison(clip.width, clip.height);
    for (const char *other : {"prores_aw", "prores_ks"}) {
        const Outcome theirs = measureFfmpeg(other, profile, clip, comparison);
        if (theirs.bytes == 0) {
            std::printf("  %-9s %s cannot be had\n", name, other);
            continue;
        }
        printOutcome(name, other, theirs, pixels, cycles);
        std::printf("\n");
        for (const Path path : paths) {
            Settings settings;
            settings.path = path;
            settings.wantedBytes = static_cast<std::size_t>(theirs.bytes);
            settings.largestBytes = settings.wantedBytes * 2;
            Encoder encoder(format, settings);
            if (path != Path::Portable && std::strcmp(encoder.pathName(), "portable") == 0)
                continue;
            const Outcome ours = measureOwn(encoder, clip, comparison);
            char what[64];
            std::snprintf(what, sizeof what, "%s at %s's size: %.1fx", encoder.pathName(), other,
                          theirs.seconds / ours.seconds);
            printOwn(name, what, ours, pixels, cycles, measureThreads(clip, format, settings, cores));
        }
    }
    Encoder encoder(format);
    printOwn(name, "usual size", measureOwn(encoder, clip, comparison), pixels, cycles,
             measureThreads(clip, format, {}, cores));
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
