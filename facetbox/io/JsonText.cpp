#include <facetbox/io/JsonText.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace facetbox {
namespace {

// Far more than any format of models needs, and no danger to any stack.
constexpr int kDeepest = 200;

constexpr double kLargestInteger = 9007199254740992.0;  // 2^53: up to here, doubles hold every integer

// Line and column of a byte, from 1.
std::pair<std::size_t, std::size_t> positionOf(std::string_view text, std::size_t byte) {
  const std::string_view before = text.substr(0, byte);
  const auto line = 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  const std::size_t start = before.rfind('\n');
  return {line, before.size() - (start == std::string_view::npos ? 0 : start + 1) + 1};
}

[[noreturn]] void failAt(const ReadContext& context, std::string_view text, std::size_t byte, const std::string& what) {
  const auto [line, column] = positionOf(text, byte);
  context.failAtLine(line, fmt::format("column {}: {}", column, what));
}

// What the parser calls for each value: nothing is built, only the syntax is judged.
class SyntaxCheck {
 public:
  SyntaxCheck(std::string_view text, ReadContext& context) : mText(text), mContext(context) {}

  bool null() { return value(); }
  bool boolean(bool) { return value(); }
  bool number_integer(std::int64_t) { return value(); }
  bool number_unsigned(std::uint64_t) { return value(); }
  bool number_float(double, const std::string&) { return value(); }
  bool string(std::string&) { return value(); }
  bool binary(nlohmann::json::binary_t&) { return value(); }
  bool key(std::string&) { return true; }
  bool start_object(std::size_t) { return open(); }
  bool start_array(std::size_t) { return open(); }
  bool end_object() { return close(); }
  bool end_array() { return close(); }

  bool parse_error(std::size_t position, const std::string&, const nlohmann::json::exception& error) {
    // "[json.exception.parse_error.101] parse error at line 1, column 5: syntax error ..."
    std::string_view what = error.what();
    const std::size_t column = what.find(", column ");
    const std::size_t start = column == std::string_view::npos ? what.find("] ") : what.find(": ", column);
    if (start != std::string_view::npos) what.remove_prefix(start + 2);
    constexpr std::size_t kLongest = 300;  // it may quote a token of any length
    failAt(mContext, mText, std::min(position, mText.size()) - std::min<std::size_t>(position, 1),
           fmt::format("this is not JSON: {}{}", what.substr(0, kLongest), what.size() > kLongest ? " ..." : ""));
  }

 private:
  bool value() {
    mContext.poll();
    return true;
  }
  bool open() {
    if (++mDepth > kDeepest)
      mContext.fail(fmt::format("its values are nested more than {} levels deep, which is not read", kDeepest));
    return value();
  }
  bool close() {
    --mDepth;
    return true;
  }

  std::string_view mText;
  ReadContext& mContext;
  int mDepth = 0;
};

std::string_view withoutByteOrderMark(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  return text;
}

}  // namespace

void JsonCursor::skipString() {
  for (++mAt; *mAt != '"'; ++mAt)
    if (*mAt == '\\') ++mAt;
  ++mAt;
}

std::string_view JsonCursor::skip() {
  const char first = peek();
  const char* const start = mAt;
  if (first == '"') {
    skipString();
  } else if (first == '[' || first == '{') {
    for (std::size_t depth = 0;;) {
      const char c = *mAt;
      if (c == '"') {
        skipString();
        continue;
      }
      ++mAt;
      if (c == '[' || c == '{') ++depth;
      if ((c == ']' || c == '}') && --depth == 0) break;
    }
  } else {
    const auto belongs = [](char c) {
      return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '.' || c == '-' || c == '+' || c == 'E';
    };
    while (belongs(*mAt)) ++mAt;
  }
  return {start, static_cast<std::size_t>(mAt - start)};
}

std::string decoded(std::string_view quoted) {
  if (quoted.find('\\') == std::string_view::npos) return std::string(quoted.substr(1, quoted.size() - 2));
  return nlohmann::json::parse(quoted).get<std::string>();
}

std::string encoded(std::string_view content, bool& isChanged) {
  const nlohmann::json value = std::string(content);
  try {
    return value.dump();
  } catch (const nlohmann::json::type_error&) {
    isChanged = true;
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
}

JsonText::JsonText(std::string_view text, ReadContext& context) : mText(withoutByteOrderMark(text)), mContext(context) {
  SyntaxCheck check(mText, context);
  nlohmann::json::sax_parse(mText.begin(), mText.end(), &check);
}

void JsonText::fail(const char* at, const std::string& what) const {
  failAt(mContext, mText, static_cast<std::size_t>(at - mText.data()), what);
}

void JsonText::failExpecting(std::string_view value, const std::string& expected) const {
  constexpr std::size_t kLongest = 40;
  std::string found(value.substr(0, kLongest));
  for (char& c : found)
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = ' ';
  fail(value.data(), fmt::format("{}, found {}{}", expected, found, value.size() > kLongest ? " ..." : ""));
}

JsonCursor JsonText::enter(std::string_view value, char bracket, const char* expected, const char* what) const {
  JsonCursor cursor(value);
  if (cursor.peek() != bracket) failExpecting(cursor.skip(), fmt::format("{} must be {}", what, expected));
  cursor.enter();
  return cursor;
}

std::string JsonText::string(std::string_view value, const char* what) const {
  if (value.front() != '"') failExpecting(value, fmt::format("{} must be a string", what));
  return decoded(value);
}

double JsonText::number(std::string_view value, const char* what) const {
  double result = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), result);
  // What is too small for a double is zero, as for the parser; what is too large did not pass it.
  if (error == std::errc::result_out_of_range) return value.front() == '-' ? -0.0 : 0.0;
  if (error != std::errc() || end != value.data() + value.size() || !std::isfinite(result))
    failExpecting(value, fmt::format("{} must be a number", what));
  return result;
}

double JsonText::integer(std::string_view value, const char* what) const {
  const double result = number(value, what);
  if (std::abs(result) > kLargestInteger)
    failExpecting(value, fmt::format("{} must be an integer of at most 2^53, so that it is read exactly", what));
  if (result != std::trunc(result)) failExpecting(value, fmt::format("{} must be an integer", what));
  return result + 0.0;  // no negative zero
}

std::uint32_t JsonText::index(std::string_view value, std::size_t count, const char* what) const {
  std::uint64_t result = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), result);
  if (error == std::errc::invalid_argument || end != value.data() + value.size())
    failExpecting(value, fmt::format("the number of {} must be an integer from 0", what));
  if (error != std::errc() || result >= count)
    fail(value.data(), fmt::format("{} {} does not exist; there are {}, counted from 0", what, value, count));
  return static_cast<std::uint32_t>(result);
}

std::size_t JsonText::numberOf(std::string_view quoted, const std::string_view* names, std::size_t count) {
  const bool isEscaped = quoted.find('\\') != std::string_view::npos;
  const std::string decodedName = isEscaped ? decoded(quoted) : std::string();
  const std::string_view name = isEscaped ? std::string_view(decodedName) : quoted.substr(1, quoted.size() - 2);
  return static_cast<std::size_t>(std::find(names, names + count, name) - names);
}

void JsonText::failRepeated(std::string_view quoted) const {
  fail(quoted.data(), fmt::format("the member {} stands twice in one object", quoted));
}

}  // namespace facetbox
