#pragma once

#include "liborb/orbaudiodesc.h"
#include "liborb/orbimagedesc.h"

#include <QList>
#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>

class OrbStreamInfoData;

/// What a stream holds, or what a stream to be written will hold. Implicitly shared.
class OrbStreamInfo
{
public:
    OrbStreamInfo();
    OrbStreamInfo(const OrbStreamInfo &);
    OrbStreamInfo(OrbStreamInfo &&) noexcept;
    OrbStreamInfo &operator=(const OrbStreamInfo &);
    OrbStreamInfo &operator=(OrbStreamInfo &&) noexcept;
    ~OrbStreamInfo();

    QString name() const;
    QString reelName() const;
    const QList<OrbImageDesc> &vids() const; ///< one a video track
    QList<OrbImageDesc> &vids();
    const QList<OrbAudioDesc> &auds() const; ///< one an audio track
    QList<OrbAudioDesc> &auds();
    OrbVideoRate frameRate() const;
    OrbVideoRate effectiveFrameRate() const;
    int offset() const; ///< first frame number
    int length() const; ///< frames
    bool isGrowing() const; ///< still being recorded when it was opened

    void setName(const QString &name);
    void setReelName(const QString &name);
    void setFrameRate(const OrbVideoRate &rate);
    void setEffectiveFrameRate(const OrbVideoRate &rate);
    void setOffset(int frame);
    void setLength(int frames);
    void setGrowing(bool on);

    bool operator==(const OrbStreamInfo &other) const;
    bool operator!=(const OrbStreamInfo &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbStreamInfoData> _d;
};

Q_DECLARE_METATYPE(OrbStreamInfo)
