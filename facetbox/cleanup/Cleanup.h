#pragma once

#include <cstdint>
#include <iosfwd>

#include <facetbox/util/Export.h>

/// Clean-up of polygon meshes: a flat record goes in, one operation runs, a new record comes out.
///
/// All functions are static, keep nothing between calls and may run in parallel on different records. Each takes its
/// input unchanged and returns a new record that the caller hands to freeMeshData(), or null when nothing is left: no
/// vertex or no face after the operation, mVertexCoords null, or mVCCount too small for one vertex.
///
/// Faces with fewer than three corners are dropped, and mLog of the result tells how many. Hole groups that are not
/// holes of their outer face are dropped with their faces; those of the result speak of the faces of the result.
///
/// Errors pass to the caller as exceptions, and nothing leaks. These are all there are:
/// - std::invalid_argument: an array that the counts call for is null: mCounts, mIndices, mTCIndices or mTextures
/// - std::out_of_range: a vertex index of a face with three corners or more is not below the number of vertices
/// - std::length_error: the faces have more than 2^32 - 1 corners in all, or an array of the result would have more
///   than 2^31 - 1 entries
/// - util::RuntimeErrorST: only from mergeVertices, see there
/// - std::bad_alloc: out of memory
/// Arrays that are shorter than the counts say cannot be noticed; reading behind them is undefined. The two functions
/// that release records throw nothing.
///
/// Costs are of time, n being the number of corners and vertices. Reading, the check of the holes and writing are part
/// of every call: linear, and n log n in the corners of hole groups.
///
/// Inside everything is double; floats are widened on the way in and rounded to nearest on the way out. Lengths and
/// areas are in the units of the coordinates, angles in degrees.
class FACETBOX_EXPORT Cleanup {
 public:
  /// The exchange record. Callers fill it themselves: the fields, their order and types are fixed.
  /// Counts of zero or below mean "none". All arrays may be null where their count allows it.
  struct MeshData {
    const char* mName;          ///< name of the mesh, NUL-terminated; may be null
    float* mVertexCoords;       ///< x, y, z per vertex: vertex v at [3v], [3v + 1], [3v + 2]
    int mVCCount;               ///< number of floats in mVertexCoords (3 per vertex; a remainder is ignored)
    std::uint32_t* mIndices;    ///< vertex indices, face after face, the corners of a face in order
    int mIndexCount;            ///< number of entries in mIndices; not read on input, mCounts decides
    float* mTexCoords;          ///< u, v per pair: pair p at [2p], [2p + 1]; null when the mesh has none
    int mTCCount;               ///< number of floats in mTexCoords. Without a pair the mesh has no texture
                                ///< coordinates, whatever mTexCoords is, and nothing that goes with them is read
    std::uint32_t* mTCIndices;  ///< index of a pair per face corner, parallel to mIndices
    int mTCIndexCount;          ///< number of entries in mTCIndices; not read on input
    std::uint32_t* mCounts;     ///< number of corners per face; on input read as signed
    int mCountCount;            ///< number of faces
    char** mTextures;           ///< one texture name (URI) per run, NUL-terminated; an entry may be null.
                                ///< Bytes are Latin-1 on input and UTF-8 on output. Read only with mTexCoords.
    int mTexturesCount;         ///< number of runs
    std::uint32_t* mTexturesStartFaces;  ///< first face of each run; null puts every run at face 0
    int mTexturesStartFacesCount;        ///< number of entries in mTexturesStartFaces; not read on input
    std::uint32_t* mHoles;  ///< groups: outer face, its hole faces ..., 0xFFFFFFFF. Hole faces are faces of the list.
    int mHolesCount;        ///< number of entries in mHoles, terminators included
    char* mLog;             ///< only in results: a text about dropped input, or null
  };

  /// Welds vertices that lie within `tolerance` (inclusive, the sign is ignored) of each other into the one of lowest
  /// index. A NaN tolerance welds nothing; an infinite one welds all finite vertices, as far as their faces allow.
  /// Linear on average, n log n in the corners of faces that would be pinched.
  /// @throws util::RuntimeErrorST "Merge failed : Vertex (x, y, z) not found in octree.": from 1000 vertices on,
  ///         where a vertex has a NaN or infinite coordinate (with a NaN tolerance no vertex is looked up)
  static const MeshData* mergeVertices(float tolerance, const MeshData& data);

  /// Removes corners at which a face's boundary runs straight on, up to `tolerance` degrees, in all faces alike.
  /// With `keepTextureMapping`, corners whose texture coordinates are 0.001 or more off the line stay. Linear.
  static const MeshData* removeVerticesColinear(float tolerance, bool keepTextureMapping, const MeshData& data);

  /// Merges neighbouring faces whose planes differ by at most `tolerance` degrees from that of their region's seed.
  /// With `compareAttributes`, only faces of one material and one continuous texture mapping. Inner boundaries become
  /// hole faces, which run opposite to their outer face. Below 0 nothing happens, 89 degrees at most count. O(n log n).
  static const MeshData* removeEdgesCoplanar(float tolerance, bool compareAttributes, const MeshData& data);

  /// Removes faces that repeat an earlier face: the same corners in the same or the reversed cyclic order.
  /// With `compareAttributes`, material and texture coordinates (closer than 0.001) must agree as well. Holes of a
  /// removed face go with it. Linear on average, n log n for many copies of one face.
  static const MeshData* removeFacesDouble(bool compareAttributes, const MeshData& data);

  /// Removes faces whose area is below `threshold` (square units); an area equal to it stays, a NaN area too.
  /// Zero or less removes nothing. O(corners).
  static const MeshData* removeFacesZero(float threshold, const MeshData& data);

  /// Collapses the edges of faces that are shorter than `threshold` (the sign is ignored), face by face onto an end
  /// of the edge, then removes faces of an area below 1e-6 square units (an absolute limit: mind your units) and
  /// vertices that no face uses. With nothing shorter, only unused vertices go. O(corners).
  static const MeshData* removeEdgesZero(float threshold, const MeshData& data);

  /// Makes neighbouring faces run their common edge in opposite directions and every connected piece face outward,
  /// cavities included. Linear.
  static const MeshData* conformNormals(const MeshData& data);

  /// Releases a record that one of the functions above returned, and every array in it but mHoles, which is left to
  /// the process. `data` must not be null.
  static void freeMeshData(const MeshData* data);

  /// Releases a record that one of the functions above returned, mHoles included. Null is accepted.
  static void freeMeshDataAndHoles(const MeshData* data);
};

/// Writes a text dump of the record: its counts, pointers, name and texture names, but no other array contents.
/// Independent of the stream's format flags and locale, which stay as they are. Flushes the stream.
FACETBOX_EXPORT std::wostream& operator<<(std::wostream& stream, const Cleanup::MeshData& data);
