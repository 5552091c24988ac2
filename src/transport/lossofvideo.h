#pragma once

#include "liborb/orbimagedesc.h"

#include <QString>

/// The clip, relative to the media directory, whose one frame stands in for a lost input of format
/// \a desc; empty when there is none. The frame rate plays no part.
QString findLossOfVideoFile(const OrbImageDesc &desc);
