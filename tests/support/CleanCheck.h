#pragma once

#include <cmath>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <facetbox/clean.h>
#include <facetbox/math/Vec3.h>

/// What must hold of every clean-up, by plain formulas.
namespace support {

/// Twice the area vector of a polygon, as seen from its first corner.
inline util::Vec3 doubleAreaOf(const facetbox::PolyMesh& mesh, std::span<const std::uint32_t> corners) {
  const auto at = [&](std::size_t corner) { return util::toVec3(&mesh.points[3 * std::size_t{corners[corner]}]); };
  util::Vec3 sum{0, 0, 0};
  for (std::size_t i = 1; i + 1 < corners.size(); ++i) sum = sum + cross(at(i) - at(0), at(i + 1) - at(0));
  return sum;
}

/// Of each face, less nothing for its holes.
inline std::vector<util::Vec3> areaVectorsOf(const facetbox::PolyMesh& mesh) {
  std::vector<util::Vec3> areas;
  std::size_t first = 0;
  for (const std::uint32_t count : mesh.counts) {
    areas.push_back(doubleAreaOf(mesh, std::span(mesh.indices).subspan(first, count)));
    first += count;
  }
  return areas;
}

/// What is wrong with the areas after faces have been merged and nothing else: those of each face's sources must add up
/// to its own, with the holes that merging brought out. Empty where nothing is.
inline std::string faultOfMergedAreas(const facetbox::PolyMesh& mesh, const facetbox::Cleaned& merged) {
  const std::vector<util::Vec3> before = areaVectorsOf(mesh), after = areaVectorsOf(merged.mesh);
  double total = 0;
  for (const util::Vec3& area : before) total += length(area);
  const auto hasSources = [&](std::size_t face) { return merged.sourceOffsets[face] < merged.sourceOffsets[face + 1]; };
  std::vector<util::Vec3> sums = after;  // of a face and its new holes, less its sources
  std::size_t outer = facetbox::kNone;
  for (const std::uint32_t face : merged.mesh.holes) {
    if (face == facetbox::kNone)
      outer = facetbox::kNone;
    else if (outer == facetbox::kNone)
      outer = face;
    else if (!hasSources(face))
      sums[outer] = sums[outer] + after[face];
  }
  for (std::size_t face = 0; face < sums.size(); ++face) {
    if (!hasSources(face)) continue;
    for (std::size_t i = merged.sourceOffsets[face]; i < merged.sourceOffsets[face + 1]; ++i)
      sums[face] = sums[face] - before[merged.sources[i]];
    if (!(length(sums[face]) <= 1e-11 * total)) return "face " + std::to_string(face) + " is not what it is made of";
  }
  for (std::size_t old = 0; old < merged.faceMap.size(); ++old)
    if (merged.faceMap[old] == facetbox::kNone) return "face " + std::to_string(old) + " is lost";
  return "";
}

}  // namespace support
