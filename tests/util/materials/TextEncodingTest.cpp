#include <facetbox/util/materials/TextEncoding.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(TextEncoding, bytesComeBackAsTheUtf8OfTheirLatin1Characters) {
  EXPECT_EQ(util::toUtf8(util::widenLatin1("a\xE9")), "a\xC3\xA9");
  for (int byte = 0; byte < 256; ++byte) {
    const std::u16string wide = util::widenLatin1(std::string(1, static_cast<char>(byte)));
    EXPECT_EQ(wide, std::u16string(1, static_cast<char16_t>(byte)));
    EXPECT_EQ(util::toUtf8(wide).size(), byte < 0x80 ? 1u : 2u) << byte;
  }
}

TEST(TextEncoding, utf8ChangesItsLengthAtTheLimitsOfTheEncoding) {
  const std::vector<std::pair<std::u16string, std::string>> pairs = {
      {u"", ""},
      {std::u16string(1, u'\0'), std::string(1, '\0')},
      {u"\u007F", "\x7F"},
      {u"\u0080", "\xC2\x80"},
      {u"\u07FF", "\xDF\xBF"},
      {u"\u0800", "\xE0\xA0\x80"},
      {u"\uD7FF\uE000\uFFFF", "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
      {u"\U00010000", "\xF0\x90\x80\x80"},
      {u"\U0001F600!", "\xF0\x9F\x98\x80!"},
      {u"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
  };
  for (const auto& [wide, narrow] : pairs) EXPECT_EQ(util::toUtf8(wide), narrow);
}

TEST(TextEncoding, surrogateWithoutPartnerBecomesTheReplacementCharacter) {
  constexpr char16_t kHigh = 0xD83D;
  constexpr char16_t kLow = 0xDE00;
  const std::string replacement = "\xEF\xBF\xBD";
  const std::string pair = "\xF0\x9F\x98\x80";
  EXPECT_EQ(util::toUtf8(std::u16string{kHigh}), replacement);
  EXPECT_EQ(util::toUtf8(std::u16string{kLow, u'x'}), replacement + "x");
  EXPECT_EQ(util::toUtf8(std::u16string{kLow, kHigh}), replacement + replacement);
  EXPECT_EQ(util::toUtf8(std::u16string{kHigh, kHigh, kLow, kLow}), replacement + pair + replacement);
}

}  // namespace
