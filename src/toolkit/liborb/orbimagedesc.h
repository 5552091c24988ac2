#pragma once

#include "liborb/orbid.h"
#include "liborb/orbvideorate.h"

#include <QMetaType>
#include <QSharedDataPointer>
#include <QSize>
#include <QString>

class OrbImageDescData;

/// A video format: raster, aspect ratio, rate, scan mode and data type. Implicitly shared.
class OrbImageDesc
{
public:
    enum ScanMode { Progressive = 0, Interlaced = 1, SegmentedFrame = 2 };

    OrbImageDesc();
    OrbImageDesc(const OrbImageDesc &);
    OrbImageDesc(OrbImageDesc &&) noexcept;
    OrbImageDesc &operator=(const OrbImageDesc &);
    OrbImageDesc &operator=(OrbImageDesc &&) noexcept;
    ~OrbImageDesc();

    /// Both dimensions are set (0 included).
    bool isValid() const;
    bool isInterlaced() const { return scanMode() == Interlaced; }

    QSize size() const;
    int width() const;
    int height() const;
    OrbRational aspectRatio() const;
    OrbVideoRate frameRate() const;
    ScanMode scanMode() const;
    OrbId dataType() const;

    void setSize(int width, int height);
    void setAspectRatio(qint32 num, qint32 den);
    void setFrameRate(qint32 num, qint32 den);
    void setFrameRate(const OrbVideoRate &rate);
    void setScanMode(ScanMode mode);
    void setScanMode(int mode) { setScanMode(static_cast<ScanMode>(mode)); }
    void setDataType(const OrbId &type);

    /// For logs, such as "1920x1080p 25/1 ImageProRes422"; "Invalid" for an invalid description.
    QString toString() const;

    bool operator==(const OrbImageDesc &other) const;
    bool operator!=(const OrbImageDesc &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbImageDescData> _d;
};

Q_DECLARE_METATYPE(OrbImageDesc)
