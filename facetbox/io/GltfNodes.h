#pragma once

#include <array>
#include <functional>

#include <facetbox/io/GltfFile.h>

namespace facetbox {

/// Places points: the upper three rows of a matrix, row by row.
struct GltfTransform {
  std::array<double, 12> m = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};

  /// Points that are not turned or scaled keep every bit that the addition leaves.
  void apply(double* point) const;
  bool isMirroring() const;
  /// What this does after `inner`.
  GltfTransform after(const GltfTransform& inner) const;
};

/// Visits the nodes of the scene that is to be shown, parents first, children in their order. Counts the other nodes.
/// An error where a node has two parents or is below itself.
void visitNodes(const GltfFile& file,
                const std::function<void(std::size_t index, const JsonValue& node, const GltfTransform&)>& visit);

}  // namespace facetbox
