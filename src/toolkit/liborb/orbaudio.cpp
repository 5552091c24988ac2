#include "liborb/orbaudio.h"

class OrbAudioData : public QSharedData
{
public:
    OrbAudioDesc desc;
    QList<OrbBuffer> buffers;
};

OrbAudio::OrbAudio() : _d(new OrbAudioData) {}
OrbAudio::OrbAudio(const OrbAudio &) = default;
OrbAudio::OrbAudio(OrbAudio &&) noexcept = default;
OrbAudio &OrbAudio::operator=(const OrbAudio &) = default;
OrbAudio &OrbAudio::operator=(OrbAudio &&) noexcept = default;
OrbAudio::~OrbAudio() = default;

OrbAudio::OrbAudio(const OrbAudioDesc &desc, const OrbBuffer &samples) : OrbAudio()
{
    _d->desc = desc;
    _d->buffers.append(samples);
}

bool OrbAudio::isValid() const
{
    return !_d->buffers.isEmpty() && _d->buffers.first().isValid();
}

OrbAudioDesc OrbAudio::desc() const { return _d->desc; }
void OrbAudio::setDesc(const OrbAudioDesc &desc) { _d->desc = desc; }
const QList<OrbBuffer> &OrbAudio::buffers() const { return _d->buffers; }
QList<OrbBuffer> &OrbAudio::buffers() { return _d->buffers; }
