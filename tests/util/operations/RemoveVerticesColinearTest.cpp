#include <facetbox/util/operations/RemoveVerticesColinear.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <set>

#include <gtest/gtest.h>

#include <facetbox/util/math/Angle.h>
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
using util::removeVerticesColinear;
using util::Vec2;
using util::Vec3;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr bool kKeepMapping = true, kAnyMapping = false;

// The slow twin: ordered maps, and every corner taken out of its record at once.

using PairSets = std::array<std::vector<Vec2>, 10>;

/// What the random input has reached.
struct Coverage {
  unsigned calls = 0, removed = 0, cleared = 0, blocked = 0, offLine = 0, firstNormals = 0;
};

struct SlowEdge {
  std::uint32_t low, high;
  Indices faces;
  std::uint32_t otherEnd(std::uint32_t v) const { return v == low ? high : low; }
};

std::vector<SlowEdge> edgesOf(const PlainMesh& mesh) {
  std::vector<SlowEdge> edges;
  std::map<std::pair<std::uint32_t, std::uint32_t>, std::size_t> numbers;
  for (std::uint32_t f = 0; f < mesh.mFaces.size(); ++f) {
    const Indices& corners = mesh.mFaces[f].mCorners;
    for (std::size_t i = 0; i < corners.size(); ++i) {
      const std::pair<std::uint32_t, std::uint32_t> key = std::minmax({corners[i], corners[(i + 1) % corners.size()]});
      const auto [place, isNew] = numbers.try_emplace(key, edges.size());
      if (isNew) edges.push_back({key.first, key.second, {}});
      edges[place->second].faces.push_back(f);
    }
  }
  return edges;
}

Vec3 slowDirection(const Vec3& from, const Vec3& to) {
  const Vec3 d{to.x - from.x, to.y - from.y, to.z - from.z};
  const double size = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
  return size > 1e-25 ? Vec3{d.x / size, d.y / size, d.z / size} : Vec3{0, 1, 0};
}

double slowAngle(const Vec3& a, const Vec3& b) {
  const double sign = a.x * b.x + a.y * b.y + a.z * b.z < 0 ? -1 : 1;
  const double x = sign * b.x - a.x, y = sign * b.y - a.y, z = sign * b.z - a.z;
  const double angle = 2 * std::asin(std::sqrt(x * x + y * y + z * z) / 2);
  return sign < 0 ? 3.141592653589793 - angle : angle;
}

double distance(const Vec3& a, const Vec3& b) { return length(b - a); }

bool texCoordsOnLine(const PlainMesh& mesh, const PairSets& pairs, const PlainFace& face, std::size_t p) {
  const std::size_t n = face.mCorners.size(), prev = (p + n - 1) % n, next = (p + 1) % n;
  const auto vertex = [&](std::size_t i) { return mesh.mVertices[face.mCorners[i]]; };
  const double a = distance(vertex(prev), vertex(p)), b = distance(vertex(p), vertex(next)), l = a + b;
  for (const auto& [set, indices] : face.mSets) {
    if (set > 9) continue;
    for (const std::size_t i : {prev, p, next})
      if (indices[i] >= pairs[set].size()) return false;
    const Vec2 own = pairs[set][indices[p]], before = pairs[set][indices[prev]], after = pairs[set][indices[next]];
    const Vec2 between{((l - b) / l) * after.x + ((l - a) / l) * before.x,
                       ((l - b) / l) * after.y + ((l - a) / l) * before.y};
    const double x = own.x - between.x, y = own.y - between.y;
    if (std::sqrt(x * x + y * y) >= 0.001) return false;
  }
  return true;
}

void eraseAt(Indices& indices, std::size_t at) { indices.erase(indices.begin() + static_cast<std::ptrdiff_t>(at)); }

void removeCornerSlowly(const PlainMesh& mesh, PlainFace& face, std::size_t p, Coverage& coverage) {
  const std::size_t n = face.mCorners.size(), prev = (p + n - 1) % n, next = (p + 1) % n;
  const auto vertex = [&](std::size_t i) { return mesh.mVertices[face.mCorners[i]]; };
  const bool vertexNormals = !face.mNormalIndices.empty() && face.mPerVertexNormals;
  const bool nextLonger = (vertexNormals || face.mSets.contains(10)) &&
                          lengthSq(vertex(next) - vertex(p)) > lengthSq(vertex(p) - vertex(prev));
  if (vertexNormals && nextLonger && p == 0) ++coverage.firstNormals;
  if (!face.mNormalIndices.empty()) eraseAt(face.mNormalIndices, face.mPerVertexNormals && nextLonger ? prev : p);
  for (auto& [set, indices] : face.mSets) {
    const std::uint32_t own = indices[p];
    eraseAt(indices, p);
    if (set == 10 && nextLonger) indices[(p + n - 2) % (n - 1)] = own;
  }
  eraseAt(face.mCorners, p);
}

std::uint64_t removeColinearSlowly(PlainMesh& mesh, const PairSets& pairs, double t, bool keepMapping,
                                   Coverage& coverage) {
  const std::vector<SlowEdge> edges = edgesOf(mesh);
  std::vector<Indices> incidence(mesh.mVertices.size());
  for (std::uint32_t e = 0; e < edges.size(); ++e)
    for (const std::uint32_t v : {edges[e].low, edges[e].high}) incidence[v].push_back(e);
  for (std::uint32_t v = 0; v < incidence.size(); ++v) {
    std::set<std::uint32_t> others;
    for (const std::uint32_t e : incidence[v]) others.insert(edges[e].otherEnd(v));
    if (incidence[v].size() > 2 && others.size() > 2) incidence[v].clear();
  }

  std::uint64_t count = 0;
  bool cleared = false;
  for (std::uint32_t v = 0; v < incidence.size(); ++v) {
    std::map<std::uint32_t, Indices> atVertex, toChange;
    for (const std::uint32_t e : incidence[v])
      for (const std::uint32_t f : edges[e].faces) atVertex[f].push_back(e);
    const auto positionIn = [&](const PlainFace& face) {
      return static_cast<std::size_t>(std::ranges::find(face.mCorners, v) - face.mCorners.begin());
    };
    std::set<std::uint32_t> blocked;
    for (const auto& [f, list] : atVertex) {
      const PlainFace& face = mesh.mFaces[f];
      if (face.isCleared() || list.size() < 2) continue;
      bool straight = t >= 180.0;
      if (!straight) {
        const Vec3 d1 = slowDirection(mesh.mVertices[v], mesh.mVertices[edges[list[0]].otherEnd(v)]);
        const Vec3 d2 = slowDirection(mesh.mVertices[v], mesh.mVertices[edges[list[1]].otherEnd(v)]);
        straight = slowAngle(d1, d2) * 57.29577951308232 >= 180.0 - t;
      }
      if (!straight) continue;
      toChange[f] = list;
      const std::size_t p = positionIn(face), n = face.mCorners.size();
      const bool offLine = keepMapping && !texCoordsOnLine(mesh, pairs, face, p);
      const bool seam = (face.mSets.contains(11) && face.mSets.at(11)[p] != kEnd) ||
                        (face.mSets.contains(10) && face.mSets.at(10)[p] != face.mSets.at(10)[(p + n - 1) % n]);
      if (offLine) ++coverage.offLine;
      if (offLine || seam) blocked.insert({list[0], list[1]});
    }
    for (const auto& [f, list] : toChange) {
      if (blocked.contains(list[0]) || blocked.contains(list[1])) {
        ++coverage.blocked;
        continue;
      }
      PlainFace& face = mesh.mFaces[f];
      ++count;
      if (face.mCorners.size() < 4) {
        face.clear();
        cleared = true;
        ++coverage.cleared;
      } else {
        removeCornerSlowly(mesh, face, positionIn(face), coverage);
        ++coverage.removed;
      }
    }
  }
  ++coverage.calls;
  if (count == 0) return 0;
  support::removeUnusedVertices(mesh);
  for (PlainFace& face : mesh.mFaces) util::computeFaceNormal(mesh.mVertices, face.mCorners, face.mNormal);
  if (cleared) support::compactPrimitives(mesh);
  return count;
}

// Random input.

void insertAt(Indices& indices, std::size_t at, std::uint32_t value) {
  indices.insert(indices.begin() + static_cast<std::ptrdiff_t>(at), value);
}

/// Adds repeated corners, spikes and second visits.
void crumple(std::mt19937& random, Indices& corners) {
  const auto n = static_cast<int>(corners.size());
  const auto i = static_cast<std::size_t>(pick(random, 0, n - 1));
  const std::uint32_t own = corners[i], previous = corners[(i + corners.size() - 1) % corners.size()];
  switch (pick(random, 0, 2)) {
    case 0:
      insertAt(corners, i, own);
      break;
    case 1:  // there, back, and there again
      insertAt(corners, i + 1, previous);
      insertAt(corners, i + 2, own);
      break;
    default:
      insertAt(corners, i, corners[static_cast<std::size_t>(pick(random, 0, n - 1))]);
  }
}

/// Squares side by side whose sides carry further vertices, which not every square shares; some are cut into triangles.
PlainMesh randomPatchwork(std::mt19937& random) {
  constexpr int kSide = 4;
  const int columns = pick(random, 1, 3), rows = pick(random, 1, 3);
  const double scale = pick(random, 0, 1) ? 1.0 : 0.1;
  PlainMesh mesh;
  std::map<std::pair<int, int>, std::uint32_t> vertices;
  std::set<std::pair<int, int>> present;
  for (int x = 0; x <= kSide * columns; ++x)
    for (int y = 0; y <= kSide * rows; ++y)
      if ((x % kSide == 0 && y % kSide == 0) || ((x % kSide == 0 || y % kSide == 0) && pick(random, 0, 1)))
        present.insert({x, y});
  Indices numbers(present.size());
  std::iota(numbers.begin(), numbers.end(), 0u);
  if (pick(random, 0, 1))
    for (std::size_t i = numbers.size(); i > 1; --i)
      std::swap(numbers[i - 1], numbers[static_cast<std::size_t>(pick(random, 0, static_cast<int>(i) - 1))]);
  mesh.mVertices.resize(present.size());
  for (const auto& place : present) {
    const std::uint32_t v = numbers[vertices.size()];
    vertices[place] = v;
    Vec3& p = mesh.mVertices[v] = {scale * place.first, scale * place.second, 0};
    if (pick(random, 0, 7) == 0) p.z = scale * 0.25 * pick(random, -2, 2);
    if (pick(random, 0, 80) == 0) p = mesh.mVertices[0];
    if (pick(random, 0, 150) == 0) p.x = pick(random, 0, 1) ? kNaN : kInfinity;
  }

  for (int column = 0; column < columns; ++column)
    for (int row = 0; row < rows; ++row) {
      Indices ring;
      const std::pair<int, int> steps[] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}};
      std::pair<int, int> place{kSide * column, kSide * row};
      for (const auto& [dx, dy] : steps)
        for (int i = 0; i < kSide; ++i, place.first += dx, place.second += dy)
          if (present.contains(place) && (i == 0 || pick(random, 0, 11))) ring.push_back(vertices[place]);
      std::rotate(ring.begin(), ring.begin() + pick(random, 0, static_cast<int>(ring.size()) - 1), ring.end());
      if (pick(random, 0, 3) == 0) std::ranges::reverse(ring);
      if (pick(random, 0, 7) == 0) continue;
      if (pick(random, 0, 3) == 0) {
        for (std::size_t i = 2; i < ring.size(); ++i) {
          PlainFace triangle;
          triangle.mCorners = {ring[0], ring[i - 1], ring[i]};
          mesh.mFaces.push_back(triangle);
        }
        continue;
      }
      PlainFace face;
      face.mCorners = ring;
      if (pick(random, 0, 3) == 0) crumple(random, face.mCorners);
      if (pick(random, 0, 9) == 0) crumple(random, face.mCorners);
      mesh.mFaces.push_back(face);
    }
  return mesh;
}

/// Gives the faces normals, textures and seams, most of them such that they do not stand against a removal.
PairSets decorate(std::mt19937& random, PlainMesh& mesh) {
  PairSets pairs;
  const bool textured[] = {pick(random, 0, 1) != 0, pick(random, 0, 2) == 0};
  const bool handedOver = pick(random, 0, 2) == 0, seams = pick(random, 0, 3) == 0, normals = pick(random, 0, 1) != 0;
  for (PlainFace& face : mesh.mFaces) {
    const std::size_t n = face.mCorners.size();
    face.mNormal = {0, 0, 1.0 * pick(random, 1, 3)};
    face.mPerVertexNormals = pick(random, 0, 2) != 0;
    face.mTag = pick(random, -1, 2);
    if (normals && pick(random, 0, 3))
      for (std::size_t i = 0; i < n; ++i)
        face.mNormalIndices.push_back(static_cast<std::uint32_t>(pick(random, 0, 99)));
    for (const int which : {0, 1}) {
      const int set = 3 * which;
      if (!textured[which] || pick(random, 0, 5) == 0) continue;
      for (const std::uint32_t v : face.mCorners) {
        const double noise = pick(random, 0, 9) == 0 ? 0.0005 * pick(random, -4, 4) : 0.0;
        face.mSets[set].push_back(static_cast<std::uint32_t>(pairs[set].size()) + (pick(random, 0, 99) ? 0 : 1000));
        pairs[set].push_back({0.3 * mesh.mVertices[v].x + noise, 0.2 * mesh.mVertices[v].y});
      }
    }
    std::uint32_t edgeKind = 7;
    for (std::size_t i = 0; handedOver && i < n; ++i) {
      if (pick(random, 0, 6) == 0) edgeKind = static_cast<std::uint32_t>(pick(random, 7, 8));
      face.mSets[10].push_back(edgeKind);
    }
    for (std::size_t i = 0; seams && i < n; ++i) face.mSets[11].push_back(pick(random, 0, 9) ? kEnd : 4);
  }
  if (pick(random, 0, 1) && mesh.mFaces.size() > 1) {
    mesh.mRunMaterials = {support::materialOf("a"), support::materialOf("b")};
    mesh.mRunStarts = {0, 1};
    mesh.mHoles[1] = {0};
  }
  return pairs;
}

TEST(RemoveVerticesColinear, equalsItsSlowTwinOnRandomMeshes) {
  const double tolerances[] = {0.0, 0.5, 1.0, 5.0, 20.0, 46.0, 90.0, 179.9, 180.0, 400.0, -1.0, kNaN, kInfinity};
  Coverage coverage;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin;
    if (seed % 8 == 0) {
      for (int v = pick(random, 3, 8); v > 0; --v) twin.mVertices.push_back({1.0 * pick(random, 0, 3), 0, 0});
      const auto vertexCount = static_cast<int>(twin.mVertices.size());
      for (int faces = pick(random, 1, 2); faces > 0; --faces)
        twin.mFaces.push_back(support::randomFace(random, vertexCount, 1, 9));
      for (PlainFace& face : twin.mFaces) {
        face.mNormalIndices.clear();
        face.mSets.clear();
      }
    } else {
      twin = randomPatchwork(random);
    }
    const PairSets pairs = decorate(random, twin);
    if (twin.mFaces.empty()) continue;
    util::Mesh mesh = support::buildMesh(twin);
    for (const std::size_t set : {0u, 3u}) mesh.storage().mTexCoords[set].assign(pairs[set].begin(), pairs[set].end());

    // The second call meets records with gaps between them.
    for (int call = 0; call < 2; ++call) {
      support::warmCache(mesh);
      const double tolerance = tolerances[pick(random, 0, 12)];
      const bool keepMapping = pick(random, 0, 1) != 0;
      const std::uint64_t expected = removeColinearSlowly(twin, pairs, tolerance, keepMapping, coverage);
      ASSERT_EQ(removeVerticesColinear(mesh, tolerance, keepMapping), expected);
      ASSERT_EQ(describe(plainOf(mesh)), describe(twin));
      expectConsistent(mesh);
    }
  }
  EXPECT_GT(coverage.removed, 3 * coverage.calls);
  EXPECT_GT(coverage.cleared, coverage.calls / 4);
  EXPECT_GT(coverage.blocked, coverage.calls / 4);
  for (const unsigned count : {coverage.offLine, coverage.firstNormals}) EXPECT_GT(count, 100u);
}

// Single facts.

/// Two squares of side 2 side by side, with a vertex in the middle of every side but the outer left one:
///
///    8--9--3--4--5
///    |     |     |      The left square is {0, 1, 2, 11, 3, 9, 8}, the right one {2, 6, 7, 10, 5, 4, 3, 11}.
///    |    11    10
///    |     |     |
///    0--1--2--6--7
///
util::Mesh twoSquares(double middleX = 2) {
  return meshOf({{0, 0, 0},
                 {1, 0, 0},
                 {2, 0, 0},
                 {2, 2, 0},
                 {3, 2, 0},
                 {4, 2, 0},
                 {3, 0, 0},
                 {4, 0, 0},
                 {0, 2, 0},
                 {1, 2, 0},
                 {4, 1, 0},
                 {middleX, 1, 0}},
                {{0, 1, 2, 11, 3, 9, 8}, {2, 6, 7, 10, 5, 4, 3, 11}});
}

TEST(RemoveVerticesColinear, removesMidpointsFromBothSidesAndKeepsVerticesWhereThreeEdgesMeet) {
  for (const double tolerance : {0.0, 1.0}) {
    util::Mesh mesh = twoSquares();
    EXPECT_EQ(removeVerticesColinear(mesh, tolerance, kAnyMapping), 7u);  // 11 leaves two faces
    // 2 and 3 stay, although the squares' lower and upper sides run straight on there. Vertices are renumbered.
    EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2, 5}, {1, 4, 3, 2}}));
    EXPECT_EQ(mesh.storage().mVertices.size(), 6u);
    EXPECT_EQ(removeVerticesColinear(mesh, tolerance, kAnyMapping), 0u);
  }
}

TEST(RemoveVerticesColinear, cornerHalfADegreeOffStraightNeedsMoreTolerance) {
  const double tilt = std::tan(0.25 * 3.141592653589793 / 180);
  const util::Mesh mesh = meshOf({{-1, tilt, 0}, {0, 0, 0}, {1, tilt, 0}, {1, 3, 0}, {-1, 3, 0}}, {{0, 1, 2, 3, 4}});
  for (const double tolerance : {1.0, 0.51, 0.49, 0.25, 0.0, -1.0, kNaN}) {
    util::Mesh changed(mesh);
    EXPECT_EQ(removeVerticesColinear(changed, tolerance, kAnyMapping), tolerance > 0.5 ? 1u : 0u) << tolerance;
  }
}

TEST(RemoveVerticesColinear, measuresAnglesAgainstTheGivenNeighboursAlongACurvedChain) {
  // A half circle in steps of 1 degree and three far corners below it.
  std::vector<Vec3> points;
  for (int i = 0; i <= 180; ++i) {
    const double angle = i * 3.141592653589793 / 180;
    points.push_back({10 * std::cos(angle), 10 * std::sin(angle), 0});
  }
  for (const Vec3& p : {Vec3{-10, -9, 0}, {0, -20, 0}, {10, -9, 0}}) points.push_back(p);
  Indices ring(points.size());
  std::iota(ring.begin(), ring.end(), 0u);
  util::Mesh mesh = meshOf(points, {ring});
  EXPECT_EQ(removeVerticesColinear(mesh, 1.1, kAnyMapping), 181u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2}}));
  EXPECT_EQ(mesh.storage().mVertices[0], (Vec3{-10, -9, 0}));
}

TEST(RemoveVerticesColinear, from180DegreesOnEveryCornerOfAChainIsStraight) {
  // Of two squares side by side only the shared corners have three neighbours.
  const std::vector<Vec3> points{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0}, {0, 1, 0}};
  const Faces faces{{0, 1, 4, 5}, {1, 2, 3, 4}};
  util::Mesh below = meshOf(points, faces), at = meshOf(points, faces);
  EXPECT_EQ(removeVerticesColinear(below, 89.99, kAnyMapping), 0u);
  EXPECT_EQ(facesOf(below), faces);
  // Each square loses one outer corner and, left with three, goes for the other.
  EXPECT_EQ(removeVerticesColinear(at, 180.0, kAnyMapping), 4u);
  EXPECT_TRUE(facesOf(at).empty());
  EXPECT_TRUE(at.storage().mVertices.empty());

  // A spike's tip has one neighbour only.
  util::Mesh spike = meshOf({{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {9, 9, 0}}, {{0, 1, 2, 4, 2, 3}});
  EXPECT_EQ(removeVerticesColinear(spike, 179.99, kAnyMapping), 3u);  // 0, 1 and 3 turn by 90 degrees
  EXPECT_EQ(facesOf(spike), Faces({{0, 1, 0}}));
  EXPECT_EQ(removeVerticesColinear(spike, 180.0, kAnyMapping), 1u);
}

TEST(RemoveVerticesColinear, triangleWithAStraightCornerGoesAndHolesAndRunsFollow) {
  PlainMesh plain = plainOf(meshOf({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 3, 0}, {0, 9, 0}, {9, 0, 0}, {9, 9, 0}},
                                   {{0, 1, 2}, {4, 5, 6}, {0, 2, 3}}, {1, 0, 2, kEnd}));
  plain.mRunMaterials = {support::materialOf("a"), support::materialOf("b")};
  plain.mRunStarts = {0, 2};
  util::Mesh mesh = support::buildMesh(plain);
  EXPECT_EQ(removeVerticesColinear(mesh, 1.0, kAnyMapping), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{3, 4, 5}, {0, 1, 2}}));
  EXPECT_EQ(support::holesOf(mesh), Indices({0, 1, kEnd}));
  EXPECT_EQ(mesh.storage().mRunStarts[1], 1u);
  expectConsistent(mesh);
}

/// The two squares, textured by their x coordinates; in the left one alone, vertex 11's is off by `error`.
util::Mesh texturedSquares(double error) {
  PlainMesh plain = plainOf(twoSquares());
  std::vector<Vec2> pairs;
  for (const Vec3& p : plain.mVertices) pairs.push_back({0.25 * (p.x - 2), 0});
  pairs.push_back({error, 0});
  for (PlainFace& face : plain.mFaces) face.mSets[3] = face.mCorners;
  plain.mFaces[0].mSets[3][3] = 12;
  util::Mesh mesh = support::buildMesh(plain);
  mesh.storage().mTexCoords[3].assign(pairs.begin(), pairs.end());
  return mesh;
}

TEST(RemoveVerticesColinear, cornerOffTheTexturesLineStaysInBothFacesIfTheMappingIsToBeKept) {
  const Faces without{{0, 1, 2, 5}, {1, 4, 3, 2}}, with{{0, 1, 6, 2, 5}, {1, 4, 3, 2, 6}};
  const double justBelow = std::nextafter(0.001, 0.0);
  for (const double error : {0.0, justBelow, 0.001, -0.001, 0.5, kNaN}) {
    SCOPED_TRACE(error);
    util::Mesh kept = texturedSquares(error), lost(kept);
    const bool stays = std::fabs(error) >= 0.001;  // a distance that is no number is on the line
    EXPECT_EQ(removeVerticesColinear(kept, 1.0, kKeepMapping), stays ? 5u : 7u);
    EXPECT_EQ(facesOf(kept), stays ? with : without);
    EXPECT_EQ(removeVerticesColinear(lost, 1.0, kAnyMapping), 7u);
    EXPECT_EQ(facesOf(lost), without);
  }
  util::Mesh beyond = texturedSquares(0.0);
  beyond.storage().mTexCoords[3].resize(12);  // the left square's pair for vertex 11 is gone
  EXPECT_EQ(removeVerticesColinear(beyond, 1.0, kKeepMapping), 5u);
  EXPECT_EQ(facesOf(beyond), with);
}

TEST(RemoveVerticesColinear, cornersOnSeamsStayInBothFacesWhateverTheFlag) {
  PlainMesh plain = plainOf(twoSquares());
  plain.mFaces[0].mSets[10] = {1, 1, 1, 2, 2, 2, 2};              // starts anew at vertex 11, and again at vertex 0
  plain.mFaces[1].mSets[11] = {9, 9, 9, kEnd, 9, kEnd, 9, kEnd};  // vertex 6 has an entry, 10, 4 and 11 have none
  util::Mesh mesh = support::buildMesh(plain);
  EXPECT_EQ(removeVerticesColinear(mesh, 1.0, kAnyMapping), 4u);  // 1, 9, 10 and 4
  const PlainMesh left = plainOf(mesh);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 7, 2, 6}, {1, 4, 5, 3, 2, 7}}));
  EXPECT_EQ(left.mFaces[0].mSets.at(10), Indices({1, 1, 2, 2, 2}));
  EXPECT_EQ(left.mFaces[1].mSets.at(11), Indices({9, 9, 9, 9, 9, kEnd}));
}

/// A square of side 4 whose corner `at` is straight, with normal indices 10, 11, ...; `x` places that corner on its
/// side.
util::Mesh squareWithNormals(std::size_t at, double x, bool perVertex) {
  PlainMesh plain;
  plain.mVertices = {{x, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {0, 0, 0}};
  PlainFace face;
  for (std::uint32_t i = 0; i < 5; ++i) {
    face.mCorners.push_back((i + 5 - static_cast<std::uint32_t>(at)) % 5);
    face.mNormalIndices.push_back(10 + i);
  }
  face.mPerVertexNormals = perVertex;
  plain.mFaces.push_back(face);
  return support::buildMesh(plain);
}

TEST(RemoveVerticesColinear, normalOfTheLongerEdgeSurvives) {
  const auto normalsLeft = [](util::Mesh mesh) {
    EXPECT_EQ(removeVerticesColinear(mesh, 1.0, kAnyMapping), 1u);
    return plainOf(mesh).mFaces[0].mNormalIndices;
  };
  EXPECT_EQ(normalsLeft(squareWithNormals(2, 1, true)), Indices({10, 12, 13, 14}));
  EXPECT_EQ(normalsLeft(squareWithNormals(2, 2, true)), Indices({10, 11, 13, 14}));
  EXPECT_EQ(normalsLeft(squareWithNormals(2, 3, true)), Indices({10, 11, 13, 14}));
  EXPECT_EQ(normalsLeft(squareWithNormals(2, 1, false)), Indices({10, 11, 13, 14}));
  // The entry before the first is the last of the list.
  EXPECT_EQ(normalsLeft(squareWithNormals(0, 1, true)), Indices({10, 11, 12, 13}));
  EXPECT_EQ(normalsLeft(squareWithNormals(0, 3, true)), Indices({11, 12, 13, 14}));
}

TEST(RemoveVerticesColinear, facesThatVisitAVertexTwiceAreMeasuredByTheFirstTwoEdgesOfTheirList) {
  // Vertex 1 lies straight between 0 and 2 and has no other neighbours. The face 0 1 0 ... lists the edge from 0 first
  // and twice; in 0 1 2 1 2 ... it comes once, before the other.
  const std::vector<Vec3> points{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}};
  util::Mesh folded = meshOf(points, {{0, 1, 0, 1, 2, 3, 4}}), spiked = meshOf(points, {{0, 1, 2, 1, 2, 3, 4}});
  EXPECT_EQ(removeVerticesColinear(folded, 1.0, kAnyMapping), 0u);
  EXPECT_EQ(removeVerticesColinear(spiked, 1.0, kAnyMapping), 1u);
  EXPECT_EQ(facesOf(spiked), Faces({{0, 2, 1, 2, 3, 4}}));
}

TEST(RemoveVerticesColinear, clearedFaceIsPassedOverByLaterVertices) {
  // All corners at one point: directions and texture are no numbers or stand-ins, so nothing keeps a corner.
  PlainMesh plain = plainOf(meshOf({{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}, {{0, 1, 2}}));
  plain.mFaces[0].mSets[0] = {0, 1, 2};
  util::Mesh mesh = support::buildMesh(plain);
  mesh.storage().mTexCoords[0].assign({{0, 0}, {5, 0}, {0, 7}});
  EXPECT_EQ(removeVerticesColinear(mesh, 180.0, kKeepMapping), 1u);
  EXPECT_TRUE(facesOf(mesh).empty());
  EXPECT_EQ(removeVerticesColinear(mesh, 180.0, kKeepMapping), 0u);
}

TEST(RemoveVerticesColinear, linesAndPointsStay) {
  std::vector<util::Polygon> lines(1);
  lines[0].mVertexIndices = {0, 1, 2};
  util::Mesh mesh("", {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, lines, {});
  const std::string before = describe(plainOf(mesh));
  EXPECT_EQ(removeVerticesColinear(mesh, 180.0, kAnyMapping), 0u);
  EXPECT_EQ(describe(plainOf(mesh)), before);
}

// Large input: anything quadratic takes minutes here.

/// One face through random points, numbered such that corners go in turns from its front and its middle. The last ten
/// stay.
PlainMesh shuffledRing(std::uint32_t n) {
  std::mt19937 random(n);
  PlainMesh plain;
  plain.mVertices.resize(n);
  PlainFace face;
  for (std::uint32_t i = 0; i < n; ++i) {
    const std::uint32_t half = n / 2, v = i < half ? 2 * i : 2 * (i - half) + 1;
    face.mCorners.push_back(v);
    face.mNormalIndices.push_back(i % 100);
    plain.mVertices[v] = {1.0 * pick(random, 0, 99), 1.0 * pick(random, 0, 99), 0};
  }
  face.mSets[11].assign(n, kEnd);
  std::fill(face.mSets[11].end() - 10, face.mSets[11].end(), 1u);
  face.mPerVertexNormals = true;
  plain.mFaces.push_back(face);
  return plain;
}

TEST(RemoveVerticesColinear, ringOfManyRemovedCornersIsPackedOnce) {
  Coverage coverage;
  PlainMesh twin = shuffledRing(1000);
  util::Mesh small = support::buildMesh(twin);
  const std::uint64_t expected = removeColinearSlowly(twin, {}, 180.0, kAnyMapping, coverage);
  EXPECT_EQ(removeVerticesColinear(small, 180.0, kAnyMapping), expected);
  EXPECT_EQ(describe(plainOf(small)), describe(twin));

  util::Mesh large = support::buildMesh(shuffledRing(400'000));
  EXPECT_EQ(removeVerticesColinear(large, 180.0, kAnyMapping), 399'990u);
  EXPECT_EQ(large.storage().mFaces.cornerCount(0), 10u);
}

TEST(RemoveVerticesColinear, manyFacesAroundOneVertexLoseOrKeepItTogether) {
  constexpr std::uint32_t kFaces = 100'000;
  PlainMesh plain;  // the pages of a book: all share the straight spine 0 1 2
  plain.mVertices = {{0, 0, 0}, {0, 0, 1}, {0, 0, 2}};
  for (std::uint32_t i = 0; i < kFaces; ++i) {
    plain.mVertices.push_back({std::cos(0.001 * i), std::sin(0.001 * i), 1});
    PlainFace page;
    page.mCorners = {0, 1, 2, 3 + i};
    plain.mFaces.push_back(page);
  }
  util::Mesh all = support::buildMesh(plain);
  EXPECT_EQ(removeVerticesColinear(all, 1.0, kAnyMapping), kFaces);
  EXPECT_EQ(all.storage().mFaces.cornerCount(kFaces - 1), 3u);

  plain.mFaces.back().mSets[11] = {kEnd, 0, kEnd, kEnd};
  util::Mesh none = support::buildMesh(plain);
  EXPECT_EQ(removeVerticesColinear(none, 1.0, kAnyMapping), 0u);
}

TEST(AngleBetween, keepsItsDigitsNearZeroAndNearAStraightAngle) {
  for (const double angle : {1e-12, 1e-8, 1e-4, 0.3, 1.5}) {
    const Vec3 a{1, 0, 0}, b{std::cos(angle), std::sin(angle), 0}, opposite{-b.x, b.y, 0};
    EXPECT_NEAR(util::angleBetween(a, b), angle, 4e-16 * angle);
    EXPECT_NEAR(util::angleBetween(a, opposite), 3.141592653589793 - angle, 1e-15);
    EXPECT_EQ(util::angleBetween(b, a), util::angleBetween(a, b));
  }
  EXPECT_EQ(util::angleBetween({0, 1, 0}, {0, -1, 0}), 3.141592653589793);
  EXPECT_TRUE(std::isnan(util::angleBetween({kNaN, 0, 0}, {1, 0, 0})));
}

TEST(Normalised, standsInForVectorsWithoutALength) {
  EXPECT_EQ(util::normalised({0, 0, -1e-24}), (Vec3{0, 0, -1}));
  for (const double x : {0.0, 1e-25, kNaN}) EXPECT_EQ(util::normalised({x, 0, 0}), (Vec3{0, 1, 0})) << x;
  EXPECT_TRUE(std::isnan(util::normalised({kInfinity, 0, 0}).x));
}

}  // namespace
