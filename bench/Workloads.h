#pragma once

#include <facetbox/cleanup/Cleanup.h>

#include <cstddef>
#include <cstdint>
#include <vector>

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
  /// Bytes of all arrays.
  std::size_t bytes() const;
  /// Points into this object.
  Cleanup::MeshData view();
};

/// A bumpy grid of about `triangles` triangles that share their vertices, with texture coordinates (a pair per vertex)
/// and one texture run.
Workload gridOfTriangles(std::size_t triangles);

/// The record's arrays copied with memcpy into fresh ones: what a conversion is measured against.
void copyArrays(const Workload& workload);
