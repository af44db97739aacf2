#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <facetbox/io/Decimal.h>
#include <facetbox/io/FileError.h>
#include <facetbox/io/PlyHeader.h>
#include <facetbox/io/ReadContext.h>
#include <facetbox/io/TextScanner.h>

/// Where the values of a PLY file come from, behind its header: text or bytes.
namespace facetbox {

inline constexpr const char* kPlyCutShort = "the file ends before all that its header declares: it is cut short";

/// Calls f with a zero of the type.
template <typename F>
auto withType(PlyType type, F&& f) {
  switch (type) {
    case PlyType::kInt8:
      return f(std::int8_t{});
    case PlyType::kUint8:
      return f(std::uint8_t{});
    case PlyType::kInt16:
      return f(std::int16_t{});
    case PlyType::kUint16:
      return f(std::uint16_t{});
    case PlyType::kInt32:
      return f(std::int32_t{});
    case PlyType::kUint32:
      return f(std::uint32_t{});
    case PlyType::kFloat32:
      return f(float{});
    case PlyType::kFloat64:
      break;
  }
  return f(double{});
}

/// The values of the elements as text, a line each.
class PlyText {
 public:
  static constexpr bool kIsBinary = false;

  PlyText(std::string_view text, const PlyHeader& header, const std::string& name)
      : mAt(text.data() + header.mBytes), mEnd(text.data() + text.size()), mLine(header.mLines + 1), mName(name) {}

  [[noreturn]] void fail(const std::string& what) const {
    throw ReadError(fmt::format("{}:{}: {}", mName, mLine, what));
  }

  /// Fails where the last value was, which took that many bytes.
  [[noreturn]] void failBehind(std::size_t, const std::string& what) const { fail(what); }

  /// A digit and what follows it.
  static std::size_t leastBytes(PlyType) { return 2; }
  std::size_t remaining() const { return static_cast<std::size_t>(mEnd - mAt); }

  void startRow() {
    skipBlankLines();
    if (mAt == mEnd) fail(kPlyCutShort);
  }
  void endRow() {
    skipBlanks();
    mIsOpen = mAt == mEnd;
    if (mIsOpen) return;
    if (*mAt != '\n') fail(fmt::format("{} is more than the header declares for this line", quotedToken()));
    ++mAt;
    ++mLine;
  }
  void finish(ReadContext& context) {
    if (mIsOpen) context.noteMissingLineEnd();
    skipBlankLines();
    if (mAt < mEnd) fail(fmt::format("{} comes after all that the header declares", quotedToken()));
  }

  double number(PlyType) {
    const char* const start = startToken();
    double value = 0;
    const auto [next, error] = parseDecimal(start, mEnd, value);
    if (error != std::errc() || !isTokenEnd(next)) fail(fmt::format("{} is not a number", quotedToken()));
    if (!std::isfinite(value)) fail(fmt::format("{} is not a finite number", quotedToken()));
    mAt = next;
    return value;
  }

  std::int64_t integer(PlyType) {
    const char* const start = startToken();
    std::int64_t value = 0;
    const auto [next, error] = std::from_chars(start, mEnd, value);
    if (error == std::errc::result_out_of_range) fail(fmt::format("{} is out of range", quotedToken()));
    if (error != std::errc() || !isTokenEnd(next)) fail(fmt::format("{} is not an integer", quotedToken()));
    mAt = next;
    return value;
  }

  void skip(PlyType) {
    const char* end = startToken();
    while (!isTokenEnd(end)) ++end;
    mAt = end;
  }
  void skip(PlyType type, std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) skip(type);
  }

 private:
  static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
  bool isTokenEnd(const char* p) const { return p == mEnd || isBlank(*p) || *p == '\n'; }

  void skipBlanks() {
    while (mAt < mEnd && isBlank(*mAt)) ++mAt;
  }
  void skipBlankLines() {
    for (skipBlanks(); mAt < mEnd && *mAt == '\n'; skipBlanks()) {
      ++mAt;
      ++mLine;
    }
  }

  std::string quotedToken() const {
    const char* end = mAt;
    while (!isTokenEnd(end)) ++end;
    return quoted({mAt, static_cast<std::size_t>(end - mAt)});
  }

  // Where the next value of the line begins, behind a plus sign.
  const char* startToken() {
    skipBlanks();
    if (mAt == mEnd) fail(kPlyCutShort);
    if (*mAt == '\n') fail("the line has fewer values than the header and its own counts say");
    return *mAt == '+' && mAt + 1 < mEnd && mAt[1] != '-' ? mAt + 1 : mAt;
  }

  const char* mAt;
  const char* mEnd;
  std::size_t mLine;
  bool mIsOpen = false;  // the last row has no line end
  const std::string& mName;
};

/// The values of the elements as bytes, of the other order than this machine's if kSwap.
template <bool kSwap>
class PlyBytes {
 public:
  static constexpr bool kIsBinary = true;

  PlyBytes(std::string_view text, const PlyHeader& header, const std::string& name)
      : mBegin(text.data()), mAt(mBegin + header.mBytes), mEnd(mBegin + text.size()), mName(name) {}

  [[noreturn]] void fail(const std::string& what) const { failAt(mAt, what); }
  [[noreturn]] void failAt(const char* at, const std::string& what) const {
    throw ReadError(fmt::format("{}: byte {}: {}", mName, at - mBegin, what));
  }

  [[noreturn]] void failBehind(std::size_t bytes, const std::string& what) const { failAt(mAt - bytes, what); }

  static std::size_t leastBytes(PlyType type) { return sizeOf(type); }
  std::size_t remaining() const { return static_cast<std::size_t>(mEnd - mAt); }

  void startRow() {}
  void endRow() {}
  void finish(ReadContext&) {
    if (mAt < mEnd) fail(fmt::format("{} more bytes come after all that the header declares", remaining()));
  }

  double number(PlyType type) {
    const char* const start = take(sizeOf(type));
    const double value = withType(type, [&](auto zero) { return static_cast<double>(load<decltype(zero)>(start)); });
    if (!std::isfinite(value)) failAt(start, "this number is not finite");
    return value;
  }
  // Not called for floats.
  std::int64_t integer(PlyType type) {
    const char* const start = take(sizeOf(type));
    return withType(type, [&](auto zero) { return static_cast<std::int64_t>(load<decltype(zero)>(start)); });
  }
  void skip(PlyType type) { take(sizeOf(type)); }
  void skip(PlyType type, std::uint64_t count) { take(sizeOf(type) * count); }

  /// The value at p.
  template <typename T>
  static T load(const char* p) {
    std::array<char, sizeof(T)> bytes;
    std::memcpy(bytes.data(), p, sizeof(T));
    if constexpr (kSwap) std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<T>(bytes);
  }

  /// Goes on by that many bytes. They must be there.
  const char* take(std::size_t bytes) {
    if (bytes > remaining()) fail(kPlyCutShort);
    return std::exchange(mAt, mAt + bytes);
  }

 private:
  const char* mBegin;
  const char* mAt;
  const char* mEnd;
  const std::string& mName;
};

}  // namespace facetbox
