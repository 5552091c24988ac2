#include "liborb/drivers/software/picturecoder.h"

#include "liborb/drivers/software/codedmemory.h"
#include "libprores/encoder.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

// ProRes by this project's own encoder. It keeps a data rate over the pictures of a stream, so one thread codes all
// of them in order, and lets workers share the slices of each. The raw picture is read where it lies and the frame
// is put together where it stays.

namespace ferin {

namespace {

constexpr int piecesReady = 32; ///< coded pictures on their way to a medium

struct ProfileRow {
    OrbIdValue dataType;
    prores::Profile profile;
};

constexpr ProfileRow profiles[] = {
    // data type               profile
    {OrbIdImageProRes422,      prores::Profile::Standard},
    {OrbIdImageProRes422Hq,    prores::Profile::Hq},
    {OrbIdImageProRes422Lt,    prores::Profile::Lt},
    {OrbIdImageProRes422Proxy, prores::Profile::Proxy},
    {OrbIdImageProRes4444,     prores::Profile::P4444},
};

const ProfileRow *rowOf(const OrbId &dataType)
{
    const auto row = std::ranges::find(profiles, dataType.value(), &ProfileRow::dataType);
    return row == std::end(profiles) ? nullptr : row;
}

prores::Format formatOf(const OrbImageDesc &desc, prores::Profile profile)
{
    prores::Format format;
    format.profile = profile;
    format.width = desc.width();
    format.height = desc.height();
    if (desc.isInterlaced())
        format.scan = isBottomFieldFirst(desc.height()) ? prores::Scan::BottomFirst : prores::Scan::TopFirst;
    format.isChromaHalf = format.is444();
    const OrbVideoRate rate = desc.frameRate();
    if (rate.isValid() && rate.num() > 0 && rate.den() > 0) {
        format.rateNumerator = rate.num();
        format.rateDenominator = rate.den();
    }
    const Colour colour = colourOf(desc.height());
    format.primaries = colour.primaries;
    format.transfer = colour.transfer;
    format.matrix = colour.matrix;
    return format;
}

class ProResCoder : public PictureCoder
{
public:
    ProResCoder(const prores::Format &format, prores::Workers *workers)
        : _encoder(format, {}, workers), _memory(_encoder.room())
    {
        _memory.makeReady(piecesReady, prores::usualFrameBytes(format));
    }

    void expect(std::int64_t number) override
    {
        if (number == standalone || number != _next)
            _encoder.restart();
        _next = number == standalone ? standalone : number + 1;
    }

    bool code(const RawPictureRef &raw, CodedPicture &coded, QString &problem) override
    {
        const picture::View &view = raw->view;
        if (view.width != _encoder.format().width || view.height != _encoder.format().height || !view.isValid()) {
            problem = QStringLiteral("the picture has another raster");
            return false;
        }
        CodedPicture piece = _memory.take();
        if (piece.bytes == nullptr) {
            problem = QStringLiteral("no memory");
            return false;
        }
        prores::Picture picture;
        for (int p = 0; p < 3; ++p) {
            picture.plane[p] = view.plane[p];
            picture.stride[p] = view.stride[p];
        }
        piece.size = static_cast<std::uint32_t>(_encoder.encode(picture, piece.bytes, _memory.room()).bytes);
        if (piece.size == 0) {
            piece.release();
            problem = QStringLiteral("the frame is larger than any may be");
            return false;
        }
        coded = std::move(piece);
        return true;
    }

private:
    prores::Encoder _encoder;
    CodedMemory _memory;
    std::int64_t _next = standalone;
};

} // namespace

bool isProRes(const OrbId &dataType)
{
    return rowOf(dataType) != nullptr;
}

std::unique_ptr<PictureCoder> createProResCoder(const OrbImageDesc &desc, prores::Workers *workers,
                                                QString &problem)
{
    const ProfileRow *row = rowOf(desc.dataType());
    if (row != nullptr && ffmpegCanCode(desc)) { // the same rasters for either coder
        const prores::Format format = formatOf(desc, row->profile);
        if (prores::isValid(format))
            return std::make_unique<ProResCoder>(format, workers);
    }
    problem = QStringLiteral("no coder takes this format");
    return nullptr;
}

} // namespace ferin
