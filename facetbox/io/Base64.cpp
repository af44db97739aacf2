#include <facetbox/io/Base64.h>

#include <array>
#include <cstdint>

namespace facetbox {
namespace {

constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoLetter = 64;

constexpr std::array<std::uint8_t, 256> makeValues() {
  std::array<std::uint8_t, 256> values = {};
  values.fill(kNoLetter);
  for (std::size_t i = 0; i < kLetters.size(); ++i) values[static_cast<unsigned char>(kLetters[i])] = std::uint8_t(i);
  return values;
}

constexpr std::array<std::uint8_t, 256> kValues = makeValues();

}  // namespace

std::optional<std::string> fromBase64(std::string_view text, std::size_t& problem) {
  const std::string_view whole = text;
  while (whole.size() % 4 == 0 && whole.size() - text.size() < 2 && text.ends_with('=')) text.remove_suffix(1);
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  std::uint32_t bits = 0;
  for (problem = 0; problem < text.size(); ++problem) {
    const std::uint8_t value = kValues[static_cast<unsigned char>(text[problem])];
    if (value == kNoLetter) return std::nullopt;
    bits = bits << 6 | value;
    // Four letters are three bytes.
    if (problem % 4 == 1) bytes.push_back(static_cast<char>(bits >> 4));
    if (problem % 4 == 2) bytes.push_back(static_cast<char>(bits >> 2));
    if (problem % 4 == 3) bytes.push_back(static_cast<char>(bits));
  }
  if (text.size() % 4 == 1) return std::nullopt;  // six bits are no byte
  return bytes;
}

void appendBase64(std::string& text, std::string_view bytes) {
  const auto byte = [bytes](std::size_t i) {
    return i < bytes.size() ? std::uint32_t{static_cast<unsigned char>(bytes[i])} : 0U;
  };
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::uint32_t bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
    text.push_back(kLetters[bits >> 18]);
    text.push_back(kLetters[bits >> 12 & 63]);
    text.push_back(i + 1 < bytes.size() ? kLetters[bits >> 6 & 63] : '=');
    text.push_back(i + 2 < bytes.size() ? kLetters[bits & 63] : '=');
  }
}

}  // namespace facetbox
