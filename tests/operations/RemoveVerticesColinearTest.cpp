#include <facetbox/operations/RemoveVerticesColinear.h>

#include <facetbox/math/Angle.h>
#include <tests/support/PlainMesh.h>

namespace {

using namespace support;
using util::removeVerticesColinear;

// The slow twin: ordered maps, and every corner taken out of its record at once.

/// What the random input has reached.
struct Coverage {
  unsigned calls = 0, removed = 0, cleared = 0, blocked = 0, offLine = 0;
};

struct SlowEdge {
  Edge ends;
  Indices faces;
  std::uint32_t otherEnd(std::uint32_t v) const { return v == ends.first ? ends.second : ends.first; }
};

std::vector<SlowEdge> edgesOf(const PlainMesh& mesh) {
  std::vector<SlowEdge> edges;
  for (std::uint32_t f = 0; f < mesh.mFaces.size(); ++f)
    for (const auto& [a, b] : support::edgesOf(mesh.mFaces[f].mCorners)) {
      const Edge ends = std::minmax(a, b);
      auto edge = std::ranges::find(edges, ends, &SlowEdge::ends);
      if (edge == edges.end()) edge = edges.insert(edge, {ends, {}});
      edge->faces.push_back(f);
    }
  return edges;
}

Vec3 slowDirection(const Vec3& from, const Vec3& to) {
  const double size = length(to - from);
  return size > 1e-25 ? (to - from) / size : Vec3{0, 1, 0};
}

double slowAngle(const Vec3& a, const Vec3& b) {
  const bool isObtuse = dot(a, b) < 0;
  const double angle = 2 * std::asin(length((isObtuse ? -b : b) - a) / 2);
  return isObtuse ? 3.141592653589793 - angle : angle;
}

/// A corner with its neighbors in the ring.
struct Corner {
  std::size_t p, n, prev = (p + n - 1) % n, next = (p + 1) % n;
};

bool texCoordsOnLine(const PlainMesh& mesh, const PlainFace& face, const Corner& at) {
  const auto vertex = [&](std::size_t i) { return mesh.mVertices[face.mCorners[i]]; };
  const double a = length(vertex(at.p) - vertex(at.prev)), b = length(vertex(at.next) - vertex(at.p)), l = a + b;
  for (const auto& [set, indices] : face.mSets) {
    if (set > 9) continue;
    const auto& pairs = mesh.mTexCoords.at(set);
    for (const std::size_t i : {at.prev, at.p, at.next})
      if (indices[i] >= pairs.size()) return false;
    const Vec2 own = pairs[indices[at.p]], before = pairs[indices[at.prev]], after = pairs[indices[at.next]];
    const double x = own.x - (((l - b) / l) * after.x + ((l - a) / l) * before.x);
    const double y = own.y - (((l - b) / l) * after.y + ((l - a) / l) * before.y);
    if (std::sqrt(x * x + y * y) >= 0.001) return false;
  }
  return true;
}

void removeCornerSlowly(const PlainMesh& mesh, PlainFace& face, const Corner& at) {
  const auto vertex = [&](std::size_t i) { return mesh.mVertices[face.mCorners[i]]; };
  const bool nextLonger = lengthSq(vertex(at.next) - vertex(at.p)) > lengthSq(vertex(at.p) - vertex(at.prev));
  const auto eraseAt = [](Indices& indices, std::size_t i) { indices.erase(indices.begin() + i); };
  if (!face.mNormalIndices.empty()) eraseAt(face.mNormalIndices, face.mPerVertexNormals && nextLonger ? at.prev : at.p);
  for (auto& [set, indices] : face.mSets) {
    const std::uint32_t own = indices[at.p];
    eraseAt(indices, at.p);
    if (set == 10 && nextLonger) indices[(at.p + at.n - 2) % (at.n - 1)] = own;
  }
  eraseAt(face.mCorners, at.p);
}

std::uint64_t removeColinearSlowly(PlainMesh& mesh, double t, bool keepMapping, Coverage& coverage) {
  const std::vector<SlowEdge> edges = edgesOf(mesh);
  std::uint64_t count = 0;
  bool cleared = false;
  for (std::uint32_t v = 0; v < mesh.mVertices.size(); ++v) {
    std::set<std::uint32_t> others, blocked;
    std::map<std::uint32_t, Indices> atVertex, toChange;  // edges by face
    for (std::uint32_t e = 0; e < edges.size(); ++e) {
      if (edges[e].ends.first != v && edges[e].ends.second != v) continue;
      others.insert(edges[e].otherEnd(v));
      for (const std::uint32_t f : edges[e].faces) {
        atVertex[f].push_back(e);
        if (edges[e].ends.first == edges[e].ends.second) atVertex[f].push_back(e);
      }
    }
    if (others.size() > 2) continue;
    const auto cornerIn = [&](const PlainFace& face) {
      return Corner{static_cast<std::size_t>(std::ranges::find(face.mCorners, v) - face.mCorners.begin()),
                    face.mCorners.size()};
    };
    for (const auto& [f, list] : atVertex) {
      const PlainFace& face = mesh.mFaces[f];
      if (face.isCleared() || list.size() < 2) continue;
      const Vec3 d1 = slowDirection(mesh.mVertices[v], mesh.mVertices[edges[list[0]].otherEnd(v)]);
      const Vec3 d2 = slowDirection(mesh.mVertices[v], mesh.mVertices[edges[list[1]].otherEnd(v)]);
      if (!(t >= 180.0 || slowAngle(d1, d2) * 57.29577951308232 >= 180.0 - t)) continue;
      toChange[f] = list;
      const Corner at = cornerIn(face);
      const bool offLine = keepMapping && !texCoordsOnLine(mesh, face, at);
      const bool seam = (face.mSets.contains(11) && face.mSets.at(11)[at.p] != kEnd) ||
                        (face.mSets.contains(10) && face.mSets.at(10)[at.p] != face.mSets.at(10)[at.prev]);
      coverage.offLine += offLine;
      if (offLine || seam) blocked.insert({list[0], list[1]});
    }
    for (const auto& [f, list] : toChange) {
      PlainFace& face = mesh.mFaces[f];
      if (blocked.contains(list[0]) || blocked.contains(list[1])) {
        ++coverage.blocked;
        continue;
      }
      ++count;
      if (face.mCorners.size() < 4) {
        face.clear();
        cleared = true;
        ++coverage.cleared;
      } else {
        removeCornerSlowly(mesh, face, cornerIn(face));
        ++coverage.removed;
      }
    }
  }
  ++coverage.calls;
  if (count == 0) return 0;
  removeUnusedVertices(mesh);
  for (PlainFace& face : mesh.mFaces) face.mNormal = normalOf(mesh.mVertices, face.mCorners);
  if (cleared) compactPrimitives(mesh);
  return count;
}

/// Squares of side 4 in a row or block, whose sides carry further vertices, which not every square shares; some are cut
/// into triangles, some visit vertices twice.
PlainMesh randomPatchwork(std::mt19937& random) {
  const int columns = pick(random, 1, 3), rows = pick(random, 1, 3);
  const double scale = oneIn(random, 2) ? 1.0 : 0.1;
  PlainMesh mesh;
  std::map<std::pair<int, int>, std::uint32_t> vertices;
  for (int x = 0; x <= 4 * columns; ++x)
    for (int y = 0; y <= 4 * rows; ++y)
      if ((x % 4 == 0 && y % 4 == 0) || ((x % 4 == 0 || y % 4 == 0) && oneIn(random, 2)))
        vertices.emplace(std::pair(x, y), vertices.size());
  Indices numbers(vertices.size());
  std::iota(numbers.begin(), numbers.end(), 0u);
  if (oneIn(random, 2)) std::ranges::shuffle(numbers, random);
  mesh.mVertices.resize(numbers.size());
  for (auto& [place, v] : vertices) {
    v = numbers[v];
    Vec3& p = mesh.mVertices[v] = {scale * place.first, scale * place.second, 0};
    if (oneIn(random, 8)) p.z = scale * 0.25 * pick(random, -2, 2);
    if (oneIn(random, 80)) p = mesh.mVertices[0];
    if (oneIn(random, 150)) p.x = oneIn(random, 2) ? kNaN : kInfinity;
  }
  for (int square = 0; square < columns * rows; ++square) {
    Indices ring;
    std::pair<int, int> place{4 * (square % columns), 4 * (square / columns)};
    for (const auto& [dx, dy] : {std::pair(1, 0), {0, 1}, {-1, 0}, {0, -1}})
      for (int i = 0; i < 4; ++i, place.first += dx, place.second += dy)
        if (vertices.contains(place) && (i == 0 || !oneIn(random, 12))) ring.push_back(vertices[place]);
    std::rotate(ring.begin(), ring.begin() + below(random, ring.size()), ring.end());
    if (oneIn(random, 4)) std::ranges::reverse(ring);
    if (oneIn(random, 8)) continue;
    if (oneIn(random, 4)) {
      for (std::size_t i = 2; i < ring.size(); ++i) mesh.mFaces.push_back({{ring[0], ring[i - 1], ring[i]}});
      continue;
    }
    while (oneIn(random, 4)) {  // a repeated corner, a spike, or a second visit
      const std::uint32_t i = below(random, ring.size()), own = ring[i], other = ring[below(random, ring.size())];
      ring.insert(ring.begin() + i, oneIn(random, 2) ? own : other);
      if (oneIn(random, 2)) ring.insert(ring.begin() + i, own);
    }
    mesh.mFaces.push_back({ring});
  }
  return mesh;
}

/// Gives the faces normals, textures and seams, most of them such that they do not stand against a removal.
void decorate(std::mt19937& random, PlainMesh& mesh) {
  const bool handedOver = oneIn(random, 3), seams = oneIn(random, 4), normals = oneIn(random, 2);
  const std::array textured{oneIn(random, 2), false, false, oneIn(random, 3)};
  for (PlainFace& face : mesh.mFaces) {
    const std::size_t n = face.mCorners.size();
    face.mNormal = {0, 0, 1.0 * pick(random, 1, 3)};
    face.mPerVertexNormals = !oneIn(random, 3);
    face.mTag = pick(random, -1, 2);
    if (normals && !oneIn(random, 4)) face.mNormalIndices = randomIndices(random, n, 100);
    for (const int set : {0, 3}) {
      if (!textured[set] || oneIn(random, 6)) continue;
      auto& pairs = mesh.mTexCoords[set];
      for (const std::uint32_t v : face.mCorners) {
        const double noise = oneIn(random, 10) ? 0.0005 * pick(random, -4, 4) : 0.0;
        face.mSets[set].push_back(static_cast<std::uint32_t>(pairs.size()) + (oneIn(random, 100) ? 1000 : 0));
        pairs.push_back({0.3 * mesh.mVertices[v].x + noise, 0.2 * mesh.mVertices[v].y});
      }
    }
    for (std::size_t i = 0; i < n; ++i) {
      auto& kinds = face.mSets[10];
      kinds.push_back(i == 0 || oneIn(random, 7) ? 7 + below(random, 2) : kinds.back());
      face.mSets[11].push_back(oneIn(random, 10) ? 4 : kEnd);
    }
    if (!handedOver) face.mSets.erase(10);
    if (!seams) face.mSets.erase(11);
  }
  if (oneIn(random, 2) && mesh.mFaces.size() > 1) {
    mesh.mRunMaterials = {materialOf("a"), materialOf("b")};
    mesh.mRunStarts = {0, 1};
    mesh.mHoles[1] = {0};
  }
}

//   4-----3-----5
//   |     |     |    1 goes. 2 and 3 lie on straight lines too, but a third edge ends there.
//   0--1--2-----6
TEST(RemoveVerticesColinear, takesOutAVertexInTheMiddleOfALine) {
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}, {4, 2, 0}, {4, 0, 0}},
                     {{0, 1, 2, 3, 4}, {2, 6, 5, 3}});
  EXPECT_EQ(removeVerticesColinear(mesh, 0, false), 1u);
  EXPECT_EQ(facesOf(mesh), (Faces{{0, 1, 2, 3}, {1, 5, 4, 2}}));
}

TEST(RemoveVerticesColinear, equalsItsSlowTwinOnRandomMeshes) {
  const double tolerances[] = {0.0, 0.5, 1.0, 5.0, 20.0, 46.0, 90.0, 179.9, 180.0, 400.0, -1.0, kNaN, kInfinity};
  Coverage coverage;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin;
    if (seed % 8 == 0) {  // all on one line, in any order
      for (int v = pick(random, 3, 8); v > 0; --v) twin.mVertices.push_back({1.0 * pick(random, 0, 3), 0, 0});
      for (int faces = pick(random, 1, 2); faces > 0; --faces)
        twin.mFaces.push_back({randomIndices(random, pick(random, 1, 9), twin.mVertices.size())});
    } else {
      twin = randomPatchwork(random);
    }
    decorate(random, twin);
    Mesh mesh = buildMesh(twin);

    // The second call meets records with gaps between them.
    for (int call = 0; call < 2; ++call) {
      warmCache(mesh);
      const double tolerance = tolerances[below(random, 13)];
      const bool keepMapping = oneIn(random, 2);
      const std::uint64_t expected = removeColinearSlowly(twin, tolerance, keepMapping, coverage);
      ASSERT_EQ(removeVerticesColinear(mesh, tolerance, keepMapping), expected);
      expectSame(mesh, twin);
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(coverage.removed, 3 * coverage.calls);
  EXPECT_GT(coverage.cleared, coverage.calls / 4);
  EXPECT_GT(coverage.blocked, coverage.calls / 4);
  EXPECT_GT(coverage.offLine, 100u);
}

TEST(Normalized, standsInForVectorsWithoutALength) {
  EXPECT_EQ(util::normalized({0, 0, -1e-24}), (Vec3{0, 0, -1}));
  for (const double x : {0.0, 1e-25, kNaN}) EXPECT_EQ(util::normalized({x, 0, 0}), (Vec3{0, 1, 0})) << x;
  EXPECT_TRUE(std::isnan(util::normalized({kInfinity, 0, 0}).x));
}

}  // namespace
