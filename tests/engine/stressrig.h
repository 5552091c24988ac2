#pragma once

#include "liborb/drivers/scripted/scriptedmedia.h"
#include "liborb/drivers/scripted/scriptedvideo.h"
#include "transport/vtrobject.h"

#include <memory>

/// The shipped engine on scripted drivers under virtual time, as EngineRig has it, but without a
/// transcript: nothing is kept of what happens, so that it may go on for long. The controller's
/// answers stand in members.
class StressRig
{
public:
    /// \a opens: the device can be opened.
    explicit StressRig(bool opens);
    ~StressRig();
    StressRig(const StressRig &) = delete;
    StressRig &operator=(const StressRig &) = delete;

    ScriptedVideo video{nullptr};
    ScriptedMedia media{nullptr};
    std::unique_ptr<VtrObject> vtr;
    OrbVideoDevice *device;
    OrbStream *stream;
    OrbStreamCache *cache;

    // The controller's answers
    QVariant playbackDesc;
    int startFrame = 0;
    QVariant recordDesc;
    OrbId inhibitReason;

    /// From here on the drivers do as they should: no fault is left, and what was held is ended.
    void endFaults();
    /// Every setting back to where a recording of the input is possible.
    void endSettings();
    void changeInput(const OrbVideoState &state) { video.changeInput(0, state); }
    /// Two joined clips as one descriptor.
    static QVariant playList();
    /// The longest clip of that format.
    int longestClip(const OrbImageDesc &format) const;
    static qint64 nowMs();
    static void run(int ms);

    static constexpr char clipPath[] = "/media/a.mov";
    static constexpr const char *clipPaths[] = {clipPath, "/media/b.mov", "/media/fast.mov",
                                                "/media/one.mov", "/media/long.mov",
                                                "/media/empty.mov"};

private:
    void addClips();
};
