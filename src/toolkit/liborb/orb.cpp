#include "liborb/orb.h"

#include "liborb/orbalarm.h"
#include "liborb/orbaudiodesc.h"
#include "liborb/orberror.h"
#include "liborb/orbframe.h"
#include "liborb/orbid.h"
#include "liborb/orbimagedesc.h"
#include "liborb/orbimagelut.h"
#include "liborb/orblog.h"
#include "liborb/orbmetadata.h"
#include "liborb/orbplaylist.h"
#include "liborb/orbrational.h"
#include "liborb/orbstreaminfo.h"
#include "liborb/orbtimecode.h"
#include "liborb/orbtimestamp.h"
#include "liborb/orbvbiinfo.h"
#include "liborb/orbvideodevicesetup.h"
#include "liborb/orbvideorate.h"
#include "liborb/orbvideostate.h"

#include <QTime>

#include <mutex>

extern "C" {
#include <libavutil/log.h>
}

namespace {

constexpr qint64 dayMs = 24 * 60 * 60 * 1000;

struct TimeOfDay {
    std::mutex mutex;
    std::function<qint64()> source;
};

TimeOfDay &timeOfDay()
{
    static TimeOfDay instance;
    return instance;
}

/// ORB_LOG names a file, or "stderr", that the toolkit logs to besides the sinks the program opens.
void openLogOfEnvironment()
{
    const QString target = qEnvironmentVariable("ORB_LOG");
    if (target == QLatin1String("stderr"))
        OrbLog::defaultLog()->openDisplay();
    else if (!target.isEmpty())
        OrbLog::defaultLog()->openSecondFile(target);
}

} // namespace

void Orb::init(int)
{
    static std::once_flag logIsOpen;
    std::call_once(logIsOpen, openLogOfEnvironment);

    // The names are those that signal signatures spell.
    qRegisterMetaType<OrbId>("OrbId");
    qRegisterMetaType<OrbError>("OrbError");
    qRegisterMetaType<OrbRational>("OrbRational");
    qRegisterMetaType<OrbVideoRate>("OrbVideoRate");
    qRegisterMetaType<OrbImageDesc>("OrbImageDesc");
    qRegisterMetaType<OrbAudioDesc>("OrbAudioDesc");
    qRegisterMetaType<OrbImageLut>("OrbImageLut");
    qRegisterMetaType<OrbVideoDeviceSetup>("OrbVideoDeviceSetup");
    qRegisterMetaType<OrbVideoState>("OrbVideoState");
    qRegisterMetaType<OrbVideoRefState>("OrbVideoRefState");
    qRegisterMetaType<OrbStreamInfo>("OrbStreamInfo");
    qRegisterMetaType<OrbFrame>("OrbFrame");
    qRegisterMetaType<OrbMetadata>("OrbMetadata");
    qRegisterMetaType<OrbMetadataHash>("OrbMetadataHash");
    qRegisterMetaType<OrbTimecode>("OrbTimecode");
    qRegisterMetaType<OrbTimeStamp>("OrbTimeStamp");
    qRegisterMetaType<OrbVbiInfo>("OrbVbiInfo");
    qRegisterMetaType<OrbAlarm>("OrbAlarm");
    qRegisterMetaType<OrbPlayListEntry>("OrbPlayListEntry");
    qRegisterMetaType<OrbPlayList>("OrbPlayList");
    qRegisterMetaType<OrbPlayListIndex>("OrbPlayListIndex");

    av_log_set_level(AV_LOG_QUIET); // its failures come back as results
}

qint64 Orb::timeOfDayMs()
{
    std::function<qint64()> source;
    {
        const std::lock_guard lock(timeOfDay().mutex);
        source = timeOfDay().source;
    }
    const qint64 ms = source ? source() : QTime::currentTime().msecsSinceStartOfDay();
    return (ms % dayMs + dayMs) % dayMs;
}

void Orb::setTimeOfDaySource(const std::function<qint64()> &source)
{
    const std::lock_guard lock(timeOfDay().mutex);
    timeOfDay().source = source;
}
