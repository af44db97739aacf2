#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Walks through text that JsonText has found to be JSON, value by value. Nothing is copied, and nothing is kept of
/// what was passed.
class JsonCursor {
 public:
  /// @param value  begins with a value, blanks before it allowed
  explicit JsonCursor(std::string_view value) : mAt(value.data()) {}

  /// The first character of what comes next: that of a value, or a bracket that closes.
  char peek() {
    while (*mAt == ' ' || *mAt == '\n' || *mAt == '\r' || *mAt == '\t') ++mAt;
    return *mAt;
  }
  const char* at() {
    peek();
    return mAt;
  }

  /// Into an array or an object. next() then moves to each element, and at last behind the closing bracket.
  void enter() {
    peek();
    ++mAt;
  }
  bool next() {
    const char c = peek();
    if (c == ']' || c == '}') {
      ++mAt;
      return false;
    }
    if (c == ',') ++mAt;
    return true;
  }

  /// The name of an object's member, as its text with quotes; moves on to its value.
  std::string_view key() {
    const std::string_view name = skip();
    enter();  // behind the colon
    return name;
  }

  /// Moves behind the value and returns its text.
  std::string_view skip();

 private:
  void skipString();

  const char* mAt;
};

/// The content of a string's text.
std::string decoded(std::string_view quoted);
/// A string as JSON. Bytes that are not UTF-8 are replaced; `isChanged` is set then.
std::string encoded(std::string_view content, bool& isChanged);

/// JSON text, and what is asked of its values: each call fails where the value is something else, with line and column.
class JsonText {
 public:
  /// @param text  stays with the caller
  /// @throws ReadError where it is not JSON, or nested deeper than any file of a model
  JsonText(std::string_view text, ReadContext& context);

  ReadContext& context() const { return mContext; }
  std::string_view root() const { return mText; }

  [[noreturn]] void fail(const char* at, const std::string& what) const;
  [[noreturn]] void failExpecting(std::string_view value, const std::string& expected) const;

  /// @param what  names the value in messages, such as "the transform"
  JsonCursor array(std::string_view value, const char* what) const { return enter(value, '[', "an array", what); }
  JsonCursor object(std::string_view value, const char* what) const { return enter(value, '{', "an object", what); }
  std::string string(std::string_view value, const char* what) const;
  double number(std::string_view value, const char* what) const;
  /// An integer that a double holds exactly.
  double integer(std::string_view value, const char* what) const;
  /// A number from 0 to less than `count`.
  std::uint32_t index(std::string_view value, std::size_t count, const char* what) const;

  /// The values of an object's members with these names; null views where there are none.
  template <std::size_t N>
  std::array<std::string_view, N> members(std::string_view value, const char* what,
                                          const std::array<std::string_view, N>& names) const {
    std::array<std::string_view, N> found = {};
    for (JsonCursor cursor = object(value, what); cursor.next();) {
      mContext.poll();
      const std::string_view quoted = cursor.key();
      const std::size_t i = numberOf(quoted, names.data(), N);
      if (i < N && found[i].data() != nullptr) failRepeated(quoted);
      const std::string_view member = cursor.skip();
      if (i < N) found[i] = member;
    }
    return found;
  }

 private:
  JsonCursor enter(std::string_view value, char bracket, const char* expected, const char* what) const;
  static std::size_t numberOf(std::string_view quoted, const std::string_view* names, std::size_t count);
  [[noreturn]] void failRepeated(std::string_view quoted) const;

  std::string_view mText;
  ReadContext& mContext;
};

}  // namespace facetbox
