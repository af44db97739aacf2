#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <random>
#include <span>
#include <vector>

#include <facetbox/cleanup/Cleanup.h>

/// A record that owns its arrays.
struct Workload {
  std::vector<float> coords;
  std::vector<std::uint32_t> indices;
  std::vector<std::uint32_t> counts;
  std::vector<float> texCoords;
  std::vector<std::uint32_t> texCoordIndices;
  std::vector<std::uint32_t> holes;
  std::vector<char*> textures;  ///< names in static storage
  std::vector<std::uint32_t> textureStarts;

  std::size_t corners() const { return indices.size(); }
  std::size_t vertices() const { return coords.size() / 3; }
  std::size_t faces() const { return counts.size(); }
  /// Bytes of all arrays.
  std::size_t bytes() const;
  /// Points into this object.
  Cleanup::MeshData view();

  /// Appends a vertex and returns its index.
  std::uint32_t addVertex(double x, double y, double z);
  void addFace(std::span<const std::uint32_t> corners);
  void addFace(std::initializer_list<std::uint32_t> corners) { addFace(std::span(corners.begin(), corners.size())); }
  /// Appends a group: the outer face, its hole faces, the terminator.
  void addHoles(std::initializer_list<std::uint32_t> group);
};

/// Uniform in [0, 1), the same on every machine.
double uniform(std::mt19937_64& random);

enum class Surface { bumpy, flat };
enum class FaceOrder { sequential, shuffled };

/// A bumpy grid of about `triangles` triangles that share their vertices, with texture coordinates (a pair per vertex)
/// and one texture run. Neighboring vertices lie one unit apart in x or y.
Workload gridOfTriangles(std::size_t triangles);

/// Likewise of squares, without texture coordinates.
Workload gridOfQuads(std::size_t quads, Surface surface);

/// Likewise of hexagons in running bond: inside, every vertex is shared by three of them.
Workload gridOfHexagons(std::size_t hexagons);

/// A closed bumpy sphere of radius 100, divided evenly into about `triangles` triangles that face outward.
Workload sphereOfTriangles(std::size_t triangles);

/// Appends the surface of a cube as side x side quads of two triangles per side, facing outward.
/// @param position  where a point of the cube [-1, 1]^3 goes
void addCube(Workload& mesh, std::uint32_t side,
             const std::function<std::array<double, 3>(const std::array<double, 3>&)>& position);

/// Texture coordinates that are one affine map of the vertex coordinates, a pair per vertex, and one texture run.
void addTexture(Workload& mesh);

/// Puts the faces in random order. For records without holes.
void shuffleFaces(Workload& mesh, std::mt19937_64& random);

/// Turns the corner cycle of a face, texture indices included.
void flipCorners(Workload& mesh, std::size_t firstCorner, std::size_t cornerCount);

/// Every corner gets a vertex (and a texture pair) of its own, in the order of the faces, moved by at most `jitter`
/// along each axis.
Workload soupOf(const Workload& mesh, double jitter, std::mt19937_64& random);

/// Signed volume between the faces and the origin: that of the solid where the faces are closed and face outward.
double signedVolume(const float* coords, const std::uint32_t* indices, const std::uint32_t* counts, std::size_t faces);
