#include <facetbox/scene/ViewSelection.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include <facetbox/scene/SceneMesh.h>
#include <facetbox/scene/ViewVolume.h>
#include <facetbox/scene/VisiblePoints.h>

namespace util {
namespace {

using facetbox::Select;
using Reference = TriangleBvh::Reference;

bool isInside(const SceneMesh& mesh, std::uint32_t triangle, const ViewVolume& volume) {
  for (int k = 0; k < 3; ++k)
    if (!volume.place(mesh.corner(triangle, k)).isInside()) return false;
  return true;
}

bool touches(const SceneMesh& mesh, std::uint32_t triangle, const ViewVolume& volume) {
  return touchesVolume({volume.place(mesh.corner(triangle, 0)), volume.place(mesh.corner(triangle, 1)),
                        volume.place(mesh.corner(triangle, 2))});
}

/// Whether one of the triangles (touching), or all of them (inside), pass the test.
bool passes(const SceneMesh& mesh, const ViewVolume& volume, Select which) {
  const bool wantsAll = which == Select::inside;
  const auto test = [&](std::uint32_t triangle) {
    return wantsAll ? isInside(mesh, triangle, volume) : touches(mesh, triangle, volume);
  };
  const TriangleBvh& hierarchy = mesh.hierarchy();
  if (!hierarchy.isUsable()) {
    for (std::uint32_t t = 0; t < mesh.triangleCount(); ++t)
      if (test(t) != wantsAll) return !wantsAll;
    return wantsAll;
  }
  const TriangleBvh::View view = hierarchy.view();
  Reference stack[TriangleBvh::kStackSize];
  int depth = 0;
  stack[depth++] = view.root;
  while (depth > 0) {
    const Reference reference = stack[--depth];
    if ((reference & TriangleBvh::kLeaf) != 0) {
      const TriangleBvh::Block& block = view.block(reference);
      for (int lane = 0; lane < TriangleBvh::kWidth; ++lane) {
        if (!(block.reach[lane] >= 0)) continue;
        if (test(TriangleBvh::View::exact(block)[lane].triangle) != wantsAll) return !wantsAll;
      }
      continue;
    }
    const TriangleBvh::Node& node = view.node(reference);
    for (int child = 0; child < TriangleBvh::kWidth; ++child) {
      if (node.bounds[0][child] > node.bounds[3][child]) continue;
      switch (volume.sideOf(hierarchy.childBox(node, child))) {
        case VolumeSide::inside:
          if (!wantsAll) return true;
          break;
        case VolumeSide::outside:
          if (wantsAll) return false;
          break;
        case VolumeSide::unsure:
          stack[depth++] = node.child[child];
          break;
      }
    }
  }
  return wantsAll;
}

bool isInView(const SceneObject& object, const facetbox::Matrix& viewProjection, Select which) {
  const ViewVolume volume(viewProjection, &object.placement);
  switch (volume.sideOf(object.mesh->box())) {
    case VolumeSide::inside:
      return true;
    case VolumeSide::outside:
      return false;
    case VolumeSide::unsure:
      break;
  }
  return passes(*object.mesh, volume, which);
}

/// All objects of a subtree whose boxes are certain to lie in the volume.
void takeAll(const ObjectTree& tree, Reference from, std::vector<std::uint32_t>& found) {
  Reference stack[ObjectTree::kStackSize];
  int depth = 0;
  stack[depth++] = from;
  while (depth > 0) {
    const Reference reference = stack[--depth];
    if (reference >= ObjectTree::kLeaf) {
      found.push_back(reference & ~ObjectTree::kLeaf);
      continue;
    }
    for (const Reference child : tree.node(reference).child)
      if (child != ObjectTree::kNothing) stack[depth++] = child;
  }
}

}  // namespace

std::vector<std::uint32_t> slotsInView(const SceneState& state, const facetbox::Matrix& viewProjection, Select which) {
  std::vector<std::uint32_t> found;
  const ObjectTree& tree = state.tree();
  if (tree.root() == ObjectTree::kNothing ||
      !std::ranges::all_of(viewProjection, [](double x) { return std::isfinite(x); }))
    return found;
  const Select test = which == Select::visible ? Select::touching : which;
  const ViewVolume volume(viewProjection, nullptr);
  Reference stack[ObjectTree::kStackSize];
  int depth = 0;
  stack[depth++] = tree.root();
  while (depth > 0) {
    const Reference reference = stack[--depth];
    const ObjectTree::Node& node = tree.node(reference);
    for (int lane = 0; lane < ObjectTree::kWidth; ++lane) {
      const Reference child = node.child[lane];
      if (child == ObjectTree::kNothing || node.bounds[0][lane] > node.bounds[3][lane]) continue;
      const VolumeSide side = volume.sideOf(tree.childBox(node, lane));
      if (side == VolumeSide::outside) continue;
      if (side == VolumeSide::inside) {
        takeAll(tree, child, found);
      } else if (child < ObjectTree::kLeaf) {
        stack[depth++] = child;
      } else if (isInView(state[child & ~ObjectTree::kLeaf], viewProjection, test)) {
        found.push_back(child & ~ObjectTree::kLeaf);
      }
    }
  }
  if (which == Select::visible) keepVisible(state, viewProjection, found);
  return found;
}

}  // namespace util
