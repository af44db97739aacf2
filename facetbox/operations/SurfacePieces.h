#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <facetbox/base/Buffer.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// The connected pieces of the surface that faces with their holes make, and how each face runs beside the others of
/// its piece.
///
/// A face and its holes are one surface. Its edges are those of the face, and the rims of its holes in the direction
/// opposite to the face's own, however the hole faces are wound. (A hole of a hole is a face of its own.) Two surfaces
/// are neighbors where each uses an edge once and nobody else does. An edge from a vertex to itself is none.
///
/// A piece that cannot be oriented is oriented along the tree of its edges of the lowest vertices. This tree does not
/// depend on how faces run, and stays a tree of such edges when neighbors that agree are merged.
class SurfacePieces {
 public:
  /// O(vertices + corners), and sorting around single vertices. 8 bytes a corner and 4 a vertex while it lasts, up to
  /// 14 a face that stay. Leaves the edge twins that it finds with the mesh.
  explicit SurfacePieces(const MeshStorage& mesh);

  /// Pieces are numbered by their lowest faces.
  std::size_t size() const { return mStarts.size() - 1; }
  /// Ascending.
  std::span<const std::uint32_t> faces(std::size_t piece) const {
    return std::span(mByPiece).subspan(mStarts[piece], mStarts[piece + 1] - mStarts[piece]);
  }
  /// Whether each edge is used by the piece as often in one direction as in the other, once its faces run alike.
  bool isClosed(std::size_t piece) const { return mIsOpen[mByPiece[mStarts[piece]]] == 0; }
  /// Whether all neighbors of each piece can run alike.
  bool areOrientable() const { return mAreOrientable; }
  /// Whether a face has to be turned where the lowest face of its piece is not, and the other way round.
  bool runsAgainstLowest(std::uint32_t face) const { return (mLinks[face] & 1) != 0; }

  bool isHole(std::uint32_t face) const { return !mRims.empty() && mRims[face] != Rim::none; }
  /// Whether a face is a hole that is wound like its outer face.
  bool isRimReversed(std::uint32_t face) const { return !mRims.empty() && mRims[face] == Rim::reversed; }

 private:
  /// As which edges of its surface those of a hole face count.
  enum class Rim : std::uint8_t { none, asItRuns, reversed };
  /// Twice a face, one more where it runs down the edge that it uses.
  using FaceAndDirection = std::uint32_t;

  void linkHoles(const MeshStorage& mesh);
  void linkNeighbors(const MeshStorage& mesh);
  bool linkPairs(const MeshStorage& mesh);
  void linkInOrder(const MeshStorage& mesh);
  void linkEachToItself(std::size_t faceCount);
  void judgeEdge(std::span<const std::uint64_t> uses);
  void linkToLowest(Monitor* monitor);
  void judgeOverused(Monitor* monitor);
  void listPieces(Monitor* monitor);

  std::uint32_t shortenedLink(std::uint32_t face);
  bool join(std::uint32_t a, std::uint32_t b, std::uint32_t isAgainst);

  // Trees of faces that belong together: per face, twice a face not higher, and one more where it runs against that.
  Buffer<std::uint32_t> mLinks;
  Buffer<std::uint8_t> mIsOpen;  // per face, in the end what the lowest of a piece says
  Buffer<Rim> mRims;             // per face; empty without holes
  bool mAreOrientable = true;
  Buffer<FaceAndDirection> mOverused;  // uses of edges of more than two, edge after edge, each with an end
  Buffer<std::uint32_t> mByPiece;      // faces
  Buffer<std::uint32_t> mStarts;       // per piece, and one more
};

}  // namespace util
