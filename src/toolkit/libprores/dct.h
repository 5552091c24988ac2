#pragma once

namespace prores {

// An eight-point orthonormal transform: even outputs are products with the sums of opposite samples, odd
// ones with their differences. Weights are 65536 * 1/2 * C(k) * cos(k * pi / 16).
constexpr int dctShift = 16;
constexpr int dctRounding = 32768;

constexpr short dctWeights[8][4] = {
    {23170, 23170, 23170, 23170},
    {32138, 27246, 18205, 6393},
    {30274, 12540, -12540, -30274},
    {27246, -6393, -32138, -18205},
    {23170, -23170, -23170, 23170},
    {18205, -32138, 6393, 27246},
    {12540, -30274, 30274, -12540},
    {6393, -18205, 27246, -32138},
};

} // namespace prores
