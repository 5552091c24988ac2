#pragma once

#include "libclip/clip.h"
#include "libvanta/lossofvideoclips.h"

#include <string>

/// Makes \a stock in \a folder, which gets the folders it takes; a clip that is there is replaced in one step.
/// Draws and codes one picture, and waits for the medium.
[[nodiscard]] clip::Error makeStockClip(const LossOfVideoClip &stock, const std::string &folder);
