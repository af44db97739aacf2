#pragma once

#include <cstddef>
#include <string>

#include <facetbox/PolyMesh.h>

#include "Workloads.h"

facetbox::PolyMesh polyMeshOf(const Workload& record);

/// Small triangles without common vertices in a cloud, in random order. Nearly one in a hundred crosses another.
facetbox::PolyMesh soupWithCrossings(std::size_t triangles);

/// As many copies of a mesh side by side as give about so many corners; one at least.
facetbox::PolyMesh sideBySide(const facetbox::PolyMesh& mesh, std::size_t corners);

/// A scan: triangles in a binary little-endian file of floats, x, y, z per vertex, and lists of ints, three per face.
/// @throws std::runtime_error where it is something else
facetbox::PolyMesh readScan(const std::string& path);
