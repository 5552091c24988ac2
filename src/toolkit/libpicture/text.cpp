#include "libpicture/font.h"
#include "libpicture/patterns.h"

#include <algorithm>
#include <cstring>

namespace picture {

namespace {

constexpr std::uint16_t boxLuma = 64;
constexpr std::uint16_t textLuma = 940;
constexpr std::uint16_t neutral = 512;
constexpr int advance = glyphWidth + 1;
constexpr int boxHeight = glyphHeight + 2; // one font line of box above and below
constexpr std::size_t longestText = 1024;

/// The text box, cut to the picture.
struct Box {
    int left, right, top, bottom;
    bool isEmpty() const { return left >= right || top >= bottom; }
};

/// Draws font row \a row of the text into the luma line; samples outside \a box are left out.
void drawRow(std::uint16_t *line, const Box &box, std::int64_t x, int scale, const char *text,
             std::size_t length, int row)
{
    for (std::size_t i = 0; i < length; ++i) {
        const std::int64_t glyphX = x + (1 + static_cast<std::int64_t>(i) * advance) * scale;
        if (glyphX >= box.right)
            return;
        const Glyph &glyph = glyphOf(text[i]);
        for (int column = 0; column < glyphWidth; ++column) {
            if (((glyph.column[column] >> row) & 1) == 0)
                continue;
            const std::int64_t dot = glyphX + static_cast<std::int64_t>(column) * scale;
            const std::int64_t from = std::max<std::int64_t>(dot, box.left);
            const std::int64_t to = std::min<std::int64_t>(dot + scale, box.right);
            if (from < to)
                std::fill(line + from, line + to, textLuma);
        }
    }
}

} // namespace

void drawText(const View &view, int x, int y, int scale, const char *text)
{
    if (!view.isValid() || scale <= 0 || text == nullptr)
        return;
    const std::size_t length = strnlen(text, longestText);
    if (length == 0)
        return;

    const std::int64_t right = x + (static_cast<std::int64_t>(length) * advance + 1) * scale;
    const std::int64_t bottom = y + static_cast<std::int64_t>(boxHeight) * scale;
    const Box box = {std::max(x, 0), static_cast<int>(std::min<std::int64_t>(right, view.width)),
                     std::max(y, 0), static_cast<int>(std::min<std::int64_t>(bottom, view.height))};
    if (box.isEmpty())
        return;

    const std::size_t lineBytes = static_cast<std::size_t>(box.right - box.left)
                                  * sizeof(std::uint16_t);
    int drawnRow = -1;
    int drawnLine = -1;
    for (int lineY = box.top; lineY < box.bottom; ++lineY) {
        const int boxRow = static_cast<int>((static_cast<std::int64_t>(lineY) - y) / scale);
        std::uint16_t *line = view.line(0, lineY);
        if (drawnLine >= 0 && boxRow == drawnRow) {
            std::memcpy(line + box.left, view.line(0, drawnLine) + box.left, lineBytes);
            continue;
        }
        std::fill(line + box.left, line + box.right, boxLuma);
        if (boxRow >= 1 && boxRow <= glyphHeight)
            drawRow(line, box, x, scale, text, length, boxRow - 1);
        drawnRow = boxRow;
        drawnLine = lineY;
    }

    const int chromaLeft = box.left / 2;
    const int chromaRight = std::min((box.right + 1) / 2, view.width / 2);
    for (int p = 1; p < 3; ++p) {
        for (int lineY = box.top; lineY < box.bottom; ++lineY)
            std::fill(view.line(p, lineY) + chromaLeft, view.line(p, lineY) + chromaRight, neutral);
    }
}

} // namespace picture
