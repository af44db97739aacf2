#include "CraftedWorkloads.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

namespace {

constexpr std::uint64_t kSeed = 4;

using Point = std::array<double, 2>;

std::uint32_t addPolygon(Workload& mesh, std::initializer_list<Point> corners) {
  std::vector<std::uint32_t> face;
  for (const auto& [x, y] : corners) face.push_back(mesh.addVertex(x, y, 0));
  mesh.addFace(face);
  return static_cast<std::uint32_t>(mesh.faces() - 1);
}

/// Starts with a square plate around the origin.
void addPlate(Workload& mesh, double halfSize) {
  const double h = halfSize;
  mesh.holes.push_back(addPolygon(mesh, {{-h, -h}, {h, -h}, {h, h}, {-h, h}}));
}

/// A slit of length 8000 that rises to the right.
void addSlit(Workload& mesh, double offset, double width) {
  mesh.holes.push_back(
      addPolygon(mesh, {{0, offset}, {8000, offset + 6000}, {8000, offset + 6000 + width}, {0, offset + width}}));
}

CleanupWorkload withExpected(Workload&& mesh, std::size_t faces) { return {std::move(mesh), {.faces = faces}}; }

void addTexturedFace(Workload& mesh, std::span<const std::uint32_t> corners) {
  mesh.addFace(corners);
  if (mesh.textures.empty()) {
    static char name[] = "texture.png";
    mesh.textures.push_back(name);
    mesh.textureStarts.push_back(0);
  }
}

void addPair(Workload& mesh, double u, double v) {
  mesh.texCoordIndices.push_back(static_cast<std::uint32_t>(mesh.texCoords.size() / 2));
  mesh.texCoords.push_back(static_cast<float>(u));
  mesh.texCoords.push_back(static_cast<float>(v));
}

}  // namespace

CleanupWorkload slits(std::size_t corners) {
  Workload mesh;
  const std::size_t count = corners / 4;
  addPlate(mesh, 20'000);
  for (std::size_t i = 0; i < count; ++i)
    addSlit(mesh, 8000.0 * static_cast<double>(i) / static_cast<double>(count), 4000.0 / static_cast<double>(count));
  mesh.addHoles({});
  const std::size_t faces = mesh.faces();
  return withExpected(std::move(mesh), faces);
}

CleanupWorkload nestedCs(std::size_t corners) {
  Workload mesh;
  const std::size_t count = corners / 8;
  addPlate(mesh, 20'000);
  for (std::size_t i = count; i > 0; --i) {
    const double unit = 8000.0 / static_cast<double>(count), a = 2000 + unit * static_cast<double>(i), b = a + unit / 2;
    mesh.holes.push_back(addPolygon(mesh, {{-b, -b}, {a, -b}, {a, -a}, {-a, -a}, {-a, a}, {a, a}, {a, b}, {-b, b}}));
  }
  mesh.addHoles({});
  const std::size_t faces = mesh.faces();
  return withExpected(std::move(mesh), faces);
}

CleanupWorkload crossedSlits(std::size_t corners) {
  Workload mesh;
  const std::size_t count = corners / 8;
  const double step = 8000.0 / static_cast<double>(count);
  addPlate(mesh, 20'000);
  for (std::size_t i = 0; i < count; ++i) {
    const double offset = step * static_cast<double>(i);
    addSlit(mesh, offset, step / 2);
    // From this slit half-way to the next: it meets this one only.
    const double x = 80 * static_cast<double>(i % 100), y = offset + 0.75 * x;
    mesh.holes.push_back(
        addPolygon(mesh, {{x + 1, y + step / 4}, {x + 3, y + 1.5 + step / 4}, {x + 3, y + 2.25 + step * 0.75}}));
  }
  mesh.addHoles({});
  return withExpected(std::move(mesh), count + 1);
}

CleanupWorkload chainOfPinches(std::size_t corners) {
  Workload mesh;
  const auto quads = static_cast<std::uint32_t>(corners / 4);
  for (std::uint32_t i = 0; i <= 2 * quads + 1; ++i) mesh.addVertex(0, 0, 0);
  const auto apart = [&] { return mesh.addVertex(10.0 + static_cast<double>(mesh.vertices()), 0, 0); };
  // Three corners at one place: stable until the middle one leaves, which takes the others along.
  for (std::uint32_t i = quads; i > 0; --i) mesh.addFace({i, i - 1, quads + i, apart()});
  mesh.addFace({0, apart(), 2 * quads + 1, apart()});
  CleanupWorkload work{std::move(mesh), {}};
  work.expected.vertices = work.input.vertices();
  work.expected.faces = work.input.faces();
  return work;
}

CleanupWorkload copiesWithTexture(std::size_t corners) {
  std::mt19937_64 random(kSeed);
  Workload mesh;
  const std::array triangle{mesh.addVertex(0, 0, 0), mesh.addVertex(1, 0, 0), mesh.addVertex(0, 1, 0)};
  for (std::size_t i = 0; i < corners / 3; ++i) {
    addTexturedFace(mesh, triangle);
    for (int corner = 0; corner < 3; ++corner) {
      const double u = uniform(random), v = uniform(random);
      addPair(mesh, u, v);
    }
  }
  const std::size_t faces = mesh.faces();
  return withExpected(std::move(mesh), faces);
}

CleanupWorkload copiesApartAtOneCorner(std::size_t corners) {
  constexpr std::size_t kCorners = 12;
  Workload mesh;
  std::array<std::uint32_t, kCorners> polygon{};
  for (std::size_t i = 0; i < kCorners; ++i)
    polygon[i] = mesh.addVertex(static_cast<double>(i), static_cast<double>(i * i), 0);
  for (std::size_t i = 0; i < corners / kCorners; ++i) {
    addTexturedFace(mesh, polygon);
    for (std::size_t corner = 0; corner < kCorners; ++corner)
      addPair(mesh, corner == i % kCorners ? 1 + static_cast<double>(i) : 0, 0);
  }
  const std::size_t faces = mesh.faces();
  return withExpected(std::move(mesh), faces);
}

CleanupWorkload reorderedLoops(std::size_t corners) {
  constexpr std::uint32_t kLoops = 10;
  std::mt19937_64 random(kSeed);
  Workload mesh;
  // Vertex 1 is visited between any two loops, vertex 0 once: at their lowest vertex the faces don't repeat themselves.
  for (std::uint32_t v = 0; v < 2 + 2 * kLoops; ++v) mesh.addVertex(v, v * v, 0);
  std::array<std::uint32_t, kLoops> order{};
  std::iota(order.begin(), order.end(), 0u);
  for (std::size_t i = 0; i < corners / (3 * kLoops + 2); ++i) {
    std::shuffle(order.begin(), order.end(), random);
    std::vector<std::uint32_t> face{0};
    for (const std::uint32_t loop : order) face.insert(face.end(), {1, 2 + 2 * loop, 3 + 2 * loop});
    face.push_back(1);
    mesh.addFace(face);
  }
  mesh.addFace({0, 2, 4});
  return withExpected(std::move(mesh), 1);  // a face that visits a vertex twice is double to itself
}
