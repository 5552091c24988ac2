#include "stressrig.h"

#include "enginerig.h"
#include "liborb/orbplaylist.h"
#include "liborb/orbstream.h"
#include "liborb/orbstreamcache.h"
#include "liborb/orbvideodevice.h"

#include <algorithm>

StressRig::StressRig(bool opens)
{
    video.opens = opens;
    video.install();
    addClips();
    media.quietPrefix = QStringLiteral("/usr/local/share/media");
    media.install();
    playbackDesc = QString::fromLatin1(clipPath);
    recordDesc = QStringLiteral("/media/rec.mov");
    vtr = std::make_unique<VtrObject>();
    device = vtr->findChild<OrbVideoDevice *>();
    stream = vtr->findChild<OrbStream *>();
    cache = vtr->findChild<OrbStreamCache *>();
    VtrObject *v = vtr.get();
    QObject::connect(v, &VtrObject::requestPlaybackStreamDesc, v,
                     [this](QVariant &desc, int &frame) {
                         desc = playbackDesc;
                         frame = startFrame;
                     });
    QObject::connect(v, &VtrObject::requestRecordStreamDesc, v,
                     [this](QVariant &desc) { desc = recordDesc; });
    QObject::connect(v, &VtrObject::requestRecordInhibit, v,
                     [this](OrbId &reason) { reason = inhibitReason; });
}

StressRig::~StressRig()
{
    vtr.reset();
    ScriptedVideo::uninstall();
    ScriptedMedia::uninstall();
}

void StressRig::addClips()
{
    const OrbImageDesc formats[] = {
        EngineRig::hd25(), EngineRig::hd25(), EngineRig::imageDesc(1280, 720, 50, 1),
        EngineRig::hd25(), EngineRig::imageDesc(1920, 1080, 24000, 1001), EngineRig::hd25()};
    constexpr int lengths[] = {100, 50, 60, 1, 2000, 0};
    for (size_t i = 0; i < std::size(clipPaths); ++i)
        media.clips.insert(QString::fromLatin1(clipPaths[i]),
                           EngineRig::clip(lengths[i], formats[i]));
    media.clips.insert(QStringLiteral("/usr/local/share/media/prores_422/loss_of_video_1080p_422.mov"),
                       EngineRig::clip(1, EngineRig::hd25()));
    media.clips.insert(ScriptedMedia::pathOf(playList()), EngineRig::clip(150, EngineRig::hd25()));
}

QVariant StressRig::playList()
{
    OrbPlayList list;
    for (const int i : {0, 1}) {
        OrbPlayListEntry entry;
        entry.setName(QString::fromLatin1(clipPaths[i]));
        entry.setDesc(QString::fromLatin1(clipPaths[i]));
        entry.setLength(i == 0 ? 100 : 50);
        list << entry;
    }
    return QVariant::fromValue(list);
}

int StressRig::longestClip(const OrbImageDesc &format) const
{
    int length = 0;
    for (const ScriptedClip &clip : media.clips)
        if (clip.image == format)
            length = std::max(length, clip.length);
    return length;
}

void StressRig::endFaults()
{
    video.setups.clear();
    video.flushes.clear();
    video.readErrors.clear();
    video.hasSignal = true;
    video.imageCount = 1;
    video.cameraFlag.reset();
    video.inputTimecode = OrbTimecode();
    video.hasTimecode = true;
    video.captureLimit = 40;
    media.opens.clear();
    media.closes.clear();
    media.badFrames.clear();
    media.readMs = 1;
    media.writeMs = 1;
    media.writeError = OrbError();
    video.finishSetup();
    video.finishFlush();
    media.finishWrites();
    media.finishOpen();
    media.finishClose();
    inhibitReason = OrbId();
    playbackDesc = QString::fromLatin1(clipPath);
    startFrame = 0;
    recordDesc = QStringLiteral("/media/last.mov");
}

void StressRig::endSettings()
{
    vtr->setVideoSignalGenMode(OrbId());
    vtr->setCameraInput(OrbId());
    vtr->setIntervalRecordEnable(false);
    vtr->setRecordOnRunningTimecode(false);
    vtr->setLooping(false);
}

qint64 StressRig::nowMs()
{
    return SimDispatcher::instance()->nowMs();
}

void StressRig::run(int ms)
{
    SimDispatcher::runFor(ms);
}
