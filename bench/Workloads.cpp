#include "Workloads.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <memory>

namespace {

char gridTexture[] = "textures/grid.png";

template <class T>
std::unique_ptr<T[]> copyArray(const std::vector<T>& array) {
  std::unique_ptr<T[]> copy(new T[array.size()]);
  std::memcpy(copy.get(), array.data(), array.size() * sizeof(T));
  benchmark::DoNotOptimize(copy.get());
  return copy;
}

template <class T>
std::size_t bytesOf(const std::vector<T>& array) {
  return array.size() * sizeof(T);
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

Workload gridOfTriangles(std::size_t triangles) {
  const auto side = static_cast<std::uint32_t>(std::ceil(std::sqrt(static_cast<double>(triangles) / 2.0)));
  Workload grid;
  for (std::uint32_t y = 0; y <= side; ++y)
    for (std::uint32_t x = 0; x <= side; ++x) {
      const auto fx = static_cast<float>(x), fy = static_cast<float>(y);
      grid.coords.insert(grid.coords.end(), {fx, fy, std::sin(0.7f * fx) * std::cos(0.3f * fy)});
      grid.texCoords.insert(grid.texCoords.end(), {fx / static_cast<float>(side), fy / static_cast<float>(side)});
    }
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) {
      const std::uint32_t a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
      grid.indices.insert(grid.indices.end(), {a, b, d, a, d, c});
      grid.counts.insert(grid.counts.end(), {3, 3});
    }
  grid.texCoordIndices = grid.indices;
  grid.textures = {gridTexture};
  grid.textureStarts = {0};
  return grid;
}

void copyArrays(const Workload& workload) {
  const auto coords = copyArray(workload.coords);
  const auto indices = copyArray(workload.indices);
  const auto counts = copyArray(workload.counts);
  const auto texCoords = copyArray(workload.texCoords);
  const auto texCoordIndices = copyArray(workload.texCoordIndices);
  benchmark::ClobberMemory();
}
