#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include <facetbox/Cancelled.h>
#include <facetbox/PolyMesh.h>
#include <facetbox/check.h>
#include <facetbox/util/Export.h>

namespace facetbox {

// The steps of a clean-up. Lengths are in the mesh's units, areas in their squares, angles in degrees; all values are
// finite and not negative.

/// Welds vertices that lie within `tolerance` of the first of their group. Some stay apart, so that holes do not touch
/// and faces neither pinch nor turn over; where this is the first, the next one takes its part, and the others may lie
/// up to two tolerances from it. Faces and holes that collapse go.
struct MergeVertices {
  double tolerance;
  friend bool operator==(const MergeVertices&, const MergeVertices&) = default;
};
/// Welds the ends of edges shorter than `threshold`, as MergeVertices does and in all faces alike: a closed mesh stays
/// closed. Faces that collapse go.
struct RemoveZeroEdges {
  double threshold;
  friend bool operator==(const RemoveZeroEdges&, const RemoveZeroEdges&) = default;
};
/// Removes faces of an area below `threshold`; with `keepClosed`, those stay without which more edges would be open
/// (used by one face alone) than with them: a needle between larger faces, say. MergeCoplanar can take it in.
struct RemoveZeroFaces {
  double threshold;
  bool keepClosed = false;
  friend bool operator==(const RemoveZeroFaces&, const RemoveZeroFaces&) = default;
};
/// Removes faces that repeat another one, in either direction; with `compareAttributes` only where label and texture
/// coordinates agree as well. Corners that repeat the one before them go first. A face that visits a vertex twice is
/// compared like any other. With `keepClosed`, of the faces that repeat one of the other direction, the first stays
/// where more edges would be open without it: both sides of a sheet, or of a thin wall that welding has made flat.
struct RemoveDoubleFaces {
  bool compareAttributes = true;
  bool keepClosed = false;
  friend bool operator==(const RemoveDoubleFaces&, const RemoveDoubleFaces&) = default;
};
/// Turns faces so that neighbors look to the same side, and each connected piece outward: a closed one by its volume;
/// an open one by its volume around its center of gravity where that tells clearly, else as most of its area looks. A
/// face and its holes are one surface and turn together. No axis is "up", and a second run turns nothing.
struct ConformNormals {
  friend bool operator==(const ConformNormals&, const ConformNormals&) = default;
};
/// Merges neighboring faces whose normals differ by at most `degrees` from that of the largest, and of which no corner
/// leaves its plane by more than that, seen from the edge over which the face joins; with `compareAttributes` only
/// where label and texture mapping continue. With `isRepeated`, again until no face joins another.
struct MergeCoplanar {
  double degrees;
  bool compareAttributes = true;
  bool isRepeated = false;
  friend bool operator==(const MergeCoplanar&, const MergeCoplanar&) = default;
};
/// Removes corners that are straight against the corners that stay: each sees the two next to it, of those that stay,
/// under 180 - `degrees` at least. So turns add up along the boundary, and a smooth loop loses corners but keeps its
/// shape: no point of the old boundary is farther from the new one than tan(degrees / 2) times half the edge there (up
/// to 90 degrees). With `keepTextureMapping`, corners go only where texture coordinates run straight as well. All faces
/// along an edge lose the same corners, and no face goes.
struct RemoveColinear {
  double degrees;
  bool keepTextureMapping = true;
  friend bool operator==(const RemoveColinear&, const RemoveColinear&) = default;
};

using Step = std::variant<MergeVertices, RemoveZeroEdges, RemoveZeroFaces, RemoveDoubleFaces, ConformNormals,
                          MergeCoplanar, RemoveColinear>;

/// All steps, in the order in which each leaves the next one the most to do: vertices, zero edges, zero faces, double
/// faces, orientation, coplanar faces, colinear corners. Then the same again, three times: for what merging brings to
/// light. clean() passes over steps that are known to have nothing to do.
///
/// A mesh that is closed and oriented stays closed, and a second call changes nothing, as long as the tolerance is
/// small beside the mesh: where it is some percent of the diagonal, or in a soup, both may fail. A closed mesh that is
/// not oriented may open where both sides of a wall thinner than the tolerance run alike: as doubles, one of them goes.
///
/// @param tolerance  how far vertices may lie apart to be one, in mesh units
/// @param diagonal   of the mesh's bounding box. Faces below 1e-12 of its square have no area; flat and straight are
///                   judged by the angle under which ten tolerances are seen over the diagonal, 0.01 to 1 degree.
FACETBOX_EXPORT std::vector<Step> allSteps(double tolerance, double diagonal);

/// What a mesh consists of. Hole faces count as faces as well.
struct Counts {
  std::size_t vertices = 0, faces = 0, corners = 0, holes = 0;
  friend bool operator==(const Counts&, const Counts&) = default;
};

struct StepReport {
  Step step;
  Counts before = {}, after = {};
  std::optional<Measures> measuresBefore = {}, measuresAfter = {};  ///< with CleanOptions::measures
  std::size_t facesTurned = 0;                                      ///< by ConformNormals
  std::size_t cornersCollapsed = 0;            ///< that repeated the one before them when the step began, and went
  std::vector<DroppedHole> droppedHoles = {};  ///< holes that the step removed, or that are none after it
  double seconds = 0;
};

struct CleanOptions {
  /// Told how far the clean-up is: the number of the step, and what is done of it, from 0 to 1. Called on the thread
  /// of the call, at most some fifty times a second within a step.
  std::function<void(std::size_t step, double fraction)> progress = {};
  /// Asked on the thread of the call, at least every 0.1 s: true ends it with Cancelled.
  std::function<bool()> isCancelled = {};
  /// Measure the mesh before the first step and after each that changes it: costs about as much as measure() each time.
  bool measures = false;
};

struct Cleaned {
  PolyMesh mesh;                             ///< may be empty: nothing left is a result, not an error
  std::vector<std::uint32_t> vertexMap;      ///< old vertex -> new vertex, kNone where nothing is left of it
  std::vector<std::uint32_t> faceMap;        ///< old face -> new face, kNone where nothing is left of it
  std::vector<std::uint32_t> vertexSources;  ///< new vertex -> the old vertex whose place it has
  std::vector<std::uint32_t> sourceOffsets;  ///< new face f is made of the old faces sources[sourceOffsets[f]] up to,
  std::vector<std::uint32_t> sources;        ///< not including, sources[sourceOffsets[f + 1]], ascending
  std::vector<StepReport> steps;             ///< one per step
  std::vector<Problem> leftOut;              ///< faces of fewer than three corners
  std::vector<DroppedHole> droppedHoles;     ///< of the input, before the first step
};

/// Runs steps on a mesh, one after the other, and tells what became of what.
///
/// Vertices of the result are vertices of the input, bit for bit: steps choose vertices, they never make any. Results
/// do not depend on the mesh's unit (scaled by a power of two, with lengths and areas scaled along, it gives the same
/// faces), nor on its place but for coordinates that moving it has rounded. What steps leave unsaid is measured by the
/// mesh itself: hole corners within 1e-6 of their outer face's diagonal of one of its corners touch; after edges have
/// collapsed, faces below 1e-12 of the squared diagonal go; above a tolerance of 3e-4 of the diagonal welding is
/// guarded against turning faces over.
///
/// First, and after each step that changes something, holes that do not lie strictly inside their outer face, apart
/// from its corners and each other, are removed: each is reported with its reason. The hole of an outer face that is
/// left out or goes is reported as well; it goes along or stays as a face of its own, as faceMap tells. Vertices
/// that no face uses go with MergeVertices and RemoveZeroEdges, and wherever faces or corners go; else they stay.
/// Texture coordinate pairs all stay. Faces that merging makes of loops inside others become holes; they have no
/// sources. A face removed as another's double is not part of that one: it maps to kNone.
///
/// @throws InvalidMesh            where validate() finds a fatal problem
/// @throws std::invalid_argument  where a step's value is NaN, infinite or negative
/// @throws Cancelled              when options.isCancelled says so
/// Exceptions of the callbacks pass through; nothing is left behind. Any number of threads may clean at the same time.
/// About O(n log n) in the corners; some 100 bytes a corner beside the result.
FACETBOX_EXPORT Cleaned clean(const MeshView& mesh, std::span<const Step> steps, const CleanOptions& options = {});

}  // namespace facetbox
