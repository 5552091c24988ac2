#pragma once

#include "clipcache.pb.h"
#include "libvanta/clip.h"

namespace lumo::media {

/// False, and \a clip untouched, for what no clip can be.
bool readRecord(const ClipRecord &record, Clip &clip);
void fillRecord(const Clip &clip, ClipRecord &record);

} // namespace lumo::media
