#include "liborb/orbimage.h"

#include <limits>

class OrbImageData : public QSharedData
{
public:
    OrbImageDesc desc;
    OrbCryptoDesc crypto;
    QList<OrbBuffer> planes;
    qint32 reserved = 0; ///< nothing sets or reads it
};

OrbImage::OrbImage() : _d(new OrbImageData) {}
OrbImage::OrbImage(const OrbImage &) = default;
OrbImage::OrbImage(OrbImage &&) noexcept = default;
OrbImage &OrbImage::operator=(const OrbImage &) = default;
OrbImage &OrbImage::operator=(OrbImage &&) noexcept = default;
OrbImage::~OrbImage() = default;

OrbImage::OrbImage(quint64 size) : OrbImage()
{
    // A buffer counts in 32 bits; a plane that cannot be had is an invalid buffer.
    const bool fits = size <= std::numeric_limits<quint32>::max();
    _d->planes.append(fits ? OrbBuffer(static_cast<quint32>(size), 0) : OrbBuffer());
}

OrbImage::OrbImage(const OrbImageDesc &desc, const OrbBuffer &plane) : OrbImage()
{
    _d->desc = desc;
    _d->planes.append(plane);
}

bool OrbImage::isValid() const
{
    return _d->desc.isValid() && !_d->planes.isEmpty() && _d->planes.first().isValid();
}

OrbImageDesc OrbImage::desc() const { return _d->desc; }
void OrbImage::setDesc(const OrbImageDesc &desc) { _d->desc = desc; }
const QList<OrbBuffer> &OrbImage::planes() const { return _d->planes; }
QList<OrbBuffer> &OrbImage::planes() { return _d->planes; }

OrbBuffer OrbImage::buffer() const
{
    return _d->planes.isEmpty() ? OrbBuffer() : _d->planes.first();
}

OrbCryptoDesc OrbImage::crypto() const { return _d->crypto; }
