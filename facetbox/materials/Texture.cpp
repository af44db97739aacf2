#include <facetbox/materials/Texture.h>

#include <utility>

#include <md5.h>

namespace util {
namespace {

Md5Digest md5Of(std::span<const std::uint8_t> bytes) {
  MD5_CTX context;
  MD5Init(&context);
  MD5Update(&context, bytes.data(), bytes.size());
  Md5Digest digest;
  MD5Final(digest.data(), &context);
  return digest;
}

}  // namespace

SimpleTexture::SimpleTexture(std::u16string uri) : mUri(std::move(uri)), mMetadata{1, 1, md5Of(mPixel)} {}

bool operator==(const Texture& a, const Texture& b) noexcept { return a.uri() == b.uri() && a.digest() == b.digest(); }

}  // namespace util
