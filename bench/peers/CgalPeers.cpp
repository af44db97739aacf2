#include <CGAL/Polygon_mesh_processing/repair_polygon_soup.h>
#include <CGAL/Simple_cartesian.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/boost/graph/Euler_operations.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <ranges>
#include <utility>

#include "Peers.h"

namespace {

using Kernel = CGAL::Simple_cartesian<double>;
using Point = Kernel::Point_3;
using Vector = Kernel::Vector_3;
using Mesh = CGAL::Surface_mesh<Point>;

constexpr double kDegree = 3.14159265358979323846 / 180;

std::vector<Point> pointsOf(const Workload& record) {
  std::vector<Point> points;
  points.reserve(record.vertices());
  for (std::size_t i = 0; i < record.coords.size(); i += 3)
    points.emplace_back(record.coords[i], record.coords[i + 1], record.coords[i + 2]);
  return points;
}

/// The faces in CGAL's form for any number of corners.
std::vector<std::vector<std::size_t>> polygonsOf(const Workload& record) {
  std::vector<std::vector<std::size_t>> polygons;
  polygons.reserve(record.faces());
  const std::uint32_t* corner = record.indices.data();
  for (const std::uint32_t count : record.counts) {
    polygons.emplace_back(corner, corner + count);
    corner += count;
  }
  return polygons;
}

/// The faces in CGAL's form for one number of corners.
template <std::size_t kCorners>
std::vector<std::array<std::size_t, kCorners>> arraysOf(const Workload& record) {
  std::vector<std::array<std::size_t, kCorners>> arrays(record.faces());
  const std::uint32_t* corner = record.indices.data();
  for (auto& array : arrays)
    for (std::size_t& index : array) index = *corner++;
  return arrays;
}

void writePoint(const Point& point, float* out) {
  for (int axis = 0; axis < 3; ++axis) out[axis] = static_cast<float>(point[axis]);
}

template <class Polygons>
std::unique_ptr<Answer> write(const std::vector<Point>& points, const Polygons& polygons, std::size_t corners) {
  auto answer = std::make_unique<RecordAnswer>();
  Workload& record = answer->record;
  record.coords.resize(3 * points.size());
  for (std::size_t i = 0; i < points.size(); ++i) writePoint(points[i], &record.coords[3 * i]);
  record.counts.reserve(polygons.size());
  record.indices.reserve(corners);
  for (const auto& polygon : polygons) {
    record.counts.push_back(static_cast<std::uint32_t>(polygon.size()));
    for (const std::size_t corner : polygon) record.indices.push_back(static_cast<std::uint32_t>(corner));
  }
  return answer;
}

template <class MakePolygons>
std::unique_ptr<Answer> removeDoubles(const Workload& record, MakePolygons makePolygons) {
  const std::vector<Point> points = pointsOf(record);
  auto polygons = makePolygons(record);
  CGAL::Polygon_mesh_processing::merge_duplicate_polygons_in_polygon_soup(points, polygons);
  return write(points, polygons, record.corners());
}

Mesh meshOf(const Workload& record) {
  Mesh mesh;
  mesh.reserve(static_cast<Mesh::size_type>(record.vertices()), static_cast<Mesh::size_type>(record.corners() / 2 + 1),
               static_cast<Mesh::size_type>(record.faces()));
  for (std::size_t i = 0; i < record.coords.size(); i += 3)
    mesh.add_vertex(Point(record.coords[i], record.coords[i + 1], record.coords[i + 2]));
  std::vector<Mesh::Vertex_index> corners;
  const std::uint32_t* corner = record.indices.data();
  for (const std::uint32_t count : record.counts) {
    corners.clear();
    for (const std::uint32_t* end = corner + count; corner < end; ++corner) corners.emplace_back(*corner);
    mesh.add_face(corners);
  }
  return mesh;
}

/// Twice the area, along the normal.
Vector areaVector(const Mesh& mesh, Mesh::Face_index face) {
  Vector sum(0, 0, 0);
  const auto first = mesh.halfedge(face);
  const Point& origin = mesh.point(mesh.source(first));
  for (auto edge = mesh.next(first); mesh.next(edge) != first; edge = mesh.next(edge))
    sum += CGAL::cross_product(mesh.point(mesh.source(edge)) - origin, mesh.point(mesh.target(edge)) - origin);
  return sum;
}

/// Vertices without edges are left out; removed elements stay where they are, so nothing is moved before.
std::unique_ptr<Answer> write(const Mesh& mesh, std::size_t corners) {
  auto answer = std::make_unique<RecordAnswer>();
  Workload& record = answer->record;
  record.coords.reserve(3 * mesh.number_of_vertices());
  std::vector<std::uint32_t> place(mesh.num_vertices());
  for (const auto vertex : mesh.vertices()) {
    if (mesh.is_isolated(vertex)) continue;
    place[vertex] = static_cast<std::uint32_t>(record.coords.size() / 3);
    record.coords.resize(record.coords.size() + 3);
    writePoint(mesh.point(vertex), &record.coords[record.coords.size() - 3]);
  }
  record.counts.reserve(mesh.number_of_faces());
  record.indices.reserve(corners);
  for (const auto face : mesh.faces()) {
    const std::size_t before = record.indices.size();
    const auto first = mesh.halfedge(face);
    auto edge = first;
    do {
      record.indices.push_back(place[mesh.source(edge)]);
      edge = mesh.next(edge);
    } while (edge != first);
    record.counts.push_back(static_cast<std::uint32_t>(record.indices.size() - before));
  }
  return answer;
}

/// Takes away the edge that ends at a vertex without other edges, and so on from its other end.
void removeDanglingEdges(Mesh& mesh, Mesh::Vertex_index vertex) {
  for (auto half = mesh.halfedge(vertex); mesh.next(half) == mesh.opposite(half);) {
    const auto before = mesh.prev(half), back = mesh.opposite(half);
    if (before == back) return;
    mesh.set_next(before, mesh.next(back));
    mesh.set_halfedge(mesh.face(half), before);
    mesh.set_halfedge(mesh.source(half), before);
    mesh.remove_vertex(mesh.target(half));
    mesh.remove_edge(mesh.edge(half));
    half = before;
  }
}

std::unique_ptr<Answer> mergeCoplanar(const Workload& record) {
  Mesh mesh = meshOf(record);
  std::vector<Vector> normals;
  normals.reserve(mesh.number_of_faces());
  for (const auto face : mesh.faces()) {
    const Vector area = areaVector(mesh, face);
    normals.push_back(area / std::sqrt(area.squared_length()));
  }
  const double minCosine = std::cos(double{kAngleTolerance} * kDegree);
  for (const auto edge : mesh.edges()) {
    const auto half = mesh.halfedge(edge), opposite = mesh.opposite(half);
    if (mesh.is_border(half) || mesh.is_border(opposite)) continue;
    const auto face = mesh.face(half), other = mesh.face(opposite);
    if (face == other || normals[face] * normals[other] < minCosine) continue;
    const auto source = mesh.source(half), target = mesh.target(half);
    CGAL::Euler::join_face(half, mesh);
    // Where the two had more edges in common, the others hang inside the merged face now, sooner or later by one end.
    removeDanglingEdges(mesh, source);
    if (!mesh.is_removed(target)) removeDanglingEdges(mesh, target);
  }
  return write(mesh, record.corners());
}

std::unique_ptr<Answer> removeZeroFacesOfMesh(const Workload& record) {
  Mesh mesh = meshOf(record);
  for (const auto face : mesh.faces())
    if (std::sqrt(areaVector(mesh, face).squared_length()) / 2 < double{kAreaThreshold})
      CGAL::Euler::remove_face(mesh.halfedge(face), mesh);
  return write(mesh, record.corners());
}

/// Hardly more than what anyone would write for plain triangles: what generality costs.
std::unique_ptr<Answer> removeZeroFacesOfSoup(const Workload& record) {
  std::vector<Point> points = pointsOf(record);
  auto triangles = arraysOf<3>(record);
  std::erase_if(triangles, [&](const auto& triangle) {
    return std::sqrt(CGAL::squared_area(points[triangle[0]], points[triangle[1]], points[triangle[2]])) <
           double{kAreaThreshold};
  });
  CGAL::Polygon_mesh_processing::remove_isolated_points_in_polygon_soup(points, triangles);
  return write(points, triangles, record.corners());
}

}  // namespace

std::vector<Peer> cgalPeers() {
  std::vector<Peer> peers;
  const auto doubles = [](auto makePolygons) {
    return [=](const Workload& record) { return removeDoubles(record, makePolygons); };
  };
  for (const char* suffix : {"", "/shuffled"}) {
    const std::string triangles = std::string("removeFacesDouble/triangles") + suffix,
                      hexagons = std::string("removeFacesDouble/hexagons") + suffix;
    peers.push_back({"CGAL soup of vectors", triangles, 0.4, doubles(polygonsOf)});
    peers.push_back({"CGAL soup of arrays", triangles, 0, doubles(arraysOf<3>)});
    peers.push_back({"CGAL soup of vectors", hexagons, 0.4, doubles(polygonsOf)});
    peers.push_back({"CGAL soup of arrays", hexagons, 0, doubles(arraysOf<6>)});
  }
  for (const char* name : {"removeEdgesCoplanar/city", "removeEdgesCoplanar/griddedBoxes"})
    peers.push_back({"CGAL mesh, joining faces", name, 0.75, mergeCoplanar});
  peers.push_back({"CGAL mesh, areas", "removeFacesZero/needles", 0.5, removeZeroFacesOfMesh});
  peers.push_back({"loop over triangles, CGAL areas", "removeFacesZero/needles", 0, removeZeroFacesOfSoup});
  return peers;
}
