#include <facetbox/operations/RemoveFacesDouble.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;

/// The slow twin: every pair of entries of every vertex's list, one after the other.
class SlowRemoval {
 public:
  explicit SlowRemoval(PlainMesh& mesh) : mMesh(mesh) {}

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
    compactPrimitives(mMesh);
    removeUnusedVertices(mMesh);
    return count;
  }

 private:
  bool areDouble(std::uint32_t faceA, std::uint32_t faceB, bool compareAttributes) const {
    const Indices &a = mMesh.mFaces[faceA].mCorners, &b = mMesh.mFaces[faceB].mCorners;
    const std::size_t n = a.size();
    if (n == 0 || b.size() != n || std::ranges::count(a, b[0]) == 0) return false;
    const std::size_t p = std::ranges::find(a, b[0]) - a.begin();
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
      const std::vector<Vec2>& pairs = mMesh.mTexCoords.at(set);
      if (!setsOfB.contains(set) || indices[i] >= pairs.size() || setsOfB.at(set)[j] >= pairs.size()) return false;
      const Vec2 a = pairs[indices[i]], b = pairs[setsOfB.at(set)[j]];
      if (std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y)) >= 0.001) return false;
    }
    return true;
  }

  /// The union of both sets, found among the known ones or added; a number without a set stands for the empty one.
  std::int32_t mergedTag(std::int32_t a, std::int32_t b) {
    if (a == b || b == -1) return a;
    if (a == -1) return b;
    auto& sets = mMesh.mTagSets;
    const auto setOf = [&](std::int32_t tag) {
      return tag >= 0 && tag < std::ssize(sets) ? sets[tag] : std::set<std::uint32_t>();
    };
    auto both = setOf(a);
    both.merge(setOf(b));
    const auto known = std::ranges::find(sets, both);
    const auto number = static_cast<std::int32_t>(known - sets.begin());
    if (known == sets.end()) sets.push_back(both);
    return number;
  }

  PlainMesh& mMesh;
};

/// What a random mesh is like.
struct Likeness {
  std::size_t mostFaces, mostOriginals;
  double step;           ///< between neighboring texture coordinates
  int mostPairs;         ///< per coordinate, of which the odd one is not finite or missing
  bool withSeveralSets;  ///< faces that carry different sets
};

/// Turned copies of a few faces.
PlainMesh randomMesh(std::mt19937& random, const Likeness& like) {
  PlainMesh mesh;
  for (int v = pick(random, 3, 9); v > 0; --v) mesh.mVertices.push_back({1.0 * v, 1.0 * pick(random, 0, 2), 0});
  const int pairs = pick(random, 2, like.mostPairs);
  const auto coordinate = [&] {
    return oneIn(random, 60) ? kNaN : oneIn(random, 60) ? kInfinity : like.step * pick(random, 0, pairs);
  };
  for (const int set : {0, 3})
    for (int p = 0; p < pairs; ++p) mesh.mTexCoords[set].push_back({coordinate(), coordinate()});
  for (int t = pick(random, 1, 5); t > 0; --t) {
    const Indices tags = randomIndices(random, below(random, 3), 4);
    mesh.mTagSets.emplace_back(tags.begin(), tags.end());
  }
  const bool tagged = oneIn(random, 2), mayRepeatVertices = oneIn(random, 2);
  const auto texCoordIndices = [&](std::size_t n) {
    Indices indices = randomIndices(random, n, pairs);
    if (n > 0 && oneIn(random, 20)) indices[0] = 1000;
    return indices;
  };
  std::vector<PlainFace> originals(1 + below(random, like.mostOriginals));
  for (PlainFace& face : originals) {
    const std::size_t n = pick(random, oneIn(random, 10) ? 1 : 3, 7);
    face.mCorners = randomIndices(random, n, 3);
    if (!mayRepeatVertices) {
      face.mCorners.resize(mesh.mVertices.size());
      std::iota(face.mCorners.begin(), face.mCorners.end(), 0u);
      std::ranges::shuffle(face.mCorners, random);
      face.mCorners.resize(std::min(n, face.mCorners.size()));
    }
    face.mSets[0] = texCoordIndices(face.mCorners.size());
    if (like.withSeveralSets && oneIn(random, 2)) face.mSets[3] = texCoordIndices(face.mCorners.size());
  }
  for (std::size_t f = 1 + below(random, like.mostFaces); f > 0; --f) {
    PlainFace& face = mesh.mFaces.emplace_back(originals[below(random, originals.size())]);
    for (auto& [set, indices] : face.mSets)
      if (oneIn(random, 2)) indices = texCoordIndices(indices.size());
    if (like.withSeveralSets && oneIn(random, 5)) face.mSets.erase(0);
    const std::uint32_t first = below(random, face.mCorners.size());
    const bool backward = oneIn(random, 2);
    const auto turn = [&](Indices& indices) {
      std::rotate(indices.begin(), indices.begin() + first, indices.end());
      if (backward) std::ranges::reverse(indices);
    };
    turn(face.mCorners);
    for (auto& [set, indices] : face.mSets) turn(indices);
    if (oneIn(random, 10)) std::swap(face.mCorners.front(), face.mCorners.back());
    if (tagged) face.mTag = oneIn(random, 50) ? 50 : pick(random, -1, static_cast<int>(mesh.mTagSets.size()) - 1);
  }

  for (int group = pick(random, 0, 2); group > 0; --group) {
    const std::uint32_t outer = below(random, mesh.mFaces.size());
    for (const std::uint32_t hole : randomIndices(random, below(random, 3), mesh.mFaces.size()))
      if (hole != outer && !std::ranges::count(mesh.mHoles[outer], hole)) mesh.mHoles[outer].push_back(hole);
  }
  for (int run = pick(random, 0, 2); run > 0; --run) {
    mesh.mRunMaterials.push_back(materialOf(oneIn(random, 3) ? "a" : "b"));
    mesh.mRunStarts.push_back(below(random, mesh.mFaces.size() + 1));
  }
  return mesh;
}

//   2---3
//   | \ |     The lower triangle is there three times: begun elsewhere the second time, backwards the third.
//   0---1
TEST(RemoveFacesDouble, theLowestOfTheFacesWithTheSameCornersStays) {
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}, {{0, 1, 2}, {1, 3, 2}, {1, 2, 0}, {2, 1, 0}});
  EXPECT_EQ(util::removeFacesDouble(mesh, false), 2u);
  EXPECT_EQ(facesOf(mesh), (Faces{{0, 1, 2}, {1, 3, 2}}));
}

TEST(RemoveFacesDouble, equalsItsSlowTwinOnRandomMeshesSmallAndWithManyCopies) {
  unsigned removals = 0, partial = 0, newTagSets = 0, lostHoles = 0;
  for (unsigned seed = 0; seed < 7000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const Likeness like = seed < 6000   ? Likeness{12, 3, 0.0005, 4, seed % 2 == 0}
                          : seed < 6500 ? Likeness{120, 2, 0.0004, 12, seed % 4 == 0}
                                        : Likeness{90, 1, 0.001, 6, false};
    PlainMesh twin = randomMesh(random, like);
    Mesh mesh = buildMesh(twin);
    const bool compareAttributes = !oneIn(random, 3);
    const std::size_t faceCount = twin.mFaces.size(), tagSetCount = twin.mTagSets.size();

    const std::uint64_t expected = SlowRemoval(twin).run(compareAttributes);
    EXPECT_EQ(util::removeFacesDouble(mesh, compareAttributes), expected);
    expectSame(mesh, twin);
    removals += expected != 0;
    partial += expected != 0 && twin.mFaces.size() > 1;
    newTagSets += twin.mTagSets.size() > tagSetCount;
    lostHoles += faceCount - twin.mFaces.size() > expected;
  }
  EXPECT_GT(removals, 3500u);
  EXPECT_GT(partial, 2500u);
  EXPECT_GT(newTagSets, 500u);
  EXPECT_GT(lostHoles, 500u);
}

void expectLikeTwin(PlainMesh& twin, bool compareAttributes) {
  Mesh mesh = buildMesh(twin);
  const std::uint64_t expected = SlowRemoval(twin).run(compareAttributes);
  EXPECT_EQ(util::removeFacesDouble(mesh, compareAttributes), expected);
  expectSame(mesh, twin);
}

TEST(RemoveFacesDouble, tellsManyCopiesApartToTheLastUnitOfTheTolerance) {
  std::size_t kept = 0;
  for (unsigned seed = 0; seed < 250; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh mesh;
    const int corners = pick(random, 1, 7), copies = pick(random, 17, 150), steps = pick(random, 2, 40);
    for (int v = 0; v < corners; ++v) mesh.mVertices.push_back({1.0 * v, 1.0 * v * v, 0});
    const double base = std::array{0.0, 0.5, 1000.0, -0.02}[below(random, 4)];
    const int bad = oneIn(random, 3) ? 40 : 1000000, lacking = oneIn(random, 3) ? 5 : 1000000;
    const auto coordinate = [&](bool varies) {
      if (oneIn(random, bad)) return oneIn(random, 2) ? kNaN : kInfinity;
      double at = base + (varies ? 0.001 * pick(random, 0, steps) : 0);
      for (int ulps = pick(random, -2, 2); ulps != 0; ulps -= ulps > 0 ? 1 : -1)
        at = std::nextafter(at, ulps * kInfinity);
      return at;
    };
    const int varying = pick(random, 1, corners);  // at how many of its corners a copy differs from most others
    const bool twiceVisiting = oneIn(random, 4);
    for (int copy = 0; copy < copies; ++copy) {
      PlainFace& face = mesh.mFaces.emplace_back();
      face.mCorners.resize(corners);
      std::iota(face.mCorners.begin(), face.mCorners.end(), 0u);
      if (twiceVisiting) face.mCorners.insert(face.mCorners.end(), {1u % corners, 0u, 2u % corners, 1u % corners});
      // The same edges in another order.
      if (twiceVisiting && oneIn(random, 3))
        std::reverse(face.mCorners.begin() + 1, face.mCorners.begin() + corners + 1);
      const std::size_t n = face.mCorners.size();
      for (const int set : {0, 2}) {
        if (set == 2 && seed % 2 == 0) continue;
        const std::uint32_t odd = below(random, corners);
        for (std::size_t i = 0; i < n; ++i) {
          face.mSets[set].push_back(mesh.mTexCoords[set].size() + (oneIn(random, bad) ? 100000 : 0));
          const bool varies = (i + n - odd) % n < static_cast<std::size_t>(varying);
          mesh.mTexCoords[set].push_back({coordinate(varies), coordinate(varies && oneIn(random, 2))});
        }
        if (oneIn(random, lacking)) face.mSets.erase(set);
      }
      const std::uint32_t turn = below(random, n);
      const bool isReversed = oneIn(random, 2);
      const auto turned = [&](Indices& indices) {
        std::rotate(indices.begin(), indices.begin() + turn, indices.end());
        if (isReversed) std::ranges::reverse(indices);
      };
      turned(face.mCorners);
      for (auto& [set, indices] : face.mSets) turned(indices);
    }
    expectLikeTwin(mesh, true);
    kept += mesh.mFaces.size();
    if (HasFailure()) return;
  }
  EXPECT_GT(kept, 2000u);
}

}  // namespace
