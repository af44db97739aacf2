#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <facetbox/util/Export.h>

namespace util {

struct MaterialPair;  ///< only declared for hosts: they pass null
struct MeshStorage;   ///< the library's own view of a mesh
struct Polygon;
struct Vec3;

/// Common base of polygon and triangle meshes.
class FACETBOX_EXPORT MeshBase {
 public:
  virtual ~MeshBase();

 protected:
  MeshBase() = default;
  MeshBase(const MeshBase&) = default;
  MeshBase& operator=(const MeshBase&) = default;
};

/// The working polygon mesh: vertices in doubles, faces with any number of corners, hole groups, texture coordinates
/// and material runs. Used by one thread at a time; the exceptions are named where they are declared.
///
/// The order of the virtual slots is part of the interface: destructor, clone, derive.
class FACETBOX_EXPORT Mesh : public MeshBase {
 public:
  /// Builds a mesh without texture coordinates from flat arrays, which are copied.
  ///
  /// @param name        NUL-terminated, or null for none
  /// @param coordCount  number of floats in `coords`: three per vertex, a remainder is ignored
  /// @param coords      x, y, z per vertex
  /// @param indices     vertex indices, face after face
  /// @param faceCount   number of faces
  /// @param counts      corners per face. A face of fewer than three is dropped; vertices that no face uses go with it.
  /// @param holes       hole groups (outer face, hole faces ..., 0xFFFFFFFF) or null; kept as given, but renumbered
  ///                    when faces are dropped
  /// @param holesCount  number of entries in `holes`
  /// @param log         receives a text when faces were dropped, else stays as it is; may be null
  ///
  /// Counts of zero or below mean "none".
  /// @throws std::invalid_argument where an array that the counts call for is null
  /// @throws std::out_of_range     where an index is not below the number of vertices
  /// @throws std::length_error     where the faces have more than 2^32 - 1 corners in all
  /// O(vertices + corners).
  Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int faceCount,
       const std::int32_t* counts, const std::uint32_t* holes, int holesCount, std::string* log);

  /// The same with texture coordinates and material runs.
  ///
  /// @param texCoordCount    number of floats in `texCoords`: two per pair, a remainder is ignored. Without a pair the
  ///                         mesh has no texture coordinates, and `texCoordIndices` is not read.
  /// @param texCoordIndices  a pair's index per corner, parallel to `indices`; not checked against the pairs
  /// @param materials        null: material runs are the library's own business
  /// @param runStarts        null, likewise
  /// @throws std::invalid_argument also where `materials` or `runStarts` is not null
  Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int texCoordCount,
       const float* texCoords, const std::uint32_t* texCoordIndices, int faceCount, const std::int32_t* counts,
       const std::uint32_t* holes, int holesCount, const MaterialPair* materials, const std::uint32_t* runStarts,
       std::string* log);

  ~Mesh() override;

  /// A copy; the caller owns it. Materials and holes are copied only if asked for. Cache stamps belong to the object
  /// and are never copied.
  virtual Mesh* clone(bool withMaterialsAndHoles) const;

  /// A copy with its vertices transformed and its face normals recomputed; per-vertex normals, holes and stamps are
  /// left behind, materials and texture coordinates kept. The caller owns it.
  ///
  /// @param matrix           16 doubles, column-major (translation in [12] to [14]), no division by w; null for the
  ///                         identity
  /// @param reverseMirrored  reverse the corner order of every face when the matrix mirrors (determinant below 0)
  virtual Mesh* derive(const double* matrix, bool reverseMirrored) const;

  // From here on for the library itself.

  /// The array constructor with material runs: run r covers the faces from runStarts[r] up to the next start.
  FACETBOX_LOCAL Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices,
                      int texCoordCount, const float* texCoords, const std::uint32_t* texCoordIndices, int faceCount,
                      const std::int32_t* counts, const std::uint32_t* holes, int holesCount,
                      std::vector<MaterialPair> materials, std::span<const std::uint32_t> runStarts, std::string* log);
  /// A mesh of faces from records, which are copied.
  /// @throws std::out_of_range where a vertex index is not below the number of vertices
  FACETBOX_LOCAL Mesh(const std::string& name, const std::vector<Vec3>& vertices, const std::vector<Polygon>& faces);
  /// A mesh of lines and points.
  FACETBOX_LOCAL Mesh(const std::string& name, const std::vector<Vec3>& vertices, const std::vector<Polygon>& lines,
                      const std::vector<Polygon>& points);
  FACETBOX_LOCAL Mesh(const Mesh& other);
  FACETBOX_LOCAL Mesh& operator=(const Mesh& other);

  /// The data itself, for the operations.
  FACETBOX_LOCAL MeshStorage& storage() noexcept { return *mStorage; }
  FACETBOX_LOCAL const MeshStorage& storage() const noexcept { return *mStorage; }

 private:
  FACETBOX_LOCAL Mesh(const Mesh& other, bool withMaterialsAndHoles);
  FACETBOX_LOCAL void build(const char* name, int coordCount, const float* coords, const std::uint32_t* indices,
                            int texCoordCount, const float* texCoords, const std::uint32_t* texCoordIndices,
                            int faceCount, const std::int32_t* counts, const std::uint32_t* holes, int holesCount,
                            std::string* log);

  std::unique_ptr<MeshStorage> mStorage;
};

}  // namespace util
