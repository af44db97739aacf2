#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tool {

/// Rows from top to bottom, pixels from left to right: red, green, blue.
struct Picture {
  int mWidth = 0, mHeight = 0;
  std::vector<std::uint8_t> mPixels;

  /// @param color  red, green, blue
  static Picture filled(int width, int height, const std::array<std::uint8_t, 3>& color);
  std::uint8_t* pixel(int x, int y) { return mPixels.data() + offsetOf(x, y); }
  const std::uint8_t* pixel(int x, int y) const { return mPixels.data() + offsetOf(x, y); }
  /// Copies a picture that lies inside.
  void place(const Picture& part, int left, int top);

 private:
  std::size_t offsetOf(int x, int y) const {
    return std::size_t{3} *
           (static_cast<std::size_t>(y) * static_cast<std::size_t>(mWidth) + static_cast<std::size_t>(x));
  }
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
