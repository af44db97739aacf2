#include <facetbox/io/GltfNames.h>

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace facetbox {

std::string gltfQuoted(std::string_view text) {
  std::string printable(text.substr(0, 40));
  std::replace_if(
      printable.begin(), printable.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
  return fmt::format("'{}'", printable);
}

std::string fromUri(std::string_view uri) {
  std::string name;
  for (std::size_t i = 0; i < uri.size(); ++i) {
    unsigned char code = 0;
    const char* const digits = uri.data() + i + 1;
    if (uri[i] == '%' && uri.size() - i > 2 && std::from_chars(digits, digits + 2, code, 16).ptr == digits + 2) {
      name.push_back(static_cast<char>(code));
      i += 2;
    } else {
      name.push_back(uri[i]);
    }
  }
  return name;
}

std::string toUri(std::string_view name) {
  constexpr std::string_view kPlain = "-._~/!$&'()*+,;=@";
  std::string uri;
  for (const char c : name) {
    const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                         kPlain.find(c) != std::string_view::npos;
    if (isPlain)
      uri.push_back(c);
    else
      uri += fmt::format("%{:02X}", static_cast<unsigned char>(c));
  }
  return uri;
}

}  // namespace facetbox
