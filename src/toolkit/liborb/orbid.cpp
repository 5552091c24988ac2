#include "liborb/orbid.h"

#include <algorithm>
#include <iterator>

namespace {

struct Name {
    int number;
    const char *name;
};

// Every identifier in use, by number. One with two enumerators has the name that says what it is.
// clang-format off
constexpr Name names[] = {
    {0,    "None"},
    {1,    "FrameNumber"},
    {9,    "StartOfStream"},
    {10,   "EndOfStream"},
    {12,   "Timecode"},
    {14,   "TrickPlay"},
    {18,   "PlayListIndex"},
    {19,   "PropClipName"},
    {22,   "PropPlayMode"},
    {23,   "PropReelName"},
    {24,   "PropTimecodePreset"},
    {25,   "KeyFrame"},
    {26,   "PropSpeed"},
    {51,   "OutputRouteNormal"},
    {52,   "AudioInputEmbedded"},
    {53,   "OutputRouteLoop"},
    {100,  "StreamTypeRecord"},
    {202,  "ImageProRes422"},
    {203,  "ImageProRes422Hq"},
    {204,  "ImageProRes422Lt"},
    {205,  "ImageProRes422Proxy"},
    {206,  "ImageProRes4444"},
    {230,  "ImageDnxHqx"},
    {231,  "ImageV210"},
    {250,  "ImageRgb444"},
    {408,  "AudioDataType"},
    {501,  "SyncSystemClock"},
    {502,  "SyncInput"},
    {503,  "SyncExternal"},
    {601,  "VideoPort601"},
    {602,  "VideoPort602"},
    {603,  "VideoPort603"},
    {604,  "VideoPort604"},
    {631,  "VideoPort631"},
    {632,  "VideoPort632"},
    {633,  "VideoPort633"},
    {661,  "VideoPort661"},
    {662,  "VideoPort662"},
    {663,  "VideoPort663"},
    {690,  "AudioInputAnalogue"},
    {695,  "SourceInternal"},
    {705,  "CameraRecordFlag"},
    {710,  "EffectiveFrameRate"},
    {800,  "VideoGenBlack"},
    {801,  "VideoGenBars"},
    {802,  "VideoGenMoving"},
    {900,  "AudioGenSilence"},
    {901,  "AudioGenTone"},
    {1000, "CameraInput1"},
    {1001, "CameraInput2"},
    {1002, "CameraInput3"},
    {1003, "CameraInput4"},
    {1004, "CameraInput5"},
    {1005, "CameraInput6"},
    {1006, "CameraInput7"},
    {1007, "CameraInput8"},
    {1008, "CameraInput9"},
    {1100, "LutRgb16"},
    {1200, "ConvertNone"},
    {1201, "ConvertInput"},
    {1202, "ConvertOutput"},
    {1300, "SuperTimecode"},
    {1301, "SuperTimecodeClip"},
    {1302, "SuperAll"},
    {1400, "AudioLevel0"},
    {1401, "AudioLevel1"},
    {1402, "AudioLevel2"},
    {1403, "AudioLevel3"},
    {1500, "TimecodePreset"},
    {1501, "TimecodeTimeOfDay"},
    {1510, "TimecodeLtc"},
    {1520, "TimecodeVitc"},
    {1600, "PlayModePlay"},
    {1601, "PlayModeEE"},
    {1604, "PlayModeFastForward"},
    {1605, "PlayModeFastReverse"},
    {1606, "PlayModeRecord"},
    {1607, "PlayModeStill"},
    {1901, "AlarmMediaFailed"},
    {1902, "AlarmClipExists"},
    {1903, "AlarmMediaFull"},
    {1904, "AlarmDroppedFrame"},
    {1905, "AlarmLossOfVideoImage"},
    {1906, "AlarmMediaSlow"},
    {1907, "AlarmLossOfVideo"},
    {1908, "AlarmTemperature"},
    {1909, "AlarmFan"},
    {1910, "AlarmRefMissing"},
    {1911, "AlarmAudioChannels"},
    {1912, "AlarmPower"},
    {1913, "AlarmRefUnlocked"},
    {1914, "AlarmVariableFrameRate"},
    {1915, "AlarmFirmware"},
    {1916, "AlarmCamera"},
    {1917, "AlarmTimecode"},
    {1918, "AlarmClock"},
    {1919, "AlarmBattery"},
    {1920, "AlarmLut"},
    {2000, "InhibitNoInput"},
    {2003, "InhibitMediaFull"},
    {2004, "InhibitNoMedia"},
};
// clang-format on

static_assert(std::ranges::is_sorted(names, {}, &Name::number)
              && std::ranges::adjacent_find(names, {}, &Name::number) == std::end(names));

} // namespace

QString OrbId::name() const
{
    const int number = static_cast<int>(_value);
    const auto *row = std::ranges::lower_bound(names, number, {}, &Name::number);
    if (row != std::end(names) && row->number == number)
        return QString::fromLatin1(row->name);
    return QStringLiteral("Id%1").arg(number);
}
