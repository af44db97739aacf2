#pragma once

#include <string>
#include <string_view>

namespace util {

/// One 16-bit code unit of the same value per byte: reads bytes as Latin-1.
std::u16string widenLatin1(std::string_view bytes);

/// Encodes UTF-16 as UTF-8. A surrogate without its partner becomes U+FFFD; a zero code unit becomes a zero byte.
std::string toUtf8(std::u16string_view text);

}  // namespace util
