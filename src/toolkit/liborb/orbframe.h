#pragma once

#include "liborb/orbaudio.h"
#include "liborb/orbimage.h"
#include "liborb/orbmetadata.h"

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QSharedDataPointer>

class OrbFrameData;

/// Subtitle data of a frame; only carried.
class OrbSubtitle
{
public:
    QByteArray data;
    bool operator==(const OrbSubtitle &) const = default;
};

/// One unit of media: images, sounds, metadata. Implicitly shared; the buffers inside stay shared even
/// when a frame is detached.
class OrbFrame
{
public:
    OrbFrame();
    OrbFrame(const OrbFrame &);
    OrbFrame(OrbFrame &&) noexcept;
    OrbFrame &operator=(const OrbFrame &);
    OrbFrame &operator=(OrbFrame &&) noexcept;
    ~OrbFrame();

    const QList<OrbImage> &vids() const;
    QList<OrbImage> &vids();
    const QList<OrbAudio> &auds() const;
    QList<OrbAudio> &auds();
    const OrbMetadataHash &meta() const;
    OrbMetadataHash &meta();
    OrbSubtitle subtitle() const;
    void setSubtitle(const OrbSubtitle &subtitle);

    /// There is at least one image and every image is valid.
    bool hasValidVideo() const;
    /// Neither images nor sounds nor metadata.
    bool isNull() const;
    /// Stores \a on as metadata 25.
    void setKeyFrameFlag(bool on);

private:
    QSharedDataPointer<OrbFrameData> _d;
};

Q_DECLARE_METATYPE(OrbFrame)
