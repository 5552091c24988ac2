#include "liborb/orbimagelut.h"

#include <QList>

#include <algorithm>

namespace {

constexpr int largestTable = 65536;

struct Fields {
    OrbId type;
    qint32 entries = 0;
    QString filename;
    QList<short> planes;

    bool operator==(const Fields &) const = default;
};

} // namespace

class OrbImageLutData : public QSharedData
{
public:
    Fields f;
};

OrbImageLut::OrbImageLut() : _d(new OrbImageLutData) {}
OrbImageLut::OrbImageLut(const OrbImageLut &) = default;
OrbImageLut::OrbImageLut(OrbImageLut &&) noexcept = default;
OrbImageLut &OrbImageLut::operator=(const OrbImageLut &) = default;
OrbImageLut &OrbImageLut::operator=(OrbImageLut &&) noexcept = default;
OrbImageLut::~OrbImageLut() = default;

OrbImageLut::OrbImageLut(const OrbId &type, int entries) : OrbImageLut()
{
    _d->f.type = type;
    _d->f.entries = std::clamp(entries, 0, largestTable);
    _d->f.planes = QList<short>(_d->f.entries * 3, 0);
}

bool OrbImageLut::isValid() const { return _d->f.entries > 0; }
OrbId OrbImageLut::type() const { return _d->f.type; }
int OrbImageLut::entries() const { return _d->f.entries; }
QString OrbImageLut::filename() const { return _d->f.filename; }
void OrbImageLut::setFilename(const QString &name) { _d->f.filename = name; }

const short *OrbImageLut::lutData() const
{
    return isValid() ? _d->f.planes.constData() : nullptr;
}

short *OrbImageLut::lutData()
{
    if (entries() == 0)
        return nullptr;
    return _d->f.planes.data();
}

bool OrbImageLut::operator==(const OrbImageLut &other) const
{
    return _d == other._d || std::as_const(_d)->f == std::as_const(other._d)->f;
}
