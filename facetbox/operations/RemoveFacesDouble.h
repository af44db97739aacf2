#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/operations/DoubleFaceSearch.h>
#include <facetbox/operations/FaceComparison.h>
#include <facetbox/util/Mesh.h>

namespace util {

/// Removes faces that repeat another face: the same corners in the same cyclic order or in the reversed one. The lowest
/// of them stays.
///
/// With `compareAttributes`, they must also have the same first material, and texture coordinates less than 0.001 apart
/// at matching corners in every set that the lower face carries (a set that the higher one lacks, and an index beyond
/// the coordinates, count as different; a NaN distance does not). This relation is not transitive: each face that stays
/// removes all higher ones that are double to *it*, in ascending order.
///
/// A face that visits a vertex twice repeats itself and goes. Hole faces are never compared; a face that goes takes its
/// holes with it. The tag of the face that stays becomes the union of both tags.
///
/// @return number of faces removed as double, holes not counted. If 0, the mesh is untouched.
/// O(corners) expected, O(n log n) for many copies of one face or faces whose hashes collide; about 12 bytes a face,
/// and up to 32 more for one that has a double. Many copies that differ in their texture coordinates alone are searched
/// by a TexCoordTree: see there for what is left of the quadratic cost.
std::uint64_t removeFacesDouble(Mesh& mesh, bool compareAttributes);

/// The same by a rule. With `keepClosed`, the lowest double that runs backwards stays where more edges would be open
/// without it (findUnitsToKeep()); all others go.
std::uint64_t removeFacesDouble(Mesh& mesh, const DoubleFaceRule& rule);

/// The second half of that: removes what findDoubleFaces() has found by the rule.
std::uint64_t removeDoubles(Mesh& mesh, std::vector<DoubleFace> doubles, const DoubleFaceRule& rule);

}  // namespace util
