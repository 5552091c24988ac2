#pragma once

#include "liborb/orbid.h"
#include "liborb/orbvideodevicesetup.h"
#include "liborb/orbvideostate.h"
#include "transport/vtrstate.h"

class OrbFrame;

/// Everything that a device setup is made of.
struct SetupSource {
    VtrState settings;
    OrbId tcgSource;
    OrbVideoState input; ///< what the device sees on its input

    /// The video generator feeds the recorder, or the input does.
    bool isVideoValid() const;
};

/// The setup that every other one starts from: 1080p at 24 frames a second, playback, and the
/// settings.
OrbVideoDeviceSetup defaultSetup(const SetupSource &source);
/// For showing \a frame.
OrbVideoDeviceSetup playbackSetup(const SetupSource &source, const OrbFrame &frame);
/// For the input, passed through or recorded.
OrbVideoDeviceSetup recordSetup(const SetupSource &source);
/// Black, for an engine that goes away.
OrbVideoDeviceSetup shutdownSetup(const SetupSource &source);
