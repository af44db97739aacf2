#include <facetbox/io/MaterialLibrary.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include <facetbox/io/FileError.h>

namespace facetbox {
namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string_view::npos ? std::string_view()
                                         : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

// Cuts the text up to the first of the letters off, and returns it.
std::string_view cut(std::string_view& text, std::string_view letters) {
  const std::size_t end = std::min(text.find_first_of(letters), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

std::string_view takeWord(std::string_view& text) {
  text = trimmed(text);
  return cut(text, kBlanks);
}

std::optional<double> numberIn(std::string_view word) {
  if (word.starts_with('+')) word.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

enum class Kind { color, opacity, transparency, texture, other };

Kind kindOf(std::string_view keyword) {
  if (keyword == "Kd") return Kind::color;
  if (keyword == "d") return Kind::opacity;
  if (keyword == "Tr") return Kind::transparency;
  return keyword == "map_Kd" ? Kind::texture : Kind::other;
}

// The file name of a map: what follows the options, each of which has a known number of arguments.
std::string_view fileOf(std::string_view rest) {
  constexpr std::string_view kOneArgument = " -blendu -blendv -bm -boost -cc -clamp -imfchan -texres -type ";
  for (rest = trimmed(rest); rest.starts_with('-');) {
    std::string_view after = rest;
    const std::string_view option = takeWord(after);
    if (kOneArgument.find(fmt::format(" {} ", option)) != std::string_view::npos) {
      takeWord(after);
    } else if (option == "-mm") {
      takeWord(after), takeWord(after);
    } else if (option == "-o" || option == "-s" || option == "-t") {
      for (int i = 0; i < 3; ++i) {  // one to three numbers
        std::string_view next = after;
        if (numberIn(takeWord(next))) after = next;
      }
    } else {
      break;  // a name that begins with a dash
    }
    rest = trimmed(after);
  }
  return rest;
}

// Takes up what a statement says of color and texture. One that is not understood stays in the definition.
void take(Kind kind, std::string_view rest, Material& material) {
  const auto color = [&]() -> std::array<double, 4>& {
    if (!material.color) material.color = {1, 1, 1, 1};
    return *material.color;
  };
  if (kind == Kind::texture) {
    material.texture = fileOf(rest);
  } else if (kind == Kind::color) {
    std::array<double, 3> rgb{};
    for (double& value : rgb) {
      const bool isSecond = &value == &rgb[1];
      const std::string_view word = takeWord(rest);
      const std::optional<double> number = numberIn(word);
      if (!number && isSecond && (word.empty() || word.starts_with('#'))) {
        rgb.fill(rgb[0]);  // one number stands for all three
        break;
      }
      if (!number) return;
      value = *number;
    }
    for (std::size_t i = 0; i < 3; ++i) color()[i] = rgb[i];
  } else if (const std::optional<double> number = numberIn(takeWord(rest)); number && kind != Kind::other) {
    color()[3] = kind == Kind::opacity ? *number : 1 - *number;
  }
}

void writeColor(const Material& material, Output& output) {
  if (!material.color) return;
  output.text("Kd");
  for (std::size_t i = 0; i < 3; ++i) {
    output.letter(' ');
    output.number((*material.color)[i]);
  }
  output.letter('\n');
  if ((*material.color)[3] == 1) return;
  output.text("d ");
  output.number((*material.color)[3]);
  output.letter('\n');
}

void writeTexture(const Material& material, Output& output) {
  if (material.texture.empty()) return;
  output.text("map_Kd ");
  output.text(material.texture);
  output.letter('\n');
}

}  // namespace

void parseMaterialLibrary(std::string_view text, const std::string& name, ReadContext& context,
                          const std::function<void(Material&&)>& add) {
  std::optional<Material> material;
  if (!text.empty() && text.back() != '\n')
    context.notes().add(fmt::format("line end of material library '{}', which may be cut short", name));
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  for (std::size_t line = 1; !text.empty(); ++line) {
    context.poll();
    std::string_view rest = trimmed(cut(text, "\n"));
    if (rest.empty() || rest.starts_with('#')) continue;
    const std::string_view statement = rest, keyword = takeWord(rest);
    rest = trimmed(rest);
    if (keyword == "newmtl") {
      if (material) add(std::move(*material));
      material = {.name = std::string(rest)};
      continue;
    }
    if (!material)
      throw ReadError(fmt::format("{}:{}: there must be a line 'newmtl NAME' before this one", name, line));
    material->definition.append(statement).push_back('\n');
    take(kindOf(keyword), rest, *material);
  }
  if (material) add(std::move(*material));
}

void writeMaterial(const Material& material, bool keepsDefinition, Output& output) {
  output.text("newmtl ");
  output.text(material.name);
  output.letter('\n');
  const std::string definition = keepsDefinition ? material.definition : "";
  Material defined;
  for (std::string_view rest = definition; !rest.empty();) {
    std::string_view statement = cut(rest, "\n");
    const Kind kind = kindOf(takeWord(statement));
    take(kind, trimmed(statement), defined);
  }
  const bool hasColor = defined.color == material.color, hasTexture = defined.texture == material.texture;
  for (std::string_view rest = definition; !rest.empty();) {
    const std::string_view statement = cut(rest, "\n");
    std::string_view words = statement;
    const Kind kind = kindOf(takeWord(words));
    if (kind == Kind::texture ? hasTexture : kind == Kind::other || hasColor) {
      output.text(statement);
      output.letter('\n');
    }
  }
  if (!hasColor) writeColor(material, output);
  if (!hasTexture) writeTexture(material, output);
}

}  // namespace facetbox
