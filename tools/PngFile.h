#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

/// Rows from top to bottom, pixels from left to right: red, green, blue.
struct Picture {
  int mWidth = 0, mHeight = 0;
  std::vector<std::uint8_t> mPixels;
};

/// The picture as a PNG file. @throws RunError
std::string formatPng(const Picture& picture);

/// Checks early that a picture can be written there. @throws InputError where the name does not end in .png, RunError
void checkPngName(const std::string& path);

/// The picture in a PNG file; transparent pixels are blended with black.
/// @param name  of the file, for messages
/// @throws InputError where it is not a PNG file, is damaged, or has more than 2^26 pixels
Picture parsePng(const std::string& file, const std::string& name);

}  // namespace tool
