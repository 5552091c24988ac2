#include "liborb/orbvideostate.h"

namespace {

struct Fields {
    bool valid = false;
    bool present = false;
    OrbId recInhibit;
    OrbImageDesc inputImageDesc;
    OrbImageDesc captureImageDesc;
    // Four fields that nothing reads: they take part in every comparison.
    OrbId reservedId1;
    OrbId reservedId2;
    qint32 reserved1 = 0;
    qint32 reserved2 = 0;

    bool operator==(const Fields &) const = default;
};

} // namespace

class OrbVideoStateData : public QSharedData
{
public:
    Fields f;
};

OrbVideoState::OrbVideoState() : _d(new OrbVideoStateData) {}
OrbVideoState::OrbVideoState(const OrbVideoState &) = default;
OrbVideoState::OrbVideoState(OrbVideoState &&) noexcept = default;
OrbVideoState &OrbVideoState::operator=(const OrbVideoState &) = default;
OrbVideoState &OrbVideoState::operator=(OrbVideoState &&) noexcept = default;
OrbVideoState::~OrbVideoState() = default;

bool OrbVideoState::isValid() const { return _d->f.valid; }
bool OrbVideoState::isPresent() const { return _d->f.present; }
OrbId OrbVideoState::recInhibit() const { return _d->f.recInhibit; }
OrbImageDesc OrbVideoState::inputImageDesc() const { return _d->f.inputImageDesc; }
OrbImageDesc OrbVideoState::captureImageDesc() const { return _d->f.captureImageDesc; }

void OrbVideoState::setValid(bool on) { _d->f.valid = on; }
void OrbVideoState::setPresent(bool on) { _d->f.present = on; }
void OrbVideoState::setRecInhibit(const OrbId &reason) { _d->f.recInhibit = reason; }
void OrbVideoState::setInputImageDesc(const OrbImageDesc &desc) { _d->f.inputImageDesc = desc; }
void OrbVideoState::setCaptureImageDesc(const OrbImageDesc &desc) { _d->f.captureImageDesc = desc; }

QString OrbVideoState::toString() const
{
    if (!isValid())
        return QStringLiteral("invalid");
    if (!isPresent())
        return QStringLiteral("not present");
    QString text = QStringLiteral("valid ") + inputImageDesc().toString();
    if (recInhibit().isValid())
        text += QStringLiteral(" inhibited by ") + recInhibit().name();
    return text;
}

bool OrbVideoState::operator==(const OrbVideoState &other) const
{
    return _d == other._d || _d->f == other._d->f;
}
