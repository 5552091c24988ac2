#pragma once

#include "liborb/orbbuffer.h"
#include "liborb/orbcrypto.h"
#include "liborb/orbimagedesc.h"

#include <QList>
#include <QSharedDataPointer>

class OrbImageData;

/// One video image: a description and its plane buffers. A coded image has one plane, the bitstream.
class OrbImage
{
public:
    OrbImage();
    /// One plane of \a size bytes.
    explicit OrbImage(quint64 size);
    OrbImage(const OrbImageDesc &desc, const OrbBuffer &plane);
    OrbImage(const OrbImage &);
    OrbImage(OrbImage &&) noexcept;
    OrbImage &operator=(const OrbImage &);
    OrbImage &operator=(OrbImage &&) noexcept;
    ~OrbImage();

    /// The description and the first plane are valid.
    bool isValid() const;
    OrbImageDesc desc() const;
    void setDesc(const OrbImageDesc &desc);
    const QList<OrbBuffer> &planes() const;
    QList<OrbBuffer> &planes();
    /// The first plane, invalid when there is none.
    OrbBuffer buffer() const;
    OrbCryptoDesc crypto() const;

private:
    QSharedDataPointer<OrbImageData> _d;
};
