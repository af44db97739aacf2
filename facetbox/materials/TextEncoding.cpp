#include <facetbox/materials/TextEncoding.h>

namespace util {
namespace {

bool isHighSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xD800; }
bool isLowSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

void appendUtf8(std::string& out, char32_t code) {
  const auto append = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  const auto appendContinuation = [&](int shift) { append(0x80 | ((code >> shift) & 0x3F)); };
  if (code < 0x80) {
    append(code);
  } else if (code < 0x800) {
    append(0xC0 | (code >> 6));
    appendContinuation(0);
  } else if (code < 0x10000) {
    append(0xE0 | (code >> 12));
    appendContinuation(6);
    appendContinuation(0);
  } else {
    append(0xF0 | (code >> 18));
    appendContinuation(12);
    appendContinuation(6);
    appendContinuation(0);
  }
}

}  // namespace

std::u16string widenLatin1(std::string_view bytes) {
  std::u16string text;
  text.reserve(bytes.size());
  for (const char byte : bytes) text.push_back(static_cast<unsigned char>(byte));
  return text;
}

std::string toUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    if (isHighSurrogate(unit) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
      ++i;
      appendUtf8(out, 0x10000 + ((unit & char32_t{0x3FF}) << 10) + (text[i] & char32_t{0x3FF}));
    } else {
      appendUtf8(out, isHighSurrogate(unit) || isLowSurrogate(unit) ? U'\uFFFD' : unit);
    }
  }
  return out;
}

}  // namespace util
