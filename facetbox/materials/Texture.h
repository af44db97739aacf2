#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace util {

using Md5Digest = std::array<std::uint8_t, 16>;

/// What a texture says about its data block.
struct TextureMetadata {
  std::uint32_t mWidth = 0;   ///< in pixels
  std::uint32_t mHeight = 0;  ///< in pixels
  Md5Digest mDigest{};        ///< MD5 of the data block
};

/// An image that materials name. Immutable, so that any number of materials and threads may share it.
class Texture {
 public:
  virtual ~Texture() = default;

  /// Where the image comes from, in UTF-16 code units.
  virtual const std::u16string& uri() const noexcept = 0;
  /// The pixels, row by row; lives as long as the texture.
  virtual std::span<const std::uint8_t> data() const noexcept = 0;
  virtual const TextureMetadata& metadata() const noexcept = 0;

  const Md5Digest& digest() const noexcept { return metadata().mDigest; }

 protected:
  Texture() = default;
  Texture(const Texture&) = default;
  Texture& operator=(const Texture&) = default;
};

/// A texture of which only the URI is known; its image is a single opaque white pixel.
class SimpleTexture final : public Texture {
 public:
  explicit SimpleTexture(std::u16string uri);

  const std::u16string& uri() const noexcept override { return mUri; }
  std::span<const std::uint8_t> data() const noexcept override { return mPixel; }
  const TextureMetadata& metadata() const noexcept override { return mMetadata; }

 private:
  std::u16string mUri;
  std::array<std::uint8_t, 4> mPixel{0xFF, 0xFF, 0xFF, 0xFF};  // red, green, blue, alpha
  TextureMetadata mMetadata;
};

/// Equal content: the same URI and the same digest.
bool operator==(const Texture& a, const Texture& b) noexcept;

}  // namespace util
