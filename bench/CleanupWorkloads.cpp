#include "CleanupWorkloads.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <utility>

namespace {

constexpr std::uint64_t kSeed = 20261121;
constexpr double kPi = 3.14159265358979323846;

/// Two copies of a vertex that are moved by this along each axis are still closer than kWeldTolerance.
constexpr double kJitter = 0.0025;

Expected unchanged(const Workload& mesh) {
  return {
      .vertices = mesh.vertices(), .faces = mesh.faces(), .corners = mesh.corners(), .holeEntries = mesh.holes.size()};
}

double signedVolume(const Workload& mesh) {
  return ::signedVolume(mesh.coords.data(), mesh.indices.data(), mesh.counts.data(), mesh.faces());
}

CleanupWorkload soup(Workload mesh, FaceOrder order, Texture texture) {
  std::mt19937_64 random(kSeed);
  if (texture == Texture::mapped) addTexture(mesh);
  if (order == FaceOrder::shuffled) shuffleFaces(mesh, random);
  return {soupOf(mesh, kJitter, random), unchanged(mesh)};
}

CleanupWorkload doubled(Workload mesh, FaceOrder order, Texture texture) {
  std::mt19937_64 random(kSeed);
  if (texture == Texture::mapped) addTexture(mesh);
  const Expected expected = unchanged(mesh);
  std::size_t start = 0;
  for (std::size_t face = 0; face < expected.faces; ++face) {
    const std::uint32_t count = mesh.counts[face];
    if (face % 3 == 0) {
      const std::size_t copyStart = mesh.corners(), rotation = random() % count;
      for (std::uint32_t corner = 0; corner < count; ++corner) {
        const std::size_t from = start + (corner + rotation) % count;
        mesh.indices.push_back(mesh.indices[from]);
        if (texture == Texture::mapped) mesh.texCoordIndices.push_back(mesh.texCoordIndices[from]);
      }
      mesh.counts.push_back(count);
      if (face % 2 == 0) flipCorners(mesh, copyStart, count);
    }
    start += count;
  }
  if (order == FaceOrder::shuffled) shuffleFaces(mesh, random);
  return {std::move(mesh), expected};
}

CleanupWorkload flipped(Workload mesh, FaceOrder order) {
  std::mt19937_64 random(kSeed);
  if (order == FaceOrder::shuffled) shuffleFaces(mesh, random);
  Expected expected = unchanged(mesh);
  expected.volume = signedVolume(mesh);
  std::size_t start = 0;
  for (const std::uint32_t count : mesh.counts) {
    if (random() % 2) flipCorners(mesh, start, count);
    start += count;
  }
  return {std::move(mesh), expected};
}

/// A triangulated prism over a footprint that is star-shaped seen from its first corner.
template <std::size_t kCorners>
void addBuilding(Workload& mesh, const std::array<std::array<double, 2>, kCorners>& footprint, double x, double y,
                 double height) {
  const auto first = static_cast<std::uint32_t>(mesh.vertices());
  constexpr auto n = static_cast<std::uint32_t>(kCorners);
  for (const double z : {0.0, height})
    for (const auto& corner : footprint) mesh.addVertex(x + corner[0], y + corner[1], z);
  for (std::uint32_t i = 0; i < n; ++i) {
    const std::uint32_t a = first + i, b = first + (i + 1) % n;
    mesh.addFace({a, b, b + n});
    mesh.addFace({a, b + n, a + n});
  }
  for (std::uint32_t i = 1; i + 1 < n; ++i) {
    mesh.addFace({first, first + i + 1, first + i});
    mesh.addFace({first + n, first + n + i, first + n + i + 1});
  }
}

/// Pairs of an L-shaped and an octagonal building. Adds what merging their coplanar triangles gives to `merged`.
void addBuildings(Workload& mesh, std::size_t pairs, Expected& merged) {
  constexpr std::array<std::array<double, 2>, 6> kL{{{8, 8}, {8, 16}, {0, 16}, {0, 0}, {16, 0}, {16, 8}}};
  std::array<std::array<double, 2>, 8> octagon{};
  for (std::size_t i = 0; i < octagon.size(); ++i)
    octagon[i] = {28 + 8 * std::cos(kPi / 4 * static_cast<double>(i)),
                  8 + 8 * std::sin(kPi / 4 * static_cast<double>(i))};
  const auto width = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(pairs))));
  for (std::size_t pair = 0; pair < pairs; ++pair) {
    const double x = 40.0 * static_cast<double>(pair % width), y = 20.0 * static_cast<double>(pair / width);
    addBuilding(mesh, kL, x, y, 10.0 + static_cast<double>(pair % 7));
    addBuilding(mesh, octagon, x, y, 20.0 + static_cast<double>(pair % 5));
  }
  merged.vertices += pairs * (12 + 16);
  merged.faces += pairs * (8 + 10);
  merged.corners += pairs * (6 * 6 + 6 * 8);
}

/// Triangles over a square lattice; no two adjacent ones are coplanar.
void addGround(Workload& mesh, std::size_t triangles, Expected& unmerged) {
  constexpr std::array<double, 5> kHeights{0, 0.25, 0.5625, 1.125, 2.0};
  const auto side = static_cast<std::uint32_t>(std::ceil(std::sqrt(static_cast<double>(triangles) / 2)));
  const auto first = static_cast<std::uint32_t>(mesh.vertices());
  for (std::uint32_t y = 0; y <= side; ++y)
    for (std::uint32_t x = 0; x <= side; ++x) mesh.addVertex(x, y, kHeights[(x + 2 * y) % 5] - 10);
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t a = first + y * (side + 1) + x, c = a + side + 1;
      mesh.addFace({a, a + 1, c + 1});
      mesh.addFace({a, c + 1, c});
    }
  unmerged.vertices += (side + 1) * (side + 1);
  unmerged.faces += std::size_t{2} * side * side;
  unmerged.corners += std::size_t{6} * side * side;
}

constexpr Expected kNothing{.vertices = 0, .faces = 0, .corners = 0, .holeEntries = 0};

/// A vertex between two others.
std::uint32_t addMidpoint(Workload& mesh, std::uint32_t a, std::uint32_t b) {
  const auto middle = [&](std::size_t axis) {
    return (double{mesh.coords[3 * std::size_t{a} + axis]} + mesh.coords[3 * std::size_t{b} + axis]) / 2;
  };
  return mesh.addVertex(middle(0), middle(1), middle(2));
}

/// Four new vertices around the middle of a quad's, half as far from it.
std::array<std::uint32_t, 4> addInnerQuad(Workload& mesh, const std::array<std::uint32_t, 4>& quad) {
  std::array<double, 3> middle{};
  for (const std::uint32_t vertex : quad)
    for (std::size_t axis = 0; axis < 3; ++axis) middle[axis] += 0.25 * mesh.coords[3 * std::size_t{vertex} + axis];
  std::array<std::uint32_t, 4> inner{};
  for (std::size_t corner = 0; corner < 4; ++corner) {
    const auto at = [&](std::size_t axis) {
      return 0.5 * (middle[axis] + mesh.coords[3 * std::size_t{quad[corner]} + axis]);
    };
    inner[corner] = mesh.addVertex(at(0), at(1), at(2));
  }
  return inner;
}

std::array<std::uint32_t, 4> addSquare(Workload& mesh, double x, double y, double size) {
  return {mesh.addVertex(x, y, 0), mesh.addVertex(x + size, y, 0), mesh.addVertex(x + size, y + size, 0),
          mesh.addVertex(x, y + size, 0)};
}

std::string differs(const char* what, std::size_t is, std::size_t expected) {
  if (expected == Expected::kAny || is == expected) return {};
  return std::string(what) + ": " + std::to_string(is) + " instead of " + std::to_string(expected) + "; ";
}

bool hasCloserPair(const float* coords, std::size_t vertices, double apart) {
  for (const float* a = coords; a < coords + 3 * vertices; a += 3)
    for (const float* b = coords; b < a; b += 3) {
      const double dx = double{a[0]} - b[0], dy = double{a[1]} - b[1], dz = double{a[2]} - b[2];
      if (dx * dx + dy * dy + dz * dz < apart * apart) return true;
    }
  return false;
}

}  // namespace

std::string faultOf(const Cleanup::MeshData* result, const Expected& expected) {
  if (!result) return "no result";
  const auto vertices = static_cast<std::size_t>(result->mVCCount / 3),
             faces = static_cast<std::size_t>(result->mCountCount);
  std::string fault = differs("vertices", vertices, expected.vertices) + differs("faces", faces, expected.faces) +
                      differs("corners", static_cast<std::size_t>(result->mIndexCount), expected.corners) +
                      differs("hole entries", static_cast<std::size_t>(result->mHolesCount), expected.holeEntries);
  if (!std::isnan(expected.volume)) {
    const double volume = ::signedVolume(result->mVertexCoords, result->mIndices, result->mCounts, faces);
    if (!(std::abs(volume - expected.volume) <= 1e-9 * std::abs(expected.volume)))
      fault += "volume: " + std::to_string(volume) + " instead of " + std::to_string(expected.volume) + "; ";
  }
  if (expected.apart > 0 && hasCloserPair(result->mVertexCoords, vertices, expected.apart))
    fault += "vertices closer than they may be; ";
  return fault;
}

CleanupWorkload soupOfSphere(std::size_t corners, FaceOrder order, Texture texture) {
  return soup(sphereOfTriangles(corners / 3), order, texture);
}

CleanupWorkload soupOfGrid(std::size_t corners, FaceOrder order, Texture texture) {
  Workload grid = gridOfTriangles(corners / 3);
  if (texture == Texture::none) {
    grid.texCoords.clear();
    grid.texCoordIndices.clear();
  }
  return soup(std::move(grid), order, texture);
}

CleanupWorkload tenClusters(std::size_t corners) {
  std::mt19937_64 random(kSeed);
  CleanupWorkload work;
  for (std::size_t triangle = 0; triangle < corners / 3; ++triangle) {
    const auto a = random() % 10, b = (a + 1 + random() % 3) % 10, c = (b + 1 + random() % 3) % 10;
    std::array<std::uint32_t, 3> face{};
    std::size_t corner = 0;
    for (const auto cluster : {a, b, c}) {
      const auto offset = [&] { return kJitter * (2 * uniform(random) - 1); };
      const double angle = kPi / 5 * static_cast<double>(cluster), dx = offset(), dy = offset(), dz = offset();
      face[corner++] = work.input.addVertex(10 * std::cos(angle) + dx, 10 * std::sin(angle) + dy, dz);
    }
    work.input.addFace(face);
  }
  work.expected = {.vertices = 10, .faces = work.input.faces(), .corners = work.input.corners()};
  return work;
}

CleanupWorkload verticesInLine(std::size_t corners) {
  std::mt19937_64 random(kSeed);
  CleanupWorkload work;
  for (std::size_t triangle = 0; triangle < corners / 3; ++triangle) {
    std::array<std::uint32_t, 3> face{};
    for (std::size_t corner = 0; corner < 3; ++corner) {
      const double dy = kJitter * (2 * uniform(random) - 1), dz = kJitter * (2 * uniform(random) - 1);
      face[corner] = work.input.addVertex(0.125 * static_cast<double>(triangle + corner), dy, dz);
    }
    work.input.addFace(face);
  }
  const std::size_t faces = work.input.faces();
  work.expected = {.vertices = faces + 2, .faces = faces, .corners = 3 * faces};
  return work;
}

CleanupWorkload crowd(std::size_t corners) {
  std::mt19937_64 random(kSeed);
  CleanupWorkload work;
  for (std::size_t triangle = 0; triangle < corners / 3; ++triangle) {
    std::array<std::uint32_t, 3> face{};
    for (std::uint32_t& vertex : face) {
      const auto place = [&] { return 20 * double{kWeldTolerance} * uniform(random); };
      const double x = place(), y = place(), z = place();
      vertex = work.input.addVertex(x, y, z);
    }
    work.input.addFace(face);
  }
  work.expected = {.apart = double{kWeldTolerance} * (1 - 1e-6)};
  return work;
}

CleanupWorkload doubledTriangles(std::size_t corners, FaceOrder order, Texture texture) {
  return doubled(sphereOfTriangles(corners / 4), order, texture);
}

CleanupWorkload doubledHexagons(std::size_t corners, FaceOrder order, Texture texture) {
  return doubled(gridOfHexagons(corners / 8), order, texture);
}

CleanupWorkload flippedSphere(std::size_t corners, FaceOrder order) {
  return flipped(sphereOfTriangles(corners / 3), order);
}

CleanupWorkload flippedBuildings(std::size_t corners) {
  Workload mesh;
  Expected merged = kNothing;
  addBuildings(mesh, corners / 144, merged);
  return flipped(std::move(mesh), FaceOrder::sequential);
}

CleanupWorkload city(std::size_t corners, Texture texture) {
  CleanupWorkload work{{}, kNothing};
  addBuildings(work.input, corners / 288, work.expected);
  addGround(work.input, corners / 6, work.expected);
  if (texture == Texture::mapped) addTexture(work.input);
  return work;
}

CleanupWorkload griddedBoxes(std::size_t corners) {
  constexpr std::uint32_t kSide = 8;
  constexpr std::size_t kCornersPerBox = 36 * kSide * kSide;
  CleanupWorkload work{{}, kNothing};
  for (std::size_t box = 0, boxes = corners / kCornersPerBox; box < boxes; ++box) {
    addCube(work.input, kSide, [&](const std::array<double, 3>& point) {
      return std::array{4 * point[0] + 10 * static_cast<double>(box), 8 * point[1], 16 * point[2]};
    });
    work.expected.vertices += 12 * (kSide - 1) + 8;
    work.expected.faces += 6;
    work.expected.corners += 24 * kSide;
  }
  return work;
}

CleanupWorkload flatGrid(std::size_t corners) {
  CleanupWorkload work{gridOfQuads(corners / 4, Surface::flat), {}};
  const auto side = static_cast<std::size_t>(std::sqrt(static_cast<double>(work.input.faces())));
  work.expected = {.vertices = 4 * side, .faces = 1, .corners = 4 * side, .holeEntries = 0};
  return work;
}

CleanupWorkload flatGridWithGaps(std::size_t corners) {
  // An odd number of squares per side, so that the gaps lie inside.
  const auto gapsPerSide = static_cast<std::uint32_t>(std::sqrt(static_cast<double>(corners) / 12)),
             side = 2 * gapsPerSide + 1;
  CleanupWorkload work{gridOfQuads(std::size_t{side} * side, Surface::flat), {}};
  Workload& mesh = work.input;
  const std::vector<std::uint32_t> quads = std::exchange(mesh.indices, {});
  mesh.counts.clear();
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x)
      if (x % 2 == 0 || y % 2 == 0) mesh.addFace(std::span(quads).subspan(4 * (std::size_t{y} * side + x), 4));
  const std::size_t gaps = std::size_t{gapsPerSide} * gapsPerSide, sum = std::size_t{4} * side + 4 * gaps;
  work.expected = {.vertices = sum, .faces = 1 + gaps, .corners = sum, .holeEntries = gaps + 2};
  return work;
}

CleanupWorkload quadsWithMidpoints(std::size_t corners, Texture texture) {
  Workload quads = gridOfQuads(corners / 8, Surface::bumpy);
  const auto side = static_cast<std::uint32_t>(std::sqrt(static_cast<double>(quads.faces())));
  CleanupWorkload work;
  work.expected = unchanged(quads);
  work.input.coords = std::move(quads.coords);
  // Per vertex of the lattice, in the order of vertices: the middles of the edges to the right and up.
  std::vector<std::uint32_t> right, up;
  for (std::uint32_t y = 0; y <= side; ++y)
    for (std::uint32_t x = 0; x <= side; ++x) {
      const std::uint32_t a = y * (side + 1) + x;
      right.push_back(x < side ? addMidpoint(work.input, a, a + 1) : 0);
      up.push_back(y < side ? addMidpoint(work.input, a, a + side + 1) : 0);
    }
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t a = y * (side + 1) + x, b = a + 1, c = a + side + 1;
      work.input.addFace({a, right[a], b, up[b], c + 1, right[c], c, up[a]});
    }
  if (texture == Texture::mapped) addTexture(work.input);
  return work;
}

CleanupWorkload straightOutline(std::size_t corners) {
  CleanupWorkload work;
  const auto side = static_cast<std::uint32_t>(corners / 4);
  std::vector<std::uint32_t> outline;
  for (std::uint32_t i = 0; i < side; ++i) outline.push_back(work.input.addVertex(i, 0, 0));
  for (std::uint32_t i = 0; i < side; ++i) outline.push_back(work.input.addVertex(side, i, 0));
  for (std::uint32_t i = side; i > 0; --i) outline.push_back(work.input.addVertex(i, side, 0));
  for (std::uint32_t i = side; i > 0; --i) outline.push_back(work.input.addVertex(0, i, 0));
  work.input.addFace(outline);
  work.expected = {.vertices = 4, .faces = 1, .corners = 4};
  return work;
}

CleanupWorkload sphereWithNeedles(std::size_t corners) {
  const Workload sphere = sphereOfTriangles(corners / 3 * 4 / 6);
  CleanupWorkload work;
  work.input.coords = sphere.coords;
  std::size_t needles = 0;
  for (std::size_t face = 0; face < sphere.faces(); ++face) {
    const std::uint32_t a = sphere.indices[3 * face], b = sphere.indices[3 * face + 1],
                        c = sphere.indices[3 * face + 2];
    if (face % 4 == 0) {
      const std::uint32_t middle = addMidpoint(work.input, a, b);
      work.input.addFace({a, middle, c});
      work.input.addFace({middle, b, c});
      work.input.addFace({a, b, middle});
      ++needles;
    } else {
      work.input.addFace({a, b, c});
    }
  }
  work.expected = unchanged(work.input);
  work.expected.faces -= needles;
  work.expected.corners -= 3 * needles;
  return work;
}

CleanupWorkload needlesAmongHoles(std::size_t corners) {
  CleanupWorkload work;
  Workload& mesh = work.input;
  for (std::uint32_t group = 0; group < corners / 14; ++group) {
    const auto quad = addSquare(mesh, 2.0 * (group % 256), 2.0 * (group / 256), 1);
    const auto hole = addInnerQuad(mesh, quad);
    const std::array needle{quad[0], quad[1], addMidpoint(mesh, quad[0], quad[1])};
    mesh.addFace(quad);
    mesh.addFace(needle);
    mesh.addFace(hole);
    mesh.addFace(needle);
    mesh.addHoles({4 * group, 4 * group + 2});
  }
  const std::size_t groups = mesh.faces() / 4;
  work.expected = {.vertices = 8 * groups, .faces = 2 * groups, .corners = 8 * groups, .holeEntries = 3 * groups};
  return work;
}

CleanupWorkload quadsWithShortEdges(std::size_t corners, Texture texture) {
  Workload quads = gridOfQuads(corners / 5, Surface::bumpy);
  CleanupWorkload work;
  work.expected = unchanged(quads);
  work.input.coords = std::move(quads.coords);
  for (std::size_t first = 0; first < quads.corners(); first += 4) {
    const std::uint32_t* quad = &quads.indices[first];
    const float* xyz = &work.input.coords[3 * std::size_t{quad[0]}];
    const std::uint32_t near = work.input.addVertex(xyz[0] + 0.001, xyz[1], xyz[2]);
    work.input.addFace({quad[0], near, quad[1], quad[2], quad[3]});
  }
  if (texture == Texture::mapped) addTexture(work.input);
  return work;
}

CleanupWorkload quadsWithHoles(std::size_t corners) {
  CleanupWorkload work{gridOfQuads(corners / 8, Surface::bumpy), {}};
  const auto quads = static_cast<std::uint32_t>(work.input.faces());
  for (std::uint32_t face = 0; face < quads; ++face) {
    std::array<std::uint32_t, 4> quad{};
    for (std::size_t corner = 0; corner < 4; ++corner)
      quad[corner] = work.input.indices[4 * std::size_t{face} + corner];
    work.input.addFace(addInnerQuad(work.input, quad));
    work.input.addHoles({face, quads + face});
  }
  work.expected = unchanged(work.input);
  return work;
}

CleanupWorkload holesInOneFace(std::size_t corners) {
  const auto side = static_cast<std::uint32_t>(std::sqrt(static_cast<double>(corners) / 4));
  CleanupWorkload work;
  Workload& mesh = work.input;
  mesh.addFace(addSquare(mesh, 0, 0, 3.0 * side));
  mesh.holes.push_back(0);
  for (std::uint32_t hole = 0; hole < side * side; ++hole) {
    mesh.addFace(addSquare(mesh, 3.0 * (hole % side) + 1, 3.0 * (hole / side) + 1, 1));
    mesh.holes.push_back(hole + 1);
  }
  mesh.addHoles({});
  work.expected = unchanged(mesh);
  return work;
}

CleanupWorkload fan(std::size_t corners, bool isFlipped) {
  Workload mesh;
  const auto faces = static_cast<std::uint32_t>(corners / 6 * 2);
  mesh.addVertex(0, 10, 0);
  for (std::uint32_t i = 0; i < faces; ++i) {
    const double angle = 2 * kPi * i / faces;
    mesh.addVertex(1000 * std::cos(angle), i % 2, -1000 * std::sin(angle));
    mesh.addFace({0, 1 + i, 1 + (i + 1) % faces});
  }
  const Expected expected = unchanged(mesh);
  return isFlipped ? flipped(std::move(mesh), FaceOrder::sequential) : CleanupWorkload{std::move(mesh), expected};
}
