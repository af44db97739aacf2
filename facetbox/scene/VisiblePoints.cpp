#include <facetbox/scene/VisiblePoints.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>

#include <facetbox/scene/RayCasting.h>
#include <facetbox/scene/SceneMesh.h>
#include <facetbox/scene/ViewVolume.h>

namespace util {
namespace {

using facetbox::Matrix;

/// What hides begins before this share of the way: objects that touch at a corner do not hide it from each other.
constexpr double kBefore = 1 - 1e-9;

/// By elimination with the largest pivots; none where one is zero or not finite.
std::optional<Matrix> inverseOf(const Matrix& matrix) {
  Matrix from = matrix, to{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  const auto at = [](Matrix& m, std::size_t row, std::size_t column) -> double& { return m[4 * column + row]; };
  for (std::size_t k = 0; k < 4; ++k) {
    std::size_t pivot = k;
    for (std::size_t row = k + 1; row < 4; ++row)
      if (std::fabs(at(from, row, k)) > std::fabs(at(from, pivot, k))) pivot = row;
    const double value = at(from, pivot, k);
    if (value == 0 || !std::isfinite(1 / value)) return {};
    for (std::size_t column = 0; column < 4; ++column) {
      std::swap(at(from, pivot, column), at(from, k, column));
      std::swap(at(to, pivot, column), at(to, k, column));
      at(from, k, column) /= value;
      at(to, k, column) /= value;
    }
    for (std::size_t row = 0; row < 4; ++row) {
      const double factor = at(from, row, k);
      if (row == k || factor == 0) continue;
      for (std::size_t column = 0; column < 4; ++column) {
        at(from, row, column) -= factor * at(from, k, column);
        at(to, row, column) -= factor * at(to, k, column);
      }
    }
  }
  return to;
}

double areaOf(const SceneMesh& mesh, std::uint32_t triangle) {
  const Vec3 p = mesh.corner(triangle, 0);
  return lengthSq(cross(mesh.corner(triangle, 1) - p, mesh.corner(triangle, 2) - p));
}

/// The points of one object that rays are cast to, one after the other: corners, triangle by triangle, then the middles
/// of faces.
class Points {
 public:
  explicit Points(const SceneMesh& mesh) : mMesh(mesh) {}

  bool next(Vec3& point) {
    const auto corners = static_cast<std::uint32_t>(mMesh.triangles().size());
    if (mIsCast.empty()) mIsCast.resize(mMesh.coordinates().size() / 3);
    for (; mCorner < corners; ++mCorner) {
      const std::uint32_t vertex = mMesh.triangles()[mCorner];
      if (mIsCast[vertex]) continue;
      mIsCast[vertex] = true;
      point = mMesh.corner(mCorner / 3, static_cast<int>(mCorner % 3));
      return true;
    }
    if (mTriangle >= mMesh.triangleCount()) return false;
    std::uint32_t largest = mTriangle;
    const std::uint32_t face = mMesh.faceOf(mTriangle);
    for (; mTriangle < mMesh.triangleCount() && mMesh.faceOf(mTriangle) == face; ++mTriangle)
      if (areaOf(mMesh, mTriangle) > areaOf(mMesh, largest)) largest = mTriangle;
    constexpr double kThird = 1.0 / 3;
    point = kThird * (mMesh.corner(largest, 0) + mMesh.corner(largest, 1) + mMesh.corner(largest, 2));
    return true;
  }

 private:
  const SceneMesh& mMesh;
  std::vector<bool> mIsCast;  // by vertex
  std::uint32_t mCorner = 0, mTriangle = 0;
};

struct Candidate {
  std::uint32_t slot;
  ViewVolume volume;
  Points points;
  bool isVisible = false, isDone = false;
};

class Batch {
 public:
  Batch(const SceneState& state, const Matrix& inverse) : mState(state), mInverse(inverse) {}

  /// Adds a ray to a point of the candidate, if it lies in the volume.
  void add(std::size_t candidate, const SceneObject& object, const Vec3& point, const ViewVolume& volume) {
    const ClipPoint at = volume.place(point);
    if (!at.isInside()) return;
    const double x = at.x / at.w, y = at.y / at.w;
    const auto row = [&](std::size_t r) {
      return mInverse[r] * x + mInverse[4 + r] * y - mInverse[8 + r] + mInverse[12 + r];
    };
    const double w = row(3);
    const Vec3 from = Vec3{row(0), row(1), row(2)} / w;
    if (!isFinite(from)) return;
    const Vec3 along = object.placement.toWorld(point) - from;
    mOrigins.insert(mOrigins.end(), {from.x, from.y, from.z});
    mDirections.insert(mDirections.end(), {along.x, along.y, along.z});
    mCandidates.push_back(candidate);
  }

  void cast(std::vector<Candidate>& candidates) {
    const std::vector<double> limits(mCandidates.size(), kBefore);
    const facetbox::Hits hits = castRays(mState, mOrigins, mDirections, {.limits = limits});
    for (std::size_t i = 0; i < mCandidates.size(); ++i) {
      Candidate& candidate = candidates[mCandidates[i]];
      candidate.isVisible =
          candidate.isVisible || hits.id[i] == facetbox::kNone || hits.id[i] == mState[candidate.slot].id;
    }
    mOrigins.clear();
    mDirections.clear();
    mCandidates.clear();
  }
  std::size_t size() const { return mCandidates.size(); }

 private:
  const SceneState& mState;
  const Matrix& mInverse;
  std::vector<double> mOrigins, mDirections;
  std::vector<std::size_t> mCandidates;  // by ray
};

}  // namespace

void keepVisible(const SceneState& state, const Matrix& viewProjection, std::vector<std::uint32_t>& slots) {
  const std::optional<Matrix> inverse = inverseOf(viewProjection);
  if (!inverse) return slots.clear();
  std::vector<Candidate> candidates;
  candidates.reserve(slots.size());
  for (const std::uint32_t slot : slots)
    candidates.push_back({slot, ViewVolume(viewProjection, &state[slot].placement), Points(*state[slot].mesh)});
  slots.clear();

  // Most objects are decided by a few points; the others get more and more at a time.
  constexpr std::size_t kFirst = 8, kMost = 1 << 16;
  Batch batch(state, *inverse);
  bool isDone = false;
  for (std::size_t each = kFirst; !isDone; each = std::min(2 * each, kMost)) {
    isDone = true;
    for (std::size_t c = 0; c < candidates.size(); ++c) {
      Candidate& candidate = candidates[c];
      if (candidate.isVisible || candidate.isDone) continue;
      isDone = false;
      Vec3 point;
      for (std::size_t i = 0; i < each && !candidate.isDone; ++i) {
        candidate.isDone = !candidate.points.next(point);
        if (!candidate.isDone) batch.add(c, state[candidate.slot], point, candidate.volume);
      }
      if (batch.size() >= kMost) batch.cast(candidates);
    }
    batch.cast(candidates);
  }
  for (const Candidate& candidate : candidates)
    if (candidate.isVisible) slots.push_back(candidate.slot);
}

}  // namespace util
