// A ProRes frame: whatever it is, decoding it at every size stays within the picture and the frame, and says so when it
// is none. The first byte chooses size, concealment and the number of threads.
// links: prores
// at most: 20

#include "driver.h"

#include "libprores/decoder.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace {

constexpr int largestSide = 512; // more only takes longer
constexpr std::uint16_t border = 0xaaaa;

bool isBorder(std::uint16_t sample)
{
    return sample == border;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace prores;
    if (size == 0)
        return 0;
    static ThreadPool pool(2);
    DecoderSettings settings;
    settings.reduction = static_cast<Reduction>(data[0] & 3);
    settings.concealment = (data[0] & 4) != 0 ? Concealment::Keep : Concealment::Grey;
    settings.path = (data[0] & 16) != 0 ? Path::Portable : (data[0] & 32) != 0 ? Path::Avx2 : Path::Best;
    const std::vector<std::uint8_t> frame(data + 1, data + size); // ends where its memory ends
    const std::optional<FrameInfo> info = readFrameInfo(frame.data(), frame.size());
    if (!info || info->width > largestSide || info->height > largestSide)
        return 0;
    DecodedPicture picture;
    picture.width = info->planeWidth(0, settings.reduction);
    picture.height = info->planeHeight(settings.reduction);
    picture.is444 = info->is444;
    std::vector<std::uint16_t> planes[4];
    for (int p = 0; p < (info->alphaBits > 0 ? 4 : 3); ++p) {
        const int width = info->planeWidth(p, settings.reduction);
        planes[p].assign(static_cast<std::size_t>(width + 1) * static_cast<std::size_t>(picture.height), 512);
        const auto line = static_cast<std::size_t>(width) + 1;
        for (std::size_t i = line - 1; i < planes[p].size(); i += line)
            planes[p][i] = border;
        picture.plane[p] = planes[p].data();
        picture.stride[p] = width + 1;
    }
    Decoder decoder(settings, (data[0] & 8) != 0 ? &pool : nullptr);
    const DecodeReport report = decoder.decode(frame.data(), frame.size(), picture);
    fuzzCheck(report.isFrame && report.slices > 0 && report.damaged >= 0 && report.damaged <= report.slices);
    for (const auto &plane : planes) {
        fuzzCheck(std::ranges::count_if(plane, isBorder) == (plane.empty() ? 0 : picture.height));
        fuzzCheck(std::ranges::all_of(plane, [](std::uint16_t sample) { return sample <= 1023 || isBorder(sample); }));
    }
    return 0;
}
