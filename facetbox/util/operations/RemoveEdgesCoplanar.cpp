#include <facetbox/util/operations/RemoveEdgesCoplanar.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/util/math/Angle.h>
#include <facetbox/util/mesh/EdgeTwins.h>
#include <facetbox/util/mesh/HoleAssignment.h>
#include <facetbox/util/mesh/Maintenance.h>
#include <facetbox/util/mesh/MeshStorage.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include <facetbox/util/operations/FaceRegions.h>

namespace util {
namespace {

constexpr double kLargestTolerance = 89.0;
constexpr double kAngleSlack = 1e-6;  // degrees; covers the rounding of normals that are equal on paper
constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr double kTexCoordTolerance = 0.001;

/// Whether two unit normals differ by no more than an angle: angleBetween() decides, but only near the limit does it
/// have to be asked.
class NormalTest {
 public:
  explicit NormalTest(double toleranceDegrees)
      : mLimitDegrees(std::min(toleranceDegrees, kLargestTolerance) + kAngleSlack) {
    const double halfChord = std::sin(mLimitDegrees / kDegreesPerRadian / 2.0);
    mLimitChordSq = 4.0 * halfChord * halfChord;
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

 private:
  double mLimitDegrees;
  double mLimitChordSq;
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
      if (regions.members().size() > 1 && regions.resolvePinches()) mergeFacesWithSharedEdge(seed, regions);
      regions.finish();
    }
    if (mMergedCount == 0) return 0;
    m.mHoles.regroup(mNewOuterOf, mNewHoles);
    if (!mMaterialChanges.empty()) applyMaterialChanges();
    compactPrimitives(mMesh);
    removeUnusedVertices(mMesh);
    clearConnectivityCache(mMesh);
    return mMergedCount;
  }

 private:
  struct MaterialChange {
    std::uint32_t face, run;
  };

  /// Hole faces take no part.
  void keepHolesApart() {
    mIsHole = m.mHoles.outerOfHoles(m.mFaces.size());
    for (std::size_t face = 0; face < mIsHole.size(); ++face) {
      if (mIsHole[face] == HoleTable::kNone) continue;
      for (std::size_t p = m.mFaces.offset(face); p < m.mFaces.offset(face) + m.mFaces.cornerCount(face); ++p)
        mTwins.forgetTwin(static_cast<std::uint32_t>(p));
    }
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
          isSeed = isSeed || fitsPlane(neighbour, face);
      }
      if (isSeed) seeds.push_back(face);
    }
    return seeds;
  }

  bool fitsPlane(std::uint32_t face, std::uint32_t seed) const {
    return !hasPlane(face) || mNormalTest.accepts(m.mFaces.normal(face), m.mFaces.normal(seed));
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
    mRunOf.resize(m.mFaces.size());
    // A face's run is the one before the first start greater than it, which can only move up with the face.
    std::size_t next = 0;
    for (std::uint32_t face = 0; face < mRunOf.size(); ++face) {
      while (next < m.mRunStarts.size() && m.mRunStarts[next] <= face) ++next;
      mRunOf[face] = static_cast<std::uint32_t>(next == 0 ? 0 : next - 1);
    }
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
      return comesLater(neighbour, seed) && fitsPlane(neighbour, seed) && carrySameSets(neighbour, seed) &&
             (!mCompareAttributes || attributesAgree(seed, face, corner, neighbour, twin));
    });
  }

  /// Whether a neighbour continues the region's material and texture mapping over their common edge.
  bool attributesAgree(std::uint32_t seed, std::uint32_t face, std::uint32_t corner, std::uint32_t neighbour,
                       std::uint32_t twin) const {
    if (materialOf(neighbour) != materialOf(seed)) return false;
    const auto cornerIn = [&](std::uint32_t f, std::uint32_t position) {
      return position - static_cast<std::uint32_t>(m.mFaces.offset(f));
    };
    const auto after = [&](std::uint32_t f, std::uint32_t c) { return c + 1 == m.mFaces.cornerCount(f) ? 0 : c + 1; };
    const std::uint32_t here = cornerIn(face, corner), there = cornerIn(neighbour, twin);
    for (const auto& [set, map] : mTextureMaps) {
      const auto& pairs = m.mTexCoords[set];
      const auto ours = m.mFaces.cornerSet(face, set), theirs = m.mFaces.cornerSet(neighbour, set);
      if (!areClose(pairs, ours[here], theirs[after(neighbour, there)])) return false;
      if (!areClose(pairs, ours[after(face, here)], theirs[there])) return false;
      const auto corners = m.mFaces.corners(neighbour);
      for (std::size_t i = 0; i < corners.size(); ++i)
        if (theirs[i] >= pairs.size() || !map.agrees(m.mVertices[corners[i]], pairs[theirs[i]])) return false;
    }
    return true;
  }

  static bool areClose(const Buffer<Vec2>& pairs, std::uint32_t a, std::uint32_t b) {
    if (a >= pairs.size() || b >= pairs.size()) return false;
    const double du = pairs[a].x - pairs[b].x, dv = pairs[a].y - pairs[b].y;
    return std::sqrt(du * du + dv * dv) < kTexCoordTolerance;
  }

  using Loop = FaceRegions::Loop;

  /// Replaces the region's faces by one, its inner edges all cancelled at once; inner loops become hole faces.
  void mergeFacesWithSharedEdge(std::uint32_t seed, FaceRegions& regions) {
    const std::vector<std::uint32_t>& members = regions.members();
    if (members.size() < 2) return;
    const std::optional<Loop> outer = extractOuterLoop(seed, regions.borderLoops());
    if (!outer || !holesWouldStay(*outer, mInnerLoops, members)) return;

    const std::uint32_t survivor = members.front();
    changeMaterial(survivor, seed);
    const std::int32_t tag = m.mFaces.tag(seed);
    for (const std::uint32_t member : members) noteNewOuter(member, survivor);
    // Inner loops are read from the members' corners later: these have to stay.
    writeLoop(survivor, *outer, mInnerLoops.empty() ? roomOf(members) : 0);
    m.mFaces.setTag(survivor, tag);
    extractAndRemoveHoles(seed, survivor, mInnerLoops, members);
    mMergedCount += members.size() - 1;
  }

  /// The one loop of positive area; none where there is not exactly one. The others become mInnerLoops.
  std::optional<Loop> extractOuterLoop(std::uint32_t seed, std::span<const Loop> loops) {
    std::optional<Loop> outer;
    mInnerLoops.clear();
    for (const Loop& loop : loops) {
      if (loop.size() < 3) return {};
      if (!(signedArea(loop, m.mFaces.normal(seed)) > 0.0)) {
        mInnerLoops.push_back(loop);
        continue;
      }
      if (outer) return {};
      outer = loop;
    }
    return outer;
  }

  double signedArea(const Loop& loop, const Vec3& normal) const {
    Vec3 sum{0.0, 0.0, 0.0};
    const Vec3 first = m.mVertices[m.mFaces.vertexAt(loop[0])];
    for (std::size_t i = 2; i < loop.size(); ++i)
      sum = sum +
            cross(m.mVertices[m.mFaces.vertexAt(loop[i - 1])] - first, m.mVertices[m.mFaces.vertexAt(loop[i])] - first);
    return 0.5 * dot(sum, normal);
  }

  /// Whether hole assignment would keep all the holes that the merged face is to have: those of the members and the
  /// new ones. Asked of a small mesh of these faces alone.
  bool holesWouldStay(const Loop& outer, std::span<const Loop> newHoles, std::span<const std::uint32_t> members) {
    std::vector<std::uint32_t> oldHoles;
    if (!m.mHoles.empty()) {
      if (mGroups.empty()) mGroups = m.mHoles.groupsByOuter(m.mFaces.size());
      for (const std::uint32_t member : members) {
        for (const HoleTable::Group& group : HoleTable::groupsOf(member, mGroups))
          oldHoles.insert(oldHoles.end(), group.holes.begin(), group.holes.end());
      }
    }
    if (newHoles.empty() && oldHoles.empty()) return true;

    std::vector<Vec3> vertices;
    std::vector<Polygon> faces;
    const auto addFace = [&](std::size_t count, const auto& vertexOf) {
      Polygon& face = faces.emplace_back();
      for (std::size_t i = 0; i < count; ++i) {
        face.mVertexIndices.push_back(static_cast<std::uint32_t>(vertices.size()));
        vertices.push_back(m.mVertices[vertexOf(i)]);
      }
      computeFaceNormal(vertices, {face.mVertexIndices.data(), face.mVertexIndices.size()}, face.mNormal);
    };
    const auto addLoop = [&](const Loop& loop) {
      addFace(loop.size(), [&](std::size_t i) { return m.mFaces.vertexAt(loop[i]); });
    };
    addLoop(outer);
    for (const std::uint32_t hole : oldHoles)
      if (hole < m.mFaces.size())
        addFace(m.mFaces.cornerCount(hole), [&](std::size_t i) { return m.mFaces.corners(hole)[i]; });
    for (const Loop& loop : newHoles) addLoop(loop);
    Mesh probe("", vertices, faces);
    std::vector<std::uint32_t> group(faces.size() + 1);
    for (std::uint32_t face = 0; face < faces.size(); ++face) group[face] = face;
    group.back() = HoleTable::kEnd;
    probe.storage().mHoles.append(group.data(), group.size());
    assignHoles(probe);
    return probe.storage().mFaces.size() == faces.size();
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
    if (mRunOf.empty()) return;
    // A face behind the list lies in the last run.
    const std::size_t run = face < mRunOf.size() ? mRunOf[face] : m.runOf(face);
    if (m.mRunMaterials[run] != m.mRunMaterials[mRunOf[seed]]) mMaterialChanges.push_back({face, mRunOf[seed]});
  }

  /// Writes the runs anew, one per stretch of faces of one material.
  void applyMaterialChanges() {
    std::vector<std::uint32_t> runOf(mRunOf.begin(), mRunOf.end());
    for (std::size_t face = runOf.size(); face < m.mFaces.size(); ++face)
      runOf.push_back(static_cast<std::uint32_t>(m.runOf(static_cast<std::uint32_t>(face))));
    for (const MaterialChange& change : mMaterialChanges) runOf[change.face] = change.run;
    std::vector<MaterialPair> materials;
    SmallIndexList starts;
    for (std::uint32_t face = 0; face < runOf.size(); ++face) {
      const MaterialPair& material = m.mRunMaterials[runOf[face]];
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
  std::vector<std::pair<int, TextureMap>> mTextureMaps;  // of the current seed, per carried set
  Buffer<std::uint32_t> mScratch;
  std::vector<Loop> mInnerLoops;  // of the current region
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
