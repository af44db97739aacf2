#include <facetbox/clean.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>
#include <utility>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/math/Matrix4.h>
#include <facetbox/mesh/HoleAssignment.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/RequireValid.h>
#include <facetbox/mesh/Validate.h>
#include <facetbox/mesh/WorkingMesh.h>
#include <facetbox/operations/ConformNormals.h>
#include <facetbox/operations/MergeVertices.h>
#include <facetbox/operations/RemoveEdgesCoplanar.h>
#include <facetbox/operations/RemoveEdgesZero.h>
#include <facetbox/operations/RemoveFacesDouble.h>
#include <facetbox/operations/RemoveFacesZero.h>
#include <facetbox/operations/RemoveVerticesColinear.h>

namespace facetbox {
namespace {

/// One clean-up on its way.
class CleanUp {
 public:
  CleanUp(const MeshView& input, const CleanOptions& options)
      : mInput(input),
        mOptions(options),
        mMonitor([this](double fraction) { look(fraction); }),
        mFrame(util::frameOf(input, monitor())),
        mHistory(input.points.size() / 3, input.counts.size()),
        mMesh(util::makeWorkingMesh(input, mFrame, &mHistory, monitor())) {
    mMesh->storage().mLimits = util::MeshLimits::relativeTo(mFrame.diagonal);
    listLeftOut();
    settleHoles();
    mResult.droppedHoles = takeDroppedHoles();
  }

  void run(const Step& step) {
    StepReport report{.step = step, .before = counts()};
    const auto begin = std::chrono::steady_clock::now();
    mIsRunning = true;
    mMonitor.start();
    report.facesTurned = std::visit([this](const auto& s) { return runStep(s); }, step);
    mMonitor.finish();
    util::assertValid(*mMesh, "the step");
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    report.after = counts();
    report.droppedHoles = takeDroppedHoles();
    mResult.steps.push_back(std::move(report));
  }

  Cleaned finish() && {
    mIsRunning = false;
    mMonitor.look();
    mResult.mesh = util::toPolyMesh(*mMesh, mInput, mHistory);
    mMesh.reset();
    mMonitor.look();
    mResult.vertexMap = std::move(mHistory.vertices).takeMap();
    mResult.vertexSources = std::move(mHistory.vertices).takeSources();
    mResult.faceMap = std::move(mHistory.faces).takeMap();
    listSources();
    return std::move(mResult);
  }

 private:
  // The steps; each returns how many faces it turned. Lengths go into the frame with the mesh. Holes are checked anew
  // where outlines have changed; merging coplanar faces does so itself.
  std::size_t runStep(const MergeVertices& step) {
    const util::MeshStorage& m = mMesh->storage();
    const double tolerance = toFrame(step.tolerance);
    if (!m.mHoles.empty() || tolerance > m.mLimits.mLargeTolerance) needNormals();
    changeOutlines([&] {
      const std::uint64_t merged = util::mergeVertices(*mMesh, tolerance, util::NormalUpdate::skip);
      mHasNormals = false;
      return merged;
    });
    return 0;
  }
  std::size_t runStep(const RemoveZeroEdges& step) {
    needNormals();
    changeOutlines([&] {
      const std::uint64_t changes = util::removeEdgesZero(*mMesh, toFrame(step.threshold));
      // The operation's own normals pass over where a face comes back to its first corner.
      if (changes != 0) mHasNormals = false;
      return changes;
    });
    util::removeUnusedVertices(*mMesh);
    return 0;
  }
  std::size_t runStep(const RemoveZeroFaces& step) {
    needNormals();
    util::removeFacesZero(*mMesh, toFrame(toFrame(step.threshold)));
    return 0;
  }
  std::size_t runStep(const RemoveDoubleFaces& step) {
    if (!mMesh->storage().mHoles.empty()) needNormals();
    util::removeFacesDouble(*mMesh, step.compareAttributes);
    return 0;
  }
  std::size_t runStep(const ConformNormals&) {
    needNormals();
    const std::size_t turned = util::conformNormals(*mMesh, util::kIdentity);
    // A face without area has the same normal again, turned or not.
    if (turned != 0) mHasNormals = false;
    return turned;
  }
  std::size_t runStep(const MergeCoplanar& step) {
    needNormals();
    util::removeEdgesCoplanar(*mMesh, step.degrees, step.compareAttributes);
    return 0;
  }
  std::size_t runStep(const RemoveColinear& step) {
    needNormals();
    changeOutlines([&] { return util::removeVerticesColinear(*mMesh, step.degrees, step.keepTextureMapping); });
    return 0;
  }

  /// Beyond this, everything lies within reach of everything.
  double toFrame(double length) const {
    constexpr double kEndless = 1e140;
    return std::min(length * mFrame.scale, kEndless);
  }

  /// Runs an operation that may leave holes which are none any more; it returns how much it has changed.
  template <class Operation>
  void changeOutlines(Operation operation) {
    const bool hasHoles = !mMesh->storage().mHoles.empty();
    std::uint64_t changes;
    {
      const util::Monitor::Part part(monitor(), 0, hasHoles ? 0.8 : 1.0);
      changes = operation();
    }
    const util::Monitor::Part part(monitor(), hasHoles ? 0.8 : 1.0, 1);
    if (changes != 0) settleHoles();
  }

  /// Drops holes that are none, any more.
  void settleHoles() {
    if (mMesh->storage().mHoles.empty()) return;
    needNormals();
    util::assignHoles(*mMesh);
  }

  /// Computes the normals where they are asked for: not all steps need them.
  void needNormals() {
    if (!mHasNormals) util::recomputeFaceNormals(*mMesh);
    mHasNormals = true;
  }

  /// Null where nobody wants to know.
  util::Monitor* monitor() { return mOptions.progress || mOptions.isCancelled ? &mMonitor : nullptr; }

  void look(double fraction) {
    if (mOptions.isCancelled && mOptions.isCancelled()) throw Cancelled();
    if (mOptions.progress && mIsRunning) mOptions.progress(mResult.steps.size(), fraction);
  }

  std::vector<DroppedHole> takeDroppedHoles() { return std::exchange(mHistory.droppedHoles, {}); }

  Counts counts() const {
    const util::MeshStorage& m = mMesh->storage();
    Counts counts{.vertices = m.mVertices.size(), .faces = m.mFaces.size()};
    for (std::size_t face = 0; face < m.mFaces.size(); ++face) counts.corners += m.mFaces.cornerCount(face);
    const auto& holes = m.mHoles.list();
    counts.holes = holes.size() - 2 * static_cast<std::size_t>(std::ranges::count(holes, util::HoleTable::kEnd));
    return counts;
  }

  void listLeftOut() {
    for (std::uint32_t face = 0; face < mInput.counts.size(); ++face)
      if (const std::uint32_t count = mInput.counts[face]; count < 3)
        mResult.leftOut.push_back(
            {.kind = Problem::Kind::tooFewCorners, .face = face, .isFatal = false, .value = count});
  }

  /// The old faces of each new one, by counting.
  void listSources() {
    std::vector<std::uint32_t>& ends = mResult.sourceOffsets;
    util::reserveLarge(ends, mResult.mesh.counts.size() + 1);
    ends.assign(mResult.mesh.counts.size() + 1, 0);
    for (const std::uint32_t face : mResult.faceMap)
      if (face != kNone) ++ends[face];
    std::uint32_t begin = 0;
    for (std::uint32_t& end : ends) begin = std::exchange(end, begin) + begin;
    util::reserveLarge(mResult.sources, begin);
    mResult.sources.resize(begin);
    // Each start moves up to its end, which is the start of the next face.
    for (std::uint32_t old = 0; old < mResult.faceMap.size(); ++old)
      if (const std::uint32_t face = mResult.faceMap[old]; face != kNone) mResult.sources[ends[face]++] = old;
    std::rotate(ends.begin(), ends.end() - 1, ends.end());
    ends.front() = 0;
  }

  const MeshView& mInput;
  const CleanOptions& mOptions;
  util::Monitor mMonitor;
  bool mIsRunning = false;  // a step
  const util::MeshFrame mFrame;
  util::MeshHistory mHistory;
  std::unique_ptr<util::Mesh> mMesh;
  bool mHasNormals = false;
  Cleaned mResult;
};

/// The number that a step depends on, or 0.
struct ValueOf {
  double operator()(const MergeVertices& step) const { return step.tolerance; }
  double operator()(const RemoveZeroEdges& step) const { return step.threshold; }
  double operator()(const RemoveZeroFaces& step) const { return step.threshold; }
  double operator()(const RemoveDoubleFaces&) const { return 0; }
  double operator()(const ConformNormals&) const { return 0; }
  double operator()(const MergeCoplanar& step) const { return step.degrees; }
  double operator()(const RemoveColinear& step) const { return step.degrees; }
};

void requireUsable(std::span<const Step> steps) {
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const double value = std::visit(ValueOf{}, steps[i]);
    if (!(std::isfinite(value) && value >= 0))
      throw std::invalid_argument("clean: the value of step " + std::to_string(i) +
                                  " must be finite and not negative, but is " + std::to_string(value));
  }
}

}  // namespace

std::vector<Step> allSteps(double tolerance, double diagonal) {
  constexpr double kAreaPerSquaredDiagonal = 1e-12;
  constexpr double kLargest = std::numeric_limits<double>::max();  // the square of a longer diagonal is no double
  const double radians = diagonal > 0 ? std::atan(10 * tolerance / diagonal) : 0;
  const double degrees = std::clamp(radians * 180 / std::numbers::pi, 0.01, 1.0);
  return {MergeVertices{tolerance},
          RemoveZeroEdges{tolerance},
          RemoveZeroFaces{std::min(kAreaPerSquaredDiagonal * diagonal * diagonal, kLargest)},
          RemoveDoubleFaces{},
          ConformNormals{},
          MergeCoplanar{degrees},
          RemoveColinear{degrees}};
}

Cleaned clean(const MeshView& mesh, std::span<const Step> steps, const CleanOptions& options) {
  requireUsable(steps);
  requireValid(mesh);
  CleanUp cleanUp(mesh, options);
  for (const Step& step : steps) cleanUp.run(step);
  return std::move(cleanUp).finish();
}

}  // namespace facetbox
