#pragma once

#include "libpicture/patterns.h"
#include "libpicture/picture.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Pictures of 10 bit in 4:2:2, made in code so that a figure can be had again.
struct Clip {
    int width = 0;
    int height = 0;
    std::vector<std::vector<std::uint16_t>> frames;

    picture::View view(std::size_t frame)
    {
        return picture::viewOf(frames[frame % frames.size()].data(), width, height);
    }
};

inline Clip emptyClip(int width, int height, int count)
{
    Clip clip {width, height, {}};
    clip.frames.assign(static_cast<std::size_t>(count),
                       std::vector<std::uint16_t>(picture::bytesFor(width, height) / 2));
    return clip;
}

/// The recorder's own moving card.
inline Clip cardClip(int width, int height, int count)
{
    Clip clip = emptyClip(width, height, count);
    const picture::MovingPattern pattern(width, height);
    for (int i = 0; i < count; ++i)
        pattern.draw(clip.view(static_cast<std::size_t>(i)), static_cast<std::uint32_t>(i));
    return clip;
}

/// What a camera may see: a zoom into detail of every size, edges and grain.
struct NaturalClip {
    static Clip make(int width, int height, int count)
    {
        Clip clip = emptyClip(width, height, count);
        for (int i = 0; i < count; ++i)
            picture::drawNatural(clip.view(static_cast<std::size_t>(i)), static_cast<std::uint32_t>(i));
        return clip;
    }
};
