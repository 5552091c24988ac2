#include "liborb/orbaudiodesc.h"

namespace {

struct Fields {
    OrbId dataType;
    OrbRational sampleRate;
    OrbVideoRate frameRate;
    qint32 chans = 0;

    bool operator==(const Fields &) const = default;
};

} // namespace

class OrbAudioDescData : public QSharedData
{
public:
    Fields f;
};

OrbAudioDesc::OrbAudioDesc() : _d(new OrbAudioDescData) {}
OrbAudioDesc::OrbAudioDesc(const OrbAudioDesc &) = default;
OrbAudioDesc::OrbAudioDesc(OrbAudioDesc &&) noexcept = default;
OrbAudioDesc &OrbAudioDesc::operator=(const OrbAudioDesc &) = default;
OrbAudioDesc &OrbAudioDesc::operator=(OrbAudioDesc &&) noexcept = default;
OrbAudioDesc::~OrbAudioDesc() = default;

OrbId OrbAudioDesc::dataType() const { return _d->f.dataType; }
OrbRational OrbAudioDesc::sampleRate() const { return _d->f.sampleRate; }
OrbVideoRate OrbAudioDesc::frameRate() const { return _d->f.frameRate; }
int OrbAudioDesc::chans() const { return _d->f.chans; }

void OrbAudioDesc::setDataType(const OrbId &type) { _d->f.dataType = type; }
void OrbAudioDesc::setSampleRate(qint32 num, qint32 den)
{
    _d->f.sampleRate = OrbRational(num, den);
}
void OrbAudioDesc::setSampleRate(const OrbRational &rate) { _d->f.sampleRate = rate; }
void OrbAudioDesc::setFrameRate(const OrbVideoRate &rate) { _d->f.frameRate = rate; }
void OrbAudioDesc::setFrameRate(qint32 num, qint32 den)
{
    _d->f.frameRate = OrbVideoRate(num, den);
}
void OrbAudioDesc::setChans(int count) { _d->f.chans = count; }

bool OrbAudioDesc::operator==(const OrbAudioDesc &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
