#include <facetbox/operations/RegionOutline.h>

#include <algorithm>
#include <cassert>
#include <cstddef>

#include <facetbox/mesh/HoleAssignment.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/polygons/LoopShape.h>

namespace util {
namespace {

/// One face with holes in a mesh of its own, to ask hole assignment which of the holes would stay.
class HoleProbe {
 public:
  explicit HoleProbe(const MeshStorage& whole) : mWhole(whole) {}

  /// Adds the outer face first, then hole after hole; `vertexOf(i)` is the point of corner i.
  template <class VertexOf>
  void addFace(std::size_t count, VertexOf vertexOf) {
    if (mWhole.mMonitor) mWhole.mMonitor->tick(count);
    Polygon& face = mFaces.emplace_back();
    face.mTag = static_cast<std::int32_t>(mFaces.size() - 1);
    for (std::size_t i = 0; i < count; ++i) {
      face.mVertexIndices.push_back(static_cast<std::uint32_t>(mVertices.size()));
      mVertices.push_back(vertexOf(i));
    }
    computeFaceNormal(mVertices, {face.mVertexIndices.data(), face.mVertexIndices.size()}, face.mNormal);
  }

  /// Per face whether it stays.
  std::vector<bool> findKept() const {
    // It is not known how many probes are to come: they count for nothing.
    const Monitor::Part part(mWhole.mMonitor.get(), 0.0, 0.0);
    Mesh mesh("", mVertices, mFaces);
    std::vector<std::uint32_t> group(mFaces.size() + 1);
    for (std::uint32_t face = 0; face < mFaces.size(); ++face) group[face] = face;
    group.back() = HoleTable::kEnd;
    mesh.storage().mLimits = mWhole.mLimits;
    mesh.storage().mMonitor.set(mWhole.mMonitor.get());
    mesh.storage().mHoles.append(group.data(), group.size());
    assignHoles(mesh);

    const PrimitiveList& kept = mesh.storage().mFaces;
    std::vector<bool> isKept(mFaces.size());
    for (std::size_t face = 0; face < kept.size(); ++face) isKept[static_cast<std::size_t>(kept.tag(face))] = true;
    return isKept;
  }

 private:
  const MeshStorage& mWhole;
  std::vector<Vec3> mVertices;
  std::vector<Polygon> mFaces;  // the tags are their numbers
};

}  // namespace

bool RegionOutline::mend(std::uint32_t seed, FaceRegions& regions) {
  if (!regions.resolvePinches()) return false;
  while (regions.members().size() > 1 && !(loopsAreSound(seed, regions) && holesWouldStay(regions)))
    if (!regions.putOutMarked()) return false;
  return true;
}

/// Sorts the border into outer and inner loops, by the sign of their area. Marks loops that are neither or touch
/// themselves, and all outer ones but the largest; false where there are any.
bool RegionOutline::loopsAreSound(std::uint32_t seed, FaceRegions& regions) {
  const Vec3& normal = m.mFaces.normal(seed);
  mOuterLoops.clear();
  mInnerLoops.clear();
  bool areSound = true;
  for (const Loop& loop : regions.borderLoops()) {
    const double area = measureLoop(loop, normal, regions, areSound);
    if (area > 0.0)
      mOuterLoops.push_back(loop);
    else if (area < 0.0)
      mInnerLoops.push_back(loop);
    else
      regions.markFlaw(loop);
    areSound = areSound && area != 0.0;
  }
  if (mOuterLoops.size() == 1) return areSound;
  if (mOuterLoops.empty()) mOuterLoops.swap(mInnerLoops);
  markAllOuterLoopsButTheLargest(normal, regions);
  return false;
}

void RegionOutline::markAllOuterLoopsButTheLargest(const Vec3& normal, FaceRegions& regions) {
  const auto areaOf = [&](const Loop& loop) {
    projectLoop(loop, normal);
    return signedArea(mProjected);
  };
  const auto largest = std::ranges::max_element(mOuterLoops, {}, areaOf);
  for (auto loop = mOuterLoops.begin(); loop != mOuterLoops.end(); ++loop)
    if (loop != largest) regions.markFlaw(*loop);
}

/// The area of a loop, of a convex one only its sign; 0 for a loop without area. Marks where it touches itself.
double RegionOutline::measureLoop(const Loop& loop, const Vec3& normal, FaceRegions& regions, bool& isSound) {
  if (loop.size() < 3) return 0.0;
  projectLoop(loop, normal);
  if (mProjected.size() < 3) return 0.0;
  if (const int turn = convexTurn(mProjected); turn != 0) return turn;
  const double area = signedArea(mProjected);
  if (area == 0.0 || isSimple(mProjected, m.mMonitor.get())) return area;
  isSound = false;
  markTouches(regions);
  return area;
}

/// Of two edges of the current loop that touch, marks the face that a walk from the seed reaches later.
void RegionOutline::markTouches(FaceRegions& regions) {
  // An edge that has touched so many farther ones is taken for the nearest.
  constexpr int kMostFarther = 64;
  regions.numberFromSeed();
  const auto faceOf = [&](std::size_t edge) { return mTwins.faceOf(mProjectedCorners[edge]); };
  std::size_t current = mProjected.size();
  int farther = 0;
  const auto isFarther = [&](std::size_t edge, std::size_t other) {
    if (std::exchange(current, edge) != edge) farther = 0;
    return farther < kMostFarther &&
           (regions.numberOf(faceOf(other)) <= regions.numberOf(faceOf(edge)) || ++farther == kMostFarther);
  };
  findTouches(
      mProjected, isFarther,
      [&](std::size_t edge) {
        if (farther < kMostFarther) regions.markFlaw(faceOf(edge));
      },
      m.mMonitor.get());
}

/// Sees a loop along the largest component of a normal, from the side that it points to. Of corners that follow each
/// other and look the same, only the last counts: edges without length do no harm.
void RegionOutline::projectLoop(const Loop& loop, const Vec3& normal) {
  const int axis = dominantAxis(normal);
  const double along = axis == 0 ? normal.x : axis == 1 ? normal.y : normal.z;
  // Of the planes that project() shows, (z, y) and (x, z) are seen from behind.
  const double sign = (along < 0.0) == (axis == 2) ? -1.0 : 1.0;
  mProjected.clear();
  mProjectedCorners.clear();
  for (const std::uint32_t corner : loop) {
    Vec2 p = project(m.mVertices[m.mFaces.vertexAt(corner)], axis);
    p.x *= sign;
    if (!mProjected.empty() && p == mProjected.back()) {
      mProjectedCorners.back() = corner;
      continue;
    }
    mProjected.push_back(p);
    mProjectedCorners.push_back(corner);
  }
  while (mProjected.size() > 1 && mProjected.back() == mProjected.front()) mProjected.pop_back();
}

/// Whether hole assignment would keep all the holes that the merged face is to have: those of the members and the new
/// ones. Marks those that would go.
bool RegionOutline::holesWouldStay(FaceRegions& regions) {
  assert(mOuterLoops.size() == 1);
  listMemberHoles(regions.members());
  if (mInnerLoops.empty() && mMemberHoles.empty()) return true;

  HoleProbe probe(m);
  const auto addLoop = [&](const Loop& loop) {
    probe.addFace(loop.size(), [&](std::size_t i) { return m.mVertices[m.mFaces.vertexAt(loop[i])]; });
  };
  addLoop(mOuterLoops.front());
  for (const auto& [member, hole] : mMemberHoles) {
    const auto corners = m.mFaces.corners(hole);
    probe.addFace(corners.size(), [&](std::size_t i) { return m.mVertices[corners[i]]; });
  }
  for (const Loop& loop : mInnerLoops) addLoop(loop);

  const std::vector<bool> isKept = probe.findKept();
  const std::size_t firstLoop = 1 + mMemberHoles.size();
  bool allStay = true;
  for (std::size_t face = 1; face < isKept.size(); ++face) {
    if (isKept[face]) continue;
    allStay = false;
    if (face < firstLoop)
      regions.markFlaw(mMemberHoles[face - 1].first);
    else
      regions.markFlaw(mInnerLoops[face - firstLoop]);
  }
  return allStay;
}

void RegionOutline::listMemberHoles(std::span<const std::uint32_t> members) {
  mMemberHoles.clear();
  if (m.mHoles.empty()) return;
  if (mGroups.empty()) mGroups = m.mHoles.groupsByOuter(m.mFaces.size());
  for (const std::uint32_t member : members)
    for (const HoleTable::Group& group : HoleTable::groupsOf(member, mGroups))
      for (const std::uint32_t hole : group.holes)
        if (hole < m.mFaces.size()) mMemberHoles.emplace_back(member, hole);
}

}  // namespace util
