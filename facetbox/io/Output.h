#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

namespace facetbox {

/// Collects what is written into pieces of a size that a system call is worth.
class Output {
 public:
  using Sink = std::function<void(std::string_view)>;

  explicit Output(const Sink& sink) : mSink(sink), mBuffer(kSize + kLongest, '\0') {}

  void text(std::string_view text) {
    if (text.size() > kLongest) return longText(text);
    std::memcpy(take(text.size()), text.data(), text.size());
  }
  void letter(char c) { *take(1) = c; }

  /// Integers in full, floating point numbers in the shortest form that reads back alike.
  template <typename T>
  requires std::integral<T> || std::floating_point<T>
  void number(T value) {
    constexpr std::size_t kMostDigits = 32;
    char* const digits = take(kMostDigits);
    mUsed = static_cast<std::size_t>(std::to_chars(digits, digits + kMostDigits, value).ptr - mBuffer.data());
  }

  /// The bytes of a value in the order of this machine.
  template <typename T>
  void raw(const T& value) {
    std::memcpy(take(sizeof value), &value, sizeof value);
  }

  void flush() {
    mSink({mBuffer.data(), mUsed});
    mUsed = 0;
  }

 private:
  static constexpr std::size_t kSize = 1 << 18, kLongest = 256;

  char* take(std::size_t bytes) {
    if (mUsed >= kSize) flush();
    char* const at = mBuffer.data() + mUsed;
    mUsed += bytes;
    return at;
  }
  void longText(std::string_view text) {
    flush();
    mSink(text);
  }

  const Sink& mSink;
  std::string mBuffer;
  std::size_t mUsed = 0;
};

}  // namespace facetbox
