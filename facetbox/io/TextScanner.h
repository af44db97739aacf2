#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// The text in a form for messages: short, printable, in quotes.
std::string quoted(std::string_view text);

/// Walks over text, token by token, and knows its line. Blanks separate tokens, line ends do too. Lines end in LF or CR
/// LF. A byte order mark at the beginning is passed over.
class TextScanner {
 public:
  /// @param comment  begins a comment, which goes to the end of its line; '\n': nothing does
  TextScanner(std::string_view text, const ReadContext& context, char comment = '\n');

  /// Of what comes next, counted from 1.
  std::size_t line() const { return mLine; }
  /// How many bytes are still to come.
  std::size_t remaining() const { return static_cast<std::size_t>(mEnd - mAt); }

  /// Whether no token is left.
  bool atEnd() {
    for (;; ++mAt, ++mLine)
      if (!atLineEnd() || mAt == mEnd) return mAt == mEnd;
  }
  /// Whether no token is left on this line.
  bool atLineEnd() {
    while (mAt < mEnd && isBlank(*mAt)) ++mAt;
    if (mAt < mEnd && *mAt == mComment) skipToLineEnd();
    return mAt == mEnd || *mAt == '\n';
  }

  /// The next token of this line, empty at its end.
  std::string_view peek() {
    if (atLineEnd()) return {};
    const char* end = mAt;
    while (!isTokenEnd(end)) ++end;
    return {mAt, static_cast<std::size_t>(end - mAt)};
  }
  std::string_view token() {
    const std::string_view next = peek();
    mAt += next.size();
    return next;
  }
  /// Goes on by bytes of what peek() shows.
  void skip(std::size_t bytes) { mAt += bytes; }
  /// What is left of this line up to a comment, without blanks around it.
  std::string_view restOfLine();

  /// Goes to the next line, whatever is left of this one.
  void nextLine() {
    skipToLineEnd();
    if (mAt == mEnd) return;
    ++mAt;
    ++mLine;
  }
  /// Goes to the next line; nothing may be left of this one.
  void endLine() {
    if (!atLineEnd()) failUnexpected();
    nextLine();
  }

  /// The next token of this line as a finite number. Too small becomes zero. The last token of the text may have lost
  /// digits.
  /// @param what  it is: "a coordinate"
  double number(const char* what);
  /// The same as an integer that is not negative.
  std::uint64_t count(const char* what);

  [[noreturn]] void fail(const std::string& what) const { mContext.failAtLine(mLine, what); }
  /// The file ends too early.
  [[noreturn]] void failCutShort(const std::string& expected) const;

 private:
  static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
  bool isTokenEnd(const char* p) const { return p == mEnd || isBlank(*p) || *p == '\n' || *p == mComment; }
  void skipToLineEnd() {
    while (mAt < mEnd && *mAt != '\n') ++mAt;
  }
  const char* startToken(const char* what);
  [[noreturn]] void failUnexpected();

  const char* mAt;
  const char* mEnd;
  std::size_t mLine = 1;
  const ReadContext& mContext;
  char mComment;
};

}  // namespace facetbox
