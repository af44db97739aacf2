#include <facetbox/operations/RemoveEdgesCoplanar.h>

#include <facetbox/mesh/HoleAssignment.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/operations/FaceRegions.h>
#include <tests/support/PlainCoplanar.h>

namespace {

using namespace support;
using util::removeEdgesCoplanar;

//   12--13--14--15
//   |   |   |   |      Eight squares around an opening become one face with a hole, which runs against it.
//   8---9---10--11
//   |   |   |   |      The corners on straight lines stay: taking them out is another operation.
//   4---5---6---7
//   |   |   |   |
//   0---1---2---3
TEST(RemoveEdgesCoplanar, aFrameBecomesAFaceWithAHole) {
  const Surface frame = gridOf(3, 3, [](unsigned x, unsigned y) { return x == 1 && y == 1; });
  Mesh mesh = meshOf(frame.mPoints, frame.mFaces);
  EXPECT_EQ(removeEdgesCoplanar(mesh, 0, false), 7u);
  EXPECT_EQ(facesOf(mesh), (Faces{{0, 1, 2, 3, 7, 11, 15, 14, 13, 12, 8, 4}, {5, 9, 10, 6}}));
  EXPECT_EQ(holesOf(mesh), (Indices{0, 1, kEnd}));
}

/// A flat patchwork of squares and triangles with all that may go wrong in it: gaps, T-junctions, walls, overlaps,
/// doubles, needles, folds, holes good and bad, corners without a place, mapping that tears. Integer coordinates.
class Patchwork {
 public:
  explicit Patchwork(std::mt19937& random)
      : mRandom(random), mWidth(pick(random, 1, 5)), mHeight(pick(random, 1, 5)), mIsCalm(oneIn(random, 3)) {
    addPoints();
    const int missing = pick(random, 0, mIsCalm ? 2 : 4);
    for (int y = 0; y < mHeight; ++y)
      for (int x = 0; x < mWidth; ++x)
        if (pick(random, 0, 19) >= missing) addCell(x, y);
    if (often(6)) addFrame();
    if (fails(6)) addNeedleOnRepeatedCorner();
    for (int extra = fails(2) ? pick(random, 0, 3) : 0; extra > 0; --extra) addExtra();
    if (often(2)) std::ranges::shuffle(mFaces, random);
    if (fails(8)) mMesh.mVertices[below(random, mGridCount)].z = oneIn(random, 2) ? kNaN : kInfinity;
    for (auto& [corners, hole] : mFaces) addFace(corners, hole);
    addRuns();
    renumberVertices();
    turnInSpace();
  }

  PlainMesh mMesh;

 private:
  using Cell = std::pair<Indices, Indices>;  // a face and its hole, if any

  bool often(int times) { return oneIn(mRandom, times); }
  /// Whether something goes wrong.
  bool fails(int times) { return !mIsCalm && often(times); }

  std::uint32_t addPoint(double x, double y, double z) {
    mMesh.mVertices.push_back({x, y, z});
    return static_cast<std::uint32_t>(mMesh.mVertices.size() - 1);
  }

  void addPoints() {
    const int jitter = often(2) ? 0 : 2, fold = often(3) ? pick(mRandom, 1, 3) : 0;
    for (int y = 0; y <= mHeight; ++y)
      for (int x = 0; x <= mWidth; ++x)
        addPoint(8 * x + 2 * pick(mRandom, 0, jitter), 8 * y + 2 * pick(mRandom, 0, jitter),
                 fold * std::max(0, x - 1) * 2 + (fails(12) ? pick(mRandom, -1, 1) : 0));
    mGridCount = mMesh.mVertices.size();
  }

  void addCell(int x, int y) {
    const auto a = static_cast<std::uint32_t>(y * (mWidth + 1) + x), b = a + 1, d = b + mWidth, c = d + 1;
    const std::vector<Faces> ways{{{a, b, c, d}}, {{a, b, c}, {a, c, d}}, {{a, b, d}, {b, c, d}}, {{c, d, a, b}}};
    for (Indices face : ways[below(mRandom, ways.size())]) {
      if (fails(15)) {
        const Vec3 middle = (mMesh.mVertices[face[0]] + mMesh.mVertices[face[1]]) / 2;
        if (middle.z == std::floor(middle.z)) face.insert(face.begin() + 1, addPoint(middle.x, middle.y, middle.z));
      }
      Indices hole;
      if (face.size() == 4 && often(3)) {
        const Vec3 p = mMesh.mVertices[a];
        const double shift = pick(mRandom, 0, 3);
        for (const auto& [u, v] : {std::pair(0, 0), {0, 2}, {2, 0}})
          hole.push_back(addPoint(p.x + shift + u, p.y + shift + v, p.z));
        if (fails(4)) std::ranges::reverse(hole);
      }
      mFaces.push_back({face, hole});
    }
  }

  /// Two faces around two openings: more hole faces than places.
  void addFrame() {
    Indices p;
    constexpr int kPlaces[] = {0, 0, 20, 0, 20, 4, 14, 4, 12, 2, 10, 4, 6, 4,
                               4, 2, 2,  4, 0,  4, 0,  8, 20, 8, 12, 6, 4, 6};
    for (std::size_t i = 0; i < std::size(kPlaces); i += 2) p.push_back(addPoint(kPlaces[i] - 40, kPlaces[i + 1], 0));
    mFaces.push_back({{p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8], p[9]}, {}});
    mFaces.push_back({{p[9], p[8], p[13], p[6], p[5], p[12], p[3], p[2], p[11], p[10]}, {}});
  }

  /// A corner of a face twice, and between the two a needle that may leave the plane.
  void addNeedleOnRepeatedCorner() {
    if (mFaces.empty()) return;
    Indices& face = mFaces[below(mRandom, mFaces.size())].first;
    const std::uint32_t corner = below(mRandom, face.size());
    const Vec3 p = mMesh.mVertices[face[corner]];
    const std::uint32_t again = addPoint(p.x, p.y, p.z), end = addPoint(p.x + 2, p.y - 5, oneIn(mRandom, 2) ? p.z : 9);
    face.insert(face.begin() + corner + 1, again);
    mFaces.push_back({{again, face[corner], end}, {}});
  }

  void addExtra() {
    const auto any = [&] { return below(mRandom, mMesh.mVertices.size()); };
    Indices face;
    switch (pick(mRandom, 0, 4)) {
      case 0:  // a wall, or something that overlaps
        face = {any(), any(), oneIn(mRandom, 2) ? any() : addPoint(3, 3, 8)};
        break;
      case 1:  // a needle with two corners at a place that has a vertex already
        face = {any(), any()};
        face.push_back(addPoint(mMesh.mVertices[face[1]].x, mMesh.mVertices[face[1]].y, mMesh.mVertices[face[1]].z));
        break;
      default:
        if (mFaces.empty()) return;
        face = mFaces[below(mRandom, mFaces.size())].first;
        if (often(2)) {  // a needle on an edge, or a fin
          const Vec3 a = mMesh.mVertices[face[0]], b = mMesh.mVertices[face[1]];
          face = {face[1], face[0], addPoint(2 * b.x - a.x, 2 * b.y - a.y, 2 * b.z - a.z + (often(3) ? 1 : 0))};
        } else if (often(2)) {
          std::ranges::reverse(face);
        } else {
          face[below(mRandom, face.size())] = any();
        }
    }
    std::rotate(face.begin(), face.begin() + below(mRandom, face.size()), face.end());
    if (std::set(face.begin(), face.end()).size() == face.size()) mFaces.push_back({face, {}});
  }

  void addFace(const Indices& corners, const Indices& hole) {
    const auto number = static_cast<std::uint32_t>(mMesh.mFaces.size());
    PlainFace& face = mMesh.mFaces.emplace_back();
    face.mCorners = corners;
    face.mTag = pick(mRandom, -1, 3);
    face.mPerVertexNormals = fails(25);
    if (!fails(25)) face.mNormalIndices = randomIndices(mRandom, corners.size(), 100);
    for (const int set : {0, 3, 10, 11})
      if (!fails(25)) face.mSets[set] = randomIndices(mRandom, corners.size(), 100);
    for (const int set : {0, 3})
      if (face.mSets.contains(set)) face.mSets[set] = mapping(set, corners);
    if (hole.empty()) return;
    mMesh.mHoles[number].push_back(number + 1);
    addFace(hole, {});
  }

  /// Affine in x and y, but for one corner now and then.
  Indices mapping(int set, const Indices& corners) {
    static constexpr std::array kOff{0.0004, 0.0013, 0.3};
    const std::uint32_t torn = fails(12) ? below(mRandom, corners.size()) : kEnd;
    const double shift = fails(15) ? 0.0016 : 0, stretch = fails(20) ? 0.26 : 0.25;
    Indices indices;
    auto& pairs = mMesh.mTexCoords[set];
    for (std::uint32_t i = 0; i < corners.size(); ++i) {
      const Vec3& p = mMesh.mVertices[corners[i]];
      indices.push_back(fails(400) ? 100000 : static_cast<std::uint32_t>(pairs.size()));
      pairs.push_back({stretch * p.x + (i == torn ? kOff[below(mRandom, 3)] : 0), 0.125 * p.y - 0.25 * p.x + shift});
    }
    return indices;
  }

  void addRuns() {
    if (often(2)) return;
    for (std::uint32_t start = 0; start < mMesh.mFaces.size() + 2; start += pick(mRandom, 1, 8)) {
      mMesh.mRunStarts.push_back(start);
      mMesh.mRunMaterials.push_back(materialOf(often(3) ? "b" : "a"));
    }
  }

  void renumberVertices() {
    Indices order(mMesh.mVertices.size());
    std::iota(order.begin(), order.end(), 0u);
    std::ranges::shuffle(order, mRandom);
    const auto points = mMesh.mVertices;
    for (std::size_t v = 0; v < order.size(); ++v) mMesh.mVertices[order[v]] = points[v];
    for (PlainFace& face : mMesh.mFaces)
      for (std::uint32_t& v : face.mCorners) v = order[v];
  }

  void turnInSpace() {
    const int shearX = often(2) ? pick(mRandom, -3, 3) : 0, shearY = often(2) ? pick(mRandom, -3, 3) : 0;
    const int turns = pick(mRandom, 0, 2);
    const bool isMirrored = often(2);
    for (Vec3& p : mMesh.mVertices) {
      p.z += shearX * p.x + shearY * p.y;
      for (int turn = 0; turn < turns; ++turn) p = {p.y, p.z, p.x};
      if (isMirrored) p = {p.y, p.x, p.z};
    }
  }

  std::mt19937& mRandom;
  int mWidth, mHeight;
  bool mIsCalm;
  std::size_t mGridCount = 0;
  std::vector<Cell> mFaces;
};

std::size_t holesIn(const PlainMesh& mesh) {
  std::size_t count = 0;
  for (const auto& [outer, holes] : mesh.mHoles) count += holes.size();
  return count;
}

TEST(RemoveEdgesCoplanar, mergesPatchworkLikeThePlainModel) {
  int changed = 0, withNewHoles = 0, partly = 0;
  for (unsigned seed = 0; seed < 6000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const Patchwork patchwork(random);
    // In the smaller one, points up to two units apart are too close for a hole's corner to the outline.
    const double unit = oneIn(random, 4) ? 0x1p-11 : 1.0;
    constexpr std::array kTolerances{0.0, 0.0, 0.0, 7.3, 31.7, 95.0, -1.0};
    const double tolerance = oneIn(random, 300) ? kNaN : kTolerances[below(random, kTolerances.size())];
    const bool compareAttributes = oneIn(random, 2);

    Mesh mesh = buildMesh(patchwork.mMesh);
    util::recomputeFaceNormals(mesh);
    PlainMesh twin = plainOf(mesh);
    for (Vec3& p : mesh.storage().mVertices) p = unit * p;
    const std::uint64_t expected = support::removeEdgesCoplanar(twin, tolerance, compareAttributes, unit);
    for (Vec3& p : twin.mVertices) p = unit * p;
    EXPECT_EQ(removeEdgesCoplanar(mesh, tolerance, compareAttributes), expected);
    if (expected != 0) util::clearConnectivityCache(mesh);
    expectSame(mesh, twin);
    if (testing::Test::HasFailure()) return;
    changed += expected != 0;
    withNewHoles += holesIn(twin) > holesIn(patchwork.mMesh);
    partly += expected != 0 && twin.mFaces.size() > 1;
  }
  EXPECT_GT(changed, 2000);
  EXPECT_GT(withNewHoles, 20);
  EXPECT_GT(partly, 1500);
}

/// Gentle hills of triangles and squares, with openings: what has been merged may agree with what lies beside it.
Mesh hills(std::mt19937& random) {
  const unsigned size = below(random, 12) + 3;
  const int steep = pick(random, 1, 6), gaps = pick(random, 5, 60);
  Surface grid = gridOf(size, size, [&](unsigned, unsigned) { return oneIn(random, gaps); });
  for (Vec3& p : grid.mPoints) p.z = 0.01 * pick(random, 0, steep);
  Faces faces;
  for (const Indices& f : grid.mFaces)
    for (const Indices& part : oneIn(random, 2) ? Faces{f} : Faces{{f[0], f[1], f[2]}, {f[2], f[3], f[0]}})
      faces.push_back(part);
  std::ranges::shuffle(faces, random);
  return meshOf(grid.mPoints, faces);
}

/// Runs without faces, and several of one material in a row, say nothing.
void tidyRuns(util::MeshStorage& m) {
  std::vector<util::MaterialPair> materials;
  util::SmallIndexList starts;
  for (std::uint32_t face = 0; face < m.mFaces.size() && !m.mRunStarts.empty(); ++face) {
    const util::MaterialPair& material = m.mRunMaterials[m.runOf(face)];
    if (!materials.empty() && materials.back() == material) continue;
    materials.push_back(material);
    starts.push_back(face);
  }
  m.mRunMaterials = materials;
  m.mRunStarts = starts;
}

TEST(RemoveEdgesCoplanar, goingOnIsAsGoodAsStartingAnew) {
  int passes[4]{}, withHoles = 0;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Mesh mesh = seed % 2 == 0 ? hills(random) : buildMesh(Patchwork(random).mMesh);
    util::recomputeFaceNormals(mesh);
    Mesh twin = mesh;
    const double tolerance = std::array{0.2, 0.5, 1.0, 3.0, 7.3, 20.0}[below(random, 6)];
    const bool compareAttributes = oneIn(random, 2);
    util::MeshHistory history(mesh.storage().mVertices.size(), mesh.storage().mFaces.size()), twinHistory = history;
    mesh.storage().mHistory.set(&history);
    twin.storage().mHistory.set(&twinHistory);

    std::uint64_t expected = 0;
    int pass = 0;
    for (std::uint64_t count = 1; count != 0; ++pass)
      expected += count = util::removeEdgesCoplanarKeepingFlat(twin, tolerance, compareAttributes, false);
    EXPECT_EQ(util::removeEdgesCoplanarKeepingFlat(mesh, tolerance, compareAttributes, true), expected);
    tidyRuns(mesh.storage());
    tidyRuns(twin.storage());
    expectSame(mesh, plainOf(twin));
    EXPECT_TRUE(std::ranges::equal(history.faces.map(), twinHistory.faces.map()));
    EXPECT_TRUE(std::ranges::equal(history.vertices.map(), twinHistory.vertices.map()));
    if (testing::Test::HasFailure()) return;
    ++passes[std::min(pass, 4) - 1];
    withHoles += !mesh.storage().mHoles.empty();
  }
  EXPECT_GT(passes[2], 300);
  EXPECT_GT(passes[3], 100);
  EXPECT_GT(withHoles, 300);
}

TEST(RemoveEdgesCoplanar, theAngleHasSlackForRoundingOnly) {
  for (const auto& [beyond, faces] : {std::pair(5e-7, 1u), {3e-6, 2u}}) {
    const double angle = (10.0 + beyond) / 57.29577951308232;
    Mesh mesh = meshOf({{0, 0, 0},
                        {0, 1, 0},
                        {-1, 1, 0},
                        {-1, 0, 0},
                        {std::cos(angle), 0, std::sin(angle)},
                        {std::cos(angle), 1, std::sin(angle)}},
                       {{0, 1, 2, 3}, {1, 0, 4, 5}});
    removeEdgesCoplanar(mesh, 10.0, false);
    EXPECT_EQ(mesh.storage().mFaces.size(), faces);
  }
}

TEST(RemoveEdgesCoplanar, aFaceOfManyCornersJoinsAfterItHasBeenRefusedOften) {
  // A round face amid spikes, which are larger and so come first. All carry on its mapping along the common edge, but
  // those up to the last are off at their tips.
  constexpr std::uint32_t kSides = 100;
  PlainMesh plain;
  plain.mDefaultMaterial = materialOf("a");
  for (std::uint32_t i = 0; i < 2 * kSides; ++i) {
    const double angle = 2 * 3.14159265358979 * (i % kSides + (i < kSides ? 0.0 : 0.5)) / kSides;
    const double radius = i < kSides ? 1.0 : i + 1 < 2 * kSides ? 200.0 : 150.0;
    plain.mVertices.push_back({radius * std::cos(angle), radius * std::sin(angle), 0});
    plain.mTexCoords[0].push_back({radius * std::cos(angle) / 8, i < kSides || i + 1 == 2 * kSides ? 0.0 : 9.0});
  }
  plain.mFaces.resize(kSides + 1);
  for (std::uint32_t i = 0; i < kSides; ++i) {
    plain.mFaces[0].mCorners.push_back(i);
    plain.mFaces[i + 1].mCorners = {(i + 1) % kSides, i, kSides + i};
  }
  for (PlainFace& face : plain.mFaces) face.mSets[0] = face.mCorners;
  Mesh mesh = buildMesh(plain);
  util::recomputeFaceNormals(mesh);
  EXPECT_EQ(removeEdgesCoplanar(mesh, 0.1, true), 1u);
  EXPECT_EQ(mesh.storage().mFaces.cornerCount(0), kSides + 1);
}

/// A floor of 20 by 20 squares cut in two, all vertices turned and moved by `place`.
struct Floor {
  Surface mSurface = gridOf(20, 20, [](auto...) { return false; });
  Faces mFaces;

  Floor() {
    for (const Indices& s : mSurface.mFaces) mFaces.insert(mFaces.end(), {{s[0], s[1], s[2]}, {s[0], s[2], s[3]}});
  }
  std::uint32_t add(Vec3 point) {
    mSurface.mPoints.push_back(point);
    return static_cast<std::uint32_t>(mSurface.mPoints.size() - 1);
  }
  /// Number of faces after merging.
  std::size_t facesLeft() const {
    Mesh mesh = meshOf(mSurface.mPoints, mFaces);
    removeEdgesCoplanar(mesh, 0.01, true);
    expectConsistent(mesh);
    EXPECT_EQ(util::assignHoles(mesh).mClearedHoles, 0u);
    return mesh.storage().mFaces.size();
  }
};

TEST(RemoveEdgesCoplanar, aFlawCostsWhatIsAtTheFlaw) {
  constexpr std::size_t kFew = 12;
  Floor nowhere;
  nowhere.mFaces.push_back({1, 0, nowhere.add({0, kNaN, 0})});
  EXPECT_EQ(nowhere.facesLeft(), 2u);

  // A T-junction whose middle vertex lies on either side of the edge by as much as rounding gives.
  std::mt19937 random(1);
  for (int turn = 0; turn < 200; ++turn) {
    Floor floor;
    const Indices cut = floor.mFaces[420];
    const std::uint32_t middle = floor.add((floor.mSurface.mPoints[cut[0]] + floor.mSurface.mPoints[cut[1]]) / 2);
    floor.mFaces[420] = {cut[0], middle, cut[1], cut[2]};
    Vec3 x{1.0 * pick(random, -9, 9), 1.0 * pick(random, -9, 9), 9.5}, y{1.0 * pick(random, 1, 9), 0.3, 0.7};
    x = x / util::length(x);
    y = y - util::dot(x, y) * x;
    y = y / util::length(y);
    for (Vec3& p : floor.mSurface.mPoints) p = Vec3{100, 200, 300} + p.x * x + p.y * y;
    EXPECT_LE(floor.facesLeft(), kFew) << turn;
  }
}

}  // namespace
