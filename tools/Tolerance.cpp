#include <tools/Tolerance.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {
namespace {

constexpr double kLargest = std::numeric_limits<double>::max();

std::optional<double> readNumber(std::string_view text, double largest) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [next, error] = std::from_chars(text.data(), end, value);
  // Not "value < 0 || value > largest": that would let NaN pass.
  if (error != std::errc() || next != end || !(value >= 0 && value <= largest)) return std::nullopt;
  return value;
}

}  // namespace

double Tolerance::length(double diagonal) const {
  return mIsRelative ? std::min(mValue / 100 * diagonal, kLargest) : mValue;
}

double Tolerance::area(double diagonal) const {
  return mIsRelative ? std::min(mValue / 100 * diagonal * diagonal, kLargest) : mValue;
}

std::string Tolerance::text() const { return fmt::format("{}{}", mValue, mIsRelative ? "%" : ""); }

Tolerance parseTolerance(const std::string& text, const std::string& option) {
  const bool isRelative = text.ends_with('%');
  const auto value = readNumber(std::string_view(text).substr(0, text.size() - (isRelative ? 1 : 0)), kLargest);
  if (!value)
    throw InputError(
        fmt::format("{}: '{}' is not a finite number of 0 or more, such as 0.01 or, for a part of the "
                    "bounding-box diagonal, 0.1%",
                    option, text));
  return {*value, isRelative};
}

double parseNumber(const std::string& text, const std::string& option, double largest) {
  const auto value = readNumber(text, largest);
  if (!value) throw InputError(fmt::format("{}: '{}' is not a number from 0 to {}", option, text, largest));
  return *value;
}

}  // namespace tool
