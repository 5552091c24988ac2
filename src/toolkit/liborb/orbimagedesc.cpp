#include "liborb/orbimagedesc.h"

namespace {

struct Fields {
    QSize size;
    OrbRational aspectRatio;
    OrbVideoRate frameRate;
    OrbId dataType;
    OrbImageDesc::ScanMode scanMode = OrbImageDesc::Progressive;
    qint32 reserved = 0; ///< nothing sets it; it takes part in every comparison

    bool operator==(const Fields &) const = default;
};

const char *scanSuffix(OrbImageDesc::ScanMode mode)
{
    switch (mode) {
    case OrbImageDesc::Progressive:
        return "p";
    case OrbImageDesc::Interlaced:
        return "i";
    case OrbImageDesc::SegmentedFrame:
        return "psf";
    }
    return "?";
}

} // namespace

class OrbImageDescData : public QSharedData
{
public:
    Fields f;
};

OrbImageDesc::OrbImageDesc() : _d(new OrbImageDescData) {}
OrbImageDesc::OrbImageDesc(const OrbImageDesc &) = default;
OrbImageDesc::OrbImageDesc(OrbImageDesc &&other) noexcept = default;
OrbImageDesc &OrbImageDesc::operator=(const OrbImageDesc &) = default;
OrbImageDesc &OrbImageDesc::operator=(OrbImageDesc &&) noexcept = default;
OrbImageDesc::~OrbImageDesc() = default;

bool OrbImageDesc::isValid() const
{
    return _d->f.size.isValid();
}

QSize OrbImageDesc::size() const { return _d->f.size; }
int OrbImageDesc::width() const { return _d->f.size.width(); }
int OrbImageDesc::height() const { return _d->f.size.height(); }
OrbRational OrbImageDesc::aspectRatio() const { return _d->f.aspectRatio; }
OrbVideoRate OrbImageDesc::frameRate() const { return _d->f.frameRate; }
OrbImageDesc::ScanMode OrbImageDesc::scanMode() const { return _d->f.scanMode; }
OrbId OrbImageDesc::dataType() const { return _d->f.dataType; }

void OrbImageDesc::setSize(int width, int height) { _d->f.size = QSize(width, height); }
void OrbImageDesc::setAspectRatio(qint32 num, qint32 den)
{
    _d->f.aspectRatio = OrbRational(num, den);
}
void OrbImageDesc::setFrameRate(qint32 num, qint32 den)
{
    _d->f.frameRate = OrbVideoRate(num, den);
}
void OrbImageDesc::setFrameRate(const OrbVideoRate &rate) { _d->f.frameRate = rate; }
void OrbImageDesc::setScanMode(ScanMode mode) { _d->f.scanMode = mode; }
void OrbImageDesc::setDataType(const OrbId &type) { _d->f.dataType = type; }

QString OrbImageDesc::toString() const
{
    if (!isValid())
        return QStringLiteral("Invalid");
    QString text = QStringLiteral("%1x%2%3").arg(width()).arg(height()).arg(
        QLatin1String(scanSuffix(scanMode())));
    if (frameRate().isValid())
        text += QStringLiteral(" %1/%2").arg(frameRate().num()).arg(frameRate().den());
    if (dataType().isValid())
        text += QLatin1Char(' ') + dataType().name();
    return text;
}

bool OrbImageDesc::operator==(const OrbImageDesc &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
