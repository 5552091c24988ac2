#pragma once

#include "libclip/clipreader.h"
#include "liborb/drivers/clip/framesource.h"

#include <QString>

#include <vector>

/// The frames of one clip file. A clip with a sound track has sound in every frame, silence where
/// the track ends early, so that playing never changes its format within a clip.
class ClipSource : public FrameSource
{
public:
    explicit ClipSource(const QString &path) : _path(path) {}

    OrbError open(OrbStreamInfo &info) override;
    /// Of a growing clip the frames committed by now.
    OrbError read(int number, OrbFrame &frame) override;
    bool lookAgain(OrbStreamInfo &info) override;

private:
    bool follow();
    OrbError readPicture(int number, OrbFrame &frame) const;
    OrbError readSound(int number, OrbFrame &frame);

    QString _path;
    clip::ClipReader _reader;
    OrbStreamInfo _info;
    std::vector<std::byte> _sound;
};
