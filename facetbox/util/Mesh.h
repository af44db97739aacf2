#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <facetbox/util/Export.h>

namespace util {

struct MaterialPair;  ///< only declared for hosts: they pass null
struct MeshStorage;   ///< the data of a mesh, internal
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
/// and material runs. Only one thread may use a mesh at a time, except where a declaration says otherwise.
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
  /// @param counts      corners per face. A face with fewer than three is dropped. When faces are dropped, so are the
  ///                    vertices that no face uses.
  /// @param holes       hole groups (outer face, hole faces ..., 0xFFFFFFFF) or null. Stored unchecked; renumbered when
  ///                    faces are dropped
  /// @param holesCount  number of entries in `holes`
  /// @param log         receives a text when faces are dropped, otherwise unchanged; may be null
  ///
  /// A count of zero or less means "none".
  /// @throws std::invalid_argument where an array that the counts call for is null
  /// @throws std::out_of_range     where an index is not below the number of vertices
  /// @throws std::length_error     where the faces have more than 2^32 - 1 corners in total
  /// O(vertices + corners).
  Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int faceCount,
       const std::int32_t* counts, const std::uint32_t* holes, int holesCount, std::string* log);

  /// The same with texture coordinates and material runs.
  ///
  /// @param texCoordCount    number of floats in `texCoords`: two per pair, a remainder is ignored. With less than one
  ///                         pair the mesh has no texture coordinates, and `texCoordIndices` is not read.
  /// @param texCoordIndices  index of a pair per corner, parallel to `indices`; unchecked
  /// @param materials        must be null: only the library makes material runs
  /// @param runStarts        must be null
  /// @throws std::invalid_argument also where `materials` or `runStarts` is not null
  Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int texCoordCount,
       const float* texCoords, const std::uint32_t* texCoordIndices, int faceCount, const std::int32_t* counts,
       const std::uint32_t* holes, int holesCount, const MaterialPair* materials, const std::uint32_t* runStarts,
       std::string* log);

  ~Mesh() override;

  /// Returns a copy, which the caller owns. Materials and holes are copied only if asked for. Cache stamps belong to
  /// the object and are never copied.
  virtual Mesh* clone(bool withMaterialsAndHoles) const;

  /// Returns a copy with transformed vertices and recomputed face normals. The caller owns it. Materials and texture
  /// coordinates are copied; per-vertex normals, holes and cache stamps are not.
  ///
  /// @param matrix           16 doubles, column-major (translation in [12] to [14]), no division by w; null for the
  ///                         identity
  /// @param reverseMirrored  reverse the corner order of every face when the matrix mirrors (determinant below 0)
  virtual Mesh* derive(const double* matrix, bool reverseMirrored) const;

  // Internal from here on.

  /// The array constructor with material runs: run r covers the faces from runStarts[r] up to the next start.
  FACETBOX_LOCAL Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices,
                      int texCoordCount, const float* texCoords, const std::uint32_t* texCoordIndices, int faceCount,
                      const std::int32_t* counts, const std::uint32_t* holes, int holesCount,
                      std::vector<MaterialPair> materials, std::span<const std::uint32_t> runStarts, std::string* log);
  /// A mesh of faces, copied from records.
  /// @throws std::out_of_range where a vertex index is not below the number of vertices
  FACETBOX_LOCAL Mesh(const std::string& name, const std::vector<Vec3>& vertices, const std::vector<Polygon>& faces);
  /// A mesh of lines and points.
  FACETBOX_LOCAL Mesh(const std::string& name, const std::vector<Vec3>& vertices, const std::vector<Polygon>& lines,
                      const std::vector<Polygon>& points);
  FACETBOX_LOCAL Mesh(const Mesh& other);
  FACETBOX_LOCAL Mesh& operator=(const Mesh& other);

  /// The data, for the operations.
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
