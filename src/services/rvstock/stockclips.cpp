#include "stockclips.h"

#include "libclip/clipwriter.h"
#include "liborb/drivers/software/picturecoder.h"
#include "libpicture/patterns.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <span>
#include <system_error>

#include <unistd.h>

namespace
{

/// One clip serves every rate of a raster.
constexpr int frameRate = 25;
/// A dark blue that nobody takes for black from a camera.
constexpr std::uint16_t background[] = {160, 640, 480};
/// In font pixels: a glyph with its gap, and the box around a line of text.
constexpr int glyphAdvance = 6;
constexpr int lineHeight = 10;

void drawCentred(const picture::View &view, int y, int scale, const std::string &text)
{
    const int width = (static_cast<int>(text.size()) * glyphAdvance + 1) * scale;
    picture::drawText(view, (view.width - width) / 2, y, scale, text.c_str());
}

void draw(const picture::View &view, const LossOfVideoClip &stock)
{
    for (int p = 0; p < 3; ++p) {
        for (int y = 0; y < view.height; ++y)
            std::fill_n(view.line(p, y), p == 0 ? view.width : view.width / 2, background[p]);
    }
    // An even number of lines a font pixel, so that both fields show the same.
    const int large = std::max(2, view.width / 80 / 2 * 2);
    const int small = std::max(2, large / 4 / 2 * 2);
    const int top = (view.height - large * lineHeight) / 2 / 2 * 2;
    drawCentred(view, top, large, "NO INPUT");
    drawCentred(view, top + large * (lineHeight + 2), small,
                std::to_string(stock.width) + " x " + std::to_string(stock.height) +
                    (stock.isInterlaced ? " interlaced" : " progressive"));
}

OrbImageDesc descOf(const LossOfVideoClip &stock)
{
    OrbImageDesc desc;
    desc.setSize(stock.width, stock.height);
    desc.setFrameRate(frameRate, 1);
    desc.setScanMode(stock.isInterlaced ? OrbImageDesc::Interlaced : OrbImageDesc::Progressive);
    desc.setDataType(OrbId(stock.family));
    return desc;
}

clip::ClipInfo infoOf(const LossOfVideoClip &stock)
{
    clip::ClipInfo info;
    const bool is422 = stock.family == lossOfVideoFamily422;
    info.video = {is422 ? clip::Codec::ProRes422 : clip::Codec::ProRes4444, stock.width, stock.height, frameRate, 1,
                  stock.isInterlaced ? clip::Scan::Interlaced : clip::Scan::Progressive,
                  !ferin::isBottomFieldFirst(stock.height)};
    return info;
}

clip::Error write(const std::string &path, const LossOfVideoClip &stock, std::span<const std::byte> coded)
{
    clip::ClipWriter writer;
    if (const clip::Error error = writer.open(path, infoOf(stock)))
        return error;
    if (const clip::Error error = writer.write(coded, {}))
        return error;
    return writer.close();
}

} // namespace

clip::Error makeStockClip(const LossOfVideoClip &stock, const std::string &folder)
{
    QString problem;
    const auto coder = ferin::createFfmpegCoder(descOf(stock), problem);
    ferin::RawPicturePool pool(stock.width, stock.height, 1);
    const ferin::RawPictureRef raw = pool.take();
    if (!coder || !raw)
        return {ENOTSUP, "make a coder: " + problem.toStdString()};
    draw(raw->view, stock);
    ferin::CodedPicture coded;
    if (!coder->code(raw, coded, problem))
        return {EIO, "code the picture: " + problem.toStdString()};

    const std::string path = folder + "/" + stock.file;
    const std::string fresh = path + ".new";
    std::error_code failed;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
    (void)::unlink(fresh.c_str());
    clip::Error error = write(fresh, stock, std::as_bytes(std::span(coded.bytes, coded.size)));
    coded.release();
    if (!error && ::rename(fresh.c_str(), path.c_str()) != 0)
        error = {errno, "rename: " + std::generic_category().message(errno)};
    if (error)
        (void)::unlink(fresh.c_str());
    return error;
}
