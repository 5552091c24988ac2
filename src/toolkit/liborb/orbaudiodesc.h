#pragma once

#include "liborb/orbid.h"
#include "liborb/orbvideorate.h"

#include <QMetaType>
#include <QSharedDataPointer>

class OrbAudioDescData;

/// An audio format. Implicitly shared.
class OrbAudioDesc
{
public:
    OrbAudioDesc();
    OrbAudioDesc(const OrbAudioDesc &);
    OrbAudioDesc(OrbAudioDesc &&) noexcept;
    OrbAudioDesc &operator=(const OrbAudioDesc &);
    OrbAudioDesc &operator=(OrbAudioDesc &&) noexcept;
    ~OrbAudioDesc();

    OrbId dataType() const;
    OrbRational sampleRate() const;   ///< samples a second
    OrbVideoRate frameRate() const;   ///< the video rate the audio is locked to
    int chans() const;

    void setDataType(const OrbId &type);
    void setSampleRate(qint32 num, qint32 den);
    void setSampleRate(const OrbRational &rate);
    void setFrameRate(const OrbVideoRate &rate);
    void setFrameRate(qint32 num, qint32 den);
    void setChans(int count);

    bool operator==(const OrbAudioDesc &other) const;
    bool operator!=(const OrbAudioDesc &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbAudioDescData> _d;
};

Q_DECLARE_METATYPE(OrbAudioDesc)
