#include <facetbox/util/operations/ConformNormals.h>

#include <algorithm>
#include <array>
#include <deque>
#include <limits>
#include <map>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/MeshStorage.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include <tests/support/PlainMesh.h>

namespace {

using support::describe;
using support::expectConsistent;
using support::Faces;
using support::facesOf;
using support::Indices;
using support::kEnd;
using support::meshOf;
using support::pick;
using support::PlainFace;
using support::PlainMesh;
using support::plainOf;
using util::Vec3;
using Matrix = std::array<double, 16>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// Reversal with a shift: entry n - j goes to place (j + shift) mod n, for j = 1 to n.
Indices reversed(const Indices& old, std::size_t shift) {
  Indices turned(old.size());
  for (std::size_t j = 1; j <= old.size(); ++j) turned[(j + shift) % old.size()] = old[old.size() - j];
  return turned;
}

void flip(PlainFace& face) {
  face.mCorners = reversed(face.mCorners, 1);
  face.mNormal = -face.mNormal;
  for (auto& [set, indices] : face.mSets) indices = reversed(indices, set == 10 ? 0 : 1);
}

/// The point below a set of points; a NaN coordinate does not count.
Vec3 pointBelow(const std::vector<Vec3>& points) {
  Vec3 low{kInfinity, kInfinity, kInfinity}, high{-kInfinity, -kInfinity, -kInfinity};
  for (const Vec3& p : points) {
    low = {std::fmin(low.x, p.x), std::fmin(low.y, p.y), std::fmin(low.z, p.z)};
    high = {std::fmax(high.x, p.x), std::fmax(high.y, p.y), std::fmax(high.z, p.z)};
  }
  return {(low.x + high.x) * 0.5, low.y - 1.0, (low.z + high.z) * 0.5};
}

/// The slow twin, with maps and a queue.
void conformSlowly(PlainMesh& mesh, const Matrix& m) {
  const std::size_t faceCount = mesh.mFaces.size();
  std::map<std::pair<std::uint32_t, std::uint32_t>, Indices> users;
  const auto cornerAfter = [&](std::uint32_t face, std::size_t i) {
    const Indices& corners = mesh.mFaces[face].mCorners;
    return corners[(i + 1) % corners.size()];
  };
  for (std::uint32_t f = 0; f < faceCount; ++f) {
    mesh.mFaces[f].mNormalIndices.clear();
    for (std::size_t i = 0; i < mesh.mFaces[f].mCorners.size(); ++i)
      users[std::minmax({mesh.mFaces[f].mCorners[i], cornerAfter(f, i)})].push_back(f);
  }
  std::vector<Vec3> points;
  for (const Vec3& p : mesh.mVertices)
    points.push_back({m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12], m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13],
                      m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14]});
  std::map<std::uint32_t, std::uint32_t> outerOf;
  for (const auto& [outer, holes] : mesh.mHoles)
    for (const std::uint32_t hole : holes) outerOf.try_emplace(hole, outer);

  std::vector<unsigned> states(faceCount, 0);
  for (std::uint32_t seed = 0; seed < faceCount; ++seed) {
    if (states[seed] != 0) continue;
    std::deque<std::uint32_t> queue;
    Indices piece;
    const auto reach = [&](std::uint32_t face, unsigned state) {
      states[face] = state;
      queue.push_back(face);
      piece.push_back(face);
    };
    reach(seed, 1);
    while (!queue.empty()) {
      const std::uint32_t f = queue.front();
      queue.pop_front();
      for (std::size_t i = 0; i < mesh.mFaces[f].mCorners.size(); ++i) {
        const std::uint32_t u = mesh.mFaces[f].mCorners[i], w = cornerAfter(f, i);
        const Indices& both = users[std::minmax({u, w})];
        if (both.size() != 2) continue;
        for (const std::uint32_t g : both) {
          if (states[g] != 0) continue;
          for (std::size_t j = 0;; ++j) {
            const std::uint32_t from = mesh.mFaces[g].mCorners.at(j), to = cornerAfter(g, j);
            if (from == u && to == w)
              reach(g, 3 - states[f]);
            else if (from == w && to == u)
              reach(g, states[f]);
            else
              continue;
            break;
          }
        }
      }
      if (outerOf.contains(f) && states[outerOf[f]] == 0) reach(outerOf[f], states[f]);
      if (mesh.mHoles.contains(f))
        for (const std::uint32_t hole : mesh.mHoles[f])
          if (states[hole] == 0) reach(hole, states[f]);
    }

    std::vector<Vec3> corners = points;
    if (piece.size() > 1) {
      corners.clear();
      for (const std::uint32_t f : piece)
        for (const std::uint32_t v : mesh.mFaces[f].mCorners) corners.push_back(points[v]);
    }
    const Vec3 reference = pointBelow(corners);
    double sum = 0.0;
    for (const std::uint32_t f : piece) {
      if (outerOf.contains(f)) continue;
      Vec3 normal;
      util::computeFaceNormal(points, mesh.mFaces[f].mCorners, normal);
      const double term = util::computePolygonArea(points, mesh.mFaces[f].mCorners, normal) *
                          dot(normal, points[mesh.mFaces[f].mCorners[0]] - reference);
      sum += states[f] == 2 ? -term : term;
    }
    for (const std::uint32_t f : piece)
      if (states[f] == (sum > 0.0 ? 2u : 1u)) flip(mesh.mFaces[f]);
  }
}

/// Unit cubes on a 3 x 3 x 2 grid, their inner walls left out, some faces turned over.
PlainMesh randomCubes(std::mt19937& random) {
  PlainMesh mesh;
  std::map<std::array<int, 3>, std::uint32_t> numbers;
  const auto vertex = [&](const std::array<int, 3>& p) {
    const auto [entry, isNew] = numbers.try_emplace(p, static_cast<std::uint32_t>(numbers.size()));
    if (isNew) mesh.mVertices.push_back({1.0 * p[0], 1.0 * p[1], 1.0 * p[2]});
    return entry->second;
  };
  std::set<std::array<int, 3>> cubes;
  for (int i = pick(random, 1, 8); i > 0; --i)
    cubes.insert({pick(random, 0, 2), pick(random, 0, 2), pick(random, 0, 1)});
  for (const auto& cube : cubes)
    for (int axis = 0; axis < 3; ++axis)
      for (const int side : {0, 1}) {
        auto neighbour = cube;
        neighbour[axis] += side == 0 ? -1 : 1;
        if (cubes.contains(neighbour)) continue;
        PlainFace face;
        for (const auto& [s, t] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 1}}) {
          auto corner = cube;
          corner[axis] += side;
          corner[(axis + 1) % 3] += s;
          corner[(axis + 2) % 3] += t;
          face.mCorners.push_back(vertex(corner));
        }
        if (side == 0) std::ranges::reverse(face.mCorners);
        if (pick(random, 0, 3) == 0) std::ranges::reverse(face.mCorners);
        util::computeFaceNormal(mesh.mVertices, face.mCorners, face.mNormal);
        if (pick(random, 0, 9)) mesh.mFaces.push_back(face);
      }
  const auto first = mesh.mFaces.begin() + pick(random, 0, static_cast<int>(mesh.mFaces.size()));
  std::rotate(mesh.mFaces.begin(), first, mesh.mFaces.end());
  return mesh;
}

/// Many triangles on few vertices: every vertex has many edges, some of them used twice.
PlainMesh randomTangle(std::mt19937& random) {
  PlainMesh mesh;
  for (int v = 0; v < 25; ++v) mesh.mVertices.push_back({1.0 * pick(random, 0, 3), 1.0 * pick(random, 0, 3), 1.0 * v});
  for (int f = pick(random, 40, 120); f > 0; --f) {
    PlainFace face;
    face.mCorners = {static_cast<std::uint32_t>(pick(random, 0, 1)), static_cast<std::uint32_t>(pick(random, 2, 24)),
                     static_cast<std::uint32_t>(pick(random, 2, 24))};
    if (pick(random, 0, 1)) std::ranges::reverse(face.mCorners);
    mesh.mFaces.push_back(face);
  }
  return mesh;
}

Matrix randomTransform(std::mt19937& random) {
  Matrix m = kIdentity;
  const int kind = pick(random, 0, 7);
  if (kind < 4) return m;
  for (double& entry : m) entry = pick(random, -2, 2);
  if (kind == 7) m[static_cast<std::size_t>(pick(random, 0, 15))] = kNaN;
  return m;
}

TEST(ConformNormals, equalsItsSlowTwinOnRandomMeshes) {
  unsigned flips = 0, partial = 0;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin = seed % 10 == 0  ? randomTangle(random)
                     : seed % 2 == 0 ? randomCubes(random)
                                     : support::randomFaceMesh(random, 1.0);
    if (twin.mFaces.empty()) continue;
    if (pick(random, 0, 9) == 0)
      twin.mVertices[static_cast<std::size_t>(pick(random, 0, 2))].y = pick(random, 0, 1) ? kNaN : kInfinity;
    const auto faceCount = static_cast<std::uint32_t>(twin.mFaces.size());
    if (pick(random, 0, 3) == 0 && faceCount > 3) {
      // a chain of holes, one of them below two outer faces
      twin.mHoles[faceCount - 1] = {0, 1};
      twin.mHoles[1] = {0, 2};
    }
    util::Mesh mesh = support::buildMesh(twin);
    support::warmCache(mesh);
    const Faces before = facesOf(mesh);
    const Matrix transform = randomTransform(random);

    conformSlowly(twin, transform);
    util::conformNormals(mesh, transform.data());
    EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
    EXPECT_TRUE(mesh.storage().mNormals.empty());
    expectConsistent(mesh);
    std::size_t kept = 0;
    const Faces after = facesOf(mesh);
    for (std::size_t f = 0; f < after.size(); ++f) kept += after[f] == before[f] ? 1 : 0;
    if (kept < after.size()) ++flips;
    if (kept > 0 && kept < after.size()) ++partial;
  }
  EXPECT_GT(flips, 3000u);
  EXPECT_GT(partial, 2000u);
}

const std::vector<Vec3> kCube = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                 {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
const Faces kOutwardCube = {{3, 2, 1, 0}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};

/// Reversed as a flip leaves it: the second corner leads.
Indices flipped(const Indices& face) { return reversed(face, 1); }

double volumeOf(const util::Mesh& mesh) {
  double sixfold = 0.0;
  const auto& vertices = mesh.storage().mVertices;
  for (const Indices& face : facesOf(mesh))
    for (std::size_t i = 2; i < face.size(); ++i)
      sixfold += dot(vertices[face[0]], cross(vertices[face[i - 1]], vertices[face[i]]));
  return sixfold / 6.0;
}

TEST(ConformNormals, cubeIsTurnedOutwardAndASingleInvertedFaceFlipped) {
  util::Mesh outward = meshOf(kCube, kOutwardCube);
  util::conformNormals(outward, kIdentity.data());
  EXPECT_EQ(facesOf(outward), kOutwardCube);

  Faces inward;
  for (const Indices& face : kOutwardCube) inward.push_back(flipped(face));
  util::Mesh mesh = meshOf(kCube, inward);
  util::conformNormals(mesh, kIdentity.data());
  EXPECT_EQ(facesOf(mesh), kOutwardCube);
  EXPECT_EQ(volumeOf(mesh), 1.0);
  EXPECT_EQ(mesh.storage().mFaces.normal(1), (Vec3{0, 0, 1}));

  for (std::size_t inverted = 0; inverted < 6; ++inverted) {
    Faces faces = kOutwardCube;
    faces[inverted] = flipped(faces[inverted]);
    util::Mesh oneInverted = meshOf(kCube, faces);
    util::conformNormals(oneInverted, kIdentity.data());
    EXPECT_EQ(facesOf(oneInverted), kOutwardCube) << inverted;
  }
}

TEST(ConformNormals, closedPiecesEndWithPositiveVolumeWhereverTheyAre) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Cubes that share single vertices and edges of four faces at most: pieces of their own.
    std::vector<Vec3> points;
    Faces faces;
    for (int cube = 0; cube < 4; ++cube) {
      const auto base = static_cast<std::uint32_t>(points.size());
      const double place = 1000.0 * pick(random, -1, 1);
      for (const Vec3& p : kCube) points.push_back({p.x + place, p.y - 2.0 * place, p.z + 3.0 * cube});
      for (Indices face : kOutwardCube) {
        for (std::uint32_t& v : face) v += base;
        faces.push_back(pick(random, 0, 1) ? flipped(face) : face);
      }
    }
    util::Mesh mesh = meshOf(points, faces);
    util::conformNormals(mesh, kIdentity.data());
    EXPECT_NEAR(volumeOf(mesh), 4.0, 1e-6);
    const Faces once = facesOf(mesh);
    util::conformNormals(mesh, kIdentity.data());
    EXPECT_EQ(facesOf(mesh), once);
  }
}

TEST(ConformNormals, edgeOfThreeFacesAndASharedVertexSeparatePieces) {
  //  three upright triangles on the edge 0-1 and one that touches them at vertex 4 only
  const std::vector<Vec3> points = {{0, 0, 0}, {1, 0, 0}, {0, 0, 1}, {0, 1, 0.5}, {0, 0, -1}, {5, 0, -1}, {5, 0, -2}};
  const Faces faces = {{0, 1, 2}, {0, 1, 3}, {0, 1, 4}, {4, 5, 6}};
  util::Mesh mesh = meshOf(points, faces);
  util::conformNormals(mesh, kIdentity.data());
  PlainMesh twin = plainOf(meshOf(points, faces));
  for (PlainFace& face : twin.mFaces) {
    // Alone, each is seen from the point below all of them.
    const Vec3 below{2.5, -1.0, -0.5};
    if (!(dot(face.mNormal, points[face.mCorners[0]] - below) > 0.0)) flip(face);
  }
  EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
}

TEST(ConformNormals, singleFlatFaceLooksUpAndAnUprightOneAboveTheMiddleIsFlipped) {
  const std::vector<Vec3> flat = {{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}};
  for (const Indices& face : {Indices{0, 1, 2, 3}, Indices{3, 2, 1, 0}}) {
    util::Mesh mesh = meshOf(flat, {face});
    util::conformNormals(mesh, kIdentity.data());
    EXPECT_EQ(mesh.storage().mFaces.normal(0), (Vec3{0, 1, 0}));
  }
  const std::vector<Vec3> upright = {{0, 0, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1}};
  util::Mesh mesh = meshOf(upright, {{0, 1, 2, 3}});
  util::conformNormals(mesh, kIdentity.data());
  EXPECT_EQ(facesOf(mesh), Faces({{1, 0, 3, 2}}));

  // Seen upside down, the flat face looks the other way; its coordinates stay.
  constexpr Matrix kUpsideDown = {1, 0, 0, 0, 0, -1, 0, 0, 0, 0, -1, 0, 0, 9, 0, 1};
  util::Mesh turned = meshOf(flat, {{0, 1, 2, 3}});
  util::conformNormals(turned, kUpsideDown.data());
  EXPECT_EQ(turned.storage().mFaces.normal(0), (Vec3{0, -1, 0}));
  EXPECT_TRUE(std::ranges::equal(turned.storage().mVertices, flat));
}

TEST(ConformNormals, holeIsFlippedWithItsOuterFaceAndDoesNotCount) {
  // The hole is larger than its outer face and would outvote it.
  const std::vector<Vec3> points = {{0, 0, 0}, {0, 0, 1}, {1, 0, 1}, {-9, 0, -9}, {-9, 0, 9}, {9, 0, 9}};
  for (const Faces& faces : {Faces{{0, 1, 2}, {5, 4, 3}}, Faces{{5, 4, 3}, {0, 1, 2}}}) {
    const Indices holes = faces[0].front() == 0 ? Indices{0, 1, kEnd} : Indices{1, 0, kEnd};
    util::Mesh mesh = meshOf(points, faces, holes);
    util::conformNormals(mesh, kIdentity.data());
    EXPECT_EQ(facesOf(mesh), faces);  // the outer face looks up already
    util::Mesh other = meshOf(points, {flipped(faces[0]), flipped(faces[1])}, holes);
    util::conformNormals(other, kIdentity.data());
    EXPECT_EQ(facesOf(other), faces);
  }
}

TEST(ConformNormals, perVertexNormalsAreDroppedAlsoFromLines) {
  std::vector<util::Polygon> lines(1);
  lines[0].mVertexIndices = {0, 1};
  lines[0].mNormalIndices = {0, 0};
  util::Mesh mesh("", kCube, lines, {});
  mesh.storage().mNormals.push_back({0, 0, 1});
  util::conformNormals(mesh, kIdentity.data());
  EXPECT_TRUE(mesh.storage().mNormals.empty());
  EXPECT_FALSE(mesh.storage().mLines.hasNormalIndices(0));
  EXPECT_EQ(mesh.storage().mVertices.size(), kCube.size());
}

TEST(ConformNormals, hostileFacesEndDefined) {
  // corners that repeat, faces without any, hole groups beyond the faces
  util::Mesh mesh = meshOf(kCube, {{0, 0, 0}, {0, 0, 1}, {1, 0}, {2}, {2, 2, 2, 3}, {0, 1, 0, 1, 0, 1}, {4, 5, 6}},
                           {6, 99, 3, kEnd, 77, 1, kEnd, 5});
  mesh.storage().mFaces.clear(6);
  const Faces before = facesOf(mesh);
  util::conformNormals(mesh, kIdentity.data());
  Faces after = facesOf(mesh);
  for (std::size_t f = 0; f < before.size(); ++f)
    EXPECT_TRUE(after[f] == before[f] || after[f] == flipped(before[f])) << f;
}

TEST(ConformNormals, fansAndStripsOfManyFacesAreQuick) {
  constexpr std::uint32_t kFaces = 20'000;
  std::vector<Vec3> points = {{0, 0, 0}};
  Faces faces;
  Indices rim;
  for (std::uint32_t f = 0; f < kFaces; ++f) {
    points.push_back({std::cos(f * 0.0003), 0, std::sin(f * 0.0003)});
    rim.push_back(f + 1);
    faces.push_back(f % 2 ? Indices{0, f + 1, (f + 1) % kFaces + 1} : Indices{0, (f + 1) % kFaces + 1, f + 1});
  }
  faces.push_back(rim);
  util::Mesh mesh = meshOf(points, faces);
  util::conformNormals(mesh, kIdentity.data());
  // Neighbours leave the middle by one spoke each: no two faces use a directed edge.
  std::set<std::pair<std::uint32_t, std::uint32_t>> directed;
  for (const Indices& face : facesOf(mesh))
    for (std::size_t i = 0; i < face.size(); ++i)
      EXPECT_TRUE(directed.emplace(face[i], face[(i + 1) % face.size()]).second);
}

}  // namespace
