#include <facetbox/operations/ConformNormals.h>

#include <tests/support/PlainMesh.h>

namespace {

using namespace support;
using Matrix = std::array<double, 16>;

constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// Reversal with a shift: entry n - j goes to place (j + shift) mod n, for j = 1 to n.
Indices reversed(const Indices& old, std::size_t shift) {
  Indices turned(old.size());
  for (std::size_t j = 1; j <= old.size(); ++j) turned[(j + shift) % old.size()] = old[old.size() - j];
  return turned;
}

/// The corners as a flip leaves them: the second one leads.
Indices flipped(const Indices& face) { return reversed(face, 1); }

/// The point below a set of points; a NaN coordinate does not count.
Vec3 pointBelow(const std::vector<Vec3>& points) {
  Vec3 low{kInfinity, kInfinity, kInfinity}, high = -low;
  for (const Vec3& p : points) {
    low = {std::fmin(low.x, p.x), std::fmin(low.y, p.y), std::fmin(low.z, p.z)};
    high = {std::fmax(high.x, p.x), std::fmax(high.y, p.y), std::fmax(high.z, p.z)};
  }
  return {(low.x + high.x) * 0.5, low.y - 1.0, (low.z + high.z) * 0.5};
}

/// The slow twin, with maps and a queue.
void conformSlowly(PlainMesh& mesh, const Matrix& m) {
  std::map<Edge, Indices> users;
  for (std::uint32_t f = 0; f < mesh.mFaces.size(); ++f) {
    mesh.mFaces[f].mNormalIndices.clear();
    for (const auto& [u, w] : edgesOf(mesh.mFaces[f].mCorners)) users[std::minmax(u, w)].push_back(f);
  }
  std::vector<Vec3> points;
  for (const Vec3& p : mesh.mVertices)
    points.push_back({m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12], m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13],
                      m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14]});
  std::map<std::uint32_t, std::uint32_t> outerOf;
  for (const auto& [outer, holes] : mesh.mHoles)
    for (const std::uint32_t hole : holes) outerOf.try_emplace(hole, outer);

  std::vector<unsigned> states(mesh.mFaces.size(), 0);
  for (std::uint32_t seed = 0; seed < mesh.mFaces.size(); ++seed) {
    if (states[seed] != 0) continue;
    Indices piece;  // the queue, with what has left it
    const auto reach = [&](std::uint32_t face, unsigned state) {
      if (states[face] != 0) return;
      states[face] = state;
      piece.push_back(face);
    };
    reach(seed, 1);
    for (std::size_t at = 0; at < piece.size(); ++at) {
      const std::uint32_t f = piece[at];
      for (const Edge& edge : edgesOf(mesh.mFaces[f].mCorners)) {
        const Indices& both = users[std::minmax(edge.first, edge.second)];
        if (both.size() != 2) continue;
        for (const std::uint32_t g : both)
          for (const Edge& other : edgesOf(mesh.mFaces[g].mCorners)) {
            if (std::minmax(other.first, other.second) != std::minmax(edge.first, edge.second)) continue;
            reach(g, other == edge ? 3 - states[f] : states[f]);
            break;
          }
      }
      if (outerOf.contains(f)) reach(outerOf[f], states[f]);
      if (mesh.mHoles.contains(f))
        for (const std::uint32_t hole : mesh.mHoles[f]) reach(hole, states[f]);
    }

    std::vector<Vec3> corners = points;
    if (piece.size() > 1) corners.clear();
    for (const std::uint32_t f : piece)
      for (const std::uint32_t v : mesh.mFaces[f].mCorners) corners.push_back(points[v]);
    const Vec3 reference = pointBelow(corners);
    double sum = 0.0;
    for (const std::uint32_t f : piece) {
      if (outerOf.contains(f)) continue;
      const Vec3 normal = normalOf(points, mesh.mFaces[f].mCorners);
      const double term =
          areaOf(points, mesh.mFaces[f].mCorners, normal) * dot(normal, points[mesh.mFaces[f].mCorners[0]] - reference);
      sum += states[f] == 2 ? -term : term;
    }
    for (const std::uint32_t f : piece) {
      if (states[f] != (sum > 0.0 ? 2u : 1u)) continue;
      PlainFace& face = mesh.mFaces[f];
      face.mCorners = flipped(face.mCorners);
      face.mNormal = -face.mNormal;
      for (auto& [set, indices] : face.mSets) indices = reversed(indices, set == 10 ? 0 : 1);
    }
  }
}

/// Cubes with some faces turned over and some missing, or many triangles around few vertices.
PlainMesh randomPieces(std::mt19937& random) {
  std::set<std::array<int, 3>> cubes;
  for (int i = pick(random, 1, 8); i > 0; --i)
    cubes.insert({pick(random, 0, 2), pick(random, 0, 2), pick(random, 0, 1)});
  Surface surface = surfaceOf(cubes, 1.0);
  if (oneIn(random, 5)) {
    surface.mPoints.resize(25, {1, 2, 3});
    surface.mFaces.clear();
    for (int f = pick(random, 40, 120); f > 0; --f)
      surface.mFaces.push_back({below(random, 2), 2 + below(random, 23), 2 + below(random, 23)});
  }
  for (Indices& face : surface.mFaces)
    if (oneIn(random, 4)) std::ranges::reverse(face);
  std::erase_if(surface.mFaces, [&](const Indices&) { return oneIn(random, 10); });
  std::rotate(surface.mFaces.begin(), surface.mFaces.begin() + below(random, surface.mFaces.size() + 1),
              surface.mFaces.end());
  return plainOf(meshOf(surface.mPoints, surface.mFaces));
}

TEST(ConformNormals, equalsItsSlowTwinOnRandomMeshes) {
  unsigned flips = 0, partial = 0;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin = seed % 2 == 0 ? randomPieces(random) : randomFaceMesh(random, 1.0);
    const auto faceCount = static_cast<std::uint32_t>(twin.mFaces.size());
    if (oneIn(random, 10)) twin.mVertices[below(random, 3)].y = oneIn(random, 2) ? kNaN : kInfinity;
    // A chain of holes, one of them below two outer faces.
    if (oneIn(random, 4) && faceCount > 3) twin.mHoles[faceCount - 1] = {0, 1}, twin.mHoles[1] = {0, 2};
    Mesh mesh = buildMesh(twin);
    const Faces before = facesOf(mesh);
    Matrix transform = kIdentity;
    if (oneIn(random, 2))
      for (double& entry : transform) entry = pick(random, -2, 2);
    if (oneIn(random, 8)) transform[below(random, 16)] = kNaN;

    conformSlowly(twin, transform);
    util::conformNormals(mesh, transform.data());
    expectSame(mesh, twin);
    EXPECT_TRUE(mesh.storage().mNormals.empty());
    std::size_t kept = 0;
    const Faces after = facesOf(mesh);
    for (std::size_t f = 0; f < after.size(); ++f) kept += after[f] == before[f];
    flips += kept < after.size();
    partial += kept > 0 && kept < after.size();
  }
  EXPECT_GT(flips, 3000u);
  EXPECT_GT(partial, 2000u);
}

//   0---1---2 --> x
//   |   |   |           A floor seen from above (y). The left square looks down; the right one runs their common edge
//   3---4---5           in the same direction, so looks up. Both are to look up.
//   |
//   z
TEST(ConformNormals, neighborsOfAFloorAllLookUp) {
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 0, 1}, {1, 0, 1}, {2, 0, 1}}, {{0, 1, 4, 3}, {1, 4, 5, 2}});
  util::conformNormals(mesh, kIdentity.data());
  EXPECT_EQ(facesOf(mesh), (Faces{{1, 0, 3, 4}, {1, 4, 5, 2}}));
  for (const std::size_t face : {0, 1}) EXPECT_EQ(mesh.storage().mFaces.normal(face), (Vec3{0, 1, 0}));
}

}  // namespace
