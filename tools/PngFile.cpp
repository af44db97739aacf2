#include <tools/PngFile.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include <fmt/format.h>
#include <png.h>

#include <facetbox/io/files.h>
#include <tools/Errors.h>

namespace tool {

Picture Picture::filled(int width, int height, const std::array<std::uint8_t, 3>& color) {
  Picture picture{width, height, {}};
  picture.mPixels.resize(picture.offsetOf(0, height));
  for (std::size_t i = 0; i < picture.mPixels.size(); ++i) picture.mPixels[i] = color[i % 3];
  return picture;
}

void Picture::place(const Picture& part, int left, int top) {
  for (int y = 0; y < part.mHeight; ++y) std::copy_n(part.pixel(0, y), 3 * part.mWidth, pixel(left, top + y));
}

std::string formatPng(const Picture& picture) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(picture.mWidth);
  image.height = static_cast<png_uint_32>(picture.mHeight);
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::string file(size, '\0');
  const int written = png_image_write_to_memory(&image, file.data(), &size, 0, picture.mPixels.data(), 0, nullptr);
  // Releases what a failure may have left.
  png_image_free(&image);
  if (!written) throw RunError(fmt::format("the picture cannot be converted to PNG: {}", image.message));
  file.resize(size);
  return file;
}

void checkPngName(const std::string& path) {
  if (facetbox::isSpecialFile(path)) return;
  if (!path.ends_with(".png"))
    throw InputError(fmt::format("{}: the name of the picture must end in .png; no other format can be written", path));
  facetbox::checkWritable(path);
}

Picture parsePng(const std::string& file, const std::string& name) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  // Releases what a failure may leave behind.
  const std::unique_ptr<png_image, void (*)(png_image*)> release(&image, &png_image_free);
  if (!png_image_begin_read_from_memory(&image, file.data(), file.size()))
    throw InputError(fmt::format("{}: is not a PNG picture: {}", name, image.message));
  constexpr std::uint64_t kMostPixels = std::uint64_t{1} << 26;
  if (std::uint64_t{image.width} * image.height > kMostPixels)
    throw InputError(
        fmt::format("{}: has {} x {} pixels, more than the limit of {}", name, image.width, image.height, kMostPixels));
  image.format = PNG_FORMAT_RGB;
  Picture picture{static_cast<int>(image.width), static_cast<int>(image.height), {}};
  // Transparent pixels show the buffer's black.
  picture.mPixels.resize(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, picture.mPixels.data(), 0, nullptr))
    throw InputError(fmt::format("{}: the picture is damaged: {}", name, image.message));
  return picture;
}

}  // namespace tool
