#include "transport/setups.h"

#include "liborb/orbframe.h"

namespace {

constexpr int audioSampleRate = 48000;
constexpr int defaultAudioChans = 2;
constexpr int secondsOfBuffers = 6;

OrbImageDesc defaultImageDesc()
{
    OrbImageDesc desc;
    desc.setSize(1920, 1080);
    desc.setAspectRatio(1920, 1080);
    desc.setFrameRate(24000, 1000);
    desc.setScanMode(OrbImageDesc::Progressive);
    desc.setDataType(OrbId(OrbIdDefaultImageDataType));
    return desc;
}

OrbAudioDesc audioDescFor(const OrbImageDesc &image, int chans)
{
    OrbAudioDesc desc;
    desc.setDataType(OrbId(OrbIdAudioDataType));
    desc.setChans(chans);
    desc.setSampleRate(audioSampleRate, 1);
    desc.setFrameRate(image.frameRate());
    return desc;
}

void applySettings(OrbVideoDeviceSetup &setup, const SetupSource &source)
{
    const VtrState &settings = source.settings;
    setup.setVideoInputSource(settings.videoInputSource());
    setup.setInputRefSource(settings.syncSource());
    setup.setAudioInputSource(settings.audioInputSource());
    setup.setAudioInputLevel(settings.audioInputLevel());
    setup.setInputLut(settings.inputLut());
    setup.setOutputLut(settings.outputLut());
    setup.setVideoInConvert(settings.videoInConvert());
    setup.setVideoOutConvert(settings.videoOutConvert());
    setup.setSuperOut(settings.superOut());
    setup.setVideoOutputType(settings.videoOutputType());
    setup.setVideoOutRoute(settings.videoOutputRoute());
    setup.setForcePSFOutput(settings.forcePSFOutput());
    setup.setForcePSFEncode(settings.forcePSFEncode());
    setup.setForceVFRRecord(settings.vfrEnable());
    setup.setVideoSignalGenMode(settings.videoSignalGenMode());
    setup.setVideoSignalGenColorSpace(settings.videoSignalGenFormat().dataType());
    setup.setTimecodeInputSource(source.tcgSource);
    setup.setBlackingEnabled(!source.isVideoValid());
    setup.setCameraInput(settings.cameraInput());
}

/// What comes in, in the encode format.
OrbImageDesc recordImageDesc(const SetupSource &source)
{
    OrbImageDesc desc =
        source.isVideoValid() ? source.input.captureImageDesc() : defaultImageDesc();
    if (source.settings.videoSignalGenMode().isValid())
        desc = source.settings.videoSignalGenFormat();
    desc.setDataType(source.settings.encodeFormat());
    return desc;
}

} // namespace

bool SetupSource::isVideoValid() const
{
    return settings.videoSignalGenMode().isValid() || input.isValid();
}

OrbVideoDeviceSetup defaultSetup(const SetupSource &source)
{
    const OrbImageDesc image = defaultImageDesc();
    OrbVideoDeviceSetup setup;
    setup.setImageCount(1);
    setup.setImageDesc(image);
    setup.setAudioDesc(audioDescFor(image, defaultAudioChans));
    setup.setMode(OrbVideoDeviceSetup::Playback);
    applySettings(setup, source);
    return setup;
}

OrbVideoDeviceSetup playbackSetup(const SetupSource &source, const OrbFrame &frame)
{
    OrbVideoDeviceSetup setup = defaultSetup(source);
    setup.setImageCount(1);
    setup.setMode(OrbVideoDeviceSetup::Playback);
    if (!frame.vids().isEmpty())
        setup.setImageDesc(frame.vids().first().desc());
    setup.setAudioDesc(frame.auds().isEmpty() ? OrbAudioDesc() : frame.auds().first().desc());
    setup.setBlackingEnabled(false);
    return setup;
}

OrbVideoDeviceSetup recordSetup(const SetupSource &source)
{
    const VtrState &settings = source.settings;
    const OrbImageDesc image = recordImageDesc(source);
    OrbVideoDeviceSetup setup = defaultSetup(source);
    setup.setImageCount(1);
    setup.setMode(OrbVideoDeviceSetup::Capture);
    setup.setVideoInputSource(settings.videoSignalGenMode().isValid()
                                  ? OrbId(OrbIdSourceInternal)
                                  : settings.videoInputSource());
    setup.setAudioInputSource(settings.audioSignalGenMode().isValid()
                                  ? OrbId(OrbIdSourceInternal)
                                  : settings.audioInputSource());
    setup.setAudioSignalGenMode(settings.audioSignalGenMode());
    setup.setImageDesc(image);
    setup.setAudioDesc(audioDescFor(image, settings.audioChans()));
    setup.setBlackingEnabled(!source.isVideoValid());
    setup.setMaxBuffers(secondsOfBuffers * image.frameRate().timecodeRate());
    return setup;
}

OrbVideoDeviceSetup shutdownSetup(const SetupSource &source)
{
    OrbVideoDeviceSetup setup = defaultSetup(source);
    OrbImageDesc image = setup.imageDesc();
    image.setDataType(OrbId(OrbIdShutdownImageDataType));
    setup.setMode(OrbVideoDeviceSetup::Capture);
    setup.setImageDesc(image);
    setup.setAudioDesc(OrbAudioDesc());
    setup.setVideoSignalGenMode(OrbId(OrbIdShutdownSignalGenMode));
    setup.setVideoInputSource(OrbId(OrbIdSourceInternal));
    setup.setSuperOut(OrbId(OrbIdNone));
    return setup;
}
