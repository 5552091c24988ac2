// How a medium is measured beside its listings. Its thread may be held by the medium for good, so few questions wait
// for it, and one that waits long is an answer, too.

#include "medium.h"

namespace
{

constexpr int mostPendingMeasures = 8;
constexpr int silenceMs = 3000;

} // namespace

bool Medium::isWritable() const
{
    const bool isSilent = _pendingMeasures > 0 && _measuring.elapsed() > silenceMs;
    return isPresent() && !_listing.isReadOnly && !_isSuspect && !isSilent;
}

void Medium::measure(const std::function<void()> &done)
{
    if (_pendingMeasures >= mostPendingMeasures)
        return;
    if (_pendingMeasures++ == 0)
        _measuring.start();
    QMetaObject::invokeMethod(&_worker->object, [this, done, worker = _worker.get()] {
        MediumScanner::Listing measured;
        MediumScanner::measure(_path, measured);
        QMetaObject::invokeMethod(this, [this, done, worker, measured] {
            if (!retire(worker))
                takeMeasure(measured);
            done();
        });
    });
}

void Medium::takeMeasure(const MediumScanner::Listing &measured)
{
    --_pendingMeasures;
    _measuring.start();
    if (!isPresent())
        return;
    if (measured.useError != 0 || measured.isMounted != _listing.isMounted) {
        scan();
        return;
    }
    _listing.freePercent = measured.freePercent;
    _listing.freeBytes = measured.freeBytes;
    _listing.totalBytes = measured.totalBytes;
    _listing.isReadOnly = measured.isReadOnly;
}
