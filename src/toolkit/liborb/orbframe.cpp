#include "liborb/orbframe.h"

#include <algorithm>

class OrbFrameData : public QSharedData
{
public:
    QList<OrbImage> vids;
    QList<OrbAudio> auds;
    OrbMetadataHash meta;
    OrbSubtitle subtitle;
};

OrbFrame::OrbFrame() : _d(new OrbFrameData) {}
OrbFrame::OrbFrame(const OrbFrame &) = default;
OrbFrame::OrbFrame(OrbFrame &&) noexcept = default;
OrbFrame &OrbFrame::operator=(const OrbFrame &) = default;
OrbFrame &OrbFrame::operator=(OrbFrame &&) noexcept = default;
OrbFrame::~OrbFrame() = default;

const QList<OrbImage> &OrbFrame::vids() const { return _d->vids; }
QList<OrbImage> &OrbFrame::vids() { return _d->vids; }
const QList<OrbAudio> &OrbFrame::auds() const { return _d->auds; }
QList<OrbAudio> &OrbFrame::auds() { return _d->auds; }
const OrbMetadataHash &OrbFrame::meta() const { return _d->meta; }
OrbMetadataHash &OrbFrame::meta() { return _d->meta; }
OrbSubtitle OrbFrame::subtitle() const { return _d->subtitle; }
void OrbFrame::setSubtitle(const OrbSubtitle &subtitle) { _d->subtitle = subtitle; }

bool OrbFrame::hasValidVideo() const
{
    return !_d->vids.isEmpty()
           && std::ranges::all_of(_d->vids, [](const OrbImage &image) { return image.isValid(); });
}

bool OrbFrame::isNull() const
{
    return _d->vids.isEmpty() && _d->auds.isEmpty() && _d->meta.isEmpty();
}

void OrbFrame::setKeyFrameFlag(bool on)
{
    _d->meta.insert(OrbIdKeyFrame, on);
}
