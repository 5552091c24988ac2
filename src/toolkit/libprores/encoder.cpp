#include "libprores/encoder.h"

#include "libprores/frameheader.h"
#include "libprores/ratecontrol.h"
#include "libprores/slicecoder.h"
#include "libprores/tables.h"

#include <algorithm>
#include <cstring>
#include <vector>

// How a frame is coded: a sample of its slices tells whether the scale still fits; the rows of slices, those of
// both fields in one list, are cut into bands that are coded side by side, each into memory of its own; then the
// rows are put together behind the headers. What is chosen never depends on the bands.

namespace prores {

namespace {

constexpr int bandsPerWorker = 4; // evens out rows that take longer than others
constexpr int sparseSample = 16;  // every so many slices
constexpr int denseSample = 4;
constexpr int mostAims = 10;

const Kernels &kernelsOf(Path path)
{
    const Kernels *kernels = path == Path::Avx2 ? avx2Kernels() : path == Path::Avx512 ? avx512Kernels() : nullptr;
    if (path == Path::Best)
        return bestKernels();
    return kernels != nullptr ? *kernels : portableKernels();
}

struct Band {
    int firstRow = 0;
    int rows = 0;
    std::unique_ptr<SliceScratch> scratch;
    std::unique_ptr<std::uint8_t[]> bytes; // uninitialised: only what frames need is ever touched
    std::vector<std::size_t> rowEnds;
};

} // namespace

struct Encoder::Private {
    Private(const Format &f, const Settings &s, Workers *w);

    /// A slice that was coded for the prediction. Coded with the same index it is the frame's own.
    struct Sampled {
        int slice = -1;
        int index = 0;
        std::size_t begin = 0;
        std::size_t bytes = 0;
        std::size_t alphaBytes = 0;
    };

    void forBands(void (*job)(void *, int));
    const Sampled *sampledAt(int slice) const;
    std::uint8_t *codeSlice(const Lines &from, SlicePlace place, int slice, Band &band, std::uint8_t *to);
    void codeBand(Band &band);
    int indexOf(int slice) const { return settings.index > 0 ? settings.index : rate.index(slice); }
    RateControl::Prediction predicted(int step);
    void aim();
    std::size_t codeAll();
    std::size_t alphaBytes() const;
    void assemble(std::uint8_t *to, std::size_t bytes) const;

    Format format;
    Settings settings;
    Workers *workers;
    const Kernels &kernels;
    SliceCoder coder;
    std::size_t wanted;
    RateControl rate;
    std::size_t largest;
    std::size_t headerBytes = frameHeaderBytes; // all but the slices
    int rowsPerPicture = 0;
    int slicesPerRow = 0;
    int pictures = 0;
    std::vector<Lines> lines; // of the frame in work, by picture
    std::vector<Band> bands;
    std::vector<std::uint16_t> sliceBytes;
    bool withoutDetail = false;
    std::vector<Sampled> sampled;                // of the last prediction, by slice / sampledStep
    int sampledStep = sparseSample;
    std::unique_ptr<std::uint8_t[]> sampleBytes; // uninitialised
};

Encoder::Private::Private(const Format &f, const Settings &s, Workers *w)
    : format(f), settings(s), workers(w), kernels(kernelsOf(s.path)), coder(format, kernels),
      wanted(s.wantedBytes > 0 ? s.wantedBytes : usualFrameBytes(f)), rate(wanted),
      largest(s.largestBytes > 0 ? s.largestBytes : largestFrameBytes(f)), pictures(picturesIn(f))
{
    settings.index = std::clamp(settings.index, 0, largestIndex);
    const Geometry geometry = pictureGeometry(format, 0);
    rowsPerPicture = geometry.rows;
    slicesPerRow = geometry.slicesPerRow;
    const int rows = rowsPerPicture * pictures;
    sliceBytes.resize(static_cast<std::size_t>(rows) * static_cast<std::size_t>(slicesPerRow));
    headerBytes += static_cast<std::size_t>(pictures) * pictureHeaderBytes + sliceBytes.size() * 2;
    lines.reserve(2);
    if (settings.index == 0) {
        sampleBytes = std::make_unique_for_overwrite<std::uint8_t[]>(
            (sliceBytes.size() / denseSample + 1) * SliceCoder::largestSliceBytes());
    }
    const int count = workers != nullptr && workers->count() > 1 ? workers->count() * bandsPerWorker : 1;
    for (int i = 0; i < count; ++i) {
        Band band;
        band.firstRow = rows * i / count;
        band.rows = rows * (i + 1) / count - band.firstRow;
        if (band.rows == 0)
            continue;
        band.scratch = std::make_unique<SliceScratch>();
        const std::size_t room = static_cast<std::size_t>(band.rows) * static_cast<std::size_t>(slicesPerRow)
                                 * SliceCoder::largestSliceBytes();
        band.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(room);
        // What is usually used is in memory from now on: the first frame takes no longer than the others.
        std::memset(band.bytes.get(), 0, std::min(room, wanted / static_cast<std::size_t>(count) * 2));
        band.rowEnds.resize(static_cast<std::size_t>(band.rows));
        bands.push_back(std::move(band));
    }
}

void Encoder::Private::forBands(void (*job)(void *, int))
{
    if (bands.size() == 1)
        job(this, 0);
    else
        workers->run(static_cast<int>(bands.size()), job, this);
}

const Encoder::Private::Sampled *Encoder::Private::sampledAt(int slice) const
{
    if (sampled.empty() || withoutDetail)
        return nullptr;
    const Sampled &sample = sampled[static_cast<std::size_t>(slice / sampledStep)];
    return sample.slice == slice && sample.index == indexOf(slice) ? &sample : nullptr;
}

std::uint8_t *Encoder::Private::codeSlice(const Lines &from, SlicePlace place, int slice, Band &band,
                                          std::uint8_t *to)
{
    const Sampled *sample = sampledAt(slice);
    if (sample == nullptr)
        return coder.code(from, place, indexOf(slice), *band.scratch, to);
    std::memcpy(to, sampleBytes.get() + sample->begin, sample->bytes);
    band.scratch->alphaBytes += sample->alphaBytes;
    return to + sample->bytes;
}

void Encoder::Private::codeBand(Band &band)
{
    band.scratch->alphaBytes = 0;
    band.scratch->withoutDetail = withoutDetail;
    std::uint8_t *to = band.bytes.get();
    for (int i = 0; i < band.rows; ++i) {
        const int row = band.firstRow + i;
        const Lines &from = lines[static_cast<std::size_t>(row / rowsPerPicture)];
        for (int s = 0; s < slicesPerRow; ++s) {
            const SlicePlace place = from.geometry.slice(row % rowsPerPicture * slicesPerRow + s);
            const int slice = row * slicesPerRow + s;
            std::uint8_t *end = codeSlice(from, place, slice, band, to);
            sliceBytes[static_cast<std::size_t>(slice)] = static_cast<std::uint16_t>(end - to);
            to = end;
        }
        band.rowEnds[static_cast<std::size_t>(i)] = static_cast<std::size_t>(to - band.bytes.get());
    }
}

// The frame's size, told from every so manieth slice: those are coded in earnest, and estimated at the probe.
RateControl::Prediction Encoder::Private::predicted(int step)
{
    const int slices = static_cast<int>(sliceBytes.size());
    const int perPicture = rowsPerPicture * slicesPerRow;
    SliceScratch &scratch = *bands.front().scratch;
    scratch.withoutDetail = false;
    std::uint64_t bytes = 0;
    std::uint64_t probedBytes = 0;
    std::uint64_t macroblocks = 0;
    std::size_t used = 0;
    sampled.assign((sliceBytes.size() + static_cast<std::size_t>(step) - 1) / static_cast<std::size_t>(step), {});
    sampledStep = step;
    for (int slice = step / 2 < slices ? step / 2 : 0; slice < slices; slice += step) {
        const Lines &from = lines[static_cast<std::size_t>(slice / perPicture)];
        const SlicePlace place = from.geometry.slice(slice % perPicture);
        std::uint8_t *begin = sampleBytes.get() + used;
        const std::size_t alphaBefore = scratch.alphaBytes;
        coder.transform(from, place, scratch);
        const bool isLast = (slice + step) / perPicture != slice / perPicture;
        const SliceAhead ahead
            = isLast ? SliceAhead() : coder.ahead(from, from.geometry.slice((slice + step) % perPicture));
        coder.quantiseTransformed(place, rate.index(slice), scratch, ahead);
        const std::uint8_t *end = coder.codeQuantised(from, place, rate.index(slice), scratch, begin);
        const std::size_t alpha = scratch.alphaBytes - alphaBefore;
        const std::size_t own = static_cast<std::size_t>(end - begin) - alpha;
        sampled[static_cast<std::size_t>(slice / step)]
            = {slice, rate.index(slice), used, own + alpha, alpha};
        used += own + alpha;
        const std::uint32_t estimated = coder.estimatedBits(scratch);
        coder.quantiseTransformed(place, rate.index(slice, RateControl::probe), scratch, ahead);
        const std::uint32_t probed = coder.estimatedBits(scratch);
        bytes += own;
        probedBytes += own - std::min<std::size_t>((estimated - std::min(probed, estimated)) / 8, own / 2);
        macroblocks += static_cast<std::uint64_t>(place.width);
    }
    const std::uint64_t all = macroblocksIn(format);
    return {static_cast<std::size_t>(bytes * all / macroblocks) + headerBytes,
            static_cast<std::size_t>(probedBytes * all / macroblocks) + headerBytes};
}

// At a cut, and at the start.
void Encoder::Private::aim()
{
    RateControl::Bracket bracket;
    for (int i = 0; i < mostAims; ++i) {
        if (!rate.aim(predicted(denseSample), bracket))
            return;
    }
}

std::size_t Encoder::Private::codeAll()
{
    forBands([](void *self, int index) {
        auto *d = static_cast<Private *>(self);
        d->codeBand(d->bands[static_cast<std::size_t>(index)]);
    });
    std::size_t bytes = headerBytes;
    for (const Band &band : bands)
        bytes += band.rowEnds.back();
    return bytes;
}

std::size_t Encoder::Private::alphaBytes() const
{
    std::size_t bytes = 0;
    for (const Band &band : bands)
        bytes += band.scratch->alphaBytes;
    return bytes;
}

void Encoder::Private::assemble(std::uint8_t *to, std::size_t bytes) const
{
    writeFrameHeader(format, bytes, to);
    to += frameHeaderBytes;
    std::uint8_t *header = to;
    const int slices = rowsPerPicture * slicesPerRow;
    int row = 0;
    for (const Band &band : bands) {
        std::size_t begin = 0;
        for (const std::size_t end : band.rowEnds) {
            if (row % rowsPerPicture == 0) {
                header = to;
                to += pictureHeaderBytes;
                for (int i = 0; i < slices; ++i, to += 2)
                    writeBig16(to, sliceBytes[static_cast<std::size_t>(row * slicesPerRow + i)]);
            }
            std::memcpy(to, band.bytes.get() + begin, end - begin);
            to += end - begin;
            begin = end;
            if (++row % rowsPerPicture == 0)
                writePictureHeader(slices, static_cast<std::size_t>(to - header), header);
        }
    }
}

Encoder::Encoder(const Format &format, const Settings &settings, Workers *workers)
    : _d(std::make_unique<Private>(format, settings, workers))
{
}

Encoder::~Encoder() = default;

const Format &Encoder::format() const
{
    return _d->format;
}

const char *Encoder::pathName() const
{
    return _d->kernels.name;
}

std::size_t Encoder::room() const
{
    if (_d->settings.index == 0 && !_d->format.hasAlpha)
        return _d->largest;
    return _d->headerBytes + _d->sliceBytes.size() * SliceCoder::largestSliceBytes();
}

void Encoder::restart()
{
    _d->rate = RateControl(_d->wanted);
}

FrameReport Encoder::encode(const Picture &picture, std::uint8_t *to, std::size_t room)
{
    const bool isV210 = picture.v210 != nullptr;
    if (isV210 && (_d->format.is444() || _d->format.bitDepth != 10))
        return {};
    for (int p = 0; !isV210 && p < (_d->format.hasAlpha ? 4 : 3); ++p) {
        if (picture.plane[p] == nullptr)
            return {};
    }
    _d->lines.clear();
    for (int i = 0; i < _d->pictures; ++i)
        _d->lines.emplace_back(_d->format, picture, i);
    _d->withoutDetail = false;
    const bool isByRate = _d->settings.index == 0;
    RateControl::Prediction predicted;
    if (isByRate) {
        predicted = _d->predicted(sparseSample);
        if (_d->rate.isOff(predicted)) {
            _d->aim();
            predicted = _d->predicted(sparseSample);
        }
    }
    FrameReport report;
    report.passes = 1;
    std::size_t bytes = _d->codeAll();
    std::size_t counted = bytes - _d->alphaBytes();
    for (; isByRate && counted > _d->largest && !_d->withoutDetail; ++report.passes) {
        _d->withoutDetail = !_d->rate.tighten(counted, predicted);
        predicted = _d->predicted(sparseSample);
        bytes = _d->codeAll();
        counted = bytes - _d->alphaBytes();
    }
    report.scale = isByRate ? _d->rate.scale() : scaleOf(_d->settings.index);
    if (isByRate)
        _d->rate.coded(counted, predicted);
    if (bytes > room)
        return report;
    _d->assemble(to, bytes);
    report.bytes = bytes;
    return report;
}

} // namespace prores
