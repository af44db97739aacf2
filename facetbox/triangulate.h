#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <facetbox/Cancelled.h>
#include <facetbox/PolyMesh.h>
#include <facetbox/util/Export.h>

namespace facetbox {

/// A face without triangles, and why.
struct SkippedFace {
  enum class Reason : std::uint8_t {
    tooFewCorners,  ///< fewer than three; a hole like this is as if it were not there
    noArea,         ///< all corners of the outline lie on one line, as far as doubles can tell
    nothingInside,  ///< the outline and its holes leave nothing: a hole that covers all, an outline gone around twice
    tooManyCrossings,  ///< the outline and its holes cross in too many points: more than 512
  };

  std::uint32_t face = kNone;
  Reason reason = Reason::noArea;

  friend bool operator==(const SkippedFace&, const SkippedFace&) = default;
};

/// One plain sentence, such as "Face 7 has no triangles: its corners lie on one line."
FACETBOX_EXPORT std::string describe(const SkippedFace& skipped);

/// The triangles of a mesh with V vertices and P pairs of texture coordinates; T triangles, M made points.
///
/// Most meshes need no made points: then the triangles address the mesh's own vertices and pairs and nothing else.
struct Triangulation {
  /// 3 T entries, triangle t at [3t], [3t + 1], [3t + 2]: vertices of the mesh or, from V on, made points.
  std::vector<std::uint32_t> triangles;
  /// T entries, ascending: the face of each triangle.
  std::vector<std::uint32_t> faces;
  /// 3 T entries, a pair per corner, or none if the mesh has no texIndices: pairs of the mesh or, from P on, made
  /// pairs; kNone on all corners of a face where the face, or a hole of it, has no pairs.
  std::vector<std::uint32_t> texIndices;
  /// 3 M numbers, x, y, z per made point: vertex V + m at [3m]. In the order of the faces; each is used by one face.
  std::vector<double> madePoints;
  /// u, v per made pair: pair P + p at [2p]. Not every made point has one, and corners that meet may have one without
  /// a made point.
  std::vector<double> madeTexCoords;
  /// The faces without triangles, ascending. Of holes only those of fewer than three corners.
  std::vector<SkippedFace> skipped;

  friend bool operator==(const Triangulation&, const Triangulation&) = default;
};

struct TriangulateOptions {
  /// Told how much is done, from 0 to 1. Called on the thread of the call, at most some fifty times a second.
  std::function<void(double fraction)> progress = {};
  /// Asked on the thread of the call, at least every 0.1 s, but not while one face is cut: true ends it with Cancelled.
  std::function<bool()> isCancelled = {};
};

/// Cuts the faces of a mesh into triangles.
///
/// Holes stay open: a face that is named as a hole has no triangles of its own. A face may be concave, and outlines and
/// holes may cross themselves and each other. Inside is what they go around an odd number of times: what a hole has
/// outside of its face is covered, and so is what lies in two holes. Triangles come in the order of their faces. They
/// are wound as their face; as the larger part of it, where its outline crosses itself.
///
/// A face is cut along diagonals, from corner to corner. Every edge of its outline and its holes is then an edge of one
/// triangle. Points are made only where edges cross or different vertices lie behind each other; of a face without
/// holes that is not flat, only where they do so in space, within a millionth of the face's size:
/// - A quad gets the diagonal whose triangles are better, the worse one counting: by the area that faces the way of the
///   quad, over the sum of the squared edges. So a concave quad is cut inside. Where both are equally good but for
///   1e-4, it is the diagonal of the lowest vertex.
/// - A larger face is cut as it looks along the axis that its normal is closest to. Where edges meet in that view that
///   pass each other in space, it is cut as it looks along its normal or, where that is no better, into as small an
///   area as can be found.
///
/// No triangle has three corners on one line, as long as the corners of the face allow another cut: an edge of the
/// outline that has other corners on it is cut there, if both of its sides lie inside. Corners of a face that are at
/// the same place become one corner.
///
/// A made point lies where two edges cross, in the middle of both if they pass each other, or between the vertices that
/// lie behind each other. Its texture coordinates are the mean of those that the edges have there.
///
/// A mesh that is moved, or scaled by a power of two, gets the same triangles, as long as its coordinates take this
/// without rounding. Nothing is printed.
///
/// @throws InvalidMesh        where validate() finds a fatal problem
/// @throws std::length_error  where the points would be 2^32 - 1 or more
/// @throws Cancelled          when options.isCancelled says so
/// Exceptions of the callbacks pass through.
/// A face of e corners takes O(e w), where w is the largest number of its edges that a line across it meets; convex
/// faces of at most 100 corners O(e). Without crossings and corners that meet, a face has as many triangles as it and
/// its h holes have corners, and 2 h - 2 more.
FACETBOX_EXPORT Triangulation triangulate(const MeshView& mesh, const TriangulateOptions& options = {});

}  // namespace facetbox
