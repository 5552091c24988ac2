// What the service does while something is recorded or played: the paths follow a rollover, and the media that may come
// next are measured now and then. When the storage is released nothing is asked for any more.

#include "mediaservice.h"

#include "transportuse.h"

namespace
{

constexpr int checkUseMs = 1000;
constexpr int lookAroundMs = 2000;

} // namespace

void MediaService::prepareForRecordings()
{
    _checkUse.setSingleShot(true);
    _checkUse.setInterval(checkUseMs);
    connect(&_checkUse, &QTimer::timeout, this, &MediaService::checkUse);
    _lookAround.setInterval(lookAroundMs);
    connect(&_lookAround, &QTimer::timeout, this, &MediaService::lookAround);
}

/// Each value counts, even one that another has followed already. The storage is said to be in use again after a
/// rollover at once, so that the next one is a change, too.
void MediaService::storageUseChanged(unsigned int use)
{
    if (use == storageHasRolledOver) {
        followRollover();
        if (storageUse() == storageHasRolledOver)
            _config->setUInt32(eParamStorageInUse, storageIsInUse);
        _checkUse.start();
    }
    if (!isInUse(use))
        _lookAround.stop();
    else if (!_lookAround.isActive())
        _lookAround.start();
    Medium *medium = isInUse(use) || _wentTo.empty() ? nullptr : mediumAt(_wentTo);
    if (medium && medium->isPresent())
        medium->measure([this] { choose(); });
    choose();
    ejectWaiting();
}

/// A recording that ended with its rollover may have released the storage just before it was said to be in use.
void MediaService::checkUse()
{
    unsigned int state = 0;
    if (storageUse() == storageIsInUse && _config->getUInt32(eParamTransportState, state) && state == stateStandbyOff)
        _config->setUInt32(eParamStorageInUse, storageIsReleased);
}

/// The recording goes on on the other medium.
void MediaService::followRollover()
{
    const MediaPaths before = paths();
    if (!before.rollover.empty())
        _wentTo = before.rollover;
    setPaths(afterRollover(facts(), before));
}

/// Others may fill a medium, and a medium that fails becomes read-only, silent or gone, of which the system says
/// nothing by itself.
void MediaService::lookAround()
{
    const std::string active = paths().active;
    for (const auto &medium : _media) {
        if (medium->path() != active && medium->isPresent())
            medium->measure([this] { choose(); });
    }
    choose();
}

/// Recording on a medium that cannot be written is of no use to anybody: when a rollover has come to such a one it
/// gives way like one that is gone. Whoever names it later means it.
std::vector<MediumFacts> MediaService::factsForRecording() const
{
    std::vector<MediumFacts> all = facts();
    for (MediumFacts &medium : all) {
        if (medium.path == _wentTo && !medium.isWritable)
            medium.isPresent = false;
    }
    return all;
}
