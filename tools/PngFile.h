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

}  // namespace tool
