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

#include <facetbox/intersector/Intersector.h>
#include <facetbox/math/Angle.h>
#include <facetbox/math/OverlapsBox.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>
#include <tests/support/PlainPicker.h>

namespace support {

struct Raster {
  std::array<int, 4> mViewport{};
  int mWidth = 0, mHeight = 0, mOffsetX = 0, mOffsetY = 0;
  std::vector<std::int32_t> mCells{};
};

/// One of each.
struct Question {
  std::array<float, 16> mView{};
  std::array<float, 3> mFrom{}, mAlong{};
  Raster mRaster{};
};

struct Answers {
  std::array<bool, 5> mYes{};      ///< raster, overlap, containment, nearest, ray
  std::array<float, 16> mNumbers;  ///< nearest point, its triangle, distance, normal

  Answers() { mNumbers.fill(-1); }
  /// NaN equals itself, 0 is not -0.
  friend bool operator==(const Answers& a, const Answers& b) {
    return a.mYes == b.mYes && std::ranges::equal(a.mNumbers, b.mNumbers, [](float x, float y) {
             return (std::isnan(x) && std::isnan(y)) || (x == y && std::signbit(x) == std::signbit(y));
           });
  }
};

inline Answers answersOf(Intersector& intersector, std::size_t handle, const Question& q) {
  Answers answers;
  const Raster& r = q.mRaster;
  const float *view = q.mView.data(), *from = q.mFrom.data(), *along = q.mAlong.data();
  float* out = answers.mNumbers.data();
  answers.mYes = {intersector.testRaster(handle, view, r.mViewport.data(), r.mCells.data(), r.mWidth, r.mHeight,
                                         r.mOffsetX, r.mOffsetY),
                  intersector.intersectsFrustum(handle, view, false), intersector.intersectsFrustum(handle, view, true),
                  intersector.findNearestInFrustum(handle, view, from, along, out, out + 3, out + 6, out + 9),
                  intersector.intersectsRay(handle, from, along, out + 12, out + 13)};
  return answers;
}

/// The slow twin of one handle of the intersector: does everything at once, looks at everything.
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

  Answers answers(const Question& q) const {
    Answers answers;
    if (!mExists) return answers;
    const Matrix v = widened(q.mView);
    answers.mYes = {testRaster(q.mView, q.mRaster), overlaps(v), contains(v), false, false};
    findNearest(v, vectorOf(q.mFrom), vectorOf(q.mAlong), answers);
    intersectRay(vectorOf(q.mFrom), vectorOf(q.mAlong), answers);
    return answers;
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

  bool testRaster(const std::array<float, 16>& m, const Raster& raster) const {
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

  bool overlaps(const Matrix& v) const {
    return boxOverlaps(v) && std::ranges::any_of(mInstances, [&](const Instance& instance) {
             const auto projected = projectedToOrigin(instance, v);
             return std::ranges::any_of(instance.mMesh.mTriangles,
                                        [&](const auto& t) { return touches(projected, t); });
           });
  }

  bool contains(const Matrix& v) const {
    const auto isIn = [](const Vec3& p) {
      return -1 <= p.x && p.x <= 1 && -1 <= p.y && p.y <= 1 && -1 <= p.z && p.z <= 1;
    };
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

  void findNearest(const Matrix& v, const Vec3& eye, const Vec3& direction, Answers& answers) const {
    if (!boxOverlaps(v)) return;
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
          if (!(dot(point - eye, direction) < best)) continue;
          best = dot(point - eye, direction);
          answers.mYes[3] = true;
          std::size_t i = 0;
          for (const Vec3& x : {point, world[0], world[1], world[2]})
            for (const double coordinate : {x.x, x.y, x.z}) answers.mNumbers[i++] = static_cast<float>(coordinate);
        }
      }
    }
  }

  void intersectRay(const Vec3& from, const Vec3& along, Answers& answers) const {
    double best = FLT_MAX;
    for (const Instance& instance : mInstances)
      for (const auto& triangle : instance.mMesh.mTriangles) {
        const Matrix m = instance.mMatrix.value_or(Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
        const auto at = [&](std::size_t k) {
          const Vec3& p = instance.mMesh.mVertices[triangle[k]];
          return Vec3{row(m, 0, p), row(m, 1, p), row(m, 2, p)};
        };
        const Vec3 e1 = at(1) - at(0), e2 = at(2) - at(0), pvec = cross(along, e2), s = from - at(0),
                   qvec = cross(s, e1);
        const double det = dot(e1, pvec), inverse = 1 / det;
        if (-1e-5 < det && det < 1e-5) continue;
        const double u = dot(s, pvec) * inverse, w = dot(along, qvec) * inverse, t = dot(e2, qvec) * inverse;
        if (!(0 <= u && u <= 1) || w < 0 || u + w > 1 || !(t >= 0 && t < best)) continue;
        best = t;
        const Vec3 n = util::normalized(cross(e1, e2));
        answers.mYes[4] = true;
        std::size_t i = 12;
        for (const double x : {t, n.x, n.y, n.z}) answers.mNumbers[i++] = static_cast<float>(x);
      }
  }

  static Vec3 vectorOf(const std::array<float, 3>& p) { return {p[0], p[1], p[2]}; }
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
    const double center[3] = {0, 0, 0}, half[3] = {1, 1, 1};
    return util::overlapsBox(&p[t[0]].x, &p[t[1]].x, &p[t[2]].x, center, half);
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
