#include "Workloads.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_map>
#include <utility>

namespace {

constexpr std::uint32_t kGroupEnd = 0xFFFFFFFFu;

char gridTexture[] = "textures/grid.png";

template <class T>
std::size_t bytesOf(const std::vector<T>& array) {
  return array.size() * sizeof(T);
}

/// No two adjacent cells have the same slope.
float bumpAt(std::uint32_t x, std::uint32_t y) {
  constexpr std::array<float, 5> kHeights{0.0f, 0.0625f, 0.140625f, 0.28125f, 0.5f};
  return kHeights[(x + 2 * y) % 5];
}

void addGridVertices(Workload& grid, std::uint32_t width, std::uint32_t height, Surface surface) {
  for (std::uint32_t y = 0; y < height; ++y)
    for (std::uint32_t x = 0; x < width; ++x) {
      const auto fx = static_cast<float>(x), fy = static_cast<float>(y);
      grid.coords.insert(grid.coords.end(), {fx, fy, surface == Surface::flat ? 0.0f : bumpAt(x, y)});
    }
}

std::uint32_t sideFor(std::size_t cells) {
  return static_cast<std::uint32_t>(std::ceil(std::sqrt(static_cast<double>(cells))));
}

/// For records without texture coordinates.
void dropUnusedVertices(Workload& mesh) {
  std::vector<std::uint32_t> place(mesh.vertices(), 0);
  for (const std::uint32_t vertex : mesh.indices) place[vertex] = 1;
  std::vector<float> kept;
  for (std::size_t vertex = 0; vertex < place.size(); ++vertex) {
    if (!place[vertex]) continue;
    place[vertex] = static_cast<std::uint32_t>(kept.size() / 3);
    kept.insert(kept.end(), &mesh.coords[3 * vertex], &mesh.coords[3 * vertex] + 3);
  }
  for (std::uint32_t& vertex : mesh.indices) vertex = place[vertex];
  mesh.coords = std::move(kept);
}

template <class T>
void copyRange(const std::vector<T>& from, std::size_t begin, std::size_t count, std::vector<T>& to) {
  const auto first = from.begin() + static_cast<std::ptrdiff_t>(begin);
  to.insert(to.end(), first, first + static_cast<std::ptrdiff_t>(count));
}

}  // namespace

std::size_t Workload::bytes() const {
  return bytesOf(coords) + bytesOf(indices) + bytesOf(counts) + bytesOf(texCoords) + bytesOf(texCoordIndices) +
         bytesOf(holes);
}

Cleanup::MeshData Workload::view() {
  Cleanup::MeshData data{};
  data.mVertexCoords = coords.data();
  data.mVCCount = static_cast<int>(coords.size());
  data.mIndices = indices.data();
  data.mIndexCount = static_cast<int>(indices.size());
  data.mCounts = counts.data();
  data.mCountCount = static_cast<int>(counts.size());
  if (!texCoords.empty()) {
    data.mTexCoords = texCoords.data();
    data.mTCCount = static_cast<int>(texCoords.size());
    data.mTCIndices = texCoordIndices.data();
    data.mTCIndexCount = static_cast<int>(texCoordIndices.size());
  }
  if (!textures.empty()) {
    data.mTextures = textures.data();
    data.mTexturesCount = static_cast<int>(textures.size());
    data.mTexturesStartFaces = textureStarts.data();
    data.mTexturesStartFacesCount = static_cast<int>(textureStarts.size());
  }
  if (!holes.empty()) {
    data.mHoles = holes.data();
    data.mHolesCount = static_cast<int>(holes.size());
  }
  return data;
}

std::uint32_t Workload::addVertex(double x, double y, double z) {
  coords.insert(coords.end(), {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)});
  return static_cast<std::uint32_t>(vertices() - 1);
}

void Workload::addFace(std::span<const std::uint32_t> corners) {
  indices.insert(indices.end(), corners.begin(), corners.end());
  counts.push_back(static_cast<std::uint32_t>(corners.size()));
}

void Workload::addHoles(std::initializer_list<std::uint32_t> group) {
  holes.insert(holes.end(), group.begin(), group.end());
  holes.push_back(kGroupEnd);
}

double uniform(std::mt19937_64& random) { return static_cast<double>(random() >> 11) * 0x1p-53; }

Workload gridOfTriangles(std::size_t triangles) {
  const std::uint32_t side = sideFor((triangles + 1) / 2);
  Workload grid;
  addGridVertices(grid, side + 1, side + 1, Surface::bumpy);
  for (std::size_t vertex = 0; vertex < grid.vertices(); ++vertex)
    for (std::size_t axis = 0; axis < 2; ++axis)
      grid.texCoords.push_back(grid.coords[3 * vertex + axis] / static_cast<float>(side));
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
      grid.addFace({a, b, d});
      grid.addFace({a, d, c});
    }
  grid.texCoordIndices = grid.indices;
  grid.textures = {gridTexture};
  grid.textureStarts = {0};
  return grid;
}

Workload gridOfQuads(std::size_t quads, Surface surface) {
  const std::uint32_t side = sideFor(quads);
  Workload grid;
  addGridVertices(grid, side + 1, side + 1, surface);
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t a = y * (side + 1) + x, c = a + side + 1;
      grid.addFace({a, a + 1, c + 1, c});
    }
  return grid;
}

Workload gridOfHexagons(std::size_t hexagons) {
  const std::uint32_t side = sideFor(hexagons), width = 2 * side + 2;
  Workload grid;
  addGridVertices(grid, width, side + 1, Surface::bumpy);
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t a = y * width + 2 * x + y % 2, b = a + width;
      grid.addFace({a, a + 1, a + 2, b + 2, b + 1, b});
    }
  dropUnusedVertices(grid);
  return grid;
}

Workload sphereOfTriangles(std::size_t triangles) {
  Workload sphere;
  addCube(sphere, sideFor((triangles + 11) / 12), [](const std::array<double, 3>& point) {
    std::array<double, 3> direction{};
    double lengthSq = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      direction[axis] = std::tan(point[axis] * 0.785398163397448309);  // a quarter of pi: makes the cells even
      lengthSq += direction[axis] * direction[axis];
    }
    for (double& component : direction) component /= std::sqrt(lengthSq);
    const double radius = 100.0 + 2.0 * std::sin(9.0 * direction[0]) * std::cos(7.0 * direction[1] + direction[2]);
    for (double& component : direction) component *= radius;
    return direction;
  });
  return sphere;
}

void addCube(Workload& mesh, std::uint32_t side,
             const std::function<std::array<double, 3>(const std::array<double, 3>&)>& position) {
  std::unordered_map<std::uint64_t, std::uint32_t> known;  // vertices by their lattice place
  const auto vertexAt = [&](const std::array<std::uint32_t, 3>& place) {
    const std::uint64_t key = (std::uint64_t{place[0]} * (side + 1) + place[1]) * (side + 1) + place[2];
    const auto [entry, isNew] = known.try_emplace(key, static_cast<std::uint32_t>(mesh.vertices()));
    if (isNew) {
      const auto xyz =
          position({2.0 * place[0] / side - 1.0, 2.0 * place[1] / side - 1.0, 2.0 * place[2] / side - 1.0});
      mesh.addVertex(xyz[0], xyz[1], xyz[2]);
    }
    return entry->second;
  };
  for (std::size_t axis = 0; axis < 3; ++axis)
    for (const bool isFar : {false, true})
      for (std::uint32_t v = 0; v < side; ++v)
        for (std::uint32_t u = 0; u < side; ++u) {
          std::array<std::uint32_t, 4> quad{};
          for (std::uint32_t corner = 0; corner < 4; ++corner) {
            // Counterclockwise as seen from the far end of the axis.
            std::array<std::uint32_t, 3> place{};
            place[axis] = isFar ? side : 0;
            place[(axis + 1) % 3] = u + (corner == 1 || corner == 2);
            place[(axis + 2) % 3] = v + (corner >= 2);
            quad[isFar ? corner : 3 - corner] = vertexAt(place);
          }
          mesh.addFace({quad[0], quad[1], quad[2]});
          mesh.addFace({quad[0], quad[2], quad[3]});
        }
}

void addTexture(Workload& mesh) {
  mesh.texCoords.clear();
  for (std::size_t vertex = 0; vertex < mesh.vertices(); ++vertex) {
    const float *xyz = &mesh.coords[3 * vertex], scale = 1.0f / 64;
    mesh.texCoords.push_back(scale * (xyz[0] + 0.25f * xyz[2]));
    mesh.texCoords.push_back(scale * (xyz[1] + 0.5f * xyz[2]));
  }
  mesh.texCoordIndices = mesh.indices;
  mesh.textures = {gridTexture};
  mesh.textureStarts = {0};
}

void shuffleFaces(Workload& mesh, std::mt19937_64& random) {
  std::vector<std::size_t> starts(mesh.faces()), order(mesh.faces());
  std::exclusive_scan(mesh.counts.begin(), mesh.counts.end(), starts.begin(), std::size_t{0});
  std::iota(order.begin(), order.end(), std::size_t{0});
  for (std::size_t left = order.size(); left > 1; --left) std::swap(order[left - 1], order[random() % left]);
  Workload shuffled;
  for (const std::size_t face : order) {
    const std::uint32_t count = mesh.counts[face];
    shuffled.counts.push_back(count);
    copyRange(mesh.indices, starts[face], count, shuffled.indices);
    if (!mesh.texCoordIndices.empty()) copyRange(mesh.texCoordIndices, starts[face], count, shuffled.texCoordIndices);
  }
  mesh.counts = std::move(shuffled.counts);
  mesh.indices = std::move(shuffled.indices);
  mesh.texCoordIndices = std::move(shuffled.texCoordIndices);
}

void flipCorners(Workload& mesh, std::size_t firstCorner, std::size_t cornerCount) {
  const auto begin = static_cast<std::ptrdiff_t>(firstCorner),
             end = static_cast<std::ptrdiff_t>(firstCorner + cornerCount);
  std::reverse(mesh.indices.begin() + begin, mesh.indices.begin() + end);
  if (!mesh.texCoordIndices.empty())
    std::reverse(mesh.texCoordIndices.begin() + begin, mesh.texCoordIndices.begin() + end);
}

Workload soupOf(const Workload& mesh, double jitter, std::mt19937_64& random) {
  Workload soup;
  soup.counts = mesh.counts;
  soup.textures = mesh.textures;
  soup.textureStarts = mesh.textureStarts;
  soup.indices.resize(mesh.corners());
  std::iota(soup.indices.begin(), soup.indices.end(), 0u);
  soup.coords.reserve(3 * mesh.corners());
  for (const std::uint32_t vertex : mesh.indices)
    for (std::size_t axis = 0; axis < 3; ++axis)
      soup.coords.push_back(
          static_cast<float>(mesh.coords[3 * std::size_t{vertex} + axis] + jitter * (2.0 * uniform(random) - 1.0)));
  if (mesh.texCoords.empty()) return soup;
  soup.texCoordIndices = soup.indices;
  for (const std::uint32_t pair : mesh.texCoordIndices)
    copyRange(mesh.texCoords, 2 * std::size_t{pair}, 2, soup.texCoords);
  return soup;
}

double signedVolume(const float* coords, const std::uint32_t* indices, const std::uint32_t* counts, std::size_t faces) {
  double sixfold = 0;
  for (std::size_t face = 0; face < faces; indices += counts[face++])
    for (std::uint32_t corner = 2; corner < counts[face]; ++corner) {
      const float *a = coords + 3 * std::size_t{indices[0]}, *b = coords + 3 * std::size_t{indices[corner - 1]},
                  *c = coords + 3 * std::size_t{indices[corner]};
      sixfold += double{a[0]} * (double{b[1]} * c[2] - double{b[2]} * c[1]) +
                 double{a[1]} * (double{b[2]} * c[0] - double{b[0]} * c[2]) +
                 double{a[2]} * (double{b[0]} * c[1] - double{b[1]} * c[0]);
    }
  return sixfold / 6;
}
