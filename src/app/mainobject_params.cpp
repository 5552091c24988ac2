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

// Parameter dispatch: one table from parameter number to what it does. Rows convert the value and
// call one setter of the engine. No row refuses a value: a wrong type converts to 0, false or an
// empty text, and a number outside a switch is passed on as an invalid identifier, so that the
// engine decides.

namespace
{

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

static_assert(valuesAreDistinct(videoSignalGenModes) && valuesAreDistinct(audioSignalGenModes));
static_assert(valuesAreDistinct(videoInConverts) && valuesAreDistinct(videoOutConverts));
static_assert(valuesAreDistinct(superOuts) && valuesAreDistinct(videoOutputRoutes));
static_assert(valuesAreDistinct(audioInputLevels) && valuesAreDistinct(tcgSources));
static_assert(std::size(cameraInputs) == 9 && valuesAreDistinct(cameraInputs));

// The conversions of the table: from the value that arrived to what a setter takes --------------------------

bool isTrue(const QVariant &v)      { return v.toBool(); }
bool isFalse(const QVariant &v)     { return !v.toBool(); }
int number(const QVariant &v)       { return v.toInt(); }
QString text(const QVariant &v)     { return v.toString(); }
QString reelName(const QVariant &v) { return QStringLiteral("%1").arg(v.toString(), 3, QLatin1Char('0')); }
/// The integer is the timecode's first field, the hour; the others are zero.
OrbTimecode hour(const QVariant &v) { return OrbTimecode(v.toInt(), 0, 0, 0, 0, 0); }
// clang-format on

template <int N> bool is(const QVariant &v)
{
    return v.toInt() == N;
}

int channels(const QVariant &v)
{
    switch (v.toInt()) {
    case 0:
        return 2;
    case 1:
        return 8;
    default:
        return 0;
    }
}

/// What a table of formats and identifiers answers, for a parameter that is signed or unsigned.
template <auto Map> auto mapped(const QVariant &v)
{
    return Map(v.toInt());
}
template <auto Map> auto mappedUInt(const QVariant &v)
{
    return Map(static_cast<int>(v.toUInt()));
}

/// The identifier of a small switch. With a line, a value that has no row is logged from there.
template <const auto &Rows, int Line = 0> OrbId id(const QVariant &v)
{
    const int value = v.toInt();
    const auto found = idForValue(Rows, value);
    if (!found && Line != 0)
        orbLogOutput(2, logFile, Line, "Unsupported value: %d\n", value);
    return found.value_or(OrbId());
}

} // namespace

/// A change on its way: the value that arrived, and the engine's state when it did.
struct MainObject::Change {
    const QVariant &value;
    const VtrState &state;
};

struct MainObject::ParamRow {
    using Action = void (*)(MainObject &m, const Change &c);

    quint32 id;
    Action act;

    /// The engine's setter with the converted value.
    template <auto Setter, auto Convert> static void vtr(MainObject &m, const Change &c)
    {
        (m._vtr->*Setter)(Convert(c.value));
    }
    /// The same for the media manager.
    template <auto Setter, auto Convert> static void media(MainObject &m, const Change &c)
    {
        (m._mediaManager->*Setter)(Convert(c.value));
    }
    /// A step of the controller's own; one that takes nothing is given nothing.
    template <auto Step> static void own(MainObject &m, const Change &) { (m.*Step)(); }
    template <auto Step, auto Convert> static void own(MainObject &m, const Change &c)
    {
        (m.*Step)(Convert(c.value));
    }
    template <auto Step> static void ownWithState(MainObject &m, const Change &c)
    {
        (m.*Step)(c.value.toInt(), c.state);
    }
    template <Action First, Action Second> static void both(MainObject &m, const Change &c)
    {
        First(m, c);
        Second(m, c);
    }
};

// clang-format off
constexpr MainObject::ParamRow MainObject::paramRows[] = {
    // parameter                    what is called with what
    // The engine receives the inverse, deliberately.
    {eParamStopOnLossOfVideo,       ParamRow::vtr<&VtrObject::setStopOnLossOfVideo, isFalse>},
    {eParamPlayMedia,               ParamRow::ownWithState<&MainObject::playMediaChanged>},
    {eParamCameraInput,             ParamRow::vtr<&VtrObject::setCameraInput, ::id<cameraInputs>>},
    {eParamLutMode,                 ParamRow::own<&MainObject::loadLuts>},
    {eParamLutFile,                 ParamRow::own<&MainObject::loadLuts>},
    {eParamEncodeType,              ParamRow::vtr<&VtrObject::setEncodeFormat, mappedUInt<encodeTypeToID>>},
    {eParamLoopPlayback,            ParamRow::vtr<&VtrObject::setLooping, isTrue>},
    {eParamPlayList,                ParamRow::own<&MainObject::updatePlayList>},
    {eParamStopOnFrameDrop,         ParamRow::vtr<&VtrObject::setStopOnFrameDrop, isTrue>},
    {eParamReelName,                ParamRow::vtr<&VtrObject::setReelName, reelName>},
    {eParamRolloverPath,            ParamRow::media<&MediaManager::setRolloverPath, text>},
    {eParamGotoClipName,            ParamRow::own<&MainObject::gotoClipByName, text>},
    {eParamGotoClipIndex,           ParamRow::own<&MainObject::gotoClipByIndex, number>},
    {eParamMediaUpdated,            ParamRow::ownWithState<&MainObject::mediaUpdated>},
    {eParamMediaLoading,            ParamRow::own<&MainObject::mediaLoading>},
    {eParamTransportCommand,        ParamRow::ownWithState<&MainObject::transportCommand>},
    {eParamVideoSignalGenFormat,    ParamRow::vtr<&VtrObject::setVideoSignalGenFormat, mapped<sigGenFormatToImgDesc>>},
    {eParamVideoSignalGenMode,      ParamRow::vtr<&VtrObject::setVideoSignalGenMode, ::id<videoSignalGenModes>>},
    {eParamAudioSignalGenMode,      ParamRow::vtr<&VtrObject::setAudioSignalGenMode, ::id<audioSignalGenModes>>},
    {eParamActivePath,              ParamRow::own<&MainObject::activePathChanged, text>},
    // The check comes first and judges what stands in the store.
    {eParamAudioChannels,           ParamRow::both<ParamRow::own<&MainObject::validateAudioChannels>,
                                                   ParamRow::vtr<&VtrObject::setAudioChans, channels>>},
    {eParamVideoOutputType,         ParamRow::vtr<&VtrObject::setVideoOutputType, mapped<videoOutputToID>>},
    // True for 0, deliberately.
    {eParamPsfOutput,               ParamRow::vtr<&VtrObject::setForcePSFOutput, is<0>>},
    // One parameter drives both.
    {eParamEncodeScanMode,          ParamRow::both<ParamRow::vtr<&VtrObject::setForcePSFEncode, is<1>>,
                                                   ParamRow::vtr<&VtrObject::setVFREnable, is<2>>>},
    {eParamVideoInConvert,          ParamRow::vtr<&VtrObject::setVideoInConvert, ::id<videoInConverts>>},
    {eParamVideoOutConvert,         ParamRow::vtr<&VtrObject::setVideoOutConvert, ::id<videoOutConverts>>},
    {eParamSuperOut,                ParamRow::vtr<&VtrObject::setSuperOut, ::id<superOuts, __LINE__>>},
    {eParamVideoInput,              ParamRow::vtr<&VtrObject::setVideoInputSource, mappedUInt<videoInputToID>>},
    {eParamAudioInput,              ParamRow::both<ParamRow::own<&MainObject::validateAudioChannels>,
                                                   ParamRow::vtr<&VtrObject::setAudioInputSource, mappedUInt<audioInputToID>>>},
    {eParamVideoOutputRoute,        ParamRow::vtr<&VtrObject::setVideoOutputRoute, ::id<videoOutputRoutes, __LINE__>>},
    {eParamTimecodeDropFrame,       ParamRow::vtr<&VtrObject::setTimecodeDropFrame, is<1>>},
    {eParamIntervalRecordEnable,    ParamRow::vtr<&VtrObject::setIntervalRecordEnable, isTrue>},
    {eParamRecordInterval,          ParamRow::vtr<&VtrObject::setRecordInterval, number>},
    {eParamRecordIntervalTime,      ParamRow::vtr<&VtrObject::setRecordIntervalTime, number>},
    // True for 0, deliberately.
    {eParamRecordOnRunningTimecode, ParamRow::vtr<&VtrObject::setRecordOnRunningTimecode, is<0>>},
    {eParamSyncSource,              ParamRow::vtr<&VtrObject::setSyncSource, mappedUInt<syncSourceToID>>},
    {eParamAudioInputLevel,         ParamRow::vtr<&VtrObject::setAudioInputLevel, ::id<audioInputLevels, __LINE__>>},
    {eParamTcgSource,               ParamRow::vtr<&VtrObject::setTCGSource, ::id<tcgSources, __LINE__>>},
    {eParamTimecodeValue,           ParamRow::vtr<&VtrObject::setTimecodeValue, hour>},
    {eParamRolloverEnable,          ParamRow::media<&MediaManager::setRolloverEnabled, isTrue>},
};
// clang-format on

void MainObject::configParamChanged(quint32 id, const QVariant &value, const OrbTimeStamp &)
{
    static_assert(std::size(paramRows) == 40);
    static_assert(std::ranges::all_of(paramRows, [](const ParamRow &row) {
        return std::ranges::count(paramRows, row.id, &ParamRow::id) == 1;
    }));
    if (!_vtr)
        return;
    const VtrState state = _vtr->state();
    const QString text = ConfigInterface::paramToString(id, value);
    logText(3, QStringLiteral("Param Changed: %1").arg(text));
    const auto row = std::ranges::find(paramRows, id, &ParamRow::id);
    if (row != std::end(paramRows))
        row->act(*this, {value, state});
    else if (_logExtraParams)
        logText(2, QStringLiteral("Changed: %1").arg(text));
}

void MainObject::playMediaChanged(int value, const VtrState &state)
{
    _playMedia = value;
    logText(3, QStringLiteral("Play Media: %1").arg(value));
    if (state.isInModePlay())
        _vtr->reopenPlaybackStream();
}

void MainObject::activePathChanged(const QString &path)
{
    _mediaManager->setActivePath(path);
    if (!_mediaManager->activePath().isEmpty())
        reloadClips();
}

void MainObject::mediaLoading()
{
    orbLogOutput(3, logFile, __LINE__, "Media is loading...\n");
}

void MainObject::mediaUpdated(int, const VtrState &state)
{
    orbLogOutput(3, logFile, __LINE__, "Media has been updated...\n");
    reloadClips();
    if (!state.isInModePlay())
        return;
    const int frame = _vtr->currentFrameNumber();
    _vtr->reopenPlaybackStream();
    _vtr->cue(frame);
}
