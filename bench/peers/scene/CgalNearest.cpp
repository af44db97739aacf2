#include <cmath>

#include <CGAL/AABB_traits.h>
#include <CGAL/AABB_tree.h>
#include <CGAL/AABB_triangle_primitive.h>
#include <CGAL/Simple_cartesian.h>

#include "NearestPeer.h"

namespace {

using Kernel = CGAL::Simple_cartesian<double>;
using Triangle = Kernel::Triangle_3;
using Primitive = CGAL::AABB_triangle_primitive<Kernel, std::vector<Triangle>::const_iterator>;
using Tree = CGAL::AABB_tree<CGAL::AABB_traits<Kernel, Primitive>>;

class CgalNearest final : public NearestPeer {
 public:
  explicit CgalNearest(const Triangles& triangles) {
    const auto corner = [&](std::size_t i) {
      const double* p = &triangles.coordinates[3 * std::size_t{triangles.indices[i]}];
      return Kernel::Point_3(p[0], p[1], p[2]);
    };
    for (std::size_t i = 0; i < triangles.indices.size(); i += 3)
      mTriangles.emplace_back(corner(i), corner(i + 1), corner(i + 2));
    mTree.insert(mTriangles.cbegin(), mTriangles.cend());
    mTree.build();
    mTree.accelerate_distance_queries();
  }

  double find(const std::array<double, 3>& p) override {
    const Kernel::Point_3 point(p[0], p[1], p[2]);
    return std::sqrt(CGAL::squared_distance(point, mTree.closest_point_and_primitive(point).first));
  }

 private:
  std::vector<Triangle> mTriangles;
  Tree mTree;
};

}  // namespace

std::unique_ptr<NearestPeer> cgalNearest(const Triangles& triangles) {
  return std::make_unique<CgalNearest>(triangles);
}
