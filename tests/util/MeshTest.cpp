#include <facetbox/util/Mesh.h>

#include <cstring>

#include <gmock/gmock.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;
using testing::ThrowsMessage;

/// The mesh that the array constructor makes of vertices 0, 1, 2 ... at (v, v², v³) and the given faces.
Mesh constructed(int vertexCount, const Indices& indices, const std::vector<std::int32_t>& counts, const Indices& holes,
                 const Indices& starts, std::string* log) {
  std::vector<float> coords;
  for (int v = 0; v < vertexCount; ++v)
    for (const int c : {v, v * v, v * v * v}) coords.push_back(static_cast<float>(c));
  // One more index per corner, to be told apart from the vertex.
  Indices texCoordIndices;
  for (const std::uint32_t v : indices) texCoordIndices.push_back(v + 100);
  const float pair[2] = {};
  return Mesh("mesh", 3 * vertexCount, coords.data(), indices.data(), 2, pair, texCoordIndices.data(),
              static_cast<int>(counts.size()), counts.data(), holes.data(), static_cast<int>(holes.size()),
              std::vector<util::MaterialPair>(starts.size()), starts, log);
}

TEST(Mesh, virtualSlotsAreDestructorCloneDerive) {
  // Itanium ABI: a pointer to a virtual member holds 1 plus the byte offset of its slot; a destructor takes two slots.
  const auto slotOf = [](auto member) {
    std::ptrdiff_t parts[2];
    static_assert(sizeof(member) == sizeof(parts));
    std::memcpy(parts, &member, sizeof(parts));
    return (parts[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
  };
  EXPECT_EQ(slotOf(&Mesh::clone), 2);
  EXPECT_EQ(slotOf(&Mesh::derive), 3);
}

TEST(Mesh, illegalFaceIsSkippedAndReported) {
  std::string log = "old";
  constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
  EXPECT_EQ(facesOf(constructed(3, {0, 1, 2, 2, 1, 0}, {3, kLowest, kLowest, 3}, {}, {}, &log)),
            Faces({{0, 1, 2}, {0, 1, 2}}));  // no overflow
  EXPECT_EQ(log, "Constructing Mesh from array : 2 illegal faces (<3 vertices) were ignored.");
  log = "old";
  EXPECT_EQ(constructed(9, {0, 1, 2}, {3}, {}, {}, &log).storage().mVertices.size(), 9u);
  EXPECT_EQ(log, "old");
}

TEST(Mesh, droppedFacesTakeIndicesRunsAndHolesAlongLikeTheSlowTwin) {
  for (unsigned seed = 0; seed < 2000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<std::int32_t> counts(below(random, 8));
    std::size_t length = 0;
    for (std::int32_t& count : counts) length += std::max(count = pick(random, seed % 3 == 0 ? 3 : -3, 5), 0);
    const Indices indices = randomIndices(random, length, 10);
    const Indices starts = randomIndices(random, below(random, 6), counts.size() + 3);
    Indices holes = randomIndices(random, below(random, 10), counts.size() + 3);
    for (std::uint32_t& face : holes)
      if (oneIn(random, 4)) face = kEnd;

    Faces faces;
    std::vector<bool> kept;
    std::ptrdiff_t p = 0;
    for (const std::int32_t c : counts) {
      kept.push_back(c >= 3);
      if (c >= 3) faces.emplace_back(indices.begin() + p, indices.begin() + p + c);
      p = std::max<std::ptrdiff_t>(p + c, 0);
    }
    Indices expectedStarts;
    for (const std::uint32_t s : starts)
      expectedStarts.push_back(
          s < kept.size() ? static_cast<std::uint32_t>(std::count(kept.begin(), kept.begin() + s, true)) : s);
    std::set<std::uint32_t> used;
    for (const Indices& face : faces) used.insert(face.begin(), face.end());

    std::string log;
    const Mesh mesh = constructed(10, indices, counts, holes, starts, &log);
    const util::MeshStorage& m = mesh.storage();
    ASSERT_EQ(m.mFaces.size(), faces.size());
    for (std::size_t face = 0; face < faces.size(); ++face) {
      const auto corners = m.mFaces.corners(face);
      ASSERT_EQ(corners.size(), faces[face].size());
      for (std::size_t i = 0; i < corners.size(); ++i) {
        EXPECT_EQ(m.mVertices[corners[i]].x, faces[face][i]);
        EXPECT_EQ(m.mFaces.cornerSet(face, 0)[i], faces[face][i] + 100);
      }
    }
    EXPECT_EQ(Indices(m.mRunStarts.begin(), m.mRunStarts.end()), expectedStarts);
    EXPECT_EQ(holesOf(mesh), renumberedHoles(holes, kept));
    const bool allKept = faces.size() == counts.size();
    EXPECT_EQ(log.empty(), allKept);
    EXPECT_EQ(m.mVertices.size(), allKept ? 10 : used.size());
  }
}

TEST(Mesh, nullArraysAndIndicesOutOfRangeAreRefused) {
  const float coords[] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  const std::uint32_t indices[] = {9, 9, 0, 1, 2, 0, 1, 3};
  const std::int32_t counts[] = {3, 3}, withIllegal[] = {2, 3, 3};
  const auto build = [&](const float* c, const std::uint32_t* i, int faceCount, const std::int32_t* n) {
    return [=] { Mesh("", 9, c, i, faceCount, n, nullptr, 0, nullptr); };
  };
  EXPECT_THROW(build(nullptr, indices, 0, nullptr)(), std::invalid_argument);
  EXPECT_THROW(build(coords, nullptr, 1, counts)(), std::invalid_argument);
  EXPECT_THROW(build(coords, indices, 1, nullptr)(), std::invalid_argument);
  EXPECT_THAT(build(coords, indices + 2, 2, counts),
              ThrowsMessage<std::out_of_range>("face 1 refers to vertex 3, but the mesh has 3 vertices"));
  // The caller's number of the face, and indices of illegal faces do not matter.
  EXPECT_THAT(build(coords, indices, 3, withIllegal),
              ThrowsMessage<std::out_of_range>("face 2 refers to vertex 3, but the mesh has 3 vertices"));
  EXPECT_THROW(Mesh("", 9, coords, indices, 2, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr, nullptr),
               std::invalid_argument);
  EXPECT_THROW(Mesh("", 9, coords, indices + 2, 0, nullptr, nullptr, 1, counts, nullptr, 0, nullptr, indices, nullptr),
               std::invalid_argument);
  util::Polygon face;
  face.mVertexIndices = {0, 1, 0};
  EXPECT_THROW(Mesh("", std::vector<Vec3>(1), std::vector<util::Polygon>{face}), std::out_of_range);
}

TEST(Mesh, cloneTakesMaterialsAndHolesOnlyWhenAskedTo) {
  std::mt19937 random(3);
  PlainMesh plain = randomFaceMesh(random, 1.0);
  plain.mDefaultMaterial = materialOf("default");
  plain.mRunMaterials = {materialOf("run")};
  plain.mRunStarts = {0};
  plain.mHoles = {{0, {1}}};
  const Mesh mesh = buildMesh(plain);
  EXPECT_EQ(describe(plainOf(*std::unique_ptr<Mesh>(mesh.clone(true)))), describe(plain));
  plain.mDefaultMaterial = {};
  plain.mRunMaterials.clear();
  plain.mRunStarts.clear();
  plain.mHoles.clear();
  EXPECT_EQ(describe(plainOf(*std::unique_ptr<Mesh>(mesh.clone(false)))), describe(plain));
}

TEST(Mesh, deriveTransformsRecomputesNormalsAndReversesMirroredFacesOnRequest) {
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, {{0, 1, 2, 3}}, {0, kEnd});
  mesh.storage().mRunMaterials = {materialOf("run")};
  mesh.storage().mRunStarts = {0};
  mesh.storage().mFaces.setNormal(0, {7, 7, 7});
  const auto derived = [&](const double* matrix, bool reverse) {
    const std::unique_ptr<Mesh> result(mesh.derive(matrix, reverse));
    EXPECT_TRUE(result->storage().mHoles.empty());
    EXPECT_EQ(result->storage().mRunMaterials, mesh.storage().mRunMaterials);
    return Mesh(*result);
  };
  // Columns: x to 2y, y to -x, z to z, then moved by (10, 20, 30). It does not mirror; with z to -z it does.
  double matrix[16] = {0, 2, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
  EXPECT_EQ(derived(matrix, true).storage().mVertices[2], (Vec3{9, 22, 30}));
  EXPECT_EQ(facesOf(derived(matrix, true)), facesOf(mesh));
  matrix[10] = -1;
  EXPECT_EQ(derived(matrix, false).storage().mFaces.normal(0), (Vec3{0, 0, 1}));
  EXPECT_EQ(facesOf(derived(matrix, true)), Faces({{1, 0, 3, 2}}));
  EXPECT_EQ(derived(matrix, true).storage().mFaces.normal(0), (Vec3{0, 0, -1}));
}

TEST(Mesh, cacheStampsStayWithTheObjectThatTheyWereGivenTo) {
  Mesh mesh = meshOf(std::vector<Vec3>(3), {{0, 1, 2}});
  EXPECT_EQ(mesh.storage().mStamps.stampOr(2, 7), 7u);
  EXPECT_EQ(mesh.storage().mStamps.stampOr(2, 8), 7u);
  EXPECT_EQ(mesh.storage().mStamps.stampOr(3, 9), 9u);
  EXPECT_EQ(std::unique_ptr<Mesh>(mesh.clone(true))->storage().mStamps.stampOr(2, 10), 10u);

  // Other content under the old stamp would be taken for what the cache holds.
  mesh = Mesh(mesh);
  EXPECT_EQ(mesh.storage().mStamps.stampOr(2, 11), 11u);
}

}  // namespace
