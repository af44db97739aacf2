#include "CgalCheckPeer.h"

#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/self_intersections.h>
#include <CGAL/Surface_mesh.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Mesh = CGAL::Surface_mesh<Kernel::Point_3>;

struct CgalTriangleMesh::Impl {
  Mesh mesh;
};

CgalTriangleMesh::CgalTriangleMesh(const facetbox::MeshView& mesh) : mImpl(std::make_unique<Impl>()) {
  Mesh& out = mImpl->mesh;
  for (std::size_t i = 0; i < mesh.points.size(); i += 3)
    out.add_vertex({mesh.points[i], mesh.points[i + 1], mesh.points[i + 2]});
  for (std::size_t i = 0; i < mesh.indices.size(); i += 3)
    if (out.add_face(Mesh::Vertex_index(mesh.indices[i]), Mesh::Vertex_index(mesh.indices[i + 1]),
                     Mesh::Vertex_index(mesh.indices[i + 2])) == Mesh::null_face())
      throw std::runtime_error("not a manifold");
}

CgalTriangleMesh::~CgalTriangleMesh() = default;

std::vector<std::pair<std::uint32_t, std::uint32_t>> CgalTriangleMesh::selfIntersections() const {
  std::vector<std::pair<Mesh::Face_index, Mesh::Face_index>> found;
  CGAL::Polygon_mesh_processing::self_intersections<CGAL::Sequential_tag>(mImpl->mesh, std::back_inserter(found));
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;
  for (const auto& [a, b] : found) pairs.emplace_back(std::min(a.idx(), b.idx()), std::max(a.idx(), b.idx()));
  std::sort(pairs.begin(), pairs.end());
  return pairs;
}
