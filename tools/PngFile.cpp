#include <tools/PngFile.h>

#include <fmt/format.h>
#include <png.h>

#include <tools/Errors.h>

namespace tool {

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
  if (!written) throw RunError(fmt::format("the picture cannot be made into PNG: {}", image.message));
  file.resize(size);
  return file;
}

}  // namespace tool
