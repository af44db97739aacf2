#include <facetbox/io/ObjParts.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace facetbox {
namespace {

// Renumbers `indices` (entries kNone stay) to the ascending list of the distinct ones and `extra`, which is returned.
// Costs no more than sorting the indices, however large the pool that they point into.
std::vector<std::uint32_t> compactIndices(std::vector<std::uint32_t>& indices, std::vector<std::uint32_t> extra) {
  std::vector<std::uint32_t> used = std::move(extra);
  std::copy_if(indices.begin(), indices.end(), std::back_inserter(used),
               [](std::uint32_t index) { return index != kNone; });
  if (used.empty()) return used;
  const auto [lowest, highest] = std::minmax_element(used.begin(), used.end());
  const std::uint32_t base = *lowest;
  const std::size_t window = std::size_t{*highest} - base + 1;
  if (window / 16 > used.size()) {  // a few indices, far apart
    std::sort(used.begin(), used.end());
    used.erase(std::unique(used.begin(), used.end()), used.end());
    for (std::uint32_t& index : indices) {
      if (index != kNone)
        index = static_cast<std::uint32_t>(std::lower_bound(used.begin(), used.end(), index) - used.begin());
    }
    return used;
  }
  std::vector<std::uint32_t> newIndices(window, kNone);
  for (const std::uint32_t index : used) newIndices[index - base] = 0;
  used.clear();
  for (std::size_t i = 0; i < window; ++i) {
    if (newIndices[i] == kNone) continue;
    newIndices[i] = static_cast<std::uint32_t>(used.size());
    used.push_back(base + static_cast<std::uint32_t>(i));
  }
  for (std::uint32_t& index : indices) {
    if (index != kNone) index = newIndices[index - base];
  }
  return used;
}

// The rows of a pool, each of `width` numbers.
template <typename T>
std::vector<T> gathered(const std::vector<T>& pool, const std::vector<std::uint32_t>& rows, std::size_t width) {
  std::vector<T> values;
  values.reserve(rows.size() * width);
  for (const std::uint32_t row : rows) {
    const auto first = pool.begin() + static_cast<std::ptrdiff_t>(row * width);
    values.insert(values.end(), first, first + static_cast<std::ptrdiff_t>(width));
  }
  return values;
}

// Whether vertices are numbered through, so that their numbers need not be kept.
bool areConsecutive(const std::vector<std::uint32_t>& vertices, std::size_t first) {
  for (std::size_t i = 0; i < vertices.size(); ++i)
    if (vertices[i] != first + i) return false;
  return true;
}

}  // namespace

std::vector<Object> separated(std::vector<ObjPart> parts, ObjPools pools) {
  std::vector<Object> objects(parts.size());
  for (std::size_t i = 0; i < parts.size(); ++i) {
    objects[i].name = std::move(parts[i].name);
    objects[i].mesh = std::move(parts[i].mesh);
  }
  if (parts.size() == 1) {
    objects[0].mesh.points = std::move(pools.points);
    objects[0].mesh.texCoords = std::move(pools.texCoords);
    objects[0].colors = std::move(pools.colors);
    return objects;
  }
  const std::size_t vertexCount = pools.points.size() / 3;
  std::vector<bool> isUsed(vertexCount);
  for (const Object& object : objects)
    for (const std::uint32_t index : object.mesh.indices) isUsed[index] = true;
  std::size_t before = 0;
  bool isNumberedThrough = true;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    PolyMesh& mesh = objects[i].mesh;
    std::vector<std::uint32_t> unused;
    const std::size_t end = i + 1 < parts.size() ? parts[i + 1].firstVertex : vertexCount;
    for (std::size_t vertex = parts[i].firstVertex; vertex < end; ++vertex)
      if (!isUsed[vertex]) unused.push_back(static_cast<std::uint32_t>(vertex));
    std::vector<std::uint32_t> vertices = compactIndices(mesh.indices, std::move(unused));
    mesh.points = gathered(pools.points, vertices, 3);
    if (!pools.colors.empty()) objects[i].colors = gathered(pools.colors, vertices, 4);
    if (!mesh.texIndices.empty()) mesh.texCoords = gathered(pools.texCoords, compactIndices(mesh.texIndices, {}), 2);
    isNumberedThrough = isNumberedThrough && areConsecutive(vertices, before);
    before += vertices.size();
    objects[i].fileVertices = std::move(vertices);
  }
  if (isNumberedThrough)
    for (Object& object : objects) object.fileVertices = {};
  return objects;
}

}  // namespace facetbox
