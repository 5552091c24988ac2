#pragma once

#include "liborb/orbaudiodesc.h"
#include "liborb/orbbuffer.h"

#include <QList>
#include <QSharedDataPointer>

class OrbAudioData;

/// The sound of one frame: a description and its sample buffers (one, interleaved, for PCM).
class OrbAudio
{
public:
    OrbAudio();
    OrbAudio(const OrbAudioDesc &desc, const OrbBuffer &samples);
    OrbAudio(const OrbAudio &);
    OrbAudio(OrbAudio &&) noexcept;
    OrbAudio &operator=(const OrbAudio &);
    OrbAudio &operator=(OrbAudio &&) noexcept;
    ~OrbAudio();

    bool isValid() const; ///< the first buffer is valid
    OrbAudioDesc desc() const;
    void setDesc(const OrbAudioDesc &desc);
    const QList<OrbBuffer> &buffers() const;
    QList<OrbBuffer> &buffers();

private:
    QSharedDataPointer<OrbAudioData> _d;
};
