#pragma once

#include <random>

#include <facetbox/PolyMesh.h>

namespace support {

/// A solid of unit cubes with dents, pockets, tunnels and steps, without cavities.
struct RandomSolid {
  facetbox::PolyMesh mesh;      ///< its skin, cut up at random into separate faces; in no frame of its own
  double volume = 0, area = 0;  ///< of the solid, in the frame of the mesh
  double unit = 1;              ///< the side of a cube
};

/// @param jitter  how far vertices are off at most, in sides of a cube
RandomSolid randomSolid(std::mt19937& random, double jitter);

}  // namespace support
