#include <facetbox/operations/RemoveEdgesCoplanar.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/math/Angle.h>
#include <facetbox/mesh/EdgeTwins.h>
#include <facetbox/mesh/HoleAssignment.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/operations/FaceRegions.h>
#include <facetbox/polygons/LoopShape.h>

namespace util {
namespace {

constexpr double kLargestTolerance = 89.0;
constexpr double kAngleSlack = 1e-6;  // degrees; covers the rounding of normals that are equal on paper
constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr double kTexCoordTolerance = 0.001;

/// A face of many corners that so many of them have kept out of regions, each time another one than the time before,
/// joins none any more. As the corner that decided last is asked first, all regions that come across such a face cost
/// no more than so many looks at all of its corners.
constexpr std::uint8_t kMostScans = 64;
constexpr std::size_t kFewCorners = 16;

/// Whether two unit normals differ by no more than an angle: angleBetween() decides, but only near the limit does it
/// have to be asked.
class NormalTest {
 public:
  explicit NormalTest(double toleranceDegrees)
      : mLimitDegrees(std::min(toleranceDegrees, kLargestTolerance) + kAngleSlack) {
    const double halfChord = std::sin(mLimitDegrees / kDegreesPerRadian / 2.0);
    mLimitChordSq = 4.0 * halfChord * halfChord;
    mLimitSine = std::sin(mLimitDegrees / kDegreesPerRadian);
  }

  /// Whether no normal at all is accepted beside both: by the triangle inequality, their chords would add up to theirs.
  bool areFarApart(const Vec3& a, const Vec3& b) const { return lengthSq(b - a) > 4.0 * mLimitChordSq * (1.0 + 1e-6); }

  bool accepts(const Vec3& a, const Vec3& b) const {
    // The chord grows with the angle; its square carries a relative error of a few parts in 2^53.
    const double chordSq = lengthSq(b - a);
    if (chordSq < mLimitChordSq * (1.0 - 1e-9)) return true;
    if (chordSq > mLimitChordSq * (1.0 + 1e-9)) return false;
    return angleBetween(a, b) * kDegreesPerRadian <= mLimitDegrees;
  }

  /// Whether a direction, of any length, leaves the plane of a normal by no more than the angle.
  bool staysInPlane(const Vec3& direction, const Vec3& normal) const {
    return std::fabs(dot(direction, normal)) <= mLimitSine * length(direction);
  }

 private:
  double mLimitDegrees;
  double mLimitChordSq;
  double mLimitSine;
};

/// The affine map from space to texture coordinates that a face's largest triangle defines.
class TextureMap {
 public:
  /// For set `set` of a face that carries it; `triangle` are corners of the face that span some area.
  TextureMap(const MeshStorage& m, std::size_t face, int set, const std::array<std::uint32_t, 3>& triangle) {
    const auto corners = m.mFaces.corners(face);
    const auto indices = m.mFaces.cornerSet(face, set);
    const auto& pairs = m.mTexCoords[set];
    for (const std::uint32_t corner : triangle)
      if (indices[corner] >= pairs.size()) return;
    mOrigin = m.mVertices[corners[triangle[0]]];
    const Vec3 e1 = m.mVertices[corners[triangle[1]]] - mOrigin, e2 = m.mVertices[corners[triangle[2]]] - mOrigin;
    // Dual basis of the two edges: s = dual1 . (p - origin), t = dual2 . (p - origin).
    const double d11 = dot(e1, e1), d12 = dot(e1, e2), d22 = dot(e2, e2), det = d11 * d22 - d12 * d12;
    mDual1 = (1.0 / det) * (d22 * e1 - d12 * e2);
    mDual2 = (1.0 / det) * (d11 * e2 - d12 * e1);
    mAtOrigin = pairs[indices[triangle[0]]];
    const Vec2 at1 = pairs[indices[triangle[1]]], at2 = pairs[indices[triangle[2]]];
    mStep1 = {at1.x - mAtOrigin.x, at1.y - mAtOrigin.y};
    mStep2 = {at2.x - mAtOrigin.x, at2.y - mAtOrigin.y};
    mIsDefined = true;
  }

  /// Whether a pair is what the map gives for a point.
  bool agrees(const Vec3& point, const Vec2& pair) const {
    if (!mIsDefined) return false;
    const Vec3 p = point - mOrigin;
    const double s = dot(mDual1, p), t = dot(mDual2, p);
    const double du = mAtOrigin.x + s * mStep1.x + t * mStep2.x - pair.x;
    const double dv = mAtOrigin.y + s * mStep1.y + t * mStep2.y - pair.y;
    return std::sqrt(du * du + dv * dv) < kTexCoordTolerance;
  }

 private:
  bool mIsDefined = false;
  Vec3 mOrigin{}, mDual1{}, mDual2{};
  Vec2 mAtOrigin{}, mStep1{}, mStep2{};
};

/// Three corners of a face that span the largest triangle; for faces of many corners a large one: the corner farthest
/// from the first one, and the corner that spans most with these two.
std::array<std::uint32_t, 3> largestTriangle(const MeshStorage& m, std::size_t face) {
  constexpr std::uint32_t kTryAllUpTo = 12;
  const auto corners = m.mFaces.corners(face);
  const auto n = static_cast<std::uint32_t>(corners.size());
  const auto at = [&](std::uint32_t corner) { return m.mVertices[corners[corner]]; };
  std::array<std::uint32_t, 3> best{0, 1, 2};
  double bestSq = -1.0;
  const auto consider = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    const double areaSq = lengthSq(cross(at(b) - at(a), at(c) - at(a)));
    if (!(areaSq > bestSq)) return;
    best = {a, b, c};
    bestSq = areaSq;
  };
  if (n <= kTryAllUpTo) {
    for (std::uint32_t a = 0; a + 2 < n; ++a)
      for (std::uint32_t b = a + 1; b + 1 < n; ++b)
        for (std::uint32_t c = b + 1; c < n; ++c) consider(a, b, c);
    return best;
  }
  std::uint32_t farthest = 1;
  for (std::uint32_t b = 2; b < n; ++b)
    if (lengthSq(at(b) - at(0)) > lengthSq(at(farthest) - at(0))) farthest = b;
  for (std::uint32_t c = 1; c < n; ++c)
    if (c != farthest) consider(0, farthest, c);
  return best;
}

/// Seeds by decreasing area, ties by lower index. Areas are not NaN and not negative.
void sortByArea(std::span<std::uint32_t> seeds, std::span<const double> areas) {
  // Stable radix sort on the bits of the area, which order like the areas themselves.
  constexpr int kDigitBits = 11, kDigits = 6;
  constexpr std::size_t kDigitValues = std::size_t{1} << kDigitBits;
  struct Item {
    std::uint64_t key;
    std::uint32_t seed;
  };
  Buffer<Item> items(seeds.size()), sorted(seeds.size());
  std::vector<std::array<std::uint32_t, kDigitValues>> counts(kDigits);
  const auto digit = [](std::uint64_t key, int d) { return key >> d * kDigitBits & (kDigitValues - 1); };
  for (std::size_t i = 0; i < seeds.size(); ++i) {
    items[i] = {~std::bit_cast<std::uint64_t>(areas[seeds[i]]), seeds[i]};
    for (int d = 0; d < kDigits; ++d) ++counts[d][digit(items[i].key, d)];
  }
  for (int d = 0; d < kDigits && !items.empty(); ++d) {
    auto& count = counts[d];
    if (count[digit(items[0].key, d)] == items.size()) continue;  // the digit tells nothing
    std::uint32_t start = 0;
    for (std::uint32_t& c : count) start += std::exchange(c, start);
    for (const Item& item : items) sorted[count[digit(item.key, d)]++] = item;
    std::swap(items, sorted);
  }
  for (std::size_t i = 0; i < seeds.size(); ++i) seeds[i] = items[i].seed;
}

class CoplanarMerge {
 public:
  CoplanarMerge(Mesh& mesh, double toleranceDegrees, bool compareAttributes)
      : mMesh(mesh),
        m(mesh.storage()),
        mNormalTest(toleranceDegrees),
        mCompareAttributes(compareAttributes),
        mTwins(findEdgeTwins(m.mFaces, m.mVertices.size())) {}

  std::uint64_t run() {
    keepHolesApart();
    keepNonFiniteApart();
    measureFaces();
    Buffer<std::uint32_t> seeds = findSeeds();
    if (seeds.empty()) return 0;
    sortByArea(seeds, mAreas);
    findRuns();

    FaceRegions regions(m.mFaces, m.mVertices.size(), mTwins, mAreas);
    for (std::size_t i = 0; i < seeds.size(); ++i) {
      prefetchAhead(seeds, i, regions);
      const std::uint32_t seed = seeds[i];
      if (!regions.isFree(seed)) continue;
      growFrom(seed, regions);
      if (regions.members().size() > 1) {
        if (mend(seed, regions))
          mergeFacesWithSharedEdge(seed, regions.members());
        else
          regions.giveUp();
      }
      regions.finish();
    }
    if (mMergedCount == 0) return 0;
    m.mHoles.regroup(mNewOuterOf, mNewHoles);
    if (!mMaterialChanges.empty()) applyMaterialChanges();
    compactMesh(mMesh);
    return mMergedCount;
  }

 private:
  struct MaterialChange {
    std::uint32_t face, run;
  };

  /// Which corner kept a face out of a region last, and how often another had done that before.
  struct Scan {
    std::uint32_t corner;
    std::uint8_t count;
  };

  /// Hole faces take no part.
  void keepHolesApart() {
    mIsHole = m.mHoles.outerOfHoles(m.mFaces.size());
    for (std::size_t face = 0; face < mIsHole.size(); ++face)
      if (mIsHole[face] != HoleTable::kNone) keepApart(face);
  }

  /// Nor do faces with a corner that is nowhere.
  void keepNonFiniteApart() {
    const auto isNowhere = [](const Vec3& p) {
      return !(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z));
    };
    if (std::ranges::none_of(m.mVertices, isNowhere)) return;
    for (std::size_t face = 0; face < m.mFaces.size(); ++face)
      if (std::ranges::any_of(m.mFaces.corners(face), [&](std::uint32_t v) { return isNowhere(m.mVertices[v]); }))
        keepApart(face);
  }

  void keepApart(std::size_t face) {
    for (std::size_t p = m.mFaces.offset(face); p < m.mFaces.offset(face) + m.mFaces.cornerCount(face); ++p)
      mTwins.forgetTwin(static_cast<std::uint32_t>(p));
  }

  void measureFaces() {
    const std::size_t faceCount = m.mFaces.size();
    mAreas.resize(faceCount);
    for (std::size_t face = 0; face < faceCount; ++face) {
      const double area = computePolygonArea(m.mVertices, m.mFaces.corners(face), m.mFaces.normal(face));
      // So that areas can be ordered: one that is no number comes last.
      const double ordered = area >= 0.0 ? area : 0.0;
      mAreas[face] = findPlane(face) ? ordered : -ordered;
    }
  }

  bool findPlane(std::size_t face) const {
    const Vec3& normal = m.mFaces.normal(face);
    // A normal of overflowed length is none.
    if (!(std::fabs(lengthSq(normal) - 1.0) < 1e-6)) return false;
    if (normal != Vec3{0.0, 1.0, 0.0}) return true;
    // It may be the stand-in for a face without area.
    Vec3 computed;
    return computeFaceNormal(m.mVertices, m.mFaces.corners(face), computed);
  }

  bool hasPlane(std::size_t face) const { return !std::signbit(mAreas[face]); }

  /// Seeds come in the order of their areas, each from another end of the mesh: asks early for what the ones to come
  /// will need. Each step builds on what the one before it, some seeds ago, has brought.
  void prefetchAhead(std::span<const std::uint32_t> seeds, std::size_t position, const FaceRegions& regions) const {
    constexpr std::size_t kStep = 16;
    const auto prefetchFace = [&](std::uint32_t face) {
      m.mFaces.prefetch(face);
      regions.prefetch(face);
      __builtin_prefetch(&mAreas[face]);
    };
    const auto forEachTwin = [&](std::uint32_t face, auto use) {
      const std::size_t begin = m.mFaces.offset(face), end = begin + std::min(m.mFaces.cornerCount(face), 4u);
      for (std::size_t corner = begin; corner < end; ++corner)
        if (mTwins.twinOf(corner) != EdgeTwins::kNone) use(mTwins.twinOf(corner));
    };
    const auto prefetchCorner = [&](std::size_t corner) {
      m.mFaces.prefetchCorner(corner);
      mTwins.prefetch(corner);
    };
    if (position + 4 * kStep >= seeds.size()) return;
    prefetchFace(seeds[position + 4 * kStep]);
    // A face that has grown lies behind the corners that have twins.
    if (const std::uint32_t seed = seeds[position + 3 * kStep]; regions.isFree(seed))
      prefetchCorner(m.mFaces.offset(seed));
    if (const std::uint32_t seed = seeds[position + 2 * kStep]; regions.isFree(seed)) forEachTwin(seed, prefetchCorner);
    if (const std::uint32_t seed = seeds[position + kStep]; regions.isFree(seed))
      forEachTwin(seed, [&](std::uint32_t twin) { prefetchFace(mTwins.faceOf(twin)); });
  }

  /// The faces that can grow at all: next to a face that they accept. Ascending. Forgets the twins across which no
  /// region can grow whatever its seed, as long as the two faces are at hand.
  Buffer<std::uint32_t> findSeeds() {
    Buffer<std::uint32_t> seeds;
    seeds.reserve(m.mFaces.size());
    for (std::uint32_t face = 0; face < m.mFaces.size(); ++face) {
      if (!hasPlane(face)) continue;
      bool isSeed = false;
      const std::size_t begin = m.mFaces.offset(face), end = begin + m.mFaces.cornerCount(face);
      for (std::size_t p = begin; p < end; ++p) {
        const std::uint32_t twin = mTwins.twinOf(p);
        if (twin == EdgeTwins::kNone) continue;
        const std::uint32_t neighbour = mTwins.faceOf(twin);
        if (hasPlane(neighbour) && mNormalTest.areFarApart(m.mFaces.normal(neighbour), m.mFaces.normal(face)))
          mTwins.forgetTwin(p);
        else
          isSeed = isSeed || !hasPlane(neighbour) || facesAlike(neighbour, face);
      }
      if (isSeed) seeds.push_back(face);
    }
    return seeds;
  }

  bool facesAlike(std::uint32_t face, std::uint32_t seed) const {
    return mNormalTest.accepts(m.mFaces.normal(face), m.mFaces.normal(seed));
  }

  /// Whether a face's turn as a seed would come after that of `seed`. Faces whose turn has passed without growing are
  /// not listed as seeds, but they are no longer to be had.
  bool comesLater(std::uint32_t face, std::uint32_t seed) const {
    return !hasPlane(face) || mAreas[face] < mAreas[seed] || (mAreas[face] == mAreas[seed] && face > seed);
  }

  bool carrySameSets(std::uint32_t a, std::uint32_t b) const {
    return m.mFaces.mask(a) == m.mFaces.mask(b) && m.mFaces.hasNormalIndices(a) == m.mFaces.hasNormalIndices(b) &&
           m.mFaces.perVertexNormals(a) == m.mFaces.perVertexNormals(b);
  }

  /// The run of every face, when there are runs.
  void findRuns() {
    if (m.mRunStarts.empty()) return;
    for (std::size_t face = 0; face < m.mFaces.size(); ++face) addRun();
  }

  /// Finds the run of the next face.
  void addRun() {
    // A face's run is the one before the first start greater than it, which can only move up with the face.
    while (mNextRun < m.mRunStarts.size() && m.mRunStarts[mNextRun] <= mRunOf.size()) ++mNextRun;
    mRunOf.push_back(static_cast<std::uint32_t>(mNextRun == 0 ? 0 : mNextRun - 1));
  }

  const ShaderHandle& materialOf(std::uint32_t face) const {
    return mRunOf.empty() ? m.mDefaultMaterial.first : m.mRunMaterials[mRunOf[face]].first;
  }

  void growFrom(std::uint32_t seed, FaceRegions& regions) {
    mTextureMaps.clear();
    const std::uint32_t texCoordSets = m.mFaces.mask(seed) & ((1u << PrimitiveList::kTexCoordSets) - 1);
    if (mCompareAttributes && texCoordSets != 0) {
      const auto triangle = largestTriangle(m, seed);
      for (std::uint32_t bits = texCoordSets; bits != 0; bits &= bits - 1)
        mTextureMaps.emplace_back(std::countr_zero(bits), TextureMap(m, seed, std::countr_zero(bits), triangle));
    }
    regions.grow(seed, [&](std::uint32_t face, std::uint32_t corner, std::uint32_t neighbour, std::uint32_t twin) {
      return comesLater(neighbour, seed) && (!hasPlane(neighbour) || facesAlike(neighbour, seed)) &&
             carrySameSets(neighbour, seed) &&
             (!mCompareAttributes || attributesAgree(seed, face, corner, neighbour, twin)) &&
             cornersFit(neighbour, seed, corner);
    });
  }

  /// Whether a neighbour continues the region's material, and its texture coordinates along their common edge.
  bool attributesAgree(std::uint32_t seed, std::uint32_t face, std::uint32_t corner, std::uint32_t neighbour,
                       std::uint32_t twin) const {
    if (materialOf(neighbour) != materialOf(seed)) return false;
    const auto cornerIn = [&](std::uint32_t f, std::uint32_t position) {
      return position - static_cast<std::uint32_t>(m.mFaces.offset(f));
    };
    const auto after = [&](std::uint32_t f, std::uint32_t c) { return c + 1 == m.mFaces.cornerCount(f) ? 0 : c + 1; };
    const std::uint32_t here = cornerIn(face, corner), there = cornerIn(neighbour, twin);
    return std::ranges::all_of(mTextureMaps, [&](const auto& setAndMap) {
      const int set = setAndMap.first;
      const auto& pairs = m.mTexCoords[set];
      const auto ours = m.mFaces.cornerSet(face, set), theirs = m.mFaces.cornerSet(neighbour, set);
      return areClose(pairs, ours[here], theirs[after(neighbour, there)]) &&
             areClose(pairs, ours[after(face, here)], theirs[there]);
    });
  }

  /// Whether all corners of a face continue the seed's texture mapping and, where the face has no plane of its own, lie
  /// in that of the seed as seen from the common edge, which starts at `corner`.
  bool cornersFit(std::uint32_t face, std::uint32_t seed, std::uint32_t corner) {
    if (hasPlane(face) && mTextureMaps.empty()) return true;
    const auto vertices = m.mFaces.corners(face);
    const auto fits = [&](std::uint32_t i) {
      const Vec3& p = m.mVertices[vertices[i]];
      if (!hasPlane(face) &&
          !mNormalTest.staysInPlane(p - m.mVertices[m.mFaces.vertexAt(corner)], m.mFaces.normal(seed)))
        return false;
      return std::ranges::all_of(mTextureMaps, [&](const auto& setAndMap) {
        const auto& [set, map] = setAndMap;
        const std::uint32_t pair = m.mFaces.cornerSet(face, set)[i];
        return pair < m.mTexCoords[set].size() && map.agrees(p, m.mTexCoords[set][pair]);
      });
    };
    if (vertices.size() <= kFewCorners) {
      for (std::uint32_t i = 0; i < vertices.size(); ++i)
        if (!fits(i)) return false;
      return true;
    }
    if (mScans.empty()) mScans.resize(mAreas.size(), {0, 0});
    Scan& scan = mScans[face];
    if (scan.count != 0 && (scan.count == kMostScans || !fits(scan.corner))) return false;
    for (std::uint32_t i = 0; i < vertices.size(); ++i) {
      if (fits(i)) continue;
      scan = {i, static_cast<std::uint8_t>(scan.count + 1)};
      return false;
    }
    return true;
  }

  static bool areClose(const Buffer<Vec2>& pairs, std::uint32_t a, std::uint32_t b) {
    if (a >= pairs.size() || b >= pairs.size()) return false;
    const double du = pairs[a].x - pairs[b].x, dv = pairs[a].y - pairs[b].y;
    return std::sqrt(du * du + dv * dv) < kTexCoordTolerance;
  }

  using Loop = FaceRegions::Loop;

  /// Puts faces out of the region until its border is one outer loop with holes that would stay: mOuterLoops and
  /// mInnerLoops. False where that does not help.
  bool mend(std::uint32_t seed, FaceRegions& regions) {
    if (!regions.resolvePinches()) return false;
    while (regions.members().size() > 1 && !(loopsAreSound(seed, regions) && holesWouldStay(regions)))
      if (!regions.putOutMarked()) return false;
    return true;
  }

  /// Sorts the border into outer and inner loops, by the sign of their area. Marks loops that are neither or touch
  /// themselves, and all outer ones but the largest; false where there are any.
  bool loopsAreSound(std::uint32_t seed, FaceRegions& regions) {
    mOuterLoops.clear();
    mInnerLoops.clear();
    bool areSound = true;
    for (const Loop& loop : regions.borderLoops()) {
      const double area = measureLoop(loop, m.mFaces.normal(seed), regions, areSound);
      if (area > 0.0)
        mOuterLoops.push_back(loop);
      else if (area < 0.0)
        mInnerLoops.push_back(loop);
      else
        regions.markFlaw(loop);
      areSound = areSound && area != 0.0;
    }
    if (mOuterLoops.size() == 1) return areSound;
    const auto areaOf = [&](const Loop& loop) {
      projectLoop(loop, m.mFaces.normal(seed));
      return signedArea(mProjected);
    };
    if (mOuterLoops.empty()) mOuterLoops.swap(mInnerLoops);
    const auto largest = std::ranges::max_element(mOuterLoops, {}, areaOf);
    for (auto loop = mOuterLoops.begin(); loop != mOuterLoops.end(); ++loop)
      if (loop != largest) regions.markFlaw(*loop);
    return false;
  }

  /// The area of a loop, of a convex one only its sign; 0 for a loop without area. Marks where it touches itself.
  double measureLoop(const Loop& loop, const Vec3& normal, FaceRegions& regions, bool& isSound) {
    if (loop.size() < 3) return 0.0;
    projectLoop(loop, normal);
    if (mProjected.size() < 3) return 0.0;
    if (const int turn = convexTurn(mProjected); turn != 0) return turn;
    const double area = signedArea(mProjected);
    if (area == 0.0 || isSimple(mProjected)) return area;
    isSound = false;
    markTouches(regions);
    return area;
  }

  /// Of two edges of the current loop that touch, marks the face that a walk from the seed reaches later.
  void markTouches(FaceRegions& regions) {
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
    findTouches(mProjected, isFarther, [&](std::size_t edge) {
      if (farther < kMostFarther) regions.markFlaw(faceOf(edge));
    });
  }

  /// Sees a loop along the largest component of a normal, from the side that it points to. Of corners that follow each
  /// other and look the same, only the last counts: edges without length do no harm.
  void projectLoop(const Loop& loop, const Vec3& normal) {
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

  /// Whether hole assignment would keep all the holes that the merged face is to have: those of the members and the
  /// new ones. Asked of a small mesh of these faces alone. Marks those that would go.
  bool holesWouldStay(FaceRegions& regions) {
    const std::vector<std::uint32_t>& members = regions.members();
    std::vector<std::pair<std::uint32_t, std::uint32_t>> oldHoles;  // with their members
    if (!m.mHoles.empty()) {
      if (mGroups.empty()) mGroups = m.mHoles.groupsByOuter(m.mFaces.size());
      for (const std::uint32_t member : members)
        for (const HoleTable::Group& group : HoleTable::groupsOf(member, mGroups))
          for (const std::uint32_t hole : group.holes)
            if (hole < m.mFaces.size()) oldHoles.emplace_back(member, hole);
    }
    if (mInnerLoops.empty() && oldHoles.empty()) return true;

    std::vector<Vec3> vertices;
    std::vector<Polygon> faces;
    const auto addFace = [&](std::size_t count, const auto& vertexOf) {
      Polygon& face = faces.emplace_back();
      face.mTag = static_cast<std::int32_t>(faces.size() - 1);
      for (std::size_t i = 0; i < count; ++i) {
        face.mVertexIndices.push_back(static_cast<std::uint32_t>(vertices.size()));
        vertices.push_back(m.mVertices[vertexOf(i)]);
      }
      computeFaceNormal(vertices, {face.mVertexIndices.data(), face.mVertexIndices.size()}, face.mNormal);
    };
    const auto addLoop = [&](const Loop& loop) {
      addFace(loop.size(), [&](std::size_t i) { return m.mFaces.vertexAt(loop[i]); });
    };
    addLoop(mOuterLoops.front());
    for (const auto& [member, hole] : oldHoles)
      addFace(m.mFaces.cornerCount(hole), [&, h = hole](std::size_t i) { return m.mFaces.corners(h)[i]; });
    for (const Loop& loop : mInnerLoops) addLoop(loop);
    Mesh probe("", vertices, faces);
    std::vector<std::uint32_t> group(faces.size() + 1);
    for (std::uint32_t face = 0; face < faces.size(); ++face) group[face] = face;
    group.back() = HoleTable::kEnd;
    probe.storage().mHoles.append(group.data(), group.size());
    assignHoles(probe);

    const PrimitiveList& kept = probe.storage().mFaces;
    if (kept.size() == faces.size()) return true;
    for (std::size_t face = 1, next = 1; face < faces.size(); ++face) {
      if (next < kept.size() && kept.tag(next) == static_cast<std::int32_t>(face))
        ++next;
      else if (face <= oldHoles.size())
        regions.markFlaw(oldHoles[face - 1].first);
      else
        regions.markFlaw(mInnerLoops[face - 1 - oldHoles.size()]);
    }
    return false;
  }

  /// Replaces the region's faces by one, its inner edges all cancelled at once; inner loops become hole faces.
  void mergeFacesWithSharedEdge(std::uint32_t seed, std::span<const std::uint32_t> members) {
    if (members.size() < 2) return;
    const std::uint32_t survivor = members.front();
    changeMaterial(survivor, seed);
    const std::int32_t tag = m.mFaces.tag(seed);
    for (const std::uint32_t member : members) noteNewOuter(member, survivor);
    // Inner loops are read from the members' corners later: these have to stay.
    writeLoop(survivor, mOuterLoops.front(), mInnerLoops.empty() ? roomOf(members) : 0);
    m.mFaces.setTag(survivor, tag);
    extractAndRemoveHoles(seed, survivor, mInnerLoops, members);
    mMergedCount += members.size() - 1;
  }

  /// The inner loops become hole faces: at the places of the members that are no longer needed, ascending, then at the
  /// end of the list. The other members are cleared.
  void extractAndRemoveHoles(std::uint32_t seed, std::uint32_t survivor, std::span<const Loop> holes,
                             std::span<const std::uint32_t> members) {
    std::size_t next = 1;
    for (const Loop& loop : holes) {
      std::uint32_t face;
      if (next < members.size()) {
        face = members[next++];
        m.mFaces.setTag(face, -1);
      } else {
        face = static_cast<std::uint32_t>(m.mFaces.size());
        m.mFaces.appendLike(survivor, 0);
        if (!mRunOf.empty()) addRun();
        changeMaterial(face, seed);
      }
      writeLoop(face, loop, 0);
      mNewHoles.push_back({survivor, face});
    }
    for (; next < members.size(); ++next) m.mFaces.clear(members[next]);
  }

  /// How many corners of the pool stand at the first member's place and behind it that are all the members'.
  std::uint32_t roomOf(std::span<const std::uint32_t> members) const {
    const std::size_t begin = m.mFaces.offset(members.front());
    std::size_t end = begin;
    for (const std::uint32_t member : members) {
      if (m.mFaces.offset(member) != end) break;
      end += m.mFaces.cornerCount(member);
    }
    return static_cast<std::uint32_t>(end - begin);
  }

  void writeLoop(std::uint32_t face, const Loop& loop, std::uint32_t room) {
    m.mFaces.setCorners(face, loop, room, mScratch);
    Vec3 normal;
    computeFaceNormal(m.mVertices, m.mFaces.corners(face), normal);
    m.mFaces.setNormal(face, normal);
  }

  void noteNewOuter(std::uint32_t member, std::uint32_t survivor) {
    if (m.mHoles.empty()) return;
    if (mNewOuterOf.empty()) {
      mNewOuterOf.resize(mAreas.size());  // the faces before any was appended
      for (std::uint32_t face = 0; face < mNewOuterOf.size(); ++face) mNewOuterOf[face] = face;
    }
    mNewOuterOf[member] = survivor;
  }

  void changeMaterial(std::uint32_t face, std::uint32_t seed) {
    if (mRunOf.empty() || m.mRunMaterials[mRunOf[face]] == m.mRunMaterials[mRunOf[seed]]) return;
    mMaterialChanges.push_back({face, mRunOf[seed]});
  }

  /// Writes the runs anew, one per stretch of faces of one material.
  void applyMaterialChanges() {
    for (const MaterialChange& change : mMaterialChanges) mRunOf[change.face] = change.run;
    std::vector<MaterialPair> materials;
    SmallIndexList starts;
    for (std::uint32_t face = 0; face < mRunOf.size(); ++face) {
      const MaterialPair& material = m.mRunMaterials[mRunOf[face]];
      if (!materials.empty() && materials.back() == material) continue;
      materials.push_back(material);
      starts.push_back(face);
    }
    m.mRunMaterials = std::move(materials);
    m.mRunStarts = std::move(starts);
  }

  Mesh& mMesh;
  MeshStorage& m;
  NormalTest mNormalTest;
  bool mCompareAttributes;
  EdgeTwins mTwins;
  std::vector<std::uint32_t> mIsHole;  // per face the outer face it is a hole of; empty without holes
  Buffer<double> mAreas;               // with the sign bit where the face has no plane: one read tells both
  Buffer<std::uint32_t> mRunOf;        // empty without runs
  std::size_t mNextRun = 0;            // the first that starts behind the last face of mRunOf
  Buffer<Scan> mScans;                 // per face; empty until a face's corners are looked at
  std::vector<std::pair<int, TextureMap>> mTextureMaps;  // of the current seed, per carried set
  Buffer<std::uint32_t> mScratch;
  std::vector<Loop> mOuterLoops, mInnerLoops;    // of the current region; sound ones have one outer loop
  std::vector<Vec2> mProjected;                  // the current loop
  std::vector<std::uint32_t> mProjectedCorners;  // whose points these are
  std::vector<HoleTable::Group> mGroups;
  std::vector<std::uint32_t> mNewOuterOf;  // empty as long as no hole can be concerned
  std::vector<HoleTable::NewHole> mNewHoles;
  std::vector<MaterialChange> mMaterialChanges;
  std::uint64_t mMergedCount = 0;
};

}  // namespace

std::uint64_t removeEdgesCoplanar(Mesh& mesh, double toleranceDegrees, bool compareAttributes) {
  if (!(toleranceDegrees >= 0.0)) return 0;
  return CoplanarMerge(mesh, toleranceDegrees, compareAttributes).run();
}

}  // namespace util
