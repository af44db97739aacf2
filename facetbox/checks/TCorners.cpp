#include <facetbox/checks/TCorners.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>
#include <utility>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/spatial/BoxJoin.h>

namespace util {
namespace {

using Pair = facetbox::Defects::Pair;
using TCorner = facetbox::Defects::TCorner;

constexpr double kTolerancePart = 1e-6;  // of the diagonal
constexpr auto kLast = static_cast<std::int32_t>(BoxJoin::kGridSize - 1);

/// Whether p lies along the edge ab, at most `tolerance` away, and farther along it from both ends.
bool isInside(const Vec3& p, const Vec3& a, const Vec3& b, double tolerance) {
  const Vec3 edge = b - a, toP = p - a;
  const double edgeLength = length(edge);
  const double along = dot(toP, edge) / edgeLength;
  if (!(along > tolerance && edgeLength - along > tolerance)) return false;
  return lengthSq(toP - (along / edgeLength) * edge) <= tolerance * tolerance;
}

/// Places on the grid of BoxJoin: local coordinates 0 to 1 fill half of it. The order is kept.
std::int32_t placeOf(double local) { return static_cast<std::int32_t>(std::clamp(0x1p30 * local, 0.0, double{kLast})); }

/// The box of two points, widened by the tolerance and by more than what rounding takes from it.
GridBox boxOf(const Vec3& a, const Vec3& b, double tolerance) {
  const double margin = tolerance + 0x1p-29;
  GridBox box;
  int axis = 0;
  for (double Vec3::*x : {&Vec3::x, &Vec3::y, &Vec3::z}) {
    box.min[axis] = placeOf(std::min(a.*x, b.*x) - margin);
    box.max[axis++] = placeOf(std::max(a.*x, b.*x) + margin);
  }
  return box;
}

/// The lowest used vertex at the place of each used vertex: one vertex stands for all of its place.
Buffer<std::uint32_t> lowestAtPlaces(const CheckedMesh& mesh, const std::vector<Pair>& sameVertices) {
  Buffer<std::uint32_t> lowest(mesh.vertexCount());
  std::iota(lowest.begin(), lowest.end(), 0u);
  for (auto begin = sameVertices.begin(); begin != sameVertices.end();) {
    const std::uint32_t first = (*begin)[0];
    const auto end = std::find_if(begin, sameVertices.end(), [first](const Pair& pair) { return pair[0] != first; });
    const auto used = std::find_if(begin, end, [&](const Pair& pair) { return mesh.isUsed(pair[1]); });
    const std::uint32_t chosen = mesh.isUsed(first) || used == end ? first : (*used)[1];
    for (lowest[first] = chosen; begin != end; ++begin) lowest[(*begin)[1]] = chosen;
  }
  return lowest;
}

/// The open edges that are long enough to have an inside, and a box around them all.
struct LongEdges {
  Buffer<std::uint32_t> edges;
  Buffer<GridBox> boxes;
  GridBox around{{kLast, kLast, kLast}, {0, 0, 0}};

  LongEdges(const CheckedMesh& mesh, const std::vector<Pair>& openEdges, double tolerance) {
    edges.reserve(openEdges.size());
    boxes.reserve(openEdges.size());
    for (std::uint32_t i = 0; i < openEdges.size(); ++i) {
      if (mesh.monitor()) mesh.monitor()->tick();
      const Vec3 &a = mesh.local(openEdges[i][0]), &b = mesh.local(openEdges[i][1]);
      if (!(length(b - a) > 2 * tolerance)) continue;
      edges.push_back(i);
      const GridBox& box = boxes.emplace_back(boxOf(a, b, tolerance));
      for (int axis = 0; axis < 3; ++axis) {
        around.min[axis] = std::min(around.min[axis], box.min[axis]);
        around.max[axis] = std::max(around.max[axis], box.max[axis]);
      }
    }
  }
};

/// Vertices in use, one of each place, and long edges, both in an order in which neighbors lie close together.
class Search {
 public:
  Search(const CheckedMesh& mesh, const facetbox::Defects& defects, double tolerance)
      : mMesh(mesh),
        mDefects(defects),
        mTolerance(tolerance),
        mLowest(lowestAtPlaces(mesh, defects.sameVertices)),
        mLong(mesh, defects.openEdges, tolerance) {}

  /// @return whether these are all
  bool run(std::size_t limit, std::vector<TCorner>& found) {
    if (mLong.edges.empty()) return true;
    const BoxJoin vertices = sortVertices();
    look();
    const BoxJoin edges = sortEdges();
    look();
    bool isComplete = true;
    Monitor* const monitor = mMesh.monitor();
    const auto lookAt = [&](const Pair& ends, std::size_t vertex) {
      if (monitor) monitor->tick();
      const std::uint32_t v = mVertices[vertex];
      if (v == ends[0] || v == ends[1]) return true;  // most are: not a look at their coordinates
      if (!isInside(mMesh.local(v), mMesh.local(ends[0]), mMesh.local(ends[1]), mTolerance)) return true;
      isComplete = found.size() < limit;
      if (isComplete) found.push_back({ends, v});
      return isComplete;
    };
    edges.forEachPair(vertices, [&](std::size_t edge, std::size_t vertex) { return lookAt(mEdges[edge], vertex); });
    for (std::size_t i = 0; i < mSlantingEdges.size() && isComplete; ++i) {
      const Pair& ends = mSlantingEdges[i];
      if (monitor) monitor->tick();
      vertices.forEachMeeting(segmentOf(ends), [&](std::size_t vertex) { return lookAt(ends, vertex); });
    }
    return addOthersAtPlaces(limit, found) && isComplete;
  }

 private:
  void look() const {
    if (mMesh.monitor()) mMesh.monitor()->look();
  }

  BoxJoin sortVertices() {
    Buffer<std::uint32_t> vertices;
    Buffer<GridBox> boxes;
    vertices.reserve(mMesh.vertexCount());
    boxes.reserve(mMesh.vertexCount());
    const GridBox& around = mLong.around;
    for (std::uint32_t vertex = 0; vertex < mMesh.vertexCount(); ++vertex) {
      if (mMesh.monitor()) mMesh.monitor()->tick();
      if (!mMesh.isUsed(vertex) || mLowest[vertex] != vertex) continue;
      const Vec3& p = mMesh.local(vertex);
      const std::int32_t x = placeOf(p.x), y = placeOf(p.y), z = placeOf(p.z);
      if (x < around.min[0] || x > around.max[0] || y < around.min[1] || y > around.max[1] || z < around.min[2] ||
          z > around.max[2])
        continue;
      vertices.push_back(vertex);
      boxes.push_back({{x, y, z}, {x, y, z}});
    }
    look();
    const Buffer<std::uint32_t> order = BoxJoin::orderOnCurve(boxes);
    look();
    mVertices.resize(vertices.size());
    for (std::size_t i = 0; i < order.size(); ++i) mVertices[i] = vertices[order[i]];
    return BoxJoin(boxes, order);
  }

  /// Edges follow their lower vertices: a counting sort by these. Both ends of an edge are among the vertices, since
  /// they lie in its box.
  BoxJoin sortEdges() {
    Buffer<std::uint32_t> ranks(mMesh.vertexCount()), ends(mVertices.size() + 1, 0);
    for (std::uint32_t i = 0; i < mVertices.size(); ++i) ranks[mVertices[i]] = i;
    const auto rankOf = [&](std::uint32_t edge) { return ranks[mLowest[mDefects.openEdges[edge][0]]]; };
    look();
    for (const std::uint32_t edge : mLong.edges) ++ends[rankOf(edge) + 1];
    look();
    for (std::size_t i = 1; i < ends.size(); ++i) ends[i] += ends[i - 1];
    Buffer<std::uint32_t> order(mLong.edges.size());
    for (std::uint32_t i = 0; i < order.size(); ++i) order[ends[rankOf(mLong.edges[i])]++] = i;
    look();
    mEdges.reserve(order.size());
    std::size_t kept = 0;
    for (const std::uint32_t edge : order) {
      const bool isSlanting = isWide(mLong.boxes[edge]);
      (isSlanting ? mSlantingEdges : mEdges).push_back(mDefects.openEdges[mLong.edges[edge]]);
      if (!isSlanting) order[kept++] = edge;
    }
    order.resize(kept);
    look();
    return BoxJoin(mLong.boxes, order);
  }

  /// Whether the box of an edge may hold many vertices that are not close to it: a slanting edge that is long beside
  /// the distance of vertices that fill a plane evenly.
  bool isWide(const GridBox& box) const {
    double extents[3];
    for (int axis = 0; axis < 3; ++axis) extents[axis] = static_cast<double>(box.max[axis]) - box.min[axis];
    std::ranges::sort(extents);
    return extents[1] * std::sqrt(static_cast<double>(mVertices.size())) > 8 * 0x1p30;
  }

  GridSegment segmentOf(const Pair& ends) const {
    const Vec3 a = 0x1p30 * mMesh.local(ends[0]), b = 0x1p30 * mMesh.local(ends[1]);
    return {{a.x, a.y, a.z}, {b.x, b.y, b.z}, 0x1p30 * mTolerance};
  }

  /// Lets the other vertices of each place that was found follow.
  bool addOthersAtPlaces(std::size_t limit, std::vector<TCorner>& found) const {
    if (mDefects.sameVertices.empty() || found.empty()) return true;
    std::vector<std::uint32_t> groups(mMesh.vertexCount(), facetbox::kNone);  // where the others begin
    for (std::uint32_t i = 0; i < mDefects.sameVertices.size(); ++i) {
      std::uint32_t& group = groups[mLowest[mDefects.sameVertices[i][0]]];
      group = std::min(group, i);
    }
    for (std::size_t i = 0, count = found.size(); i < count; ++i) {
      const TCorner first = found[i];
      const auto& same = mDefects.sameVertices;
      for (std::size_t k = groups[first.vertex]; k < same.size() && mLowest[same[k][0]] == first.vertex; ++k) {
        if (same[k][1] == first.vertex || !mMesh.isUsed(same[k][1])) continue;
        if (found.size() >= limit) return false;
        found.push_back({first.edge, same[k][1]});
      }
    }
    return true;
  }

  const CheckedMesh& mMesh;
  const facetbox::Defects& mDefects;
  const double mTolerance;
  const Buffer<std::uint32_t> mLowest;
  const LongEdges mLong;
  Buffer<std::uint32_t> mVertices;  // in the order of their boxes
  Buffer<Pair> mEdges;              // likewise
  Buffer<Pair> mSlantingEdges;      // the others, of wide boxes
};

}  // namespace

void checkTCorners(const CheckedMesh& mesh, const facetbox::CheckOptions& options, facetbox::Defects& defects) {
  if (defects.openEdges.empty()) return;
  const double tolerance = options.tCornerDistance ? mesh.toLocal(std::max(0.0, *options.tCornerDistance))
                                                   : kTolerancePart * mesh.localDiagonal();
  defects.areTCornersComplete = Search(mesh, defects, tolerance).run(options.mostListed, defects.tCorners);
  std::ranges::sort(defects.tCorners, [monitor = mesh.monitor()](const TCorner& a, const TCorner& b) {
    if (monitor) monitor->tick();
    return std::tie(a.edge, a.vertex) < std::tie(b.edge, b.vertex);
  });
}

}  // namespace util
