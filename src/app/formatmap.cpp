#include "app/formatmap.h"

#include "app/formatrows.h"
#include "app/valuemap.h"
#include "liborb/orblog.h"

#include <algorithm>
#include <iterator>

namespace
{

constexpr const char *logFile = "mainobject.cpp";

static_assert(std::size(formatRows) == 69);
static_assert(std::size(sigGenFormat) == 71);

constexpr bool sigGenValuesAreDistinct()
{
    for (const SigGenFormatRow &a : sigGenFormat) {
        if (std::ranges::count(sigGenFormat, a.value, &SigGenFormatRow::value) != 1)
            return false;
    }
    return true;
}
static_assert(sigGenValuesAreDistinct());

constexpr bool formatsAreDistinct()
{
    for (const FormatRow &a : formatRows) {
        const auto isSameFormat = [&a](const FormatRow &b) {
            return a.width == b.width && a.height == b.height && a.scanMode == b.scanMode &&
                   a.rateKey == b.rateKey;
        };
        if (std::ranges::count_if(formatRows, isSameFormat) != 1)
            return false;
    }
    return true;
}
static_assert(formatsAreDistinct());

constexpr bool formatNumbersAreDistinct(qint32 FormatRow::*number)
{
    for (const FormatRow &a : formatRows) {
        if (std::ranges::count(formatRows, a.*number, number) != 1)
            return false;
    }
    return true;
}
static_assert(formatNumbersAreDistinct(&FormatRow::inputFormat));
static_assert(formatNumbersAreDistinct(&FormatRow::mediaFormat));
static_assert(formatNumbersAreDistinct(&FormatRow::recordFormat));

// clang-format off
constexpr ValueToId encodeTypes[] = {
    {0, idEncode202},
    {1, idEncode203},
    {2, idEncode204},
    {3, idEncode205},
    // 4, 5 and 6 are deliberately not supported
    {7, idEncode206},
    {8, idEncode230},
    {9, idImageData231},
};

// Inputs and outputs share the connectors. Within a group the input order is first, third, second, and the
// output numbers run from the last connector down to the first: both deliberately.
constexpr ValueToId videoInputs[] = {
    {0,  idVideoPort601},
    {6,  idVideoPort602},
    {8,  idVideoPort603},
    {7,  idVideoPort604},
    {9,  idVideoPort631},
    {11, idVideoPort632},
    {10, idVideoPort633},
    {12, idVideoPort661},
    {14, idVideoPort662},
    {13, idVideoPort663},
};

constexpr ValueToId videoOutputs[] = {
    {5, idVideoPort603},
    {4, idVideoPort604},
    {3, idVideoPort632},
    {2, idVideoPort633},
    {1, idVideoPort662},
    {0, idVideoPort663},
};

constexpr ValueToId audioInputs[] = {
    {0, idAudioInput52},
    {2, idAudioInput690},
};

constexpr ValueToId syncSources[] = {
    {0, idSyncSource501},
    {2, idSyncSource502},
    {3, idSyncSource503},
};

static_assert(std::size(encodeTypes) == 7 && valuesAreDistinct(encodeTypes));
static_assert(std::size(videoInputs) == 10 && valuesAreDistinct(videoInputs));
static_assert(std::size(videoOutputs) == 6 && valuesAreDistinct(videoOutputs));
static_assert(std::size(audioInputs) == 2 && valuesAreDistinct(audioInputs));
static_assert(std::size(syncSources) == 3 && valuesAreDistinct(syncSources));

struct DecodeTypeRow { OrbId dataType; int decodeType; };
constexpr DecodeTypeRow decodeTypes[] = {
    {idEncode203, 1},
    {idEncode204, 4},
    {idEncode205, 5},
    {idEncode206, 6},
};
// clang-format on

int imageDescToFormat(const OrbImageDesc &desc, qint32 FormatRow::*number)
{
    const OrbVideoRate rate = desc.frameRate();
    const int rateKey = rate.isValid() ? static_cast<int>(rate.toDouble()) : 0;
    const auto row = std::ranges::find_if(formatRows, [&](const FormatRow &r) {
        return r.rateKey == rateKey && r.width == desc.width() && r.height == desc.height() &&
               r.scanMode == desc.scanMode();
    });
    if (row != std::end(formatRows))
        return (*row).*number;
    OrbLogStream(logFile, __LINE__, 2, OrbLog::defaultLog())
        << QStringLiteral("Failed to find image format for: %1").arg(desc.toString());
    return 1;
}

OrbId valueToId(std::span<const ValueToId> rows, const char *what, int value,
                int line = __builtin_LINE())
{
    const auto id = idForValue(rows, value);
    if (!id)
        orbLogOutput(2, logFile, line, "Unsupported %s: %d\n", what, value);
    return id.value_or(OrbId());
}

} // namespace

int imageDescToInputFormat(const OrbImageDesc &desc)
{
    return imageDescToFormat(desc, &FormatRow::inputFormat);
}

int imageDescToMediaFormat(const OrbImageDesc &desc)
{
    return imageDescToFormat(desc, &FormatRow::mediaFormat);
}

int imageDescToRecordFormat(const OrbImageDesc &desc)
{
    return imageDescToFormat(desc, &FormatRow::recordFormat);
}

OrbImageDesc sigGenFormatToImgDesc(int value)
{
    OrbImageDesc desc;
    const auto row = std::ranges::find(sigGenFormat, value, &SigGenFormatRow::value);
    if (row == std::end(sigGenFormat))
        return desc;
    desc.setSize(row->width, row->height);
    desc.setAspectRatio(desc.width(), desc.height());
    desc.setFrameRate(row->rateNum, row->rateDen);
    desc.setScanMode(row->scanMode);
    desc.setDataType(row->imageDataType);
    return desc;
}

OrbId encodeTypeToID(int value)
{
    return valueToId(encodeTypes, "encode type", value);
}

OrbId videoInputToID(int value)
{
    return valueToId(videoInputs, "video input", value);
}

OrbId videoOutputToID(int value)
{
    return valueToId(videoOutputs, "video output", value);
}

OrbId audioInputToID(int value)
{
    return valueToId(audioInputs, "audio input", value);
}

OrbId syncSourceToID(int value)
{
    return valueToId(syncSources, "sync source", value);
}

int imageDataTypeToDecodeType(const OrbId &dataType)
{
    const auto row = std::ranges::find(decodeTypes, dataType, &DecodeTypeRow::dataType);
    return row == std::end(decodeTypes) ? 0 : row->decodeType;
}
