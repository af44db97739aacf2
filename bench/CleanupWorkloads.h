#pragma once

#include <cstddef>
#include <limits>
#include <string>

#include "Workloads.h"

/// What the result for a workload must be; counts of kAny and a volume of NaN are not checked.
struct Expected {
  static constexpr std::size_t kAny = static_cast<std::size_t>(-1);

  std::size_t vertices = kAny;
  std::size_t faces = kAny;
  std::size_t corners = kAny;
  std::size_t holeEntries = kAny;
  double volume = std::numeric_limits<double>::quiet_NaN();  ///< signedVolume, to a billionth of it
  double apart = 0;  ///< no two vertices are closer; checks every pair: for small results
};

/// @return what is wrong with a result, which may be null; empty when nothing is.
std::string faultOf(const Cleanup::MeshData* result, const Expected& expected);

struct CleanupWorkload {
  Workload input;
  Expected expected;
};

/// What the soups below weld with; their copies of a vertex lie closer, different vertices farther apart.
constexpr float kWeldTolerance = 0.01f;
constexpr float kAngleTolerance = 0.1f;    ///< degrees, for colinear corners and coplanar faces
constexpr float kAreaThreshold = 1e-3f;    ///< above the needles below, below all other faces
constexpr float kLengthThreshold = 0.01f;  ///< above the short edges below, below all other edges

enum class Texture { none, mapped };

// Every generator takes the approximate number of corners and gives the same record each time.

/// Welding gives the indexed mesh back. Every vertex is there once per corner, moved by less than the tolerance.
CleanupWorkload soupOfSphere(std::size_t corners, FaceOrder order, Texture texture);
CleanupWorkload soupOfGrid(std::size_t corners, FaceOrder order, Texture texture);
/// All vertices lie in ten clusters that are smaller than the tolerance; each triangle joins three of them.
CleanupWorkload tenClusters(std::size_t corners);
/// Vertices along a line, three copies each.
CleanupWorkload verticesInLine(std::size_t corners);
/// A cube of 20 tolerances per side, filled at random with all vertices.
CleanupWorkload crowd(std::size_t corners);

/// A third of the faces are there twice: rotated, every second one reversed, behind all others.
CleanupWorkload doubledTriangles(std::size_t corners, FaceOrder order, Texture texture);
CleanupWorkload doubledHexagons(std::size_t corners, FaceOrder order, Texture texture);

/// Half of the faces, at random, are turned.
CleanupWorkload flippedSphere(std::size_t corners, FaceOrder order);
CleanupWorkload flippedBuildings(std::size_t corners);

/// Triangulated prisms over L-shapes and octagons, and bumpy ground (apart from them) of as many corners, of which
/// nothing is coplanar.
CleanupWorkload city(std::size_t corners, Texture texture);
/// Boxes whose six sides are grids of triangles.
CleanupWorkload griddedBoxes(std::size_t corners);
/// Flat squares that become one.
CleanupWorkload flatGrid(std::size_t corners);
/// Likewise with every fourth square left out: each becomes a hole.
CleanupWorkload flatGridWithGaps(std::size_t corners);

/// Quads that share a vertex in the middle of every edge.
CleanupWorkload quadsWithMidpoints(std::size_t corners, Texture texture);
/// One square with all corners along its sides.
CleanupWorkload straightOutline(std::size_t corners);

/// A sphere in which every fourth triangle is halved, with a needle on the side that was cut.
CleanupWorkload sphereWithNeedles(std::size_t corners);
/// Flat faces with a hole each, every second face of the list a needle.
CleanupWorkload needlesAmongHoles(std::size_t corners);
/// Quads with a short edge at one corner.
CleanupWorkload quadsWithShortEdges(std::size_t corners, Texture texture);

// Nothing to do in them for any operation, but for turning the faces of the fan.

/// Every face has a hole. Faces share their vertices and are not coplanar.
CleanupWorkload quadsWithHoles(std::size_t corners);
/// One square with square holes.
CleanupWorkload holesInOneFace(std::size_t corners);
/// Triangles around one vertex, half of them turned where `isFlipped`.
CleanupWorkload fan(std::size_t corners, bool isFlipped);
