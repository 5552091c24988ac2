#pragma once

#include "libclip/clip.h"

#include <span>
#include <string>

/// One of the clips that stand in for a lost input: a single frame that says so.
struct StockClip {
    int width;
    int height;
    bool isInterlaced;
    clip::Codec codec;
    const char *file; ///< relative to the folder of stock clips
};

/// All of them: each raster, scan and family that the recorder looks for.
std::span<const StockClip> stockClips();

/// Makes \a stock in \a folder, which gets the folders it takes; a clip that is there is replaced in one step.
/// Draws and codes one picture, and waits for the medium.
[[nodiscard]] clip::Error makeStockClip(const StockClip &stock, const std::string &folder);
