#pragma once

#include "libvanta/clip.h"

#include <list>
#include <string>

namespace lumo::media {

/// A clip as other processes are told of it: the serialized message, in the message format's own byte order.
std::string recordOf(const Clip &clip);
/// Reads what recordOf() wrote. False, and \a clip untouched, for anything that no clip can be: a torn message,
/// a name with a "/" or control characters, a negative length, a state that there is not, texts too long.
bool clipOf(const std::string &record, Clip &clip);

/// A whole list in the same way, a serialized ClipList.
std::string listRecordOf(const std::list<Clip> &clips);
/// Reads what listRecordOf() wrote. False, and \a clips untouched, when any of it is no clip, or the list is torn.
bool clipListOf(const std::string &record, std::list<Clip> &clips);

} // namespace lumo::media
