#include <facetbox/io/CityJsonShape.h>

#include <utility>

namespace facetbox {
namespace {

constexpr std::array<std::pair<std::string_view, std::size_t>, 5> kTypes = {
    {{"MultiSurface", CityJsonShape::kShell},
     {"CompositeSurface", CityJsonShape::kShell},
     {"Solid", CityJsonShape::kSolid},
     {"MultiSolid", CityJsonShape::kSolids},
     {"CompositeSolid", CityJsonShape::kSolids}}};

constexpr std::array<const char*, 6> kNames = {
    "",          "a ring of boundaries", "a surface of boundaries", "a shell of boundaries", "a solid of boundaries",
    "boundaries"};

// As many calls within each other as there are levels.
void parseLevel(const JsonText& text, JsonCursor& cursor, std::size_t level, std::size_t vertexCount,
                CityJsonShape& shape) {
  text.context().poll();
  if (cursor.peek() != '[') text.array(cursor.skip(), level == shape.top ? "boundaries" : kNames[level]);
  cursor.enter();
  std::uint32_t count = 0;
  for (; cursor.next(); ++count)
    if (level == CityJsonShape::kRing)
      shape.vertices().push_back(text.index(cursor.skip(), vertexCount, "vertex"));
    else
      parseLevel(text, cursor, level - 1, vertexCount, shape);
  shape.sizes[level].push_back(count);
}

}  // namespace

std::optional<std::size_t> levelOfGeometry(std::string_view type) {
  for (const auto& [name, level] : kTypes)
    if (name == type) return level;
  return std::nullopt;
}

CityJsonShape parseBoundaries(const JsonText& text, std::string_view value, std::size_t top, std::size_t vertexCount) {
  CityJsonShape shape;
  shape.top = top;
  JsonCursor cursor(value);
  parseLevel(text, cursor, top, vertexCount, shape);
  return shape;
}

}  // namespace facetbox
