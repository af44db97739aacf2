#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <facetbox/util/Export.h>

namespace facetbox {

/// No index; ends a hole group.
inline constexpr std::uint32_t kNone = 0xFFFFFFFFu;

/// A mesh in somebody else's arrays. Nothing is owned; an empty span means "none".
///
/// Faces have any number of corners, three at least to count. A hole is a face of the list like any other: a group
/// names the outer face and the faces that perforate it.
struct MeshView {
  std::span<const double> points = {};             ///< x, y, z per vertex: vertex v at [3v], [3v + 1], [3v + 2]
  std::span<const std::uint32_t> counts = {};      ///< corners per face
  std::span<const std::uint32_t> indices = {};     ///< vertex per corner, face after face
  std::span<const double> texCoords = {};          ///< u, v per pair: pair p at [2p], [2p + 1]
  std::span<const std::uint32_t> texIndices = {};  ///< pair per corner; kNone on all corners of a face without any
  std::span<const std::uint32_t> labels = {};      ///< one number per face, the caller's own (a material, say)
  std::span<const std::uint32_t> holes = {};       ///< groups: outer face, its hole faces ..., kNone
};

/// The same, owned.
struct PolyMesh {
  std::vector<double> points = {};
  std::vector<std::uint32_t> counts = {};
  std::vector<std::uint32_t> indices = {};
  std::vector<double> texCoords = {};
  std::vector<std::uint32_t> texIndices = {};
  std::vector<std::uint32_t> labels = {};
  std::vector<std::uint32_t> holes = {};

  /// Valid until a vector changes.
  MeshView view() const noexcept { return {points, counts, indices, texCoords, texIndices, labels, holes}; }
  operator MeshView() const noexcept { return view(); }

  friend bool operator==(const PolyMesh&, const PolyMesh&) = default;
};

/// One thing that is wrong with a mesh's arrays, and where.
struct Problem {
  enum class Kind : std::uint8_t {
    pointsAreNoTriples,       ///< points: `value` numbers, which is no multiple of three
    texCoordsAreNoPairs,      ///< texCoords: `value` numbers, an odd number
    tooLarge,                 ///< `value` entries where 32 bits have to number them
    countsDoNotAddUp,         ///< counts call for `limit` indices, there are `value`
    texIndicesDoNotMatch,     ///< `value` texIndices for `limit` corners
    labelsDoNotMatch,         ///< `value` labels for `limit` faces
    pointIsNotFinite,         ///< vertex `value` has a NaN or infinite coordinate
    texCoordIsNotFinite,      ///< pair `value` has a NaN or infinite coordinate
    indexOutOfRange,          ///< the corner names vertex `value` of `limit`
    texIndexOutOfRange,       ///< the corner names pair `value` of `limit`
    texIndicesAreIncomplete,  ///< the corner has no pair, but others of its face have
    tooFewCorners,            ///< a face of `value` corners; not fatal: it is left out
    holesHaveNoEnd,           ///< the last hole group does not end with kNone
    holeGroupIsEmpty,         ///< entry `value` of holes ends a group that names no outer face
    holeFaceIsMissing,        ///< entry `value` of holes names face `face`, but there are `limit`
    holeFaceIsRepeated,       ///< entry `value` of holes names face `face`, which stands in holes before as the same
    outerFaceIsHole,          ///< entry `value` of holes names face `face`: it would be an outer face and a hole
    more                      ///< `value` further problems that are not listed
  };

  Kind kind;
  std::uint32_t face = kNone;    ///< kNone where it is about no face
  std::uint32_t corner = kNone;  ///< counted within the face; kNone where it is about no corner
  bool isFatal = true;
  std::uint64_t value = 0, limit = 0;  ///< see Kind

  friend bool operator==(const Problem&, const Problem&) = default;
};

/// One plain sentence, such as "Face 7, corner 2: vertex 19 does not exist (the mesh has 12 vertices)."
FACETBOX_EXPORT std::string describe(const Problem& problem);

/// Everything that is wrong with a mesh's arrays, before anything is read through them. None fatal: the mesh is fit for
/// every call. Not fatal are faces of fewer than three corners: they are left out.
///
/// Sizes come first; where these do not fit, what depends on them is not looked at. Then vertices, faces and hole
/// groups in their order.
/// @param limit  how many are listed at most, fatal ones rather than others; a last one of Kind::more counts the rest
/// O(vertices + corners + holes), one pass over each array where nothing is wrong; a byte per face where there are
/// holes.
FACETBOX_EXPORT std::vector<Problem> validate(const MeshView& mesh, std::size_t limit = 100);

/// A hole that a mesh has lost, and why. The hole is filled from then on, unless its outer face has gone.
struct DroppedHole {
  enum class Reason : std::uint8_t {
    outside,        ///< it lies beside the outer face or around it
    crosses,        ///< it lies partly inside, partly outside: it crosses the outline
    touches,        ///< it touches the outline from inside, or a corner is closer to one of the outline than the gap
    overlaps,       ///< it overlaps or touches another hole of the outer face that is kept
    tooFewCorners,  ///< it has fewer than three corners, or they have collapsed to fewer
    tooSmall,       ///< its area is below the threshold for faces
    outerIsGone     ///< its outer face is gone: deleted as a double, for its area, for its corners ...
  };

  std::uint32_t outer = kNone;  ///< as the mesh was handed in; kNone for a face that came up in between
  std::uint32_t hole = kNone;   ///< likewise: a hole that a merge of faces brought out, say
  Reason reason = Reason::outside;

  friend bool operator==(const DroppedHole&, const DroppedHole&) = default;
};

/// One plain sentence, such as "Face 7 is no hole of face 3 any more: it crosses the outline."
FACETBOX_EXPORT std::string describe(const DroppedHole& dropped);

/// A mesh with fatal problems was handed in. what() lists the problems, one sentence a line.
class FACETBOX_EXPORT InvalidMesh : public std::invalid_argument {
 public:
  explicit InvalidMesh(std::vector<Problem> problems);
  ~InvalidMesh() override;  // out of line: one type information for host and library
  InvalidMesh(const InvalidMesh&) noexcept = default;
  InvalidMesh& operator=(const InvalidMesh&) noexcept = default;

  const std::vector<Problem>& problems() const noexcept { return *mProblems; }

 private:
  std::shared_ptr<const std::vector<Problem>> mProblems;  // shared: copying an exception must not throw
};

}  // namespace facetbox
