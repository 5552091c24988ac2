#include "libprores/decoder.h"

#include "libprores/slicedecoder.h"

#include <bit>
#include <optional>
#include <vector>

// How a frame is decoded: the tables of its slices are walked through once to know where each row of slices begins;
// then the rows, those of both fields in one list, are cut into bands that are decoded side by side.

namespace prores {

namespace {

constexpr int bandsPerWorker = 4; // evens out rows that take longer than others

// Samples of Y from which on a picture goes past the caches: it would push out all else, and be out of them itself
// before anyone reads it.
constexpr std::ptrdiff_t streamedSamples = 512 * 1024;

const InverseKernels &inverseOf(Path path)
{
    const InverseKernels *kernels = path == Path::Avx2 ? avx2Inverse() : path == Path::Avx512 ? avx512Inverse()
                                                                                              : nullptr;
    if (path == Path::Best)
        return bestInverse();
    return kernels != nullptr ? *kernels : portableInverse();
}

bool isAligned(const std::uint16_t *plane, std::ptrdiff_t stride)
{
    constexpr auto samples = static_cast<std::ptrdiff_t>(streamedBytes / sizeof *plane);
    return reinterpret_cast<std::uintptr_t>(plane) % streamedBytes == 0 && stride % samples == 0;
}

/// A row of slices of one picture.
struct Row {
    int picture = 0;
    int number = 0;
    const std::uint8_t *sizes = nullptr; ///< in the slice table; null where the picture is missing
    std::size_t offset = 0;              ///< of the first slice in the frame
};

struct Band {
    std::unique_ptr<DecodeScratch> scratch = std::make_unique<DecodeScratch>();
    int slices = 0;
    int damaged = 0;
};

} // namespace

struct Decoder::Private {
    Private(const DecoderSettings &s, Workers *w);

    bool begin(const DecodedPicture &to);
    void listRows();
    std::size_t listPicture(int picture, std::size_t offset);
    void decodeBand(int index);
    void decodeRow(const Row &row, Band &band);
    void decodeSlices(const Row &row, const SliceBytes *slices, int count, Band &band);

    DecoderSettings settings;
    Workers *workers;
    const InverseKernels &kernels;
    std::vector<Band> bands;
    // Of the frame in work:
    const std::uint8_t *frame = nullptr;
    std::size_t size = 0;
    FrameHead head;
    DecodedLines lines[2]; // by picture
    int sliceWidth[2] = {};
    std::vector<Row> rows;
    std::optional<SliceDecoder> slices;
};

Decoder::Private::Private(const DecoderSettings &s, Workers *w)
    : settings(s), workers(w), kernels(inverseOf(s.path)),
      bands(static_cast<std::size_t>(w != nullptr && w->count() > 1 ? w->count() * bandsPerWorker : 1))
{
    prepareLevelReading();
}

bool Decoder::Private::begin(const DecodedPicture &to)
{
    const FrameInfo &info = head.info;
    const Reduction reduction = settings.reduction;
    if (to.width != info.planeWidth(0, reduction) || to.height != info.planeHeight(reduction)
        || to.is444 != info.is444 || to.plane[0] == nullptr || to.plane[1] == nullptr || to.plane[2] == nullptr)
        return false;
    const bool canStream = kernels.canStream && reduction == Reduction::None
        && std::ptrdiff_t {to.width} * to.height >= streamedSamples;
    for (int i = 0; i < info.pictures(); ++i) {
        const int first = firstLineOf(info.scan, i);
        lines[i].height = (to.height + info.pictures() - 1 - first) / info.pictures();
        for (int p = 0; p < 4; ++p) {
            lines[i].plane[p] = to.plane[p] == nullptr ? nullptr : to.plane[p] + first * to.stride[p];
            lines[i].stride[p] = to.stride[p] * info.pictures();
            lines[i].width[p] = info.planeWidth(p, reduction);
            lines[i].isStreamed[p] = canStream && isAligned(lines[i].plane[p], lines[i].stride[p]);
        }
    }
    for (Band &band : bands) {
        band.scratch->index = 0;
        band.slices = 0;
        band.damaged = 0;
    }
    return true;
}

// Answers where the next picture begins; 0 when that cannot be told.
std::size_t Decoder::Private::listPicture(int picture, std::size_t offset)
{
    const int columns = (head.info.width + 15) / 16;
    const int unit = head.info.isInterlaced() ? 32 : 16;
    const int count = (head.info.height + unit - 1) / unit;
    std::optional<PictureHead> found;
    if (offset != 0 && offset <= size)
        found = readPictureHead(frame + offset, size - offset);
    std::size_t perRow = 1;
    if (found) {
        sliceWidth[picture] = found->sliceWidth;
        const auto rest = static_cast<unsigned>(columns % found->sliceWidth);
        perRow = static_cast<std::size_t>(columns / found->sliceWidth + std::popcount(rest));
        const std::size_t tableBytes = perRow * static_cast<std::size_t>(count) * 2;
        if (found->bytes - found->headerBytes < tableBytes)
            found.reset();
    }
    if (!found) {
        sliceWidth[picture] = widestSlice;
        for (int i = 0; i < count; ++i)
            rows.push_back({picture, i, nullptr, 0});
        return 0;
    }
    const std::uint8_t *sizes = frame + offset + found->headerBytes;
    std::size_t at = offset + found->headerBytes + perRow * static_cast<std::size_t>(count) * 2;
    for (int i = 0; i < count; ++i) {
        rows.push_back({picture, i, sizes, at});
        for (std::size_t s = 0; s < perRow; ++s, sizes += 2)
            at += readBig16(sizes);
    }
    return offset + found->bytes;
}

void Decoder::Private::listRows()
{
    rows.clear();
    std::size_t offset = head.bytes;
    for (int i = 0; i < head.info.pictures(); ++i)
        offset = listPicture(i, offset);
}

void Decoder::Private::decodeSlices(const Row &row, const SliceBytes *which, int count, Band &band)
{
    if (count == 0)
        return;
    band.slices += count;
    band.damaged += slices->decode(which, count, lines[row.picture], *band.scratch);
}

void Decoder::Private::decodeRow(const Row &row, Band &band)
{
    const int columns = (head.info.width + 15) / 16;
    const std::uint8_t *sizes = row.sizes;
    std::size_t offset = row.offset;
    SliceBytes pair[2];
    int count = 0;
    int width = sliceWidth[row.picture];
    for (int column = 0; column < columns; column += width) {
        while (columns - column < width)
            width /= 2;
        SliceBytes slice {{column, row.number, width}, nullptr, 0};
        if (sizes != nullptr) {
            slice.bytes = readBig16(sizes);
            sizes += 2;
            if (offset <= size && slice.bytes <= size - offset)
                slice.begin = frame + offset;
            offset += slice.bytes;
        }
        if (count == 1 && pair[0].place.width != width) {
            decodeSlices(row, pair, 1, band);
            count = 0;
        }
        pair[count++] = slice;
        if (count == 2) {
            decodeSlices(row, pair, 2, band);
            count = 0;
        }
    }
    decodeSlices(row, pair, count, band);
}

void Decoder::Private::decodeBand(int index)
{
    const std::size_t all = rows.size();
    const auto number = static_cast<std::size_t>(index);
    for (std::size_t i = all * number / bands.size(); i < all * (number + 1) / bands.size(); ++i)
        decodeRow(rows[i], bands[number]);
    kernels.publish();
}

Decoder::Decoder(const DecoderSettings &settings, Workers *workers)
    : _d(std::make_unique<Private>(settings, workers))
{
}

Decoder::~Decoder() = default;

const char *Decoder::pathName() const
{
    return _d->kernels.name;
}

DecodeReport Decoder::decode(const std::uint8_t *frame, std::size_t size, const DecodedPicture &to)
{
    const std::optional<FrameHead> head = readFrameHead(frame, size);
    if (!head)
        return {};
    _d->head = *head;
    if (!_d->begin(to))
        return {};
    _d->frame = frame;
    _d->size = size;
    _d->listRows();
    _d->slices.emplace(_d->head, _d->settings, _d->kernels);
    if (_d->bands.size() == 1) {
        _d->decodeBand(0);
    } else {
        _d->workers->run(static_cast<int>(_d->bands.size()),
                         [](void *self, int index) { static_cast<Private *>(self)->decodeBand(index); }, _d.get());
    }
    _d->slices.reset();
    DecodeReport report;
    report.isFrame = true;
    for (const Band &band : _d->bands) {
        report.slices += band.slices;
        report.damaged += band.damaged;
    }
    return report;
}

} // namespace prores
