#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <string_view>
#include <system_error>

namespace facetbox {

/// The value of a decimal number beyond the range of double: zero or infinity, with its sign. The sign of the decimal
/// exponent tells which.
inline double decimalBeyondRange(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative) text.remove_prefix(1);
  const std::string_view digits = text.substr(0, text.find_first_of("eE"));
  // That of the first digit that is not 0.
  const auto point = static_cast<long long>(std::min(digits.find('.'), digits.size()));
  const auto first = static_cast<long long>(digits.find_first_of("123456789"));
  const long long place = first < point ? point - first : point - first + 1;
  long long exponent = 0;
  if (digits.size() < text.size()) {
    std::string_view power = text.substr(digits.size() + 1);
    if (power.starts_with('+')) power.remove_prefix(1);
    // An exponent of so many digits outweighs the places of any text.
    if (std::from_chars(power.data(), power.data() + power.size(), exponent).ec == std::errc::result_out_of_range)
      exponent = std::numeric_limits<long long>::max() / (power.starts_with('-') ? -2 : 2);
  }
  const double value = exponent + place > 0 ? std::numeric_limits<double>::infinity() : 0.0;
  return isNegative ? -value : value;
}

/// std::from_chars, but numbers beyond the range of double are zero or infinity and no error, in every locale. A plus
/// sign is none of the number.
inline std::from_chars_result parseDecimal(const char* begin, const char* end, double& value) {
  std::from_chars_result result = std::from_chars(begin, end, value);
  if (result.ec == std::errc::result_out_of_range) {
    value = decimalBeyondRange({begin, static_cast<std::size_t>(result.ptr - begin)});
    result.ec = {};
  }
  return result;
}

}  // namespace facetbox
