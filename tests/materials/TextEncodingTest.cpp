#include <facetbox/materials/TextEncoding.h>

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

TEST(TextEncoding, utf8ChangesItsLengthAtTheLimitsOfTheEncodingAndReplacesLoneSurrogates) {
  const std::string replacement = "\xEF\xBF\xBD", face = "\xF0\x9F\x98\x80";
  const std::pair<std::u16string, std::string> cases[] = {
      {u"", ""},
      {std::u16string(1, u'\0'), std::string(1, '\0')},
      {u"\u007F\u0080", "\x7F\xC2\x80"},
      {u"\u07FF\u0800", "\xDF\xBF\xE0\xA0\x80"},
      {u"\uD7FF\uE000\uFFFF", "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"},
      {u"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      {{0xD83D}, replacement},
      {{0xDE00, u'x'}, replacement + "x"},
      {{0xDE00, 0xD83D}, replacement + replacement},
      {{0xD83D, 0xD83D, 0xDE00, 0xDE00}, replacement + face + replacement},
  };
  for (const auto& [wide, narrow] : cases) EXPECT_EQ(util::toUtf8(wide), narrow);
}

}  // namespace
