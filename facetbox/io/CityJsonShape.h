#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include <facetbox/io/JsonText.h>

namespace facetbox {

/// The nested arrays of a geometry, level by level: a ring is an array of vertices, a surface one of rings (the
/// outline, then its holes), a shell one of surfaces, a solid one of shells.
struct CityJsonShape {
  static constexpr std::size_t kRing = 1, kSurface = 2, kShell = 3, kSolid = 4, kSolids = 5;

  std::size_t top = 0;                                   ///< the level of the whole
  std::array<std::vector<std::uint32_t>, 6> sizes = {};  ///< how many each array of a level holds; [0]: the vertices
  std::vector<std::uint32_t>& vertices() { return sizes[0]; }
  const std::vector<std::uint32_t>& vertices() const { return sizes[0]; }

  std::size_t shellCount() const { return sizes[kShell].size(); }

  friend bool operator==(const CityJsonShape&, const CityJsonShape&) = default;
};

/// The level of a type's boundaries, such as kSolid for "Solid"; nothing for those without surfaces and unknown ones.
std::optional<std::size_t> levelOfGeometry(std::string_view type);

/// Reads boundaries.
CityJsonShape parseBoundaries(const JsonText& text, std::string_view value, std::size_t top, std::size_t vertexCount);

/// Calls leaf(surface, value) for what each surface has in `values`, which are nested as the shape; nothing for
/// surfaces, shells and solids that are null.
template <typename Leaf>
class CityJsonValues {
 public:
  CityJsonValues(const JsonText& text, const CityJsonShape& shape, Leaf leaf)
      : mText(text), mShape(shape), mLeaf(leaf) {}

  void walk(std::string_view values) {
    JsonCursor cursor(values);
    walkLevel(&cursor, mShape.top);
  }

 private:
  // Without a cursor, something around is null.
  void walkLevel(JsonCursor* cursor, std::size_t level) {
    if (cursor != nullptr && cursor->peek() == 'n') {
      cursor->skip();
      cursor = nullptr;
    }
    if (level == CityJsonShape::kSurface) {
      if (cursor != nullptr) mLeaf(mSurface, cursor->skip());
      ++mSurface;
      return;
    }
    const std::size_t size = mShape.sizes[level][mAt[level]++];
    if (cursor == nullptr) {
      for (std::size_t i = 0; i < size; ++i) walkLevel(nullptr, level - 1);
      return;
    }
    const char* const start = cursor->at();
    if (*start != '[') mText.failExpecting(cursor->skip(), "values must be an array or null");
    cursor->enter();
    std::size_t count = 0;
    for (; cursor->next(); ++count) {
      if (count == size) failCount(start, "more", size);
      walkLevel(cursor, level - 1);
    }
    if (count < size) failCount(start, "fewer", size);
  }
  [[noreturn]] void failCount(const char* at, const char* found, std::size_t size) const {
    mText.fail(at, std::string("the values are ") + found + " than the " + std::to_string(size) +
                       " that the boundaries have here");
  }

  const JsonText& mText;
  const CityJsonShape& mShape;
  Leaf mLeaf;
  std::array<std::size_t, 6> mAt = {};
  std::size_t mSurface = 0;
};

}  // namespace facetbox
