#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include <facetbox/base/Buffer.h>
#include <facetbox/operations/SurfacePieces.h>
#include <facetbox/util/Mesh.h>

namespace util {

/// Orients the faces consistently, and every connected component of them outward.
///
/// Faces are neighbors where exactly these two use an edge, and belong together then: a component grows over such
/// edges, from the lowest face not yet reached, and from a hole face to its outer face and back. Edges of one face or
/// of three and more carry no orientation. Within a component, neighbors end up running their edge in opposite
/// directions, and hole faces are turned exactly when their outer faces are: holes are expected to run like the face
/// that they perforate. On a surface that cannot be oriented, the way on which a face is first reached decides.
///
/// A component counts as turned outward when the signed volume between its faces (holes left out) and a point one unit
/// below its bounding box is positive: for a closed component three times its own volume, for an open one a vote for
/// "up". A component of a single face is measured from the point below the whole mesh. Cavities are components of their
/// own and are turned outward as well.
///
/// A flipped face turns its corner cycle, stored normal and corner sets (flipFace). Per-vertex normals are dropped from
/// the whole mesh. Lines and points keep everything else.
///
/// @param transform  16 doubles, column-major: the frame in which "outward" and "below" (-y) are meant, the stored
///                   coordinates don't change
/// @return number of faces flipped
/// O(vertices + corners); about 17 bytes a corner beside the mesh, 24 more a vertex unless `transform` is the
/// identity.
std::uint64_t conformNormals(Mesh& mesh, const double* transform);

/// The pieces that conformSurfaces() has oriented. Where faces are merged over clean edges and nothing else happens,
/// pieces stay what they are, and only their measure has to be taken again: each face that has gone lies in another one
/// of its piece, and edges that vanish vanish on both sides.
class SettledSurfaces {
 public:
  /// @param sources  of the history, when the pieces were found
  SettledSurfaces(SurfacePieces&& pieces, std::span<const std::uint32_t> sources)
      : mPieces(std::move(pieces)), mSources(sources.begin(), sources.end()) {}

  /// Whether conformSurfaces() would turn no face. Only where faces without holes have been merged, and no more.
  /// @param grown  first items of the faces that others were merged into
  /// O(faces), and the corners of the pieces of these faces.
  bool wouldStay(const Mesh& mesh, std::span<const std::uint32_t> grown) const;

 private:
  SurfacePieces mPieces;
  Buffer<std::uint32_t> mSources;  // per face as they were: the first item
};

/// The same of surfaces, outward by their own shape: no axis and no length matters, and a second run turns nothing.
///
/// A face and its holes are one surface, neighbors are surfaces that use an edge once each: see SurfacePieces, also for
/// what cannot be oriented. Hole faces turn exactly when their outer faces do. A face with nothing but its holes stays
/// as it is.
///
/// A closed piece is turned so that its volume becomes positive, where this is beyond the rounding of its sum. Of an
/// open one, the volume is measured from its center of gravity. It decides where its sign is the same from everywhere
/// around there, within 0.6 of the piece's radius of gyration, and where it is not below 1e-5 of area times radius.
/// (From a point moved by d, the volume is less by a third of d times the area vector. That of a closed piece is zero.)
/// So an open pipe, a house without a floor and a half sphere are turned. A panel, a terrain or a dish of a depth below
/// a fifth of its width is not, for there is no telling. Where the volume does not decide, the sense stays in which
/// more of the area runs, or where that is a tie, in which the lowest face does.
///
/// Stored normals stay as they are: those of turned faces are outdated.
/// @return number of faces flipped, holes included
/// O(vertices + corners), and sorting around single vertices. Beside the mesh, about 8 bytes a corner, 4 a vertex and
/// 5 a face, then 18 a face.
/// @param settled  unless null: gets what a later call can do without the whole, where the mesh has a history and no
///                 holes, and all pieces can be oriented
std::uint64_t conformSurfaces(Mesh& mesh, std::optional<SettledSurfaces>* settled = nullptr);

}  // namespace util
