#include <facetbox/triangles/FrustumCulling.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <vector>

#include <facetbox/math/OverlapsBox.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/ClipProjection.h>
#include <facetbox/triangles/ClipVertices.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

namespace {

constexpr std::size_t kAtOnce = 4;  // vertices; more would be for nothing where the first ones tell

/// Whether no product of three projected coordinates overflows.
bool isNear(const ClipVertex& v) {
  constexpr double kLargestCoordinate = 1e100;
  static_assert(kLargestCoordinate * kLargestCoordinate * kLargestCoordinate < 1e301);
  const double most = std::min(kLargestCoordinate * v.w, std::numeric_limits<double>::max());
  return std::fabs(v.x) <= most && std::fabs(v.y) <= most && std::fabs(v.z) <= most;
}

void project(const ClipVertex& v, double p[3]) {
  p[0] = v.x / v.w;
  p[1] = v.y / v.w;
  p[2] = v.z / v.w;
}

/// Room for vertices that is kept from call to call.
std::span<ClipVertex> scratch(std::size_t size) {
  static thread_local std::vector<ClipVertex> room;
  if (room.size() < size) room.resize(size);
  return std::span(room).first(size);
}

/// Whether all of some points lie in the cube. One that cannot be projected counts as where the one before it is, or at
/// the cube's center: in the cube.
bool areInClipCube(std::span<const double> points, const double c[16]) {
  ToClipVertices& toClipVertices = clipVerticesFor(Instructions::best);
  ClipVertex inClip[kAtOnce];
  // The first alone: often it is outside.
  for (std::size_t first = 0, most = 1; first + 2 < points.size(); first += 3 * most, most = kAtOnce) {
    const std::size_t count = std::min(most, (points.size() - first) / 3);
    toClipVertices(c, &points[first], count, inClip);
    for (std::size_t i = 0; i < count; ++i)
      if (inClip[i].beyond != 0) return false;
  }
  return true;
}

}  // namespace

bool overlapsClipCubePlain(const TriangleMesh& mesh, const double c[16]) {
  const std::span<const double> vertices = mesh.vertexCoordinates();
  const std::span<const std::uint32_t> indices = mesh.indices();
  if (indices.empty()) return false;
  const std::span<ClipVertex> inClip = scratch(vertices.size() / 3);
  // Only as far as triangles ask for them: most meshes have their vertices in that order, and many end soon.
  ToClipVertices& toClipVertices = clipVerticesFor(Instructions::best);
  std::size_t ready = 0;

  // Triangles that are beyond one face are apart. With corner 0 and another one in the cube, none of the axes of the
  // overlap test separates, whatever the rounding: on each axis one of these two is projected, as a sum of two or three
  // products of which no one is larger than the part that the same product has in the cube's reach. Only overflow
  // could.
  bool isAnyOpen = false;
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3) {
    const std::uint32_t i0 = indices[i], i1 = indices[i + 1], i2 = indices[i + 2];
    if (const std::size_t needed = std::size_t{std::max(std::max(i0, i1), i2)} + 1; ready < needed) {
      const std::size_t count = std::min(std::max(needed - ready, kAtOnce), inClip.size() - ready);
      toClipVertices(c, &vertices[3 * ready], count, &inClip[ready]);
      ready += count;
    }
    const ClipVertex &a = inClip[i0], &b = inClip[i1], &d = inClip[i2];
    if (a.beyond == 0 && (b.beyond == 0 || d.beyond == 0) && isNear(b.beyond == 0 ? d : b)) return true;
    isAnyOpen = isAnyOpen || (a.beyond & b.beyond & d.beyond) == 0;
  }
  if (!isAnyOpen) return false;
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3) {
    const ClipVertex &a = inClip[indices[i]], &b = inClip[indices[i + 1]], &d = inClip[indices[i + 2]];
    if ((a.beyond & b.beyond & d.beyond) != 0) continue;
    double p[9];
    project(a, p);
    project(b, p + 3);
    project(d, p + 6);
    if (overlapsBox(p, p + 3, p + 6, kClipCubeCenter, kClipCubeHalf)) return true;
  }
  return false;
}

bool liesInClipCubePlain(const TriangleMesh& mesh, const double c[16]) {
  return areInClipCube(mesh.vertexCoordinates(), c);
}

// Over a box, x - w and x + w are linear functions like x and w themselves: their value at the center, and a reach of
// the absolute values of their coefficients times the half-extents to both sides.
//
// Rounding: let S be the sum of the absolute values of a coordinate's four terms, where x, y and z are as large as the
// box allows. A vertex's coordinate comes out right to 4 ulp of S, and so do the values at the center, the reaches and
// the center itself; the division adds half an ulp of a quotient near 1. kRounding of S covers that more than ten
// times. So when w - |x| exceeds kRounding (S of x + S of w) all over the box, the rounded quotient lies strictly
// within (-1, 1) for each vertex; when x - w does, strictly above 1. kSureW and kLargestClipSum keep clear of the
// smallest w and of over- and underflow. NaN fails every comparison: unsure.
namespace {

constexpr double kRounding = 1e-13;
static_assert(10 * (4 * 4 + 1) * 0x1p-52 <= kRounding);

Double2 absolute(Double2 p) { return p < 0 ? -p : p; }

/// x, y and z, w at the center of a box, and S of each.
struct CenterInClip {
  Double2 xy, zw, sumsOfXy, sumsOfZw;

  CenterInClip(const double c[16], const double center[3], const double half[3])
      : xy(loadTwo(c + 12)), zw(loadTwo(c + 14)), sumsOfXy(absolute(xy)), sumsOfZw(absolute(zw)) {
    for (int i = 0; i < 3; ++i) {
      const Double2 a = loadTwo(c + 4 * i), b = loadTwo(c + 4 * i + 2);
      const double size = std::fabs(center[i]) + half[i];
      xy += a * center[i];
      zw += b * center[i];
      sumsOfXy += absolute(a) * size;
      sumsOfZw += absolute(b) * size;
    }
  }
  bool isModest() const {
    return sumsOfXy[0] <= kLargestClipSum && sumsOfXy[1] <= kLargestClipSum && sumsOfZw[0] <= kLargestClipSum &&
           sumsOfZw[1] <= kLargestClipSum;
  }
};

/// The reaches of x - w and y - w, of -x - w and -y - w, and of z - w and -z - w, where `sign` w counts as w.
struct PlaneReaches {
  Double2 ofXy{0, 0}, ofMinusXy{0, 0}, ofZ{0, 0};

  PlaneReaches(const double c[16], double sign, const double half[3]) {
    for (int i = 0; i < 3; ++i) {
      const Double2 a = loadTwo(c + 4 * i), b{c[4 * i + 2], -c[4 * i + 2]};
      const double ofW = sign * c[4 * i + 3];
      ofXy += absolute(a - ofW) * half[i];
      ofMinusXy += absolute(a + ofW) * half[i];
      ofZ += absolute(b - ofW) * half[i];
    }
  }
};

}  // namespace

ClipSide sideOfClipCube(const Box& box, const double c[16]) {
  const Vec3 extent = (box.max - box.min) / 2, middle = box.min + extent;
  if (!(extent.x >= 0 && extent.y >= 0 && extent.z >= 0)) return ClipSide::unsure;
  const double center[3] = {middle.x, middle.y, middle.z}, half[3] = {extent.x, extent.y, extent.z};
  const CenterInClip at(c, center, half);
  const double reachOfW = std::fabs(c[3]) * half[0] + std::fabs(c[7]) * half[1] + std::fabs(c[11]) * half[2];
  if (!(std::fabs(at.zw[1]) - reachOfW > kSureW + kRounding * at.sumsOfZw[1])) return ClipSide::unsure;
  if (!at.isModest()) return ClipSide::unsure;

  // Where w is below 0 all over the box, -w is what counts. Each of x - w, -x - w, ... is above 0 beyond its face.
  const double sign = at.zw[1] < 0 ? -1.0 : 1.0, w = sign * at.zw[1];
  const Double2 xy = at.xy, z{at.zw[0], -at.zw[0]};
  const PlaneReaches reaches(c, sign, half);
  const Double2 margin = kRounding * (at.sumsOfXy + at.sumsOfZw[1]);
  const double marginOfZ = kRounding * (at.sumsOfZw[0] + at.sumsOfZw[1]);
  const auto outside =
      (xy - w - reaches.ofXy > margin) | (-xy - w - reaches.ofMinusXy > margin) | (z - w - reaches.ofZ > marginOfZ);
  if ((outside[0] | outside[1]) != 0) return ClipSide::outside;
  const auto inside =
      (xy - w + reaches.ofXy < -margin) & (-xy - w + reaches.ofMinusXy < -margin) & (z - w + reaches.ofZ < -marginOfZ);
  return (inside[0] & inside[1]) != 0 ? ClipSide::inside : ClipSide::unsure;
}

namespace {

enum class Verdict { yes, no, undecided };

/// Traverses the subtrees that lie on neither side for certain.
///
/// `atChild(side)` is asked for each child box, `atTriangle(corners)` for each triangle that is left, nine coordinates;
/// both may end the traversal with a verdict. After too many triangles it ends undecided: the plain loop is faster.
template <class AtChild, class AtTriangle>
Verdict traverse(const TriangleBvh& hierarchy, const double c[16], AtChild atChild, AtTriangle atTriangle) {
  const TriangleBvh::View view = hierarchy.view();
  constexpr int kWidth = TriangleBvh::kWidth;
  constexpr std::size_t kPatience = 64, kPatienceShare = 16;
  std::size_t patience = kPatience + hierarchy.triangleCount() / kPatienceShare;
  TriangleBvh::Reference stack[TriangleBvh::kStackSize];
  int depth = 0;
  stack[depth++] = view.root;
  while (depth > 0) {
    const TriangleBvh::Reference reference = stack[--depth];
    if ((reference & TriangleBvh::kLeaf) == 0) {
      const TriangleBvh::Node& node = view.node(reference);
      for (int child = 0; child < kWidth; ++child) {
        if (node.bounds[0][child] > node.bounds[3][child]) continue;
        const ClipSide side = sideOfClipCube(hierarchy.childBox(node, child), c);
        if (side == ClipSide::unsure)
          stack[depth++] = node.child[child];
        else if (const Verdict verdict = atChild(side); verdict != Verdict::undecided)
          return verdict;
      }
      continue;
    }
    const TriangleBvh::Block& block = view.block(reference);
    for (int lane = 0; lane < kWidth && block.reach[lane] >= 0; ++lane) {
      if (patience-- == 0) return Verdict::undecided;
      const Verdict verdict = atTriangle(TriangleBvh::View::exact(block)[lane].corner);
      if (verdict != Verdict::undecided) return verdict;
    }
  }
  return Verdict::no;
}

/// Whether a mesh has a hierarchy that knows of all its triangles.
bool canTraverse(const TriangleMesh& mesh) {
  return mesh.hierarchy() != nullptr && mesh.hierarchy()->isUsable() && mesh.hierarchy()->isComplete();
}

}  // namespace

bool overlapsClipCube(const TriangleMesh& mesh, const double c[16]) {
  if (!canTraverse(mesh) || mesh.vertexCoordinates().size() <= 3 * kFewVertices) return overlapsClipCubePlain(mesh, c);
  const Verdict verdict = traverse(
      *mesh.hierarchy(), c, [](ClipSide side) { return side == ClipSide::inside ? Verdict::yes : Verdict::undecided; },
      [&](const double* corners) {
        double p[9];
        for (int k = 0; k < 9; k += 3)
          if (!projectToClipSpace(c, corners + k, p + k)) p[k] = p[k + 1] = p[k + 2] = 0.0;
        return overlapsBox(p, p + 3, p + 6, kClipCubeCenter, kClipCubeHalf) ? Verdict::yes : Verdict::undecided;
      });
  return verdict == Verdict::undecided ? overlapsClipCubePlain(mesh, c) : verdict == Verdict::yes;
}

bool liesInClipCube(const TriangleMesh& mesh, const double c[16]) {
  // The loop ends at the first vertex outside: where that is an early one, nothing is faster.
  constexpr std::size_t kEarly = 64;
  const std::span<const double> vertices = mesh.vertexCoordinates();
  if (!canTraverse(mesh) || vertices.size() <= 3 * kEarly) return liesInClipCubePlain(mesh, c);
  if (!areInClipCube(vertices.first(3 * kEarly), c)) return false;
  const Verdict isAnyOutside = traverse(
      *mesh.hierarchy(), c, [](ClipSide side) { return side == ClipSide::outside ? Verdict::yes : Verdict::undecided; },
      [&](const double* corners) {
        return areInClipCube(std::span(corners, 9), c) ? Verdict::undecided : Verdict::yes;
      });
  if (isAnyOutside == Verdict::undecided) return liesInClipCubePlain(mesh, c);
  return isAnyOutside == Verdict::no && std::ranges::all_of(mesh.hierarchy()->looseVertices(), [&](std::uint32_t v) {
           return areInClipCube(vertices.subspan(3 * std::size_t{v}, 3), c);
         });
}

}  // namespace util
