#include <facetbox/mesh/Validate.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;
using util::MeshStorage;

TEST(Validate, namesWhatIsBroken) {
  const auto problemAfter = [](auto breakIt) {
    std::vector<Vec3> points(8);
    Mesh mesh = meshOf(points, {{0, 1, 2}, {3, 4, 5}, {5, 6, 7}}, {0, 1, kEnd});
    mesh.storage().mVertexIndexLists.resize(8);
    EXPECT_EQ(util::findMeshProblem(mesh), "");
    breakIt(mesh.storage());
    return util::findMeshProblem(mesh);
  };
  const auto holes = [&](Indices list) {
    return problemAfter([&](MeshStorage& m) { m.mHoles.append(list.data(), list.size()); });
  };
  EXPECT_EQ(problemAfter([](MeshStorage& m) { m.mFaces.clear(1); }), "record 1 is cleared");
  EXPECT_EQ(problemAfter([](MeshStorage& m) { m.mVertices.pop_back(); }), "record 2 refers to vertex 7");
  EXPECT_EQ(problemAfter([](MeshStorage& m) {
              m.mFaces.append({{0, 1, 2}, {0, 0, 9}, 0, 0, {}, {}, 1});
            }),
            "record 3 refers to normal 0");
  EXPECT_EQ(problemAfter([](MeshStorage& m) {
              util::Buffer<std::uint32_t> scratch;
              m.mFaces.setCorners(0, Indices{0, 1, 2, 3}, 4, scratch);  // there is room for three
            }),
            "records overlap in the pool");
  EXPECT_EQ(problemAfter([](MeshStorage& m) { m.mRunStarts = {0}; }), "run starts not parallel to run materials");
  EXPECT_EQ(problemAfter([](MeshStorage& m) { m.mVertexIndexLists.pop_back(); }),
            "vertex index lists not parallel to the vertices");
  EXPECT_EQ(problemAfter([](MeshStorage& m) { m.mFaces.corners(1)[0] = 6; }), "outdated connectivity");
  EXPECT_EQ(holes({1, kEnd}), "");
  EXPECT_EQ(holes({kEnd}), "bare terminator in the hole list");
  EXPECT_EQ(holes({1, 3, kEnd}), "hole list refers to face 3");
  EXPECT_EQ(holes({1, 1, kEnd}), "face 1 is its own hole");
  EXPECT_EQ(holes({1, 2}), "unterminated hole group");
}

TEST(Validate, endsTheProcessOnlyWhereBuiltTo) {
  Mesh mesh = meshOf(std::vector<Vec3>(3), {{0, 1, 2}});
  util::assertValid(mesh, "nothing");
  mesh.storage().mFaces.clear(0);
#ifdef FACETBOX_VALIDATE
  EXPECT_DEATH(util::assertValid(mesh, "a step"), "broken mesh after a step: record 0 is cleared");
#else
  util::assertValid(mesh, "a step");
#endif
}

}  // namespace
