#include "CleanFaults.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangulate.h>
#include <tests/support/CleanCheck.h>

namespace support {
namespace {

using namespace facetbox;
using util::Vec3;
using Faults = std::vector<std::string>;

constexpr double kPi = 3.14159265358979323846;

Vec3 pointOf(const PolyMesh& mesh, std::uint32_t vertex) { return util::toVec3(&mesh.points[3 * std::size_t{vertex}]); }

/// The faces' corners, and of hole faces the outer face.
struct Faces {
  std::vector<std::vector<std::uint32_t>> corners;
  std::vector<std::size_t> firsts;
  std::vector<std::uint32_t> outerOf;

  explicit Faces(const PolyMesh& mesh) : outerOf(mesh.counts.size(), kNone) {
    auto at = mesh.indices.begin();
    for (const std::uint32_t count : mesh.counts) {
      firsts.push_back(static_cast<std::size_t>(at - mesh.indices.begin()));
      corners.emplace_back(at, at + count);
      at += count;
    }
    std::uint32_t outer = kNone;
    for (const std::uint32_t face : mesh.holes) {
      if (face == kNone)
        outer = kNone;
      else if (outer == kNone)
        outer = face;
      else
        outerOf[face] = outer;
    }
  }
  std::size_t size() const { return corners.size(); }
};

Vec3 areaVectorOf(const PolyMesh& mesh, const std::vector<std::uint32_t>& corners) {
  return 0.5 * doubleAreaOf(mesh, corners);
}

/// Per edge: how often it is used upwards and downwards. A face of which nothing is left without the corners that
/// repeat the one before them has no edges.
std::vector<std::array<std::size_t, 2>> usesOf(const PolyMesh& mesh) {
  std::vector<std::array<std::uint32_t, 3>> sides;  // lower vertex, higher vertex, direction
  sides.reserve(mesh.indices.size());
  const Faces faces(mesh);
  for (std::size_t f = 0; f < faces.size(); ++f) {
    std::size_t different = 0;
    for (std::size_t i = 0; i < faces.corners[f].size(); ++i)
      different += faces.corners[f][i] != faces.corners[f][(i + 1) % faces.corners[f].size()];
    if (different < 3) continue;
    const std::uint32_t outer = faces.outerOf[f];
    // The rim of a hole runs against its outer face.
    const bool isReversed =
        outer != kNone && dot(areaVectorOf(mesh, faces.corners[f]), areaVectorOf(mesh, faces.corners[outer])) > 0;
    for (std::size_t i = 0; i < faces.corners[f].size(); ++i) {
      const std::uint32_t a = faces.corners[f][i], b = faces.corners[f][(i + 1) % faces.corners[f].size()];
      if (a != b) sides.push_back({std::min(a, b), std::max(a, b), (a < b) != isReversed ? 0u : 1u});
    }
  }
  std::ranges::sort(sides);
  std::vector<std::array<std::size_t, 2>> uses;
  for (std::size_t i = 0; i < sides.size(); ++i) {
    if (i == 0 || sides[i][0] != sides[i - 1][0] || sides[i][1] != sides[i - 1][1]) uses.emplace_back();
    ++uses.back()[sides[i][2]];
  }
  return uses;
}

double edgeLengthOf(const PolyMesh& mesh) {
  double sum = 0;
  for (const auto& corners : Faces(mesh).corners)
    for (std::size_t i = 0; i < corners.size(); ++i)
      sum += length(pointOf(mesh, corners[i]) - pointOf(mesh, corners[(i + 1) % corners.size()]));
  return sum;
}

/// How far a face's corners are from its plane, and from each other.
struct Shape {
  double unevenness = 0, extent = 0;
};
Shape shapeOf(const PolyMesh& mesh, const std::vector<std::uint32_t>& corners) {
  const Vec3 area = areaVectorOf(mesh, corners);
  util::Box box;
  Vec3 centre{0, 0, 0};
  for (const std::uint32_t v : corners) {
    box.extend(pointOf(mesh, v));
    centre = centre + (pointOf(mesh, v) - pointOf(mesh, corners[0])) / static_cast<double>(corners.size());
  }
  Shape shape{0, length(box.max - box.min)};
  if (!(length(area) > 1e-13 * shape.extent * shape.extent)) return shape;
  for (const std::uint32_t v : corners)
    shape.unevenness = std::max(
        shape.unevenness, std::fabs(dot(pointOf(mesh, v) - pointOf(mesh, corners[0]) - centre, area)) / length(area));
  return shape;
}

/// Whether edges cross between their ends, seen along the axis that the face's normal is closest to. Crossings that
/// rounding could have made do not count.
bool crossesItself(const PolyMesh& mesh, const std::vector<std::uint32_t>& corners) {
  const Vec3 area = areaVectorOf(mesh, corners);
  const double x = std::fabs(area.x), y = std::fabs(area.y), z = std::fabs(area.z);
  std::vector<std::array<double, 2>> flat;
  for (const std::uint32_t v : corners) {
    const Vec3 p = pointOf(mesh, v) - pointOf(mesh, corners[0]);
    if (z >= x && z >= y)
      flat.push_back({p.x, p.y});
    else if (x >= y)
      flat.push_back({p.y, p.z});
    else
      flat.push_back({p.z, p.x});
  }
  const double noise = 1e-13 * std::pow(shapeOf(mesh, corners).extent, 2);
  const auto side = [&](std::size_t a, std::size_t b, std::size_t c) {
    const double d =
        (flat[b][0] - flat[a][0]) * (flat[c][1] - flat[a][1]) - (flat[b][1] - flat[a][1]) * (flat[c][0] - flat[a][0]);
    return d > noise ? 1 : d < -noise ? -1 : 0;
  };
  const std::size_t n = corners.size();
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 2; j < n; ++j) {
      const std::size_t i2 = i + 1, j2 = (j + 1) % n;
      if (j2 != i && side(i, i2, j) * side(i, i2, j2) < 0 && side(j, j2, i) * side(j, j2, i2) < 0) return true;
    }
  return false;
}

std::string text(const char* property, double value, double limit) {
  return std::string(property) + ": " + std::to_string(value) + ", at most " + std::to_string(limit);
}

/// By how much a step may change the area.
struct AreaChange {
  const PolyMesh& before;
  const Cleaned& after;

  double operator()(const MergeVertices& step) const { return 2 * step.tolerance * edgeLengthOf(before); }
  double operator()(const RemoveZeroEdges& step) const { return 2 * step.threshold * edgeLengthOf(before); }
  double operator()(const RemoveZeroFaces& step) const {
    return step.threshold * static_cast<double>(before.counts.size() - after.mesh.counts.size());
  }
  double operator()(const RemoveDoubleFaces&) const { return areaOfGone(); }
  double operator()(const ConformNormals&) const { return 0; }
  double operator()(const MergeCoplanar& step) const {
    // Besides what turning a face into a plane takes: the gaps of T-junctions become holes, of any direction.
    return (1 - std::cos(2 * step.degrees * kPi / 180) + 1e-6) * areaOf(before);
  }
  double operator()(const RemoveColinear& step) const {
    double sum = 0;
    for (const auto& corners : Faces(after.mesh).corners)
      for (std::size_t i = 0; i < corners.size(); ++i)
        sum += lengthSq(pointOf(after.mesh, corners[i]) - pointOf(after.mesh, corners[(i + 1) % corners.size()]));
    return 0.5 * std::tan(step.degrees * kPi / 360) * sum;
  }

  double areaOfGone() const {
    double sum = 0;
    const Faces faces(before);
    for (std::size_t f = 0; f < faces.size(); ++f)
      if (after.faceMap[f] == kNone) sum += length(areaVectorOf(before, faces.corners[f]));
    return sum;
  }
};

void addFaultsOfMergedFaces(const PolyMesh& before, const Cleaned& after, double degrees, Faults& faults) {
  const Faces old(before), now(after.mesh);
  for (std::size_t f = 0; f < now.size(); ++f) {
    if (after.sourceOffsets[f + 1] - after.sourceOffsets[f] < 2) continue;
    bool didCross = false;
    double unevenness = 0;
    for (std::size_t s = after.sourceOffsets[f]; s < after.sourceOffsets[f + 1]; ++s) {
      const auto& corners = old.corners[after.sources[s]];
      didCross = didCross || crossesItself(before, corners);
      unevenness = std::max(unevenness, shapeOf(before, corners).unevenness);
    }
    const Shape shape = shapeOf(after.mesh, now.corners[f]);
    const double most = 2 * unevenness + 2 * std::sin(degrees * kPi / 180) * shape.extent + 1e-12 * shape.extent;
    if (shape.unevenness > most) faults.push_back(text("bent", shape.unevenness, most));
    if (!didCross && now.corners[f].size() < 4000 && crossesItself(after.mesh, now.corners[f]))
      faults.push_back("crossing: face " + std::to_string(f));
  }
}

struct Triangle {
  std::array<Vec3, 3> corners;
  util::Box box;
};

std::vector<Triangle> trianglesOf(const PolyMesh& mesh) {
  const Triangulation cut = triangulate(mesh);
  const std::size_t given = mesh.points.size() / 3;
  std::vector<Triangle> triangles;
  for (std::size_t t = 0; t < cut.triangles.size(); t += 3) {
    Triangle triangle;
    for (std::size_t i = 0; i < 3; ++i) {
      const std::uint32_t v = cut.triangles[t + i];
      triangle.corners[i] = v < given ? pointOf(mesh, v) : util::toVec3(&cut.madePoints[3 * (v - given)]);
      triangle.box.extend(triangle.corners[i]);
    }
    triangles.push_back(triangle);
  }
  return triangles;
}

double areaOf(const Triangle& t) {
  return 0.5 * length(cross(t.corners[1] - t.corners[0], t.corners[2] - t.corners[0]));
}

double distanceToSegment(const Vec3& p, const Vec3& a, const Vec3& b) {
  const double lengthSquare = lengthSq(b - a);
  const double share = lengthSquare > 0 ? std::clamp(dot(p - a, b - a) / lengthSquare, 0.0, 1.0) : 0.0;
  return length(p - a - share * (b - a));
}

double distanceTo(const Vec3& p, const Triangle& t) {
  const auto& [a, b, c] = t.corners;
  const Vec3 n = cross(b - a, c - a);
  if (dot(cross(b - a, p - a), n) > 0 && dot(cross(c - b, p - b), n) > 0 && dot(cross(a - c, p - c), n) > 0)
    return std::fabs(dot(p - a, n)) / length(n);
  return std::min({distanceToSegment(p, a, b), distanceToSegment(p, b, c), distanceToSegment(p, c, a)});
}

double distanceTo(const Vec3& p, const util::Box& box) {
  return length(Vec3{std::max({box.min.x - p.x, p.x - box.max.x, 0.0}),
                     std::max({box.min.y - p.y, p.y - box.max.y, 0.0}),
                     std::max({box.min.z - p.z, p.z - box.max.z, 0.0})});
}

/// The largest distance of points on one surface, drawn by area, from another.
double largestDistance(const std::vector<Triangle>& from, const std::vector<Triangle>& to) {
  if (from.empty() || to.empty()) return 0;
  std::mt19937 random(1);
  std::vector<double> areas;
  for (const Triangle& t : from) areas.push_back(areaOf(t));
  std::discrete_distribution<std::size_t> draw(areas.begin(), areas.end());
  std::uniform_real_distribution<double> unit(0, 1);
  double largest = 0;
  const std::size_t samples = std::min<std::size_t>(200, 3'000'000 / to.size());
  for (std::size_t i = 0; i < samples; ++i) {
    const auto& [a, b, c] = from[draw(random)].corners;
    double u = unit(random), v = unit(random);
    if (u + v > 1) u = 1 - u, v = 1 - v;
    const Vec3 p = a + u * (b - a) + v * (c - a);
    double nearest = std::numeric_limits<double>::infinity();
    for (const Triangle& t : to)
      if (distanceTo(p, t.box) < nearest) nearest = std::min(nearest, distanceTo(p, t));
    largest = std::max(largest, nearest);
  }
  return largest;
}

void addFaultsOfMaps(const PolyMesh& before, const Cleaned& after, double reach, Faults& faults) {
  const PolyMesh& mesh = after.mesh;
  for (std::size_t v = 0; 3 * v < mesh.points.size(); ++v)
    if (!std::equal(&mesh.points[3 * v], &mesh.points[3 * v] + 3,
                    &before.points[3 * std::size_t{after.vertexSources[v]}]))
      faults.push_back("vertexSources: " + std::to_string(v));
  for (std::uint32_t v = 0; v < after.vertexMap.size(); ++v)
    if (after.vertexMap[v] != kNone && length(pointOf(before, v) - pointOf(mesh, after.vertexMap[v])) > reach)
      faults.push_back("vertexMap: " + std::to_string(v));
  for (std::uint32_t f = 0; f < mesh.counts.size(); ++f)
    for (std::size_t s = after.sourceOffsets[f]; s < after.sourceOffsets[f + 1]; ++s)
      if (after.faceMap[after.sources[s]] != f) faults.push_back("sources: " + std::to_string(f));
  const auto mapped = std::ranges::count_if(after.faceMap, [](std::uint32_t f) { return f != kNone; });
  if (static_cast<std::size_t>(mapped) != after.sources.size()) faults.push_back("faceMap: does not match the sources");
}

/// Each corner has the texture coordinates of a source's corner that has become this vertex, each face its sources'
/// label.
void addFaultsOfAttributes(const PolyMesh& before, const Cleaned& after, Faults& faults) {
  const PolyMesh& mesh = after.mesh;
  const Faces old(before), now(mesh);
  for (std::uint32_t f = 0; f < now.size(); ++f) {
    const bool hasSources = after.sourceOffsets[f] < after.sourceOffsets[f + 1];
    const std::uint32_t made = hasSources || now.outerOf[f] == kNone ? f : now.outerOf[f];
    std::set<std::array<double, 3>> known;  // vertex, u, v
    for (std::size_t s = after.sourceOffsets[made]; s < after.sourceOffsets[made + 1]; ++s) {
      const std::uint32_t source = after.sources[s];
      if (!mesh.labels.empty() && mesh.labels[f] != before.labels[source])
        faults.push_back("label: face " + std::to_string(f));
      for (std::size_t i = 0; !mesh.texIndices.empty() && i < old.corners[source].size(); ++i) {
        const std::uint32_t pair = before.texIndices[old.firsts[source] + i];
        if (pair != kNone)
          known.insert({double(after.vertexMap[old.corners[source][i]]), before.texCoords[2 * std::size_t{pair}],
                        before.texCoords[2 * std::size_t{pair} + 1]});
      }
    }
    for (std::size_t i = 0; !mesh.texIndices.empty() && i < now.corners[f].size(); ++i) {
      const std::uint32_t pair = mesh.texIndices[now.firsts[f] + i];
      if (pair != kNone && !known.contains({double(now.corners[f][i]), mesh.texCoords[2 * std::size_t{pair}],
                                            mesh.texCoords[2 * std::size_t{pair} + 1]}))
        faults.push_back("texture: face " + std::to_string(f));
    }
  }
}

}  // namespace

double diagonalOf(const PolyMesh& mesh) {
  util::Box box;
  for (const std::uint32_t v : mesh.indices) box.extend(pointOf(mesh, v));
  return mesh.indices.empty() ? 0 : length(box.max - box.min);
}

double unevennessOf(const PolyMesh& mesh) {
  double most = 0;
  for (const auto& corners : Faces(mesh).corners) most = std::max(most, shapeOf(mesh, corners).unevenness);
  return most;
}

std::size_t countOpenEdges(const PolyMesh& mesh) {
  return static_cast<std::size_t>(
      std::ranges::count_if(usesOf(mesh), [](const auto& edge) { return edge[0] + edge[1] == 1; }));
}

bool isBalanced(const PolyMesh& mesh) {
  return std::ranges::all_of(usesOf(mesh), [](const auto& edge) { return edge[0] == edge[1]; });
}

double areaOf(const PolyMesh& mesh) {
  const Faces faces(mesh);
  double sum = 0;
  for (std::size_t f = 0; f < faces.size(); ++f)
    sum += (faces.outerOf[f] == kNone ? 1 : -1) * length(areaVectorOf(mesh, faces.corners[f]));
  return sum;
}

double volumeOf(const PolyMesh& mesh) {
  if (mesh.indices.empty()) return 0;
  const Faces faces(mesh);
  const Vec3 origin = pointOf(mesh, mesh.indices[0]);
  double sum = 0;
  for (std::size_t f = 0; f < faces.size(); ++f) {
    const auto& corners = faces.corners[f];
    const std::uint32_t outer = faces.outerOf[f];
    const bool isReversed =
        outer != kNone && dot(areaVectorOf(mesh, corners), areaVectorOf(mesh, faces.corners[outer])) > 0;
    double pyramids = 0;
    for (std::size_t i = 1; i + 1 < corners.size(); ++i)
      pyramids += dot(pointOf(mesh, corners[0]) - origin,
                      cross(pointOf(mesh, corners[i]) - origin, pointOf(mesh, corners[i + 1]) - origin));
    sum += isReversed ? -pyramids : pyramids;
  }
  return sum / 6;
}

Faults faultsOfStep(const PolyMesh& before, const Cleaned& after) {
  Faults faults;
  const Step& step = after.steps.at(0).step;
  const std::size_t openBefore = countOpenEdges(before), openAfter = countOpenEdges(after.mesh);
  if (openAfter > openBefore)
    faults.push_back("opened: " + std::to_string(openBefore) + " -> " + std::to_string(openAfter));
  const double change = std::fabs(areaOf(after.mesh) - areaOf(before));
  const double most = std::visit(AreaChange{before, after}, step) + 1e-11 * areaOf(before);
  if (!(change <= most)) faults.push_back(text("area", change, most));
  if (!std::holds_alternative<ConformNormals>(step) && isBalanced(before) && isBalanced(after.mesh)) {
    const double volumes = std::fabs(volumeOf(after.mesh) - volumeOf(before));
    // What an area can sweep when it moves by the share of the diagonal by which it may change.
    const double mostVolume = (most / std::max(areaOf(before), 1e-300) + 1e-11) * areaOf(before) * diagonalOf(before);
    if (!(volumes <= mostVolume)) faults.push_back(text("volume", volumes, mostVolume));
  }
  if (const auto* merge = std::get_if<MergeCoplanar>(&step))
    addFaultsOfMergedFaces(before, after, merge->degrees, faults);
  return faults;
}

Faults faultsOfChain(const PolyMesh& before, const Cleaned& after, double reach) {
  Faults faults;
  addFaultsOfMaps(before, after, reach, faults);
  addFaultsOfAttributes(before, after, faults);
  const std::vector<Triangle> old = trianglesOf(before), now = trianglesOf(after.mesh);
  const double away = largestDistance(now, old), lost = largestDistance(old, now);
  if (!(away <= reach)) faults.push_back(text("off the input", away, reach));
  if (!(lost <= reach)) faults.push_back(text("lost", lost, reach));
  util::Box oldBox, nowBox;
  for (const Triangle& t : old)
    for (const Vec3& p : t.corners) oldBox.extend(p);
  for (const Triangle& t : now)
    for (const Vec3& p : t.corners) nowBox.extend(p);
  if (!now.empty() && (util::largestMagnitude(oldBox.min - nowBox.min) > reach ||
                       util::largestMagnitude(oldBox.max - nowBox.max) > reach))
    faults.push_back("box");
  return faults;
}

Faults faultsOfTriangles(const PolyMesh& mesh) {
  Faults faults;
  const Faces faces(mesh);
  const Triangulation cut = triangulate(mesh);
  const std::vector<Triangle> triangles = trianglesOf(mesh);
  std::vector<double> areas(faces.size(), 0), cutAreas(faces.size(), 0);
  std::vector<bool> isFlat(faces.size(), true);
  for (std::size_t f = 0; f < faces.size(); ++f) {
    const std::uint32_t owner = faces.outerOf[f] == kNone ? static_cast<std::uint32_t>(f) : faces.outerOf[f];
    areas[owner] += (owner == f ? 1 : -1) * length(areaVectorOf(mesh, faces.corners[f]));
    const Shape shape = shapeOf(mesh, faces.corners[f]);
    if (shape.unevenness > 1e-9 * shape.extent || crossesItself(mesh, faces.corners[f])) isFlat[owner] = false;
  }
  for (std::size_t t = 0; t < triangles.size(); ++t) cutAreas[cut.faces[t]] += areaOf(triangles[t]);
  for (std::size_t f = 0; f < faces.size(); ++f)
    if (isFlat[f] &&
        std::fabs(cutAreas[f] - areas[f]) > 1e-8 * (areas[f] + length(areaVectorOf(mesh, faces.corners[f]))))
      faults.push_back("triangles: face " + std::to_string(f) + " " + text("", cutAreas[f], areas[f]));
  for (std::size_t t = 0; t < triangles.size(); ++t) {
    const auto& [a, b, c] = triangles[t].corners;
    if (!(areaOf(triangles[t]) > 1e-15 * (lengthSq(b - a) + lengthSq(c - a))))
      faults.push_back("without area: a triangle of face " + std::to_string(cut.faces[t]));
  }
  if (!cut.madePoints.empty()) faults.push_back("made points: " + std::to_string(cut.madePoints.size() / 3));
  return faults;
}

}  // namespace support
