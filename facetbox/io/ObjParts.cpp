#include <facetbox/io/ObjParts.h>

#include <algorithm>
#include <utility>

#include <facetbox/io/CompactIndices.h>

namespace facetbox {
namespace {

// Whether vertices are numbered through, so that their numbers need not be kept.
bool areConsecutive(const std::vector<std::uint32_t>& vertices, std::size_t first) {
  for (std::size_t i = 0; i < vertices.size(); ++i)
    if (vertices[i] != first + i) return false;
  return true;
}

// A piece of a list. Empty where the list is, or where all of the piece is kNone.
std::vector<std::uint32_t> optionalPiece(const std::vector<std::uint32_t>& list, std::size_t begin, std::size_t end) {
  if (list.empty()) return {};
  const auto first = list.begin() + static_cast<std::ptrdiff_t>(begin);
  const auto last = list.begin() + static_cast<std::ptrdiff_t>(end);
  if (std::all_of(first, last, [](std::uint32_t value) { return value == kNone; })) return {};
  return {first, last};
}

Object singleObject(ObjPart& part, ObjPools& pools) {
  return {.name = std::move(part.name),
          .mesh = {.points = std::move(pools.points),
                   .counts = std::move(pools.counts),
                   .indices = std::move(pools.indices),
                   .texCoords = std::move(pools.texCoords),
                   .texIndices = std::move(pools.texIndices),
                   .labels = std::move(pools.labels),
                   .holes = std::move(pools.holes)},
          .colors = std::move(pools.colors)};
}

// Those of the faces from one on up to another, counted from the first. `at` is where they begin, and moves on.
std::vector<std::uint32_t> takeHoles(const std::vector<std::uint32_t>& list, std::size_t& at, std::size_t firstFace,
                                     std::size_t endFace) {
  std::vector<std::uint32_t> holes;
  while (at < list.size() && list[at] < endFace) {
    for (; list[at] != kNone; ++at) holes.push_back(static_cast<std::uint32_t>(list[at] - firstFace));
    holes.push_back(list[at++]);
  }
  return holes;
}

std::vector<bool> used(const std::vector<std::uint32_t>& indices, std::size_t count) {
  std::vector<bool> isUsed(count);
  for (const std::uint32_t index : indices)
    if (index != kNone) isUsed[index] = true;
  return isUsed;
}

}  // namespace

std::vector<Object> separated(std::deque<ObjPart> parts, ObjPools pools, std::size_t& unusedTexCoords) {
  std::vector<Object> objects;
  objects.reserve(parts.size());
  if (parts.size() == 1) {
    objects.push_back(singleObject(parts[0], pools));
    return objects;
  }
  const std::size_t vertexCount = pools.points.size() / 3;
  const std::vector<bool> isUsed = used(pools.indices, vertexCount);
  const std::vector<bool> isTexCoordUsed = used(pools.texIndices, pools.texCoords.size() / 2);
  unusedTexCoords = static_cast<std::size_t>(std::count(isTexCoordUsed.begin(), isTexCoordUsed.end(), false));
  parts.push_back({{}, pools.counts.size(), pools.indices.size(), vertexCount});
  std::size_t before = 0, hole = 0;
  bool isNumberedThrough = true;
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    const ObjPart &part = parts[i], &next = parts[i + 1];
    Object& object = objects.emplace_back();
    object.name = part.name;
    PolyMesh& mesh = object.mesh;
    mesh.counts.assign(pools.counts.begin() + static_cast<std::ptrdiff_t>(part.firstFace),
                       pools.counts.begin() + static_cast<std::ptrdiff_t>(next.firstFace));
    mesh.indices.assign(pools.indices.begin() + static_cast<std::ptrdiff_t>(part.firstCorner),
                        pools.indices.begin() + static_cast<std::ptrdiff_t>(next.firstCorner));
    mesh.texIndices = optionalPiece(pools.texIndices, part.firstCorner, next.firstCorner);
    mesh.labels = optionalPiece(pools.labels, part.firstFace, next.firstFace);
    mesh.holes = takeHoles(pools.holes, hole, part.firstFace, next.firstFace);
    std::vector<std::uint32_t> unused;
    for (std::size_t vertex = part.firstVertex; vertex < next.firstVertex; ++vertex)
      if (!isUsed[vertex]) unused.push_back(static_cast<std::uint32_t>(vertex));
    std::vector<std::uint32_t> vertices = compactIndices(mesh.indices, std::move(unused));
    mesh.points = gathered(pools.points, vertices, 3);
    if (!pools.colors.empty()) object.colors = gathered(pools.colors, vertices, 4);
    if (!mesh.texIndices.empty()) mesh.texCoords = gathered(pools.texCoords, compactIndices(mesh.texIndices, {}), 2);
    isNumberedThrough = isNumberedThrough && areConsecutive(vertices, before);
    before += vertices.size();
    vertices.shrink_to_fit();
    object.fileVertices = std::move(vertices);
  }
  if (isNumberedThrough)
    for (Object& object : objects) object.fileVertices = {};
  return objects;
}

}  // namespace facetbox
