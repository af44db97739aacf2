#pragma once

#include <random>

#include <facetbox/PolyMesh.h>

namespace support {

/// A small scene with something for every step of a clean-up: a pile of unit cubes in squares and triangles with
/// corners of their own, off by little or nothing, some twice, some turned, some with an edge that is all but zero; a
/// plate with holes of which some are none; labels and texture coordinates now and then, on some of the faces.
facetbox::PolyMesh randomScene(std::mt19937& random);

}  // namespace support
