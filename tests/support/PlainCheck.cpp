#include <tests/support/PlainCheck.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include <facetbox/math/Vec3.h>

namespace support {
namespace {

using facetbox::Defects;
using facetbox::kNone;
using util::Vec3;
using Face = std::vector<std::uint32_t>;

struct Plain {
  std::vector<Vec3> points;
  std::vector<Face> faces;
  std::map<std::uint32_t, std::uint32_t> outerOf;

  explicit Plain(const facetbox::PolyMesh& mesh) {
    for (std::size_t i = 0; i < mesh.points.size(); i += 3) points.push_back(util::toVec3(&mesh.points[i]));
    auto corner = mesh.indices.begin();
    for (const std::uint32_t count : mesh.counts) {
      faces.emplace_back(corner, corner + count);
      corner += count;
    }
    for (std::size_t i = 0; i < mesh.holes.size(); ++i)
      for (const std::uint32_t outer = mesh.holes[i++]; mesh.holes[i] != kNone; ++i) outerOf[mesh.holes[i]] = outer;
  }
  bool isHole(std::uint32_t face) const { return outerOf.contains(face); }
  bool isLeftOut(std::uint32_t face) const {
    return faces[face].size() < 3 || (isHole(face) && faces[outerOf.at(face)].size() < 3);
  }
  bool isUsed(std::uint32_t vertex) const {
    for (std::uint32_t face = 0; face < faces.size(); ++face)
      if (!isLeftOut(face) && std::ranges::count(faces[face], vertex) != 0) return true;
    return false;
  }
  Vec3 areaVector(std::uint32_t face) const {
    Vec3 sum{0, 0, 0};
    for (std::size_t i = 0; i < faces[face].size(); ++i)
      sum = sum + cross(points[faces[face][i]], points[faces[face][(i + 1) % faces[face].size()]]);
    return 0.5 * sum;
  }
  /// Edges as they run along the surface.
  std::vector<Defects::Pair> edgesOf(std::uint32_t face) const {
    std::vector<Defects::Pair> edges;
    const bool isTurned = isHole(face) && dot(areaVector(face), areaVector(outerOf.at(face))) > 0;
    for (std::size_t i = 0; i < faces[face].size(); ++i) {
      const std::uint32_t a = faces[face][i], b = faces[face][(i + 1) % faces[face].size()];
      if (a != b) edges.push_back(isTurned ? Defects::Pair{b, a} : Defects::Pair{a, b});
    }
    return edges;
  }
};

bool areDouble(Face a, const Face& b) {
  for (int direction = 0; direction < 2; ++direction, std::ranges::reverse(a))
    for (std::size_t i = 0; i < a.size(); ++i, std::rotate(a.begin(), a.begin() + 1, a.end()))
      if (a == b) return true;
  return false;
}

void findEdges(const Plain& plain, Defects& defects) {
  std::map<Defects::Pair, std::vector<bool>> uses;
  std::map<Defects::Pair, std::set<std::uint32_t>> facesOf;
  for (std::uint32_t face = 0; face < plain.faces.size(); ++face) {
    if (plain.isLeftOut(face)) continue;
    for (const auto& [a, b] : plain.edgesOf(face)) {
      const Defects::Pair edge{std::min(a, b), std::max(a, b)};
      uses[edge].push_back(a < b);
      facesOf[edge].insert(face);
    }
  }
  for (const auto& [edge, directions] : uses) {
    if (directions.size() == 1) defects.openEdges.push_back(edge);
    if (directions.size() > 2) defects.overusedEdges.push_back(edge);
    if (directions.size() == 2 && directions[0] == directions[1]) defects.sameDirectionEdges.push_back(edge);
  }
  defects.isOriented = defects.sameDirectionEdges.empty();

  // Numbers of faces spread until nothing changes.
  std::vector<std::uint32_t> lowest(plain.faces.size(), kNone);
  for (std::uint32_t face = 0; face < lowest.size(); ++face)
    if (!plain.isLeftOut(face)) lowest[face] = face;
  const auto spread = [&](std::uint32_t a, std::uint32_t b) {
    const std::uint32_t low = std::min(lowest[a], lowest[b]);
    const bool changes = lowest[a] != low || lowest[b] != low;
    lowest[a] = lowest[b] = low;
    return changes;
  };
  for (bool changes = true; changes;) {
    changes = false;
    for (const auto& [edge, faces] : facesOf)
      for (const std::uint32_t face : faces) changes |= spread(*faces.begin(), face);
    for (const auto& [hole, outer] : plain.outerOf)
      if (!plain.isLeftOut(hole)) changes |= spread(hole, outer);
  }
  std::map<std::uint32_t, std::uint32_t> numbers;
  for (const std::uint32_t low : lowest)
    if (low != kNone) numbers.insert({low, static_cast<std::uint32_t>(numbers.size())});
  for (const std::uint32_t low : lowest) defects.components.push_back(low == kNone ? kNone : numbers.at(low));
  defects.componentCount = static_cast<std::uint32_t>(numbers.size());
  defects.isClosed = !numbers.empty() && defects.openEdges.empty() && defects.overusedEdges.empty();
}

void findTCorners(const Plain& plain, double tolerance, Defects& defects) {
  for (const Defects::Pair& edge : defects.openEdges)
    for (std::uint32_t vertex = 0; vertex < plain.points.size(); ++vertex) {
      const Vec3 a = plain.points[edge[0]], along = plain.points[edge[1]] - a, to = plain.points[vertex] - a;
      if (!plain.isUsed(vertex) || lengthSq(along) == 0) continue;
      const double part = dot(to, along) / lengthSq(along), whole = length(along);
      if (part * whole > tolerance && (1 - part) * whole > tolerance && length(to - part * along) <= tolerance)
        defects.tCorners.push_back({edge, vertex});
    }
}

}  // namespace

Defects plainCheck(const facetbox::PolyMesh& mesh) {
  const Plain plain(mesh);
  Defects defects;
  for (std::uint32_t a = 0; a < plain.points.size(); ++a) {
    bool isLowest = true;
    for (std::uint32_t b = 0; b < a; ++b) isLowest &= plain.points[a] != plain.points[b];
    for (std::uint32_t b = a + 1; b < plain.points.size() && isLowest; ++b)
      if (plain.points[a] == plain.points[b]) defects.sameVertices.push_back({a, b});
    if (!plain.isUsed(a)) defects.unusedVertices.push_back(a);
  }
  util::Vec3 low{1e9, 1e9, 1e9}, high{-1e9, -1e9, -1e9};
  std::set<std::uint32_t> doubles;
  for (std::uint32_t face = 0; face < plain.faces.size(); ++face) {
    const Face& corners = plain.faces[face];
    if (plain.isLeftOut(face)) {
      defects.leftOutFaces.push_back(face);
      continue;
    }
    for (std::uint32_t i = 0; i < corners.size(); ++i) {
      const Vec3 p = plain.points[corners[i]];
      low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
      high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
      if (p == plain.points[corners[(i + 1) % corners.size()]]) defects.zeroEdges.push_back({face, i});
    }
    if (std::set(corners.begin(), corners.end()).size() < corners.size()) defects.repeatedCorners.push_back(face);
    const double area = length(plain.areaVector(face));
    if (area < 1e-9) defects.zeroFaces.push_back(face);
    const bool isHole = plain.isHole(face);
    defects.area += isHole ? -area : area;
    for (std::uint32_t other = face + 1; other < plain.faces.size() && !isHole && !doubles.contains(face); ++other) {
      if (plain.isHole(other) || plain.isLeftOut(other) || !areDouble(corners, plain.faces[other])) continue;
      defects.doubleFaces.push_back({face, other});
      doubles.insert(other);
    }
  }
  findEdges(plain, defects);
  if (defects.componentCount == 0) return defects;
  defects.boxMin = {low.x, low.y, low.z};
  defects.boxMax = {high.x, high.y, high.z};
  findTCorners(plain, 1e-6 * length(high - low), defects);
  for (std::uint32_t face = 0; face < plain.faces.size(); ++face) {
    if (plain.isLeftOut(face)) continue;
    const bool isTurned =
        plain.isHole(face) && dot(plain.areaVector(face), plain.areaVector(plain.outerOf.at(face))) > 0;
    const Face& corners = plain.faces[face];
    for (std::size_t i = 2; i < corners.size(); ++i) {
      const Vec3 p = plain.points[corners[0]] - low, q = plain.points[corners[i - 1]] - low;
      defects.volume += (isTurned ? -1 : 1) * dot(p, cross(q, plain.points[corners[i]] - low)) / 6;
    }
  }
  return defects;
}

}  // namespace support
