#pragma once

#include <string>
#include <vector>

namespace ViewTint::Host {

// A bitmap font of 5 x 7 pixels for captions: no font file need be installed.

constexpr int smallFontWidth = 5;
constexpr int smallFontHeight = 7;
constexpr int smallFontAdvance = 6;  ///< from one letter to the next

/// Whether a letter covers pixel (x, y), y = 0 at the top. Letters outside printable ASCII look like '?'.
bool smallFontPixel(char letter, int x, int y);

/// Breaks a text at spaces into lines of at most `columns` letters; longer words are cut.
std::vector<std::string> wrapText(const std::string& text, int columns);

}  // namespace ViewTint::Host
