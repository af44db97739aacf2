#include <facetbox/util/triangles/ClipTest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/util/math/OverlapsBox.h>
#include <facetbox/util/math/Vec3.h>
#include <facetbox/util/triangles/ClipProjection.h>
#include <facetbox/util/triangles/TriangleHierarchy.h>

namespace util {

namespace {

/// Room for projected vertices that is kept from call to call.
std::span<double> scratch(std::size_t size) {
  static thread_local std::vector<double> room;
  if (room.size() < size) room.resize(size);
  return std::span(room).first(size);
}

}  // namespace

void multiply(const double a[16], const double b[16], double product[16]) {
  for (int column = 0; column < 4; ++column)
    for (int row = 0; row < 4; ++row)
      product[4 * column + row] = a[row] * b[4 * column] + a[4 + row] * b[4 * column + 1] +
                                  a[8 + row] * b[4 * column + 2] + a[12 + row] * b[4 * column + 3];
}

bool overlapsClipCubePlain(const TriangleMesh& mesh, const double c[16]) {
  const std::span<const double> vertices = mesh.vertexCoordinates();
  const std::span<const std::uint32_t> indices = mesh.indices();
  if (indices.empty()) return false;
  const std::span<double> projected = scratch(vertices.size());
  for (std::size_t v = 0; v + 2 < vertices.size(); v += 3)
    if (!projectToClipSpace(c, &vertices[v], &projected[v])) projected[v] = projected[v + 1] = projected[v + 2] = 0.0;
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3)
    if (overlapsBox(&projected[3 * std::size_t{indices[i]}], &projected[3 * std::size_t{indices[i + 1]}],
                    &projected[3 * std::size_t{indices[i + 2]}], kClipCubeCentre, kClipCubeHalf))
      return true;
  return false;
}

bool liesInClipCubePlain(const TriangleMesh& mesh, const double c[16]) {
  const std::span<const double> vertices = mesh.vertexCoordinates();
  // Not reset for the next vertex: one that cannot be projected stays at the last one's place.
  double p[3] = {0, 0, 0};
  for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) {
    projectToClipSpace(c, &vertices[v], p);
    if (!isInClipCube(p)) return false;
  }
  return true;
}

// Over a box, x - w and x + w are linear functions like x and w themselves: their value at the centre, and a reach of
// the sizes of their coefficients times the half-extents to both sides.
//
// Rounding: let S be the sum of the sizes of a coordinate's four terms, where x, y and z are as large as the box
// allows. A vertex's coordinate comes out right to 4 ulp of S, and so do the values at the centre, the reaches and the
// centre itself; the division adds half an ulp of a quotient near 1. 1e-13 of S covers that some hundred times over. So
// when w - |x| exceeds 1e-13 (S of x + S of w) all over the box, the rounded quotient lies strictly within (-1, 1) for
// each vertex; when x - w does, strictly above 1. Sizes of 1e-20 and more for w and of at most 1e100 for S keep clear
// of the smallest w and of over- and underflow. NaN fails every comparison: unsure.
ClipSide sideOfClipCube(const Box& box, const double c[16]) {
  constexpr double kRounding = 1e-13;
  const Vec3 half = (box.max - box.min) / 2, centre = box.min + half;
  if (!(half.x >= 0 && half.y >= 0 && half.z >= 0)) return ClipSide::unsure;
  const Vec3 size{std::fabs(centre.x) + half.x, std::fabs(centre.y) + half.y, std::fabs(centre.z) + half.z};
  double middle[4], sum[4];
  for (int row = 0; row < 4; ++row) {
    middle[row] = c[row] * centre.x + c[4 + row] * centre.y + c[8 + row] * centre.z + c[12 + row];
    sum[row] = std::fabs(c[row]) * size.x + std::fabs(c[4 + row]) * size.y + std::fabs(c[8 + row]) * size.z +
               std::fabs(c[12 + row]);
    if (!(sum[row] <= 1e100)) return ClipSide::unsure;
  }
  const double reachOfW = std::fabs(c[3]) * half.x + std::fabs(c[7]) * half.y + std::fabs(c[11]) * half.z;
  if (!(std::fabs(middle[3]) - reachOfW > 1e-20 + kRounding * sum[3])) return ClipSide::unsure;
  // Where w is below 0 all over the box, -w is what counts.
  const double sign = middle[3] < 0 ? -1.0 : 1.0;
  bool inside = true;
  for (int row = 0; row < 3; ++row)
    for (const double face : {1.0, -1.0}) {
      // face x - w, which is above 0 beyond the face.
      const double beyond = face * middle[row] - sign * middle[3];
      const double reach = std::fabs(face * c[row] - sign * c[3]) * half.x +
                           std::fabs(face * c[4 + row] - sign * c[7]) * half.y +
                           std::fabs(face * c[8 + row] - sign * c[11]) * half.z;
      const double margin = kRounding * (sum[row] + sum[3]);
      if (beyond - reach > margin) return ClipSide::outside;
      inside = inside && beyond + reach < -margin;
    }
  return inside ? ClipSide::inside : ClipSide::unsure;
}

namespace {

enum class Verdict { yes, no, openStill };

/// Walks down the subtrees that lie on neither side for certain.
///
/// `atChild(side)` is asked for each child box, `atTriangle(corners)` for each triangle that is left, nine coordinates;
/// both may end the walk with a verdict. After too many triangles it ends openly: the plain loop is faster then.
template <class AtChild, class AtTriangle>
Verdict walk(const TriangleHierarchy& hierarchy, const double c[16], AtChild atChild, AtTriangle atTriangle) {
  const TriangleHierarchy::View view = hierarchy.view();
  constexpr int kWidth = TriangleHierarchy::kWidth;
  std::size_t patience = 64 + hierarchy.triangleCount() / 16;
  TriangleHierarchy::Reference stack[(kWidth - 1) * TriangleHierarchy::kMaxDepth + kWidth];
  int depth = 0;
  stack[depth++] = view.root;
  while (depth > 0) {
    const TriangleHierarchy::Reference reference = stack[--depth];
    if ((reference & TriangleHierarchy::kLeaf) == 0) {
      const TriangleHierarchy::Node& node = view.node(reference);
      for (int child = 0; child < kWidth; ++child) {
        if (node.bounds[0][child] > node.bounds[3][child]) continue;
        const ClipSide side = sideOfClipCube(hierarchy.childBox(node, child), c);
        if (side == ClipSide::unsure)
          stack[depth++] = node.child[child];
        else if (const Verdict verdict = atChild(side); verdict != Verdict::openStill)
          return verdict;
      }
      continue;
    }
    const TriangleHierarchy::Block& block = view.block(reference);
    for (int lane = 0; lane < kWidth && block.reach[lane] >= 0; ++lane) {
      if (patience-- == 0) return Verdict::openStill;
      const Verdict verdict = atTriangle(TriangleHierarchy::View::exact(block)[lane].corner);
      if (verdict != Verdict::openStill) return verdict;
    }
  }
  return Verdict::no;
}

/// Whether a mesh has a hierarchy that knows of all its triangles.
bool canWalk(const TriangleMesh& mesh) {
  return mesh.hierarchy() != nullptr && mesh.hierarchy()->isUsable() && mesh.hierarchy()->isComplete();
}

}  // namespace

bool overlapsClipCube(const TriangleMesh& mesh, const double c[16]) {
  if (!canWalk(mesh)) return overlapsClipCubePlain(mesh, c);
  const Verdict verdict = walk(
      *mesh.hierarchy(), c, [](ClipSide side) { return side == ClipSide::inside ? Verdict::yes : Verdict::openStill; },
      [&](const double* corners) {
        double p[9];
        for (int k = 0; k < 9; k += 3)
          if (!projectToClipSpace(c, corners + k, p + k)) p[k] = p[k + 1] = p[k + 2] = 0.0;
        return overlapsBox(p, p + 3, p + 6, kClipCubeCentre, kClipCubeHalf) ? Verdict::yes : Verdict::openStill;
      });
  return verdict == Verdict::openStill ? overlapsClipCubePlain(mesh, c) : verdict == Verdict::yes;
}

bool liesInClipCube(const TriangleMesh& mesh, const double c[16]) {
  if (!canWalk(mesh)) return liesInClipCubePlain(mesh, c);
  enum class Place { inside, outside, unknown };
  Place place = Place::inside;
  // Where a vertex that cannot be projected goes depends on those before it: the plain loop knows.
  const auto look = [&](const double* vertex) {
    double p[3];
    if (!projectToClipSpace(c, vertex, p))
      place = Place::unknown;
    else if (!isInClipCube(p))
      place = Place::outside;
    return place != Place::inside ? Verdict::yes : Verdict::openStill;
  };
  // The loop ends at the first vertex outside: where that is an early one, nothing is faster.
  constexpr std::size_t kEarly = 64;
  const std::span<const double> vertices = mesh.vertexCoordinates();
  for (std::size_t v = 0; v + 2 < std::min(vertices.size(), 3 * kEarly) && place == Place::inside; v += 3)
    look(&vertices[v]);
  if (place != Place::inside) return place == Place::unknown && liesInClipCubePlain(mesh, c);

  Verdict verdict = walk(
      *mesh.hierarchy(), c,
      [&](ClipSide side) {
        if (side == ClipSide::outside) place = Place::outside;
        return side == ClipSide::outside ? Verdict::yes : Verdict::openStill;
      },
      [&](const double* corners) {
        for (int k = 0; k < 9; k += 3)
          if (look(corners + k) == Verdict::yes) return Verdict::yes;
        return Verdict::openStill;
      });
  const std::span<const std::uint32_t> loose = mesh.hierarchy()->looseVertices();
  for (std::size_t i = 0; i < loose.size() && verdict == Verdict::no; ++i)
    verdict = look(&vertices[3 * std::size_t{loose[i]}]) == Verdict::yes ? Verdict::yes : verdict;
  if (place == Place::outside) return false;
  return verdict == Verdict::no || liesInClipCubePlain(mesh, c);
}

}  // namespace util
