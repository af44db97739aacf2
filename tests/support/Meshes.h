#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <facetbox/cleanup/Cleanup.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/math/Vec3.h>

namespace support {

using Indices = std::vector<std::uint32_t>;
using Faces = std::vector<Indices>;

constexpr std::uint32_t kEnd = 0xFFFFFFFFu;  ///< ends a hole group

/// A mesh of faces with their computed normals; `holes` is the flat list of hole groups.
util::Mesh meshOf(const std::vector<util::Vec3>& points, const Faces& faces, const Indices& holes = {});
Faces facesOf(const util::Mesh& mesh);
Indices holesOf(const util::Mesh& mesh);

/// Fails where the mesh breaks what holds between operations: indices in range, no cleared record left, records apart
/// in the pools, corner sets and runs parallel, hole groups alive, derived facts not outdated.
void expectConsistent(const util::Mesh& mesh);

/// Has the mesh derive its connectivity, so that expectConsistent() sees whether a later change discards it.
void warmCache(const util::Mesh& mesh);

/// Uniform enough, and the same numbers with every standard library: both ends included.
inline int pick(std::mt19937& random, int low, int high) {
  return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
}

/// An exchange record that owns its arrays.
struct Record {
  std::optional<std::string> mName;
  std::vector<float> mCoords;
  Indices mIndices;
  std::vector<float> mTexCoords;  ///< none: null
  Indices mTexCoordIndices;
  std::vector<std::int32_t> mCounts;
  std::vector<std::optional<std::string>> mTextures;
  Indices mStarts;  ///< none: null
  Indices mHoles;

  /// A view of the arrays; valid until the record changes.
  Cleanup::MeshData view();

 private:
  std::vector<char*> mTexturePointers;
};

Record recordOf(const std::vector<util::Vec3>& points, const Faces& faces);

struct ResultDeleter {
  void operator()(const Cleanup::MeshData* data) const { Cleanup::freeMeshDataAndHoles(data); }
};
using Result = std::unique_ptr<const Cleanup::MeshData, ResultDeleter>;

/// A copy of one of a record's arrays.
template <class T>
std::vector<T> arrayOf(const T* array, int count) {
  return count > 0 ? std::vector<T>(array, array + count) : std::vector<T>();
}
std::vector<std::optional<std::string>> texturesOf(const Cleanup::MeshData& data);
/// Everything in a record as text; numbers exact.
std::string describe(const Cleanup::MeshData& data);

}  // namespace support
