#include <facetbox/util/operations/RemoveFacesDouble.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/MeshStorage.h>
#include <tests/support/PlainMesh.h>

namespace {

using support::describe;
using support::expectConsistent;
using support::Faces;
using support::facesOf;
using support::holesOf;
using support::Indices;
using support::kEnd;
using support::meshOf;
using support::pick;
using support::PlainFace;
using support::PlainMesh;
using support::plainOf;
using TagSets = std::vector<std::set<std::uint32_t>>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// What a record does not hold of a mesh with attributes.
struct Attributes {
  std::map<int, std::vector<util::Vec2>> mTexCoords;  ///< by set
  TagSets mTagSets;
};

/// The slow twin: every pair of entries of every vertex's list, one after the other.
class SlowRemoval {
 public:
  SlowRemoval(PlainMesh& mesh, Attributes& attributes) : mMesh(mesh), mAttributes(attributes) {}

  std::uint64_t run(bool compareAttributes) {
    const auto holesByOuter = mMesh.mHoles;
    std::set<std::uint32_t> holes;
    for (const auto& [outer, group] : holesByOuter) holes.insert(group.begin(), group.end());
    std::vector<Indices> incidence(mMesh.mVertices.size());
    for (std::uint32_t face = 0; face < mMesh.mFaces.size(); ++face)
      if (!holes.contains(face))
        for (const std::uint32_t v : mMesh.mFaces[face].mCorners) incidence[v].push_back(face);

    std::uint64_t count = 0;
    for (const Indices& list : incidence)
      for (std::size_t x = 0; x < list.size(); ++x)
        for (std::size_t y = x + 1; y < list.size(); ++y) {
          if (!areDouble(list[x], list[y], compareAttributes)) continue;
          PlainFace &a = mMesh.mFaces[list[x]], &b = mMesh.mFaces[list[y]];
          a.mTag = mergedTag(a.mTag, b.mTag);
          if (holesByOuter.contains(list[y]))
            for (const std::uint32_t hole : holesByOuter.at(list[y])) mMesh.mFaces[hole].clear();
          b.clear();
          ++count;
        }
    if (count == 0) return 0;
    support::compactPrimitives(mMesh);
    support::removeUnusedVertices(mMesh);
    return count;
  }

 private:
  bool areDouble(std::uint32_t faceA, std::uint32_t faceB, bool compareAttributes) const {
    const Indices &a = mMesh.mFaces[faceA].mCorners, &b = mMesh.mFaces[faceB].mCorners;
    const std::size_t n = a.size();
    if (n == 0 || b.size() != n || std::ranges::count(a, b[0]) == 0) return false;
    const auto p = static_cast<std::size_t>(std::ranges::find(a, b[0]) - a.begin());
    bool forward = true, backward = true;
    for (std::size_t k = 0; k < n; ++k) {
      const std::size_t ahead = (p + k) % n, back = (p + n - k) % n;
      forward = forward && b[k] == a[ahead] && (!compareAttributes || sameAttributes(faceA, ahead, faceB, k));
      backward = backward && b[k] == a[back] && (!compareAttributes || sameAttributes(faceA, back, faceB, k));
    }
    return forward || backward;
  }

  util::ShaderHandle materialOf(std::uint32_t face) const {
    if (mMesh.mRunStarts.empty()) return mMesh.mDefaultMaterial.first;
    std::size_t run = 0;
    for (std::size_t r = 0; r < mMesh.mRunStarts.size() && mMesh.mRunStarts[r] <= face; ++r) run = r;
    return mMesh.mRunMaterials[run].first;
  }

  bool sameAttributes(std::uint32_t faceA, std::size_t i, std::uint32_t faceB, std::size_t j) const {
    if (materialOf(faceA) != materialOf(faceB)) return false;
    for (const auto& [set, indices] : mMesh.mFaces[faceA].mSets) {
      if (set > 9) continue;
      const auto& setsOfB = mMesh.mFaces[faceB].mSets;
      const std::vector<util::Vec2>& pairs = mAttributes.mTexCoords.at(set);
      if (!setsOfB.contains(set) || indices[i] >= pairs.size() || setsOfB.at(set)[j] >= pairs.size()) return false;
      const util::Vec2 a = pairs[indices[i]], b = pairs[setsOfB.at(set)[j]];
      if (std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y)) >= 0.001) return false;
    }
    return true;
  }

  std::int32_t mergedTag(std::int32_t a, std::int32_t b) {
    if (a == b) return a;
    if (a == -1) return b;
    if (b == -1) return a;
    TagSets& sets = mAttributes.mTagSets;
    std::set<std::uint32_t> both = sets[static_cast<std::size_t>(a)];
    both.insert(sets[static_cast<std::size_t>(b)].begin(), sets[static_cast<std::size_t>(b)].end());
    for (std::size_t i = 0; i < sets.size(); ++i)
      if (sets[i] == both) return static_cast<std::int32_t>(i);
    sets.push_back(both);
    return static_cast<std::int32_t>(sets.size() - 1);
  }

  PlainMesh& mMesh;
  Attributes& mAttributes;
};

/// Turns a face's corners, and with them its corner sets, to another beginning and perhaps around.
void turn(std::mt19937& random, PlainFace& face) {
  const int n = static_cast<int>(face.mCorners.size());
  const int first = pick(random, 0, n - 1);
  const bool backward = pick(random, 0, 1) != 0;
  const auto turned = [&](Indices& indices) {
    std::rotate(indices.begin(), indices.begin() + first, indices.end());
    if (backward) std::ranges::reverse(indices);
  };
  turned(face.mCorners);
  for (auto& [set, indices] : face.mSets) turned(indices);
}

/// What a random mesh is like.
struct Likeness {
  int mostFaces, mostOriginals;
  double step;           ///< between neighbouring texture coordinates
  int mostPairs;         ///< per coordinate, of which the odd one is not finite or missing
  bool withSeveralSets;  ///< faces that carry different sets
};

PlainMesh randomMesh(std::mt19937& random, const Likeness& like, Attributes& attributes) {
  PlainMesh mesh;
  const int vertexCount = pick(random, 3, 9);
  for (int v = 0; v < vertexCount; ++v) mesh.mVertices.push_back({1.0 * v, 1.0 * pick(random, 0, 2), 0});
  const int pairs = pick(random, 2, like.mostPairs);
  for (const int set : {0, 3})
    for (int p = 0; p < pairs; ++p) {
      const auto coordinate = [&] {
        const int kind = pick(random, 0, 60);
        return kind == 0 ? kNaN : kind == 1 ? kInfinity : like.step * pick(random, 0, pairs);
      };
      const double u = coordinate(), v = coordinate();
      attributes.mTexCoords[set].push_back({u, v});
    }
  for (int t = pick(random, 1, 5); t > 0; --t) {
    std::set<std::uint32_t> tags;
    for (int i = pick(random, 0, 2); i > 0; --i) tags.insert(static_cast<std::uint32_t>(pick(random, 0, 3)));
    attributes.mTagSets.push_back(tags);
  }

  const bool tagged = pick(random, 0, 1) != 0;
  const bool mayRepeatVertices = pick(random, 0, 1) != 0;
  const auto texCoordIndices = [&](std::size_t n) {
    Indices indices;
    for (std::size_t i = 0; i < n; ++i) {
      const bool beyond = pick(random, 0, 80) == 0;
      indices.push_back(static_cast<std::uint32_t>(beyond ? 1000 : pick(random, 0, pairs - 1)));
    }
    return indices;
  };
  std::vector<PlainFace> originals;
  for (int f = pick(random, 1, like.mostOriginals); f > 0; --f) {
    PlainFace face;
    Indices order(mesh.mVertices.size());
    for (std::uint32_t v = 0; v < order.size(); ++v) order[v] = v;
    for (std::size_t i = order.size(); i > 1; --i)
      std::swap(order[i - 1], order[static_cast<std::size_t>(pick(random, 0, static_cast<int>(i) - 1))]);
    for (int n = pick(random, pick(random, 0, 9) ? 3 : 1, mayRepeatVertices ? 7 : 5); n > 0; --n) {
      if (!mayRepeatVertices && order.empty()) break;
      face.mCorners.push_back(mayRepeatVertices ? order[static_cast<std::size_t>(pick(random, 0, 2)) % order.size()]
                                                : order.back());
      if (!mayRepeatVertices || pick(random, 0, 2)) std::rotate(order.begin(), order.end() - 1, order.end());
      if (!mayRepeatVertices) order.erase(order.begin());
    }
    face.mSets[0] = texCoordIndices(face.mCorners.size());
    if (like.withSeveralSets && pick(random, 0, 1)) face.mSets[3] = texCoordIndices(face.mCorners.size());
    originals.push_back(face);
  }
  for (int f = pick(random, 1, like.mostFaces); f > 0; --f) {
    PlainFace face = originals[static_cast<std::size_t>(pick(random, 0, static_cast<int>(originals.size()) - 1))];
    for (auto& [set, indices] : face.mSets)
      if (pick(random, 0, 1)) indices = texCoordIndices(indices.size());
    if (like.withSeveralSets && pick(random, 0, 4) == 0) face.mSets.erase(0);
    if (pick(random, 0, 3)) turn(random, face);
    if (pick(random, 0, 9) == 0) std::swap(face.mCorners.front(), face.mCorners.back());
    if (tagged) face.mTag = pick(random, -1, static_cast<int>(attributes.mTagSets.size()) - 1);
    mesh.mFaces.push_back(face);
  }

  const int faceCount = static_cast<int>(mesh.mFaces.size());
  for (int group = pick(random, 0, 2); group > 0; --group) {
    const auto outer = static_cast<std::uint32_t>(pick(random, 0, faceCount - 1));
    for (int h = pick(random, 0, 2); h > 0; --h) {
      const auto hole = static_cast<std::uint32_t>(pick(random, 0, faceCount - 1));
      if (hole != outer && !std::ranges::count(mesh.mHoles[outer], hole)) mesh.mHoles[outer].push_back(hole);
    }
  }
  for (int run = pick(random, 0, 2); run > 0; --run) {
    mesh.mRunMaterials.push_back(support::materialOf(pick(random, 0, 2) ? "a" : "b"));
    mesh.mRunStarts.push_back(static_cast<std::uint32_t>(pick(random, 0, faceCount)));
  }
  return mesh;
}

util::Mesh buildMesh(const PlainMesh& plain, const Attributes& attributes) {
  util::Mesh mesh = support::buildMesh(plain);
  for (const auto& [set, pairs] : attributes.mTexCoords)
    mesh.storage().mTexCoords[static_cast<std::size_t>(set)].assign(pairs.begin(), pairs.end());
  mesh.storage().mTagSets = attributes.mTagSets;
  return mesh;
}

/// What came up over all random meshes, to see that the interesting things did.
struct Tally {
  unsigned removals = 0, partial = 0, newTagSets = 0, lostHoles = 0;
};

void compareWithTwin(unsigned seed, const Likeness& like, Tally& tally) {
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  Attributes attributes;
  PlainMesh twin = randomMesh(random, like, attributes);
  util::Mesh mesh = buildMesh(twin, attributes);
  support::warmCache(mesh);
  const bool compareAttributes = pick(random, 0, 2) != 0;
  const std::size_t faceCount = twin.mFaces.size(), tagSetCount = attributes.mTagSets.size();

  const std::uint64_t expected = SlowRemoval(twin, attributes).run(compareAttributes);
  EXPECT_EQ(util::removeFacesDouble(mesh, compareAttributes), expected);
  EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
  EXPECT_EQ(mesh.storage().mTagSets, attributes.mTagSets);
  expectConsistent(mesh);
  if (expected != 0) ++tally.removals;
  if (expected != 0 && twin.mFaces.size() > 1) ++tally.partial;
  if (attributes.mTagSets.size() > tagSetCount) ++tally.newTagSets;
  if (faceCount - twin.mFaces.size() > expected) ++tally.lostHoles;
}

TEST(RemoveFacesDouble, equalsItsSlowTwinOnSmallRandomMeshes) {
  Tally tally;
  for (unsigned seed = 0; seed < 6000; ++seed) compareWithTwin(seed, {12, 3, 0.0005, 4, seed % 2 == 0}, tally);
  EXPECT_GT(tally.removals, 3000u);
  EXPECT_GT(tally.partial, 2000u);
  EXPECT_GT(tally.newTagSets, 300u);
  EXPECT_GT(tally.lostHoles, 500u);
}

TEST(RemoveFacesDouble, equalsItsSlowTwinOnManyCopiesOfFewFaces) {
  Tally tally;
  for (unsigned seed = 0; seed < 600; ++seed) compareWithTwin(seed, {120, 2, 0.0004, 12, seed % 4 == 0}, tally);
  for (unsigned seed = 600; seed < 1200; ++seed) compareWithTwin(seed, {90, 1, 0.001, 6, false}, tally);
  EXPECT_GT(tally.removals, 800u);
  EXPECT_GT(tally.partial, 600u);
  EXPECT_GT(tally.newTagSets, 200u);
}

const std::vector<util::Vec3> kPoints = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 2, 2}, {3, 2, 2}};

TEST(RemoveFacesDouble, rotatedAndReversedCopiesGoAndTheLowestStays) {
  util::Mesh mesh = meshOf(kPoints, {{1, 2, 0}, {3, 2, 1, 0}, {0, 2, 1}, {0, 1, 2, 3}, {1, 0, 3, 2}, {0, 1, 2}});
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 4u);
  EXPECT_EQ(facesOf(mesh), Faces({{1, 2, 0}, {3, 2, 1, 0}}));
  EXPECT_EQ(mesh.storage().mVertices.size(), 4u);
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 0u);
}

TEST(RemoveFacesDouble, nothingDoubleLeavesEvenFacesWithoutCornersAndUnusedVertices) {
  //  same vertices, another cycle
  util::Mesh mesh = meshOf(kPoints, {{0, 1, 2, 3}, {0, 2, 1, 3}, {0, 1, 2}, {4, 5}});
  mesh.storage().mFaces.clear(2);
  const std::string before = describe(plainOf(mesh));
  for (const bool compareAttributes : {false, true}) EXPECT_EQ(util::removeFacesDouble(mesh, compareAttributes), 0u);
  EXPECT_EQ(describe(plainOf(mesh)), before);

  util::Mesh empty("", kPoints, {});
  EXPECT_EQ(util::removeFacesDouble(empty, false), 0u);
  EXPECT_EQ(empty.storage().mVertices.size(), kPoints.size());
}

TEST(RemoveFacesDouble, faceThatVisitsAVertexTwiceRepeatsItself) {
  util::Mesh mesh = meshOf(kPoints, {{0, 1, 2, 1}, {3, 4, 5}});
  EXPECT_EQ(util::removeFacesDouble(mesh, true), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2}}));
}

TEST(RemoveFacesDouble, holesAreNeverComparedAndGoWithTheirOuterFace) {
  //  faces 2 and 3 repeat 0; the hole of 2 goes with it although it repeats nothing, the one of 0 stays
  util::Mesh mesh = meshOf(kPoints, {{0, 1, 2}, {3, 4, 5}, {1, 2, 0}, {2, 1, 0}, {1, 2, 3}, {1, 2, 3}},
                           {0, 1, kEnd, 2, 4, kEnd, 5, 3, kEnd});
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2}, {3, 4, 5}, {2, 1, 0}, {1, 2, 3}}));
  EXPECT_EQ(holesOf(mesh), Indices({0, 1, kEnd, 3, 2, kEnd}));
  expectConsistent(mesh);
}

/// Copies of one triangle, each with its own texture coordinates: copy c has us[c] at every corner.
util::Mesh copiesWithTexCoords(const std::vector<double>& us) {
  std::vector<util::Polygon> faces(us.size());
  for (std::uint32_t f = 0; f < us.size(); ++f) {
    faces[f].mVertexIndices = {f % 3, (f + 1) % 3, (f + 2) % 3};
    faces[f].mTexCoordMask = 1;
    faces[f].mTexCoordCount = 3;
    faces[f].mTexCoordIndices = {f, f, f};
  }
  util::Mesh mesh("", kPoints, faces);
  for (const double u : us) mesh.storage().mTexCoords[0].push_back({u, 0.0});
  return mesh;
}

TEST(RemoveFacesDouble, attributesTellCopiesApartFromTheStatedDistanceOn) {
  // 1 and 2 are close to 0, but 3 only to 2, which is gone by then
  util::Mesh mesh = copiesWithTexCoords({0.0, 0.0005, 0.00099, 0.0015, 0.001, 5.0});
  EXPECT_EQ(util::removeFacesDouble(mesh, true), 3u);  // 4 is double to 3
  EXPECT_EQ(mesh.storage().mFaces.cornerSet(1, 0)[0], 3u);
  EXPECT_EQ(mesh.storage().mFaces.cornerSet(2, 0)[0], 5u);
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 2u);
}

TEST(RemoveFacesDouble, materialsTellCopiesApartUnlessAttributesDontCount) {
  util::Mesh mesh = meshOf(kPoints, {{0, 1, 2}, {1, 2, 0}, {2, 1, 0}});
  mesh.storage().mRunMaterials = {support::materialOf("a"), support::materialOf("b"), support::materialOf("a")};
  mesh.storage().mRunStarts = {0, 1, 2};
  EXPECT_EQ(util::removeFacesDouble(mesh, true), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2}, {1, 2, 0}}));
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 1u);
}

TEST(RemoveFacesDouble, tagWithoutASetCountsAsOneOfTheEmptySet) {
  util::Mesh mesh = meshOf(kPoints, {{0, 1, 2}, {1, 2, 0}, {2, 1, 0}});
  mesh.storage().mTagSets = {{7}};
  for (const auto& [face, tag] : {std::pair(0u, 50), {1u, 0}, {2u, -3}}) mesh.storage().mFaces.setTag(face, tag);
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 2u);
  EXPECT_EQ(mesh.storage().mFaces.tag(0), 0);
  EXPECT_EQ(mesh.storage().mTagSets, TagSets({{7}}));
}

// From here on: input that a comparison of each with each would not finish in a test's time.

TEST(RemoveFacesDouble, manyCopiesOfOneFaceAreQuickWithAndWithoutAttributes) {
  constexpr std::size_t kCopies = 100'000;
  std::vector<double> us(kCopies, 0.5);
  util::Mesh alike = copiesWithTexCoords(us);
  EXPECT_EQ(util::removeFacesDouble(alike, true), kCopies - 1);

  for (std::size_t c = 0; c < kCopies; ++c) us[c] = 0.01 * static_cast<double>(c * 7919 % kCopies);
  us[kCopies / 2] = kNaN;  // close to all others, but gone after the first
  util::Mesh apart = copiesWithTexCoords(us);
  EXPECT_EQ(util::removeFacesDouble(apart, true), 1u);
  EXPECT_EQ(util::removeFacesDouble(apart, false), kCopies - 2);

  util::Mesh beyond = copiesWithTexCoords(us);
  beyond.storage().mTexCoords[0].clear();
  EXPECT_EQ(util::removeFacesDouble(beyond, true), 0u);
  EXPECT_EQ(util::removeFacesDouble(beyond, false), kCopies - 1);
}

TEST(RemoveFacesDouble, manyFacesAroundOneVertexAreQuick) {
  constexpr std::uint32_t kFaces = 100'000;
  std::vector<util::Vec3> points(kFaces + 2, util::Vec3{1, 2, 3});
  Faces fan;
  for (std::uint32_t f = 1; f <= kFaces; ++f) fan.push_back({0, f, f + 1});
  fan.push_back({kFaces, 0, kFaces - 1});
  util::Mesh mesh = meshOf(points, fan);
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 1u);
  EXPECT_EQ(mesh.storage().mFaces.size(), kFaces);
}

TEST(RemoveFacesDouble, faceOfManyCornersThatKeepsComingBackIsQuick) {
  std::vector<util::Polygon> faces(2);
  for (std::uint32_t i = 0; i < 100'000; ++i) {
    faces[0].mVertexIndices.push_back(i % 2 == 0 ? 0 : 1 + i / 4);
    faces[1].mVertexIndices.push_back(i);
  }
  faces[0].mTexCoordMask = 1;
  faces[0].mTexCoordCount = 100'000;
  faces[0].mTexCoordIndices.assign(100'000, 0);  // beyond the coordinates: differs even from itself
  util::Mesh mesh("", std::vector<util::Vec3>(100'000), faces);
  EXPECT_EQ(util::removeFacesDouble(mesh, true), 0u);
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 1u);
  EXPECT_EQ(mesh.storage().mFaces.cornerCount(0), 100'000u);
}

}  // namespace
