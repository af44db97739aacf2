#include <facetbox/io/TextScanner.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include <facetbox/io/Decimal.h>

namespace facetbox {

std::string quoted(std::string_view text) {
  constexpr std::size_t kMost = 40;
  std::string shown(text.substr(0, kMost));
  std::ranges::replace_if(
      shown, [](unsigned char c) { return c < 0x20 || c >= 0x7F; }, '?');
  return fmt::format("'{}{}'", shown, text.size() > kMost ? "..." : "");
}

TextScanner::TextScanner(std::string_view text, const ReadContext& context, char comment)
    : mAt(text.data()), mEnd(text.data() + text.size()), mContext(context), mComment(comment) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) mAt += kByteOrderMark.size();
}

std::string_view TextScanner::restOfLine() {
  if (atLineEnd()) return {};
  const char* const start = mAt;
  while (mAt < mEnd && *mAt != '\n' && *mAt != mComment) ++mAt;
  const char* end = mAt;
  while (end > start && isBlank(end[-1])) --end;
  return {start, static_cast<std::size_t>(end - start)};
}

double TextScanner::number(const char* what) {
  const char* const start = startToken(what);
  double value = 0;
  const auto [next, error] = parseDecimal(start, mEnd, value);
  if (error != std::errc() || !isTokenEnd(next))
    fail(fmt::format("{} is not a number; {} is expected", quoted(peek()), what));
  if (!std::isfinite(value)) fail(fmt::format("{} is not a finite number; {} is expected", quoted(peek()), what));
  mAt = next;
  return value;
}

std::uint64_t TextScanner::count(const char* what) {
  const char* const start = startToken(what);
  std::uint64_t value = 0;
  const auto [next, error] = std::from_chars(start, mEnd, value);
  if (error == std::errc::result_out_of_range)
    fail(fmt::format("{} is out of range; {} is expected", quoted(peek()), what));
  if (error != std::errc() || !isTokenEnd(next))
    fail(fmt::format("{} is not an integer from 0 on; {} is expected", quoted(peek()), what));
  mAt = next;
  return value;
}

// Where the digits of the next token begin, behind a plus sign.
const char* TextScanner::startToken(const char* what) {
  if (atLineEnd()) {
    if (mAt == mEnd) failCutShort(what);
    fail(fmt::format("the line ends where {} is expected", what));
  }
  return *mAt == '+' && mAt + 1 < mEnd && mAt[1] != '-' ? mAt + 1 : mAt;
}

void TextScanner::failUnexpected() { fail(fmt::format("{} is more than is expected on this line", quoted(peek()))); }

void TextScanner::failCutShort(const std::string& expected) const {
  fail(fmt::format("the file ends where {} is expected: it is cut short", expected));
}

}  // namespace facetbox
