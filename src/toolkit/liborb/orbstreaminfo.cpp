#include "liborb/orbstreaminfo.h"

namespace {

struct Fields {
    QString name;
    QString reelName;
    QList<OrbImageDesc> vids;
    QList<OrbAudioDesc> auds;
    OrbVideoRate frameRate;
    OrbVideoRate effectiveFrameRate;
    qint32 offset = 0;
    qint32 length = 0;
    bool growing = false;

    bool operator==(const Fields &) const = default;
};

} // namespace

class OrbStreamInfoData : public QSharedData
{
public:
    Fields f;
};

OrbStreamInfo::OrbStreamInfo() : _d(new OrbStreamInfoData) {}
OrbStreamInfo::OrbStreamInfo(const OrbStreamInfo &) = default;
OrbStreamInfo::OrbStreamInfo(OrbStreamInfo &&) noexcept = default;
OrbStreamInfo &OrbStreamInfo::operator=(const OrbStreamInfo &) = default;
OrbStreamInfo &OrbStreamInfo::operator=(OrbStreamInfo &&) noexcept = default;
OrbStreamInfo::~OrbStreamInfo() = default;

QString OrbStreamInfo::name() const { return _d->f.name; }
QString OrbStreamInfo::reelName() const { return _d->f.reelName; }
const QList<OrbImageDesc> &OrbStreamInfo::vids() const { return _d->f.vids; }
QList<OrbImageDesc> &OrbStreamInfo::vids() { return _d->f.vids; }
const QList<OrbAudioDesc> &OrbStreamInfo::auds() const { return _d->f.auds; }
QList<OrbAudioDesc> &OrbStreamInfo::auds() { return _d->f.auds; }
OrbVideoRate OrbStreamInfo::frameRate() const { return _d->f.frameRate; }
OrbVideoRate OrbStreamInfo::effectiveFrameRate() const { return _d->f.effectiveFrameRate; }
int OrbStreamInfo::offset() const { return _d->f.offset; }
int OrbStreamInfo::length() const { return _d->f.length; }
bool OrbStreamInfo::isGrowing() const { return _d->f.growing; }

void OrbStreamInfo::setName(const QString &name) { _d->f.name = name; }
void OrbStreamInfo::setReelName(const QString &name) { _d->f.reelName = name; }
void OrbStreamInfo::setFrameRate(const OrbVideoRate &rate) { _d->f.frameRate = rate; }
void OrbStreamInfo::setEffectiveFrameRate(const OrbVideoRate &rate)
{
    _d->f.effectiveFrameRate = rate;
}
void OrbStreamInfo::setOffset(int frame) { _d->f.offset = frame; }
void OrbStreamInfo::setLength(int frames) { _d->f.length = frames; }
void OrbStreamInfo::setGrowing(bool on) { _d->f.growing = on; }

bool OrbStreamInfo::operator==(const OrbStreamInfo &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
