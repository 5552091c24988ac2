#pragma once

#include "liborb/orbid.h"

#include <QMetaType>
#include <QSharedDataPointer>
#include <QString>

class OrbImageLutData;

/// An image look-up table: three consecutive planes (red, green, blue) of 16-bit values, each entries()
/// long. Implicitly shared; empty by default.
class OrbImageLut
{
public:
    OrbImageLut();
    /// A table of \a entries entries a plane, all 0; at most 65536, empty for a count below 1.
    OrbImageLut(const OrbId &type, int entries);
    OrbImageLut(const OrbImageLut &);
    OrbImageLut(OrbImageLut &&) noexcept;
    OrbImageLut &operator=(const OrbImageLut &);
    OrbImageLut &operator=(OrbImageLut &&) noexcept;
    ~OrbImageLut();

    bool isValid() const; ///< holds at least one entry
    OrbId type() const;
    int entries() const;
    QString filename() const;
    void setFilename(const QString &name);
    /// The planes, entries() * 3 values; null when empty.
    const short *lutData() const;
    short *lutData(); ///< detaches

    bool operator==(const OrbImageLut &other) const;
    bool operator!=(const OrbImageLut &other) const { return !(*this == other); }

private:
    QSharedDataPointer<OrbImageLutData> _d;
};

Q_DECLARE_METATYPE(OrbImageLut)
