#pragma once

#include <string>
#include <string_view>

#include <tools/Arguments.h>
#include <tools/PngFile.h>

namespace tool {

/// Whether black shows better on it than white.
bool isBright(const Color& color);
/// Black or white, for what stands on a background.
Color inkOn(const Color& background);

/// Characters are that large, spacing included.
inline constexpr int kCharacterWidth = 7, kCharacterHeight = 13;

/// Pixels of a text as drawText() draws it.
int widthOf(std::string_view text, int scale);

/// Writes one line; what does not fit into the picture is cut off. Characters that are not ASCII show as '?'.
/// @param x, y   upper left corner
/// @param scale  pixels per dot of the font
void drawText(Picture& picture, int x, int y, std::string_view text, const Color& color, int scale);

/// The end of a text that is wider than `width`, behind dots; else the text.
std::string shortened(const std::string& text, int width, int scale);

}  // namespace tool
