#include <tools/Arguments.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {
namespace {

// Whether the whole of `text` is one number in the syntax of from_chars; `how` is its base or format.
template <typename Number, typename... How>
bool readAll(std::string_view text, Number& value, How... how) {
  const char* const end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), end, value, how...);
  return error == std::errc() && next == end;
}

}  // namespace

std::size_t parseCount(const std::string& text, const std::string& option) {
  std::size_t count = 0;
  if (!readAll(text, count)) throw InputError(fmt::format("{}: '{}' is not a whole number of 0 or more", option, text));
  return count;
}

std::vector<double> parseNumbers(const std::string& text, const std::string& option, std::size_t count) {
  std::vector<double> numbers;
  std::string_view rest = text;
  while (true) {
    const std::size_t comma = rest.find(',');
    double number = 0;
    if (!readAll(rest.substr(0, comma), number) || !std::isfinite(number)) break;
    numbers.push_back(number);
    if (comma == std::string_view::npos) {
      if (numbers.size() == count) return numbers;
      break;
    }
    rest.remove_prefix(comma + 1);
  }
  throw InputError(fmt::format("{}: '{}' is not {} finite numbers separated by commas", option, text, count));
}

Vector parseVector(const std::string& text, const std::string& option) {
  const std::vector<double> numbers = parseNumbers(text, option, 3);
  return {numbers[0], numbers[1], numbers[2]};
}

std::array<int, 2> parseSize(const std::string& text, const std::string& option) {
  constexpr int kLargest = 16384;
  const std::size_t cross = std::min(text.find('x'), text.size());
  std::array<int, 2> size{};
  const std::string_view width(text.data(), cross),
      height(std::string_view(text).substr(std::min(cross + 1, text.size())));
  const auto isFine = [](int side) { return side >= 1 && side <= kLargest; };
  if (!readAll(width, size[0]) || !readAll(height, size[1]) || !isFine(size[0]) || !isFine(size[1]))
    throw InputError(
        fmt::format("{}: '{}' is not a size such as 640x480, each side from 1 to {}", option, text, kLargest));
  return size;
}

Color parseColor(const std::string& text, const std::string& option) {
  if (text == "white") return {255, 255, 255};
  if (text == "black") return {0, 0, 0};
  std::uint32_t value = 0;
  if (text.size() != 7 || text[0] != '#' || !readAll(std::string_view(text).substr(1), value, 16))
    throw InputError(fmt::format("{}: '{}' is not a color such as #f0f0f0, white or black", option, text));
  return {static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8),
          static_cast<std::uint8_t>(value)};
}

}  // namespace tool
