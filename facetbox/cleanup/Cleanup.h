#pragma once

#include <cstdint>
#include <iosfwd>

#include <facetbox/util/Export.h>

/// Clean-up of polygon meshes: a flat record goes in, one operation runs, a new record comes out.
///
/// All functions are static and keep nothing between calls. They may run in parallel on different records. Each leaves
/// its input unchanged and returns a new record, which the caller releases with freeMeshData(). It returns null when
/// nothing is left: no vertex or no face after the operation, mVertexCoords null, or mVCCount too small for one vertex.
///
/// Faces with fewer than three corners are dropped; mLog of the result says how many. Hole faces that are not holes of
/// their outer face are dropped as well. The hole groups of the result use the face numbers of the result.
///
/// Errors reach the caller as exceptions, without leaks. This list is complete:
/// - std::invalid_argument: an array that the counts call for is null: mCounts, mIndices, mTCIndices or mTextures
/// - std::out_of_range: a vertex index of a face with three or more corners is not below the number of vertices
/// - std::length_error: the faces have more than 2^32 - 1 corners in total, or an array of the result would have more
///   than 2^31 - 1 entries
/// - util::RuntimeErrorST: only from mergeVertices, see there
/// - std::bad_alloc: out of memory
/// An array that is shorter than its count cannot be detected; reading past its end is undefined behavior. The two
/// functions that release records do not throw.
///
/// The costs below are run times; n is the number of corners and vertices. Every call also reads the record, checks its
/// holes and writes the result, which is linear, plus n log n in the corners of hole groups.
///
/// Computations use doubles. Input floats are widened; results are rounded to the nearest float. Lengths and areas are
/// in the units of the coordinates, angles in degrees.
class FACETBOX_EXPORT Cleanup {
 public:
  /// The exchange record. Callers fill it themselves: the fields, their order and types are fixed.
  /// A count of zero or less means "none". An array may be null where its count allows it.
  struct MeshData {
    const char* mName;          ///< name of the mesh, NUL-terminated; may be null
    float* mVertexCoords;       ///< x, y, z per vertex: vertex v at [3v], [3v + 1], [3v + 2]
    int mVCCount;               ///< number of floats in mVertexCoords (3 per vertex; a remainder is ignored)
    std::uint32_t* mIndices;    ///< vertex indices, face after face, the corners of a face in order
    int mIndexCount;            ///< number of entries in mIndices; not read on input, where mCounts decides
    float* mTexCoords;          ///< u, v per pair: pair p at [2p], [2p + 1]; null when the mesh has none
    int mTCCount;               ///< number of floats in mTexCoords. With less than one pair the mesh has no texture
                                ///< coordinates: mTexCoords, mTCIndices and the texture runs are not read
    std::uint32_t* mTCIndices;  ///< index of a pair per face corner, parallel to mIndices
    int mTCIndexCount;          ///< number of entries in mTCIndices; not read on input
    std::uint32_t* mCounts;     ///< number of corners per face; read as signed on input
    int mCountCount;            ///< number of faces
    char** mTextures;           ///< one texture name (URI) per run, NUL-terminated; an entry may be null.
                                ///< Bytes are Latin-1 on input and UTF-8 on output. Read only with mTexCoords.
    int mTexturesCount;         ///< number of runs
    std::uint32_t* mTexturesStartFaces;  ///< first face of each run; null starts every run at face 0
    int mTexturesStartFacesCount;        ///< number of entries in mTexturesStartFaces; not read on input
    std::uint32_t* mHoles;  ///< groups: outer face, its hole faces ..., 0xFFFFFFFF. Hole faces are faces of the list.
    int mHolesCount;        ///< number of entries in mHoles, terminators included
    char* mLog;             ///< only in results: a text about dropped input, or null
  };

  /// Welds vertices that lie within `tolerance` (inclusive; the sign is ignored) of each other into the one with the
  /// lowest index. A NaN tolerance welds nothing. An infinite tolerance welds all finite vertices, except where a weld
  /// would damage a face. Linear on average; n log n in the corners of faces that a weld would pinch.
  /// @throws util::RuntimeErrorST "Merge failed : Vertex (x, y, z) not found in octree.": the mesh has 1000 or more
  ///         vertices, and one has a NaN or infinite coordinate (not with a NaN tolerance, which looks up no vertex)
  static const MeshData* mergeVertices(float tolerance, const MeshData& data);

  /// Removes corners where the boundary of a face runs straight on, within `tolerance` degrees, from all faces that
  /// share its edges, so that no T-junctions arise. With `keepTextureMapping`, a corner stays when its texture
  /// coordinates are 0.001 or more off the line between those of its neighbors. Linear.
  static const MeshData* removeVerticesColinear(float tolerance, bool keepTextureMapping, const MeshData& data);

  /// Merges adjacent faces into regions. The plane of each face differs by at most `tolerance` degrees from the plane
  /// of its region's first, largest face. With `compareAttributes`, all faces of a region have one material and one
  /// continuous texture mapping. Inner boundaries become hole faces, wound opposite to their outer face. A tolerance
  /// below 0 changes nothing; one above 89 counts as 89. O(n log n).
  static const MeshData* removeEdgesCoplanar(float tolerance, bool compareAttributes, const MeshData& data);

  /// Removes faces that repeat an earlier face: the same corners in the same or the reversed cyclic order.
  /// With `compareAttributes`, material and texture coordinates (closer than 0.001) must agree as well. The holes of a
  /// removed face are removed with it. Linear on average; n log n for many copies of one face.
  static const MeshData* removeFacesDouble(bool compareAttributes, const MeshData& data);

  /// Removes faces with an area below `threshold` (square units). A face whose area equals it, or is NaN, stays.
  /// A threshold of zero or less removes nothing. O(corners).
  static const MeshData* removeFacesZero(float threshold, const MeshData& data);

  /// Collapses edges shorter than `threshold` (the sign is ignored) onto one of their ends, face by face. Then removes
  /// faces with an area below 1e-6 square units, an absolute limit that depends on your units, and vertices that no
  /// face uses. Without such an edge, only unused vertices are removed. O(corners).
  static const MeshData* removeEdgesZero(float threshold, const MeshData& data);

  /// Orients faces: adjacent faces run along their common edge in opposite directions, and each connected component
  /// faces outward. The walls of a cavity are a component of their own and are turned outward too. Linear.
  static const MeshData* conformNormals(const MeshData& data);

  /// Releases a record that one of the functions above returned, and all its arrays except mHoles, which remains
  /// allocated. `data` must not be null.
  static void freeMeshData(const MeshData* data);

  /// Releases a record that one of the functions above returned, mHoles included. Null is accepted.
  static void freeMeshDataAndHoles(const MeshData* data);
};

/// Writes a text dump of the record: its counts, pointers, name and texture names, but no other array contents.
/// Neither uses nor changes the stream's format flags and locale. Flushes the stream.
FACETBOX_EXPORT std::wostream& operator<<(std::wostream& stream, const Cleanup::MeshData& data);
