#include <facetbox/io/JsonTree.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace facetbox {
namespace {

// The offset behind the string whose opening quote stands at `begin` of well-formed text.
std::size_t endOfString(std::string_view text, std::size_t begin) {
  std::size_t at = begin + 1;
  for (;;) {
    at = text.find_first_of("\"\\", at);
    if (text[at] == '"') return at + 1;
    at += 2;
  }
}

std::size_t endOfWord(std::string_view text, std::size_t begin) {
  return std::min(text.find_first_of(" \t\r\n,]}:", begin), text.size());
}

}  // namespace

// How many places the values of a text take at most, without room that would be moved when it grows.
std::size_t mostPlaces(std::string_view text) {
  std::size_t places = 1;
  for (const char c : text) places += c == ',' || c == ':' ? 1 : c == '[' || c == '{' ? 3 : 0;
  return std::min(places, text.size() + 1);
}

// Takes what the parser finds and follows it in the text: the parser tells no positions.
class JsonTree::Builder : public nlohmann::json::json_sax_t {
 public:
  explicit Builder(JsonTree& tree) : mTree(tree), mText(tree.mText) {}

  bool null() override { return word(); }
  bool boolean(bool) override { return word(); }
  bool number_integer(number_integer_t) override { return word(); }
  bool number_unsigned(number_unsigned_t) override { return word(); }
  bool number_float(number_float_t, const string_t&) override { return word(); }
  bool string(string_t&) override { return quoted(); }
  bool key(string_t&) override { return quoted(); }
  bool binary(binary_t&) override { return false; }  // there is none in text
  bool start_object(std::size_t) override { return open(); }
  bool start_array(std::size_t) override { return open(); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& error) override {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ..."
    const std::string_view text = error.what();
    const std::size_t colon = text.find(": ");
    const std::string_view reason = colon == std::string_view::npos ? text : text.substr(colon + 2);
    mTree.mContext.failAtByte(mTree.mFirstByte + (position > 0 ? position - 1 : 0), fmt::format("no JSON: {}", reason));
  }

 private:
  void add(std::size_t offset) { mTree.mPlaces.push_back(static_cast<std::uint32_t>(offset)); }
  void skipToNext() { mAt = mText.find_first_not_of(" \t\r\n,:", mAt); }

  bool word() {
    skipToNext();
    add(mAt);
    mAt = endOfWord(mText, mAt);
    return true;
  }
  bool quoted() {
    skipToNext();
    add(mAt);
    mAt = endOfString(mText, mAt);
    return true;
  }
  bool open() {
    skipToNext();
    if (mOpen.size() == kMostNesting)
      mTree.mContext.failAtByte(mTree.mFirstByte + mAt,
                                fmt::format("arrays or objects in each other more than {} times", kMostNesting));
    add(mAt++);
    mOpen.push_back(mTree.mPlaces.size());
    add(0);
    return true;
  }
  bool close() {
    skipToNext();
    mTree.mPlaces[mOpen.back()] = static_cast<std::uint32_t>(mTree.mPlaces.size());
    mOpen.pop_back();
    add(++mAt);
    return true;
  }

  JsonTree& mTree;
  const std::string_view mText;
  std::size_t mAt = 0;
  std::vector<std::size_t> mOpen;
};

JsonTree::JsonTree(std::string_view text, std::size_t firstByte, const ReadContext& context)
    : mText(text), mFirstByte(firstByte), mContext(context) {
  if (text.size() >= std::numeric_limits<std::uint32_t>::max()) context.fail("JSON of 4 GB or more cannot be read");
  mPlaces.reserve(mostPlaces(text));
  Builder builder(*this);
  nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
}

bool JsonTree::isContainer(std::uint32_t place) const {
  const char first = mText[mPlaces[place]];
  return first == '{' || first == '[';
}

std::uint32_t JsonTree::after(std::uint32_t place) const {
  return isContainer(place) ? mPlaces[place + 1] + 1 : place + 1;
}

char JsonValue::first() const { return mTree->mText[mTree->mPlaces[mPlace]]; }

std::string_view JsonValue::text() const {
  const std::size_t begin = mTree->mPlaces[mPlace];
  const std::size_t end = mTree->isContainer(mPlace) ? mTree->mPlaces[mTree->mPlaces[mPlace + 1]]
                          : isString()               ? endOfString(mTree->mText, begin)
                                                     : endOfWord(mTree->mText, begin);
  return mTree->mText.substr(begin, end - begin);
}

std::size_t JsonValue::byte() const { return mTree->mFirstByte + mTree->mPlaces[mPlace]; }

void JsonValue::fail(const std::string& what) const { mTree->mContext.failAtByte(byte(), what); }

std::optional<std::string_view> JsonValue::plainString() const {
  if (!isString()) fail("expected a string");
  const std::string_view quoted = text();
  const std::string_view inner = quoted.substr(1, quoted.size() - 2);
  if (inner.find('\\') != std::string_view::npos) return std::nullopt;
  return inner;
}

std::string JsonValue::string() const {
  if (const auto plain = plainString()) return std::string(*plain);
  return nlohmann::json::parse(text()).get<std::string>();
}

double JsonValue::number() const {
  const std::string_view digits = text();
  double value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error == std::errc::invalid_argument || end != digits.data() + digits.size()) fail("expected a number");
  // Too small for a double reads as zero; the parser has refused what is too large.
  return error == std::errc::result_out_of_range ? (digits.front() == '-' ? -0.0 : 0.0) : value;
}

std::uint64_t JsonValue::integer(std::uint64_t most) const {
  const std::string_view digits = text();
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size()) {
    // Some write 3.0 for 3.
    const double asDouble = isString() || isObject() || isArray() ? -1 : number();
    constexpr double kLargestExact = 9007199254740992.0;
    if (!(asDouble >= 0 && asDouble <= kLargestExact && std::floor(asDouble) == asDouble))
      fail(fmt::format("expected an integer from 0 to {}", most));
    value = static_cast<std::uint64_t>(asDouble);
  }
  if (value > most) fail(fmt::format("{}, expected an integer from 0 to {}", value, most));
  return value;
}

bool JsonValue::boolean() const {
  if (text() != "true" && text() != "false") fail("expected true or false");
  return text() == "true";
}

std::optional<JsonValue> JsonValue::find(std::string_view name) const {
  if (!isObject()) fail("expected an object");
  std::optional<JsonValue> found;
  for (Iterator member = begin(); !member.atEnd(); member.next()) {
    const auto plain = member.name().plainString();
    if (plain ? *plain != name : member.name().string() != name) continue;
    if (found) member.name().fail(fmt::format("'{}' stands twice in one object", name));
    found = member.value();
  }
  return found;
}

JsonValue JsonValue::at(std::string_view name) const {
  const auto found = find(name);
  if (!found) fail(fmt::format("'{}' is missing", name));
  return *found;
}

JsonValue::Iterator JsonValue::begin() const {
  if (!isObject() && !isArray()) fail("expected an array");
  return {*mTree, mPlace + 2, mTree->mPlaces[mPlace + 1], isObject()};
}

void JsonValue::Iterator::next() {
  if (mIsObject) ++mPlace;
  mPlace = mTree->after(mPlace);
}

JsonValue JsonValue::Iterator::value() const { return {*mTree, mIsObject ? mPlace + 1 : mPlace}; }

JsonValue JsonValue::Iterator::name() const { return {*mTree, mPlace}; }

}  // namespace facetbox
