// The way back from R'G'B' to Y'CbCr is a sum: what red, green and blue each add to luma, Cb and Cr. So the
// curve and the way back become one table a colour: an entry holds the three shares of one new colour value,
// side by side in one word, and a sample's Y'CbCr is the sum of three words. Shares may be negative; in the
// sum of all three every field is positive, and carries and borrows between the fields cancel out.

#include "libpicture/colourtable.h"

#include <algorithm>
#include <cmath>

namespace picture {

namespace {

constexpr int codes = 1024;
constexpr int neutral = 512;
constexpr unsigned codeMask = codes - 1; ///< a sample beyond ten bits must not lead out of the tables

/// The codes that a luma sample and its chroma may mean as R'G'B': this much below 0 and above 1023.
constexpr int margin = 960;
constexpr int span = codes + 2 * margin;

// Fields of a word, from the lowest bit: luma, Cb, Cr. Chroma is the sum of two samples.
constexpr int fieldBits = 21;
constexpr int fraction = 9;
constexpr std::uint32_t fieldMask = (1U << fieldBits) - 1;
constexpr int chromaBias = 16; ///< keeps chroma positive that lies a little outside of the codes

constexpr int slopeBits = 13; ///< the fraction of the four chroma slopes, all below 2 in size

/// Chroma spans 896 codes where luma spans 876.
constexpr double chromaSpan = 896.0 / 876.0;

std::uint64_t packed(double luma, double cb, double cr)
{
    const auto fixed = [](double value) {
        return static_cast<std::uint64_t>(std::llround(value * (1 << fraction)));
    };
    return fixed(luma) + (fixed(cb) << fieldBits) + (fixed(cr) << (2 * fieldBits));
}

/// One plane as a curve over the codes 0..1023.
std::vector<double> curveOf(const std::int16_t *plane, int entries)
{
    std::vector<double> curve(codes);
    for (int code = 0; code < codes; ++code) {
        const double at = static_cast<double>(code) * (entries - 1) / (codes - 1);
        const int left = std::min(static_cast<int>(at), entries - 2);
        const double value = plane[left] + (plane[left + 1] - plane[left]) * (at - left);
        curve[static_cast<std::size_t>(code)] = std::clamp(value, 0.0, double {codes - 1});
    }
    return curve;
}

bool isIdentity(const std::vector<double> &curve)
{
    for (int code = 0; code < codes; ++code) {
        if (std::lround(curve[static_cast<std::size_t>(code)]) != code)
            return false;
    }
    return true;
}

std::uint16_t lumaOf(std::uint64_t sum)
{
    return static_cast<std::uint16_t>((static_cast<std::uint32_t>(sum) & fieldMask) >> fraction);
}

std::uint16_t chromaOf(std::uint64_t sum)
{
    const auto field = static_cast<std::uint32_t>(sum) & fieldMask;
    const int value = static_cast<int>(field >> (fraction + 1)) - chromaBias;
    return static_cast<std::uint16_t>(std::clamp(value, 0, codes - 1));
}

std::int16_t slope(double value)
{
    return static_cast<std::int16_t>(std::lround(value * (1 << slopeBits)));
}

} // namespace

std::shared_ptr<const ColourTable> ColourTable::make(const std::int16_t *planes, int entries,
                                                     ColourMatrix matrix)
{
    if (planes == nullptr || entries < 2)
        return nullptr;
    const std::vector<double> curves[3] = {curveOf(planes, entries), curveOf(planes + entries, entries),
                                           curveOf(planes + 2 * std::ptrdiff_t {entries}, entries)};
    if (std::all_of(std::begin(curves), std::end(curves), isIdentity))
        return nullptr;
    const std::shared_ptr<ColourTable> table(new ColourTable(matrix));
    table->fill(curves);
    return table;
}

ColourTable::ColourTable(ColourMatrix matrix)
    : _weights(matrix == ColourMatrix::Bt709 ? Weights {0.2126, 0.7152, 0.0722}
                                             : Weights {0.299, 0.587, 0.114})
{
    const double redSlope = 2 * (1 - _weights.red) / chromaSpan;
    const double blueSlope = 2 * (1 - _weights.blue) / chromaSpan;
    _redOfCr = slope(redSlope);
    _blueOfCb = slope(blueSlope);
    _greenOfCr = slope(-redSlope * _weights.red / _weights.green);
    _greenOfCb = slope(-blueSlope * _weights.blue / _weights.green);
}

void ColourTable::fill(const std::vector<double> (&curves)[3])
{
    const Weights w = _weights;
    const double cbScale = chromaSpan / (2 * (1 - w.blue));
    const double crScale = chromaSpan / (2 * (1 - w.red));
    // Half a step for rounding; each of the two samples brings half of the chroma's.
    const double half = 0.5;
    const double offset = neutral + chromaBias + half;

    _red.resize(span);
    _green.resize(span);
    _blue.resize(span);
    for (int i = 0; i < span; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const auto code = static_cast<std::size_t>(std::clamp(i - margin, 0, codes - 1));
        const double r = curves[0][code];
        const double g = curves[1][code];
        const double b = curves[2][code];
        _red[at] = packed(w.red * r, -w.red * cbScale * r, (1 - w.red) * crScale * r);
        _green[at] = packed(w.green * g + half, -w.green * cbScale * g + offset,
                            -w.green * crScale * g + offset);
        _blue[at] = packed(w.blue * b, (1 - w.blue) * cbScale * b, -w.blue * crScale * b);
    }
}

void ColourTable::apply(const View &from, const View &to, int firstLine, int endLine) const
{
    if (!from.isValid() || !to.isValid() || from.width != to.width || from.height != to.height)
        return;
    const int end = std::min(endLine, from.height);
    for (int y = std::max(firstLine, 0); y < end; ++y)
        applyLine(from, to, y);
}

/// Pairs of samples on their way through the tables. The steps of one block are loops of their own, so that a
/// compiler does all but the looking up itself on many pairs at a time.
struct ColourTable::Block {
    static constexpr int size = 128;
    int pairs = 0;
    std::int32_t red[size]; ///< where in the table luma 0 stands, for this pair's chroma
    std::int32_t green[size];
    std::int32_t blue[size];
    std::uint64_t left[size]; ///< the sums
    std::uint64_t right[size];
};

void ColourTable::findRows(const std::uint16_t *cbs, const std::uint16_t *crs, Block &block) const
{
    constexpr int rounding = 1 << (slopeBits - 1);
    for (int x = 0; x < block.pairs; ++x) {
        // 16 bits times 16 bits is what vector units are good at.
        const auto cb = static_cast<std::int16_t>((cbs[x] & codeMask) - neutral);
        const auto cr = static_cast<std::int16_t>((crs[x] & codeMask) - neutral);
        block.red[x] = margin + ((_redOfCr * cr + rounding) >> slopeBits);
        block.green[x] = margin + ((_greenOfCb * cb + _greenOfCr * cr + rounding) >> slopeBits);
        block.blue[x] = margin + ((_blueOfCb * cb + rounding) >> slopeBits);
    }
}

void ColourTable::lookUp(const std::uint16_t *luma, Block &block) const
{
    const std::uint64_t *reds = _red.data();
    const std::uint64_t *greens = _green.data();
    const std::uint64_t *blues = _blue.data();
    for (int x = 0; x < block.pairs; ++x) {
        const unsigned left = luma[2 * x] & codeMask;
        const unsigned right = luma[2 * x + 1] & codeMask;
        const std::uint64_t *red = reds + block.red[x];
        const std::uint64_t *green = greens + block.green[x];
        const std::uint64_t *blue = blues + block.blue[x];
        block.left[x] = red[left] + green[left] + blue[left];
        block.right[x] = red[right] + green[right] + blue[right];
    }
}

void ColourTable::applyLine(const View &from, const View &to, int y) const
{
    const int pairs = from.width / 2;
    Block block;
    for (int x = 0; x < pairs; x += Block::size) {
        block.pairs = std::min(Block::size, pairs - x);
        findRows(from.line(1, y) + x, from.line(2, y) + x, block);
        lookUp(from.line(0, y) + 2 * x, block);
        // Everything that this block is made of has been read: now it may be written over.
        std::uint16_t *luma = to.line(0, y) + 2 * x;
        for (int i = 0; i < block.pairs; ++i) {
            luma[2 * i] = lumaOf(block.left[i]);
            luma[2 * i + 1] = lumaOf(block.right[i]);
        }
        std::uint16_t *cbs = to.line(1, y) + x;
        std::uint16_t *crs = to.line(2, y) + x;
        for (int i = 0; i < block.pairs; ++i) {
            const std::uint64_t both = block.left[i] + block.right[i];
            cbs[i] = chromaOf(both >> fieldBits);
            crs[i] = chromaOf(both >> (2 * fieldBits));
        }
    }
}

} // namespace picture
