#pragma once

#include "libpicture/patterns.h"
#include "libpicture/picture.h"

#include <algorithm>
#include <cmath>
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

/// What a camera may see: a zoom into fractal clouds, whose detail falls with its size as in nature, cut by
/// edges, with grain over all. 2160p is as hard a sample as 1080p.
class NaturalClip
{
public:
    static Clip make(int width, int height, int count)
    {
        Clip clip = emptyClip(width, height, count);
        for (int i = 0; i < count; ++i) {
            const picture::View view = clip.view(static_cast<std::size_t>(i));
            for (int p = 0; p < 3; ++p)
                drawPlane(view, p, std::pow(0.97, i), static_cast<std::uint32_t>(i * 3 + p));
        }
        return clip;
    }

private:
    static std::uint32_t hash(std::uint32_t x, std::uint32_t y, std::uint32_t seed)
    {
        std::uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ seed * 0xcb1ab31fu;
        h = (h ^ h >> 15) * 0x2c1b3c6du;
        h = (h ^ h >> 12) * 0x297a2d39u;
        return h ^ h >> 15;
    }

    static float lattice(int x, int y, std::uint32_t seed)
    {
        return static_cast<float>(hash(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), seed) & 0xffff)
            / 32768.0f - 1.0f;
    }

    static float smooth(float x, float y, std::uint32_t seed)
    {
        const float left = std::floor(x);
        const float top = std::floor(y);
        const int ix = static_cast<int>(left);
        const int iy = static_cast<int>(top);
        float fx = x - left;
        float fy = y - top;
        fx = fx * fx * (3 - 2 * fx);
        fy = fy * fy * (3 - 2 * fy);
        const float upper = lattice(ix, iy, seed) + fx * (lattice(ix + 1, iy, seed) - lattice(ix, iy, seed));
        const float lower
            = lattice(ix, iy + 1, seed) + fx * (lattice(ix + 1, iy + 1, seed) - lattice(ix, iy + 1, seed));
        return upper + fy * (lower - upper);
    }

    static void drawPlane(const picture::View &view, int p, double zoom, std::uint32_t seed)
    {
        const int width = p == 0 ? view.width : view.width / 2;
        const auto across = static_cast<float>(zoom * (p == 0 ? 1.0 : 2.0));
        const auto kind = static_cast<std::uint32_t>(p);
        for (int y = 0; y < view.height; ++y) {
            for (int x = 0; x < width; ++x) {
                const float at = static_cast<float>(x) * across;
                const float down = static_cast<float>(y) * static_cast<float>(zoom);
                float value = 0;
                float strength = p == 0 ? 190.0f : 70.0f;
                for (float size = 256; size >= 2; size /= 2, strength *= 0.6f)
                    value += strength * smooth(at / size, down / size, kind * 16 + static_cast<std::uint32_t>(size));
                if (p == 0 && smooth(at / 90, down / 90, 77) > 0.25f)
                    value += 130;
                const std::uint32_t h = hash(static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), seed + 99);
                const float grain = static_cast<float>((h & 255) + (h >> 8 & 255) + (h >> 16 & 255)) / 255.0f - 1.5f;
                value += 512 + grain * (p == 0 ? 14.0f : 8.0f);
                view.line(p, y)[x] = static_cast<std::uint16_t>(std::clamp(value, 64.0f, 940.0f));
            }
        }
    }
};
