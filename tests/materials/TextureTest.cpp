#include <facetbox/materials/Texture.h>

#include <gtest/gtest.h>

namespace {

TEST(SimpleTexture, holdsOneWhitePixelAndItsMd5Digest) {
  const util::SimpleTexture texture(u"brick.png");
  EXPECT_EQ(texture.uri(), u"brick.png");
  ASSERT_EQ(texture.data().size(), 4u);
  for (const std::uint8_t channel : texture.data()) EXPECT_EQ(channel, 0xFF);
  // As md5sum prints it for these four bytes.
  const util::Md5Digest expected = {0xa5, 0x4f, 0x00, 0x41, 0xa9, 0xe1, 0x5b, 0x05,
                                    0x0f, 0x25, 0xc4, 0x63, 0xf1, 0xdb, 0x74, 0x49};
  EXPECT_EQ(texture.metadata().mDigest, expected);
}

}  // namespace
