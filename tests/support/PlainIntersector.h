#pragma once

#include <algorithm>
#include <array>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>
#include <facetbox/util/math/Angle.h>
#include <facetbox/util/math/OverlapsBox.h>
#include <facetbox/util/mesh/MeshStorage.h>
#include <tests/support/PlainPicker.h>

/// The slow twin of one handle of the intersector: does everything at once, looks at everything.
namespace support {

struct Raster {
  std::array<int, 4> mViewport{};
  int mWidth = 0, mHeight = 0, mOffsetX = 0, mOffsetY = 0;
  std::vector<std::int32_t> mCells{};
};

struct NearestAnswer {
  bool mFound = false;
  std::array<float, 12> mVectors{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};  ///< the point, then the corners
};

class PlainIntersector {
 public:
  void addEntry(const util::Mesh& mesh, const Matrix& m) {
    Instance instance{triangulated(mesh, std::nullopt), m};
    if (mesh.storage().mVertices.size() < 16) instance = {triangulated(mesh, m), std::nullopt};
    mInstances.push_back(std::move(instance));
    mExists = true;
  }
  void setBox(const util::Mesh& mesh) {
    mBox = triangulated(mesh, std::nullopt);
    mExists = true;
  }
  void relocate(double dx, double dy, double dz) {
    const auto move = [&](Triangles& mesh) {
      for (Vec3& p : mesh.mVertices) p = p + Vec3{dx, dy, dz};
    };
    if (mBox) move(*mBox);
    for (Instance& instance : mInstances)
      if (instance.mMatrix)
        instance.mMatrix = product({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, dx, dy, dz, 1}, *instance.mMatrix);
      else
        move(instance.mMesh);
  }

  bool testRaster(const std::array<float, 16>& m, const Raster& raster) const {
    if (!mExists) return false;
    if (mBox) {
      int low[2] = {INT_MAX, INT_MAX}, high[2] = {INT_MIN, INT_MIN};
      for (const Vec3& v : mBox->mVertices) {
        const auto p = position(m, raster, v);
        for (std::size_t a = 0; a < 2; ++a) low[a] = std::min(low[a], p[a]), high[a] = std::max(high[a], p[a]);
      }
      if (low[0] >= raster.mWidth || high[0] < 0 || low[1] >= raster.mHeight || high[1] < 0) return false;
    }
    return std::ranges::all_of(mInstances, [&](const Instance& instance) { return isCovered(instance, m, raster); });
  }

  bool overlaps(const std::array<float, 16>& view) const {
    const Matrix v = widened(view);
    return mExists && boxOverlaps(v) && std::ranges::any_of(mInstances, [&](const Instance& instance) {
             const auto projected = projectedToOrigin(instance, v);
             return std::ranges::any_of(instance.mMesh.mTriangles,
                                        [&](const auto& t) { return touches(projected, t); });
           });
  }

  bool contains(const std::array<float, 16>& view) const {
    const Matrix v = widened(view);
    const auto isIn = [](const Vec3& p) {
      return -1 <= p.x && p.x <= 1 && -1 <= p.y && p.y <= 1 && -1 <= p.z && p.z <= 1;
    };
    if (!mExists) return false;
    if (mBox) {
      const auto count =
          std::ranges::count_if(mBox->mVertices, [&](const Vec3& p) { return isIn(projected(v, p, p)); });
      if (count == std::ssize(mBox->mVertices)) return true;
      if (count == 0) return false;
    }
    for (const Instance& instance : mInstances) {
      Vec3 last{0, 0, 0};
      for (const Vec3& p : instance.mMesh.mVertices)
        if (last = projected(clipMatrix(instance, v), p, last); !isIn(last)) return false;
    }
    return true;
  }

  NearestAnswer findNearest(const std::array<float, 16>& view, const std::array<float, 3>& eye,
                            const std::array<float, 3>& direction) const {
    const Matrix v = widened(view);
    const Vec3 e{eye[0], eye[1], eye[2]}, d{direction[0], direction[1], direction[2]};
    NearestAnswer answer;
    if (!mExists || !boxOverlaps(v)) return answer;
    double best = DBL_MAX;
    for (const Instance& instance : mInstances) {
      const auto inClipSpace = projectedToOrigin(instance, v);
      const Matrix c = clipMatrix(instance, v);
      for (const auto& triangle : instance.mMesh.mTriangles) {
        if (!touches(inClipSpace, triangle)) continue;
        std::vector<Corner> corners;
        std::vector<Vec3> world;
        for (const std::uint32_t i : triangle) {
          const Vec3 p = instance.mMesh.mVertices[i], w = world.emplace_back(placed(instance, p));
          corners.push_back({row(c, 0, p), row(c, 1, p), row(c, 2, p), row(c, 3, p), w.x, w.y, w.z});
        }
        clip(
            corners, [](const Corner& p) { return p[3] - 1e-25; }, true);
        for (const std::size_t a : {0, 1, 2}) {
          clip(
              corners, [a](const Corner& p) { return p[3] - p[a]; }, false);
          clip(
              corners, [a](const Corner& p) { return p[3] + p[a]; }, false);
        }
        for (const Corner& p : corners) {
          const Vec3 point{p[4], p[5], p[6]};
          if (!(dot(point - e, d) < best)) continue;
          best = dot(point - e, d);
          answer.mFound = true;
          std::size_t i = 0;
          for (const Vec3& x : {point, world[0], world[1], world[2]})
            for (const double coordinate : {x.x, x.y, x.z}) answer.mVectors[i++] = static_cast<float>(coordinate);
        }
      }
    }
    return answer;
  }

  RayAnswer intersectRay(const std::array<float, 3>& origin, const std::array<float, 3>& direction) const {
    const Vec3 from{origin[0], origin[1], origin[2]}, along{direction[0], direction[1], direction[2]};
    RayAnswer answer;
    double best = FLT_MAX;
    for (const Instance& instance : mInstances)
      for (const auto& triangle : instance.mMesh.mTriangles) {
        Vec3 p[3];
        for (std::size_t k = 0; k < 3; ++k) {
          p[k] = instance.mMesh.mVertices[triangle[k]];
          const Matrix m = instance.mMatrix.value_or(Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
          p[k] = {row(m, 0, p[k]), row(m, 1, p[k]), row(m, 2, p[k])};
        }
        const Vec3 e1 = p[1] - p[0], e2 = p[2] - p[0], pvec = cross(along, e2), s = from - p[0], qvec = cross(s, e1);
        const double det = dot(e1, pvec), inverse = 1 / det;
        if (-1e-5 < det && det < 1e-5) continue;
        const double u = dot(s, pvec) * inverse, w = dot(along, qvec) * inverse, t = dot(e2, qvec) * inverse;
        if (!(0 <= u && u <= 1) || w < 0 || u + w > 1 || !(t >= 0 && t < best)) continue;
        best = t;
        const Vec3 n = util::normalised(cross(e1, e2));
        answer = {
            true, static_cast<float>(t), {static_cast<float>(n.x), static_cast<float>(n.y), static_cast<float>(n.z)}};
      }
    return answer;
  }

 private:
  using Triangle = std::array<std::uint32_t, 3>;
  using Corner = std::array<double, 7>;  ///< x, y, z, w in clip space, x, y, z in the world
  struct Triangles {
    std::vector<Vec3> mVertices;
    std::vector<Triangle> mTriangles;
  };
  struct Instance {
    Triangles mMesh;
    std::optional<Matrix> mMatrix;
  };

  static Matrix widened(const std::array<float, 16>& m) {
    Matrix wide;
    std::ranges::copy(m, wide.begin());
    return wide;
  }
  static double row(const Matrix& m, std::size_t r, const Vec3& p) {
    return m[r] * p.x + m[4 + r] * p.y + m[8 + r] * p.z + m[12 + r];
  }
  static Vec3 projected(const Matrix& m, const Vec3& p, const Vec3& otherwise) {
    const double w = std::fabs(row(m, 3, p));
    return w > 1e-25 ? Vec3{row(m, 0, p) / w, row(m, 1, p) / w, row(m, 2, p) / w} : otherwise;
  }
  static Vec3 placed(const Instance& instance, const Vec3& p) {
    if (!instance.mMatrix) return p;
    return {row(*instance.mMatrix, 0, p), row(*instance.mMatrix, 1, p), row(*instance.mMatrix, 2, p)};
  }
  static Matrix clipMatrix(const Instance& instance, const Matrix& v) {
    return instance.mMatrix ? product(v, *instance.mMatrix) : v;
  }
  static std::vector<Vec3> projectedToOrigin(const Instance& instance, const Matrix& v) {
    std::vector<Vec3> all;
    for (const Vec3& p : instance.mMesh.mVertices) all.push_back(projected(clipMatrix(instance, v), p, {0, 0, 0}));
    return all;
  }
  static bool touches(const std::vector<Vec3>& p, const Triangle& t) {
    const double centre[3] = {0, 0, 0}, half[3] = {1, 1, 1};
    return util::overlapsBox(&p[t[0]].x, &p[t[1]].x, &p[t[2]].x, centre, half);
  }
  bool boxOverlaps(const Matrix& v) const {
    if (!mBox) return true;
    std::vector<Vec3> all;
    for (const Vec3& p : mBox->mVertices) all.push_back(projected(v, p, p));
    return std::ranges::any_of(mBox->mTriangles, [&](const Triangle& t) { return touches(all, t); });
  }

  template <class Distance>
  static void clip(std::vector<Corner>& corners, Distance distance, bool strictly) {
    std::vector<Corner> kept;
    const auto isIn = [&](const Corner& p) { return strictly ? distance(p) > 0 : distance(p) >= 0; };
    const auto cross = [&](const Corner& in, const Corner& out) {
      const double share = distance(in) / (distance(in) - distance(out));
      Corner p;
      for (std::size_t i = 0; i < 7; ++i) p[i] = in[i] + share * (out[i] - in[i]);
      return p;
    };
    for (std::size_t i = 0; i < corners.size(); ++i) {
      const Corner &a = corners[i], &b = corners[(i + 1) % corners.size()];
      if (isIn(a)) kept.push_back(a);
      if (isIn(a) != isIn(b)) kept.push_back(isIn(a) ? cross(a, b) : cross(b, a));
    }
    corners = kept;
  }

  static std::array<int, 3> position(const std::array<float, 16>& m, const Raster& raster, const Vec3& world) {
    const float x = static_cast<float>(world.x), y = static_cast<float>(world.y), z = static_cast<float>(world.z);
    const auto line = [&](std::size_t r) { return m[r] * x + m[4 + r] * y + m[8 + r] * z + m[12 + r]; };
    const float w = std::fabs(line(3));
    float n[3] = {0, 0, 0};
    for (std::size_t r = 0; r < 3 && double{w} > 1e-25; ++r) n[r] = line(r) / w;
    const auto rounded = [](float value) {
      if (!(value >= -2147483648.0f)) return INT_MIN;
      return value < 2147483648.0f ? static_cast<int>(std::lroundf(value)) : INT_MAX;
    };
    const auto& [vx, vy, vw, vh] = raster.mViewport;
    const float sx = n[0] * 0.5f + 0.5f, sy = n[1] * 0.5f + 0.5f, sz = n[2] * 0.5f + 0.5f;
    const auto f = [](int i) { return static_cast<float>(i); };
    return {rounded(f(vw) * sx + f(vx) - f(raster.mOffsetX)),
            rounded(f(vh) - (sy * f(vh) + f(vy)) - f(raster.mOffsetY)), 0 <= sz && sz <= 1 ? 1 : -1};
  }
  static bool isSet(const Raster& raster, std::int64_t column, std::int64_t row) {
    return 0 <= column && column < raster.mWidth && 0 <= row && row < raster.mHeight &&
           raster.mCells[static_cast<std::size_t>(raster.mWidth * row + column)] != 0;
  }
  static bool isLineSet(const Raster& raster, const std::array<int, 3>& from, const std::array<int, 3>& to) {
    std::int64_t x = from[0], y = from[1];
    const std::int64_t dx = std::abs(to[0] - x), dy = -std::abs(to[1] - y), sx = x < to[0] ? 1 : -1,
                       sy = y < to[1] ? 1 : -1;
    for (std::int64_t err = dx + dy; x != to[0] || y != to[1];) {
      const std::int64_t e2 = 2 * err;
      if (e2 >= dy) {
        if (x == to[0]) break;
        err += dy, x += sx;
      }
      if (e2 <= dx) {
        if (y == to[1]) break;
        err += dx, y += sy;
      }
      if (!isSet(raster, x, y)) return false;
    }
    return true;
  }
  static bool isCovered(const Instance& instance, const std::array<float, 16>& m, const Raster& raster) {
    std::vector<std::array<int, 3>> positions;
    Vec3 last{0, 0, 0};
    for (const Vec3& p : instance.mMesh.mVertices) {
      last = instance.mMatrix ? projected(*instance.mMatrix, p, last) : p;
      const auto& at = positions.emplace_back(position(m, raster, last));
      if (at[2] != 1 || !isSet(raster, at[0], at[1])) return false;
    }
    std::set<std::pair<std::uint32_t, std::uint32_t>> walked;
    for (const Triangle& t : instance.mMesh.mTriangles)
      for (std::size_t k = 0; k < 3; ++k) {
        const std::uint32_t a = t[k], b = t[(k + 1) % 3];
        if (walked.emplace(std::min(a, b), std::max(a, b)).second && !isLineSet(raster, positions[a], positions[b]))
          return false;
      }
    return true;
  }

  static Triangles triangulated(const util::Mesh& mesh, const std::optional<Matrix>& m) {
    std::vector<double> coordinates;
    for (const Vec3& v : mesh.storage().mVertices) {
      const Vec3 p = m ? Vec3{row(*m, 0, v), row(*m, 1, v), row(*m, 2, v)} : v;
      coordinates.insert(coordinates.end(), {p.x, p.y, p.z});
    }
    const std::unique_ptr<util::TriangleMesh> made(util::Triangulator().triangulate(mesh, coordinates, 0));
    Triangles triangles;
    const auto v = made->vertexCoordinates();
    for (std::size_t i = 0; i < v.size(); i += 3) triangles.mVertices.push_back({v[i], v[i + 1], v[i + 2]});
    const auto n = made->indices();
    for (std::size_t i = 0; i < n.size(); i += 3) triangles.mTriangles.push_back({n[i], n[i + 1], n[i + 2]});
    return triangles;
  }

  bool mExists = false;
  std::optional<Triangles> mBox;
  std::vector<Instance> mInstances;
};

}  // namespace support
