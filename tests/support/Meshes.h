#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/cleanup/Cleanup.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>

namespace support {

using util::Mesh;
using util::Vec2;
using util::Vec3;
using Indices = std::vector<std::uint32_t>;
using Faces = std::vector<Indices>;

constexpr std::uint32_t kEnd = 0xFFFFFFFFu;  ///< ends a hole group
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// A mesh of faces with their computed normals; `holes` is the flat list of hole groups.
Mesh meshOf(const std::vector<Vec3>& points, const Faces& faces, const Indices& holes = {});
/// Triangles with their hierarchy; three coordinates per vertex, three indices per triangle.
std::unique_ptr<util::TriangleMesh> triangleMeshOf(std::vector<double> coordinates, std::vector<std::uint32_t> indices);
Faces facesOf(const Mesh& mesh);
Indices holesOf(const Mesh& mesh);

/// Fails where the mesh breaks what holds between operations: indices in range, no cleared record left, records apart
/// in the pools, corner sets and runs parallel, hole groups alive, derived facts not outdated.
void expectConsistent(const Mesh& mesh);

/// Has the mesh derive its connectivity, so that expectConsistent() sees whether a later change discards it.
void warmCache(const Mesh& mesh);

/// Uniform enough, and the same numbers with every standard library: both ends included.
inline int pick(std::mt19937& random, int low, int high) {
  return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
}
inline std::uint32_t below(std::mt19937& random, std::size_t end) { return static_cast<std::uint32_t>(random() % end); }
/// True once in `times`.
inline bool oneIn(std::mt19937& random, int times) { return pick(random, 1, times) == 1; }
Indices randomIndices(std::mt19937& random, std::size_t count, std::size_t end);

using Edge = std::pair<std::uint32_t, std::uint32_t>;
/// From each corner to the next, in the order of the corners.
std::vector<Edge> edgesOf(const Indices& corners);

struct Surface {
  std::vector<Vec3> mPoints;
  Faces mFaces;
};
/// What is outside of a pile of cubes of side `size`, as squares that share their vertices and look outward.
Surface surfaceOf(const std::set<std::array<int, 3>>& cubes, double size);
/// The squares of a grid that are not `missing`; vertex x, y has the number y * (width + 1) + x.
Surface gridOf(std::uint32_t width, std::uint32_t height, const std::function<bool(unsigned x, unsigned y)>& missing);

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

Record recordOf(const std::vector<Vec3>& points, const Faces& faces);

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
