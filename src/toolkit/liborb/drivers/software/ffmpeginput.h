#pragma once

#include "liborb/drivers/software/input.h"

namespace ferin {

/// A media file, looped, or a URL, played as a live input. \a isFile: \a url is a path.
std::unique_ptr<Input> createFfmpegInput(const QString &url, bool isFile);

} // namespace ferin
