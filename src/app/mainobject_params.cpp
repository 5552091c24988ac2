#include "app/mainobject.h"

#include "app/formatmap.h"
#include "app/mainobject_log.h"
#include "app/valuemap.h"
#include "config/configinterface.h"
#include "libconfig/paramdescriptor.h"
#include "media/mediamanager.h"
#include "transport/vtrobject.h"

#include <algorithm>
#include <iterator>

// Parameter dispatch: one table from parameter number to what it does. Rows convert the value and call one
// setter of the engine. No row refuses a value: a wrong type converts to 0, false or an empty text, and a
// number outside a switch is passed on as an invalid identifier, so that the engine decides.

namespace {

/// What a switch does with a value that has no row.
enum class Unknown { IsSilent, IsLogged };

// clang-format off
constexpr ValueToId videoSignalGenModes[] = {{1, OrbIdVideoGenBlack}, {2, OrbIdVideoGenBars}, {3, OrbIdVideoGenMoving}};
constexpr ValueToId audioSignalGenModes[] = {{1, OrbIdAudioGenSilence}, {2, OrbIdAudioGenTone}};
constexpr ValueToId videoInConverts[]     = {{4, OrbIdConvertNone}, {6, OrbIdConvertInput}};
constexpr ValueToId videoOutConverts[]    = {{4, OrbIdConvertNone}, {6, OrbIdConvertOutput}};
constexpr ValueToId superOuts[]           = {{0, OrbIdNone}, {1, OrbIdSuperTimecode}, {5, OrbIdSuperTimecodeClip}, {6, OrbIdSuperAll}};
constexpr ValueToId videoOutputRoutes[]   = {{0, OrbIdOutputRouteNormal}, {1, OrbIdOutputRouteLoop}};
constexpr ValueToId audioInputLevels[]    = {{0, OrbIdAudioLevel0}, {1, OrbIdAudioLevel1}, {2, OrbIdAudioLevel2}, {3, OrbIdAudioLevel3}};
constexpr ValueToId tcgSources[]          = {{0, OrbIdTimecodePreset}, {1, OrbIdTimecodeVitc}, {3, OrbIdTimecodeLtc}, {5, OrbIdTimecodeTimeOfDay}};
constexpr ValueToId cameraInputs[]        = {
    {1, OrbIdCameraInput1}, {2, OrbIdCameraInput2}, {3, OrbIdCameraInput3},
    {4, OrbIdCameraInput4}, {5, OrbIdCameraInput5}, {6, OrbIdCameraInput6},
    {7, OrbIdCameraInput7}, {8, OrbIdCameraInput8}, {9, OrbIdCameraInput9},
};
// clang-format on

OrbId idFor(std::span<const ValueToId> rows, const QVariant &value,
            Unknown unknown = Unknown::IsSilent, int line = __builtin_LINE())
{
    const int number = value.toInt();
    const auto id = idForValue(rows, number);
    if (!id && unknown == Unknown::IsLogged)
        orbLogOutput(2, logFile, line, "Unsupported value: %d\n", number);
    return id.value_or(OrbId());
}

} // namespace

struct MainObject::ParamRow {
    quint32 id;
    void (*act)(MainObject &m, const QVariant &value);
};

// clang-format off
const MainObject::ParamRow MainObject::paramRows[] = {
    // The engine receives the inverse of the parameter, deliberately.
    {0x2000000a, [](MainObject &m, const QVariant &v) { m._vtr->setStopOnLossOfVideo(!v.toBool()); }},
    {0x0f01000a, [](MainObject &m, const QVariant &v) { m.playMediaChanged(v.toInt()); }},
    {0x0d01000a, [](MainObject &m, const QVariant &v) { m._vtr->setCameraInput(idFor(cameraInputs, v)); }},
    {0x0d03000a, [](MainObject &m, const QVariant &)  { m.loadLuts(); }},
    {0x0d04000a, [](MainObject &m, const QVariant &)  { m.loadLuts(); }},
    {0x0e01000a, [](MainObject &m, const QVariant &v) { m._vtr->setEncodeFormat(encodeTypeToID(static_cast<int>(v.toUInt()))); }},
    {0x0f02000a, [](MainObject &m, const QVariant &v) { m._vtr->setLooping(v.toBool()); }},
    {0x0f03000a, [](MainObject &m, const QVariant &)  { m.updatePlayList(); }},
    {0x0f04000a, [](MainObject &m, const QVariant &v) { m._vtr->setStopOnFrameDrop(v.toBool()); }},
    {0x1100000a, [](MainObject &m, const QVariant &v) { m._vtr->setReelName(QStringLiteral("%1").arg(v.toString(), 3, QLatin1Char('0'))); }},
    {0x7b010a0a, [](MainObject &m, const QVariant &v) { m._mediaManager->setRolloverPath(v.toString()); }},
    {0x7d01120a, [](MainObject &m, const QVariant &v) { m.gotoClipByName(v.toString()); }},
    {0x7d01140a, [](MainObject &m, const QVariant &v) { m.gotoClipByIndex(v.toInt()); }},
    {0x7d06000a, [](MainObject &m, const QVariant &)  { m.mediaUpdated(); }},
    {0x7b03070a, [](MainObject &,  const QVariant &)  { orbLogOutput(3, logFile, __LINE__, "Media is loading...\n"); }},
    {0x7d01000a, [](MainObject &m, const QVariant &v) { m.transportCommand(v.toInt()); }},
    {0x2901000a, [](MainObject &m, const QVariant &v) { m._vtr->setVideoSignalGenFormat(sigGenFormatToImgDesc(v.toInt())); }},
    {0x2902000a, [](MainObject &m, const QVariant &v) { m._vtr->setVideoSignalGenMode(idFor(videoSignalGenModes, v)); }},
    {0x2903000a, [](MainObject &m, const QVariant &v) { m._vtr->setAudioSignalGenMode(idFor(audioSignalGenModes, v)); }},
    {0x7b01010a, [](MainObject &m, const QVariant &v) { m.activePathChanged(v.toString()); }},
    {0x02030000, [](MainObject &m, const QVariant &v) { m.validateAudioChannels();
                                                        m._vtr->setAudioChans(v.toInt() == 0 ? 2 : v.toInt() == 1 ? 8 : 0); }},
    {0x0106000a, [](MainObject &m, const QVariant &v) { m._vtr->setVideoOutputType(videoOutputToID(v.toInt())); }},
    // True for 0, deliberately.
    {0x0103000a, [](MainObject &m, const QVariant &v) { m._vtr->setForcePSFOutput(v.toInt() == 0); }},
    // One parameter drives both.
    {0x0101000a, [](MainObject &m, const QVariant &v) { m._vtr->setForcePSFEncode(v.toInt() == 1);
                                                        m._vtr->setVFREnable(v.toInt() == 2); }},
    {0x0104000a, [](MainObject &m, const QVariant &v) { m._vtr->setVideoInConvert(idFor(videoInConverts, v)); }},
    {0x0105000a, [](MainObject &m, const QVariant &v) { m._vtr->setVideoOutConvert(idFor(videoOutConverts, v)); }},
    {0x0109000a, [](MainObject &m, const QVariant &v) { m._vtr->setSuperOut(idFor(superOuts, v, Unknown::IsLogged)); }},
    {0x0201000a, [](MainObject &m, const QVariant &v) { m._vtr->setVideoInputSource(videoInputToID(static_cast<int>(v.toUInt()))); }},
    {0x0202000a, [](MainObject &m, const QVariant &v) { m.validateAudioChannels();
                                                        m._vtr->setAudioInputSource(audioInputToID(static_cast<int>(v.toUInt()))); }},
    {0x0108000a, [](MainObject &m, const QVariant &v) { m._vtr->setVideoOutputRoute(idFor(videoOutputRoutes, v, Unknown::IsLogged)); }},
    {0x0802000a, [](MainObject &m, const QVariant &v) { m._vtr->setTimecodeDropFrame(v.toInt() == 1); }},
    {0x0900000a, [](MainObject &m, const QVariant &v) { m._vtr->setIntervalRecordEnable(v.toBool()); }},
    {0x0901000a, [](MainObject &m, const QVariant &v) { m._vtr->setRecordInterval(v.toInt()); }},
    {0x0902000a, [](MainObject &m, const QVariant &v) { m._vtr->setRecordIntervalTime(v.toInt()); }},
    // True for 0, deliberately.
    {0x0803000a, [](MainObject &m, const QVariant &v) { m._vtr->setRecordOnRunningTimecode(v.toInt() == 0); }},
    {0x0601000a, [](MainObject &m, const QVariant &v) { m._vtr->setSyncSource(syncSourceToID(static_cast<int>(v.toUInt()))); }},
    {0x04010000, [](MainObject &m, const QVariant &v) { m._vtr->setAudioInputLevel(idFor(audioInputLevels, v, Unknown::IsLogged)); }},
    {0x0800020a, [](MainObject &m, const QVariant &v) { m._vtr->setTCGSource(idFor(tcgSources, v, Unknown::IsLogged)); }},
    // The integer is the timecode's first field, the hour; the others are zero.
    {0x0801000a, [](MainObject &m, const QVariant &v) { m._vtr->setTimecodeValue(OrbTimecode(v.toInt(), 0, 0, 0, 0, 0)); }},
    {0x0c020000, [](MainObject &m, const QVariant &v) { m._mediaManager->setRolloverEnabled(v.toBool()); }},
};
// clang-format on

void MainObject::configParamChanged(quint32 id, const QVariant &value, const OrbTimeStamp &)
{
    if (!_vtr)
        return;
    const QString text = ConfigInterface::paramToString(id, value);
    logText(3, QStringLiteral("Param Changed: %1").arg(text));
    const auto row = std::ranges::find(paramRows, id, &ParamRow::id);
    if (row != std::end(paramRows))
        row->act(*this, value);
    else if (_logExtraParams)
        logText(2, QStringLiteral("Changed: %1").arg(text));
}

void MainObject::playMediaChanged(int value)
{
    _playMedia = value;
    logText(3, QStringLiteral("Play Media: %1").arg(value));
    if (_vtr->state().isInModePlay())
        _vtr->reopenPlaybackStream();
}

void MainObject::activePathChanged(const QString &path)
{
    _mediaManager->setActivePath(path);
    if (!_mediaManager->activePath().isEmpty())
        reloadClips();
}

void MainObject::mediaUpdated()
{
    orbLogOutput(3, logFile, __LINE__, "Media has been updated...\n");
    reloadClips();
    if (!_vtr->state().isInModePlay())
        return;
    const int frame = _vtr->currentFrameNumber();
    _vtr->reopenPlaybackStream();
    _vtr->cue(frame);
}
