#include <CGAL/AABB_traits.h>
#include <CGAL/AABB_tree.h>
#include <CGAL/AABB_triangle_primitive.h>
#include <CGAL/Simple_cartesian.h>

#include <boost/variant/get.hpp>

#include "RayPeers.h"

namespace {

using Kernel = CGAL::Simple_cartesian<double>;
using Triangle = Kernel::Triangle_3;
using Primitive = CGAL::AABB_triangle_primitive<Kernel, std::vector<Triangle>::const_iterator>;
using Tree = CGAL::AABB_tree<CGAL::AABB_traits<Kernel, Primitive>>;

class CgalCaster final : public RayCaster {
 public:
  explicit CgalCaster(const Triangles& triangles) {
    const auto corner = [&](std::size_t i) {
      const double* p = &triangles.coordinates[3 * std::size_t{triangles.indices[i]}];
      return Kernel::Point_3(p[0], p[1], p[2]);
    };
    mTriangles.reserve(triangles.count());
    for (std::size_t i = 0; i < triangles.indices.size(); i += 3)
      mTriangles.emplace_back(corner(i), corner(i + 1), corner(i + 2));
    mTree.insert(mTriangles.cbegin(), mTriangles.cend());
    mTree.build();
  }

  void cast(std::span<const Ray> rays, std::span<double> distances) override {
    for (std::size_t i = 0; i < rays.size(); ++i) {
      const double *o = rays[i].exactOrigin, *d = rays[i].exactDirection;
      const Kernel::Point_3 origin(o[0], o[1], o[2]);
      const Kernel::Vector_3 direction(d[0], d[1], d[2]);
      const auto hit = mTree.first_intersection(Kernel::Ray_3(origin, direction));
      distances[i] = kMiss;
      if (!hit) continue;
      // A ray within a triangle's plane has a segment in common with it.
      const auto* point = boost::get<Kernel::Point_3>(&hit->first);
      const Kernel::Point_3 first = point ? *point : boost::get<Kernel::Segment_3>(hit->first).source();
      distances[i] = (first - origin) * direction / direction.squared_length();
    }
  }

 private:
  std::vector<Triangle> mTriangles;
  Tree mTree;
};

}  // namespace

std::vector<RayPeer> cgalRayPeers() {
  return {{"CGAL AABB tree", [](const Triangles& t) { return std::make_unique<CgalCaster>(t); }}};
}
