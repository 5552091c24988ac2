#pragma once

#include "liborb/ifaces/mediadriver.h"

#include <memory>

/// Clip files: a path (QString) read or written, one I/O thread an open file.
bool clipDriverAccepts(const QVariant &desc, OrbAccess access, const OrbId &type);
std::unique_ptr<OrbMediaDriver> createClipDriver(OrbMediaDriverHost *host);

/// An OrbPlayList read as one joined stream; the next clip is opened ahead of time.
bool playListDriverAccepts(const QVariant &desc, OrbAccess access, const OrbId &type);
std::unique_ptr<OrbMediaDriver> createPlayListDriver(OrbMediaDriverHost *host);
