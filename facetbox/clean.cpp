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

/// Beyond this, everything lies within reach of everything.
constexpr double kEndless = 1e140;

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
    takeMeasures();
  }

  void run(const Step& step, bool isLast) {
    mIsLast = isLast;
    StepReport report{.step = step, .before = counts(), .measuresBefore = mMeasures};
    const auto begin = std::chrono::steady_clock::now();
    mIsRunning = true;
    mMonitor.start();
    bool hasChanged = false;
    if (isIdle(step)) {
      mIdleSteps.push_back(step);
    } else {
      mReport = &report;
      const std::uint64_t changes = std::visit([this](const auto& s) { return runStep(s); }, step);
      hasChanged = changes + report.cornersCollapsed != 0;
      noteChanges(step, hasChanged);
      util::assertValid(*mMesh, "the step");
    }
    mMonitor.finish();
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    report.after = counts();
    if (hasChanged) takeMeasures();
    report.measuresAfter = mMeasures;
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
  // The steps; each returns how much it changed. Lengths go into the frame with the mesh. Holes are checked anew where
  // outlines have changed; merging coplanar faces does so itself.
  std::uint64_t runStep(const MergeVertices& step) {
    const double tolerance = toFrame(step.tolerance);
    needNormalsForWelding(tolerance);
    countRepeats();
    return changeOutlines([&] {
      const util::Welding welding = util::mergeVerticesRepeatedly(*mMesh, tolerance);
      mHasNormals = false;
      if (welding.isComplete) mWeldedUpTo = std::max(mWeldedUpTo, step.tolerance);
      return welding.mergedCount;
    });
  }
  std::uint64_t runStep(const RemoveZeroEdges& step) {
    needNormalsForWelding(toFrame(step.threshold));
    countRepeats();
    const std::uint64_t merged = changeOutlines([&] {
      const std::uint64_t count = util::mergeEdgesZero(*mMesh, toFrame(step.threshold)).mergedCount;
      mHasNormals = mHasNormals && count == 0;
      return count;
    });
    if (merged == 0) return 0;
    return merged +
           util::removeZeroFaces(*mMesh, findFacesBelow(mMesh->storage().mLimits.mSliverArea), util::KeepClosed::yes);
  }
  std::uint64_t runStep(const RemoveZeroFaces& step) {
    std::vector<std::uint32_t> faces = [&] {
      const util::Monitor::Part part(monitor(), 0.0, 0.5);
      return findFacesBelow(areaToFrame(step.threshold));
    }();
    if (faces.empty() && hasNoHoles()) mNoneBelow = step.threshold;
    const util::Monitor::Part part(monitor(), 0.5, 1.0);
    return util::removeZeroFaces(*mMesh, std::move(faces),
                                 step.keepClosed ? util::KeepClosed::yes : util::KeepClosed::no);
  }
  std::uint64_t runStep(const RemoveDoubleFaces& step) {
    if (countRepeats() != 0) {
      if (!mMesh->storage().mHoles.empty()) needNormals();
      util::sanitizeFaces(*mMesh);
      util::removeUnusedVertices(*mMesh);
      mHasNormals = false;
    }
    const util::DoubleFaceRule rule{
        .compareAttributes = step.compareAttributes, .selfIsDouble = false, .keepClosed = step.keepClosed};
    std::vector<util::DoubleFace> doubles = [&] {
      const util::Monitor::Part part(monitor(), 0.0, 0.7);
      return util::findDoubleFaces(mMesh->storage(), rule);
    }();
    if (doubles.empty() && hasNoHoles()) mNoDoublesBy = step.compareAttributes;
    const util::Monitor::Part part(monitor(), 0.7, 1.0);
    return util::removeDoubles(*mMesh, std::move(doubles), rule);
  }
  std::uint64_t runStep(const ConformNormals&) {
    mReport->facesTurned = util::conformSurfaces(*mMesh, &mSurfaces);
    if (mReport->facesTurned != 0) mHasNormals = false;
    return mReport->facesTurned;
  }
  std::uint64_t runStep(const MergeCoplanar& step) {
    needNormals();
    return util::removeEdgesCoplanarKeepingFlat(*mMesh, step.degrees, step.compareAttributes, step.isRepeated);
  }
  std::uint64_t runStep(const RemoveColinear& step) {
    std::uint64_t total = 0;
    // Where a hole goes, fewer edges meet.
    for (std::size_t dropped = mHistory.droppedHoles.size() + 1; dropped != mHistory.droppedHoles.size();) {
      dropped = mHistory.droppedHoles.size();
      total += changeOutlines([&] {
        const std::uint64_t removed =
            util::removeVerticesColinear(*mMesh, step.degrees, step.keepTextureMapping, util::StraightAgainst::kept);
        if (removed != 0) mHasNormals = false;
        return removed;
      });
    }
    return total;
  }

  /// Whether a step is known to have nothing to do: it has left or found nothing to do, and nothing has changed since;
  /// or all vertices have been welded that it could weld, and no step moves a vertex.
  bool isIdle(const Step& step) const {
    if (const auto* const merge = std::get_if<MergeVertices>(&step))
      if (merge->tolerance <= mWeldedUpTo) return true;
    if (const auto* const edges = std::get_if<RemoveZeroEdges>(&step))
      if (edges->threshold <= mWeldedUpTo) return true;
    return std::ranges::any_of(mIdleSteps, [&](const Step& idle) { return idle == step; }) ||
           std::visit([this](const auto& s) { return isIdleAfterMerging(s); }, step);
  }

  // Where all that has happened since a step found nothing to do is that faces were merged, only these have to be
  // looked at.
  bool isIdleAfterMerging(const RemoveZeroFaces& step) const {
    if (mNoneBelow != step.threshold) return false;
    const util::MeshStorage& m = mMesh->storage();
    const double threshold = areaToFrame(step.threshold);
    return std::ranges::none_of(grownFaces(), [&](std::uint32_t f) { return util::isFaceBelow(m, f, threshold); });
  }
  bool isIdleAfterMerging(const RemoveDoubleFaces& step) const {
    return mNoDoublesBy == step.compareAttributes && !util::mayHaveDoubles(mMesh->storage(), grownFaces());
  }
  bool isIdleAfterMerging(const ConformNormals&) const {
    return mSurfaces && mSurfaces->wouldStay(*mMesh, mHistory.grownFaces);
  }
  template <class Other>
  bool isIdleAfterMerging(const Other&) const {
    return false;
  }

  /// The faces that others were merged into, by their present numbers, ascending.
  std::vector<std::uint32_t> grownFaces() const {
    std::vector<std::uint32_t> faces;
    if (mHistory.grownFaces.empty()) return faces;
    util::Buffer<std::uint8_t> isGrown(mMesh->storage().mFaces.size(), 0);
    for (const std::uint32_t item : mHistory.grownFaces) isGrown[mHistory.faces.map()[item]] = 1;
    for (std::uint32_t face = 0; face < isGrown.size(); ++face)
      if (isGrown[face] != 0) faces.push_back(face);
    return faces;
  }

  bool hasNoHoles() const { return mMesh->storage().mHoles.empty(); }

  void noteChanges(const Step& step, bool hasChanged) {
    if (hasChanged) mIdleSteps.clear();
    if (!hasChanged || leavesNothingToDo(step)) mIdleSteps.push_back(step);
    const bool hasMergedOnly =
        std::holds_alternative<MergeCoplanar>(step) && hasNoHoles() && mHistory.droppedHoles.empty();
    if (!hasChanged || hasMergedOnly) return;
    mNoneBelow.reset();
    mNoDoublesBy.reset();
    if (!std::holds_alternative<ConformNormals>(step)) mSurfaces.reset();
    mHistory.grownFaces.clear();
  }

  /// Whether a second run at once would change nothing.
  static bool leavesNothingToDo(const Step& step) {
    if (const auto* const merge = std::get_if<MergeCoplanar>(&step)) return merge->isRepeated;
    return std::holds_alternative<ConformNormals>(step) || std::holds_alternative<RemoveColinear>(step) ||
           std::holds_alternative<RemoveZeroFaces>(step);
  }

  /// Counts the corners that repeat the one before them, which the step is about to collapse. None come about later.
  std::uint64_t countRepeats() {
    if (!std::exchange(mMayHaveRepeats, false) || !mFrame.hasRepeats) return 0;
    const util::PrimitiveList& faces = mMesh->storage().mFaces;
    std::uint64_t count = 0;
    for (util::Monitor::Blocks blocks(monitor(), faces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
        const auto corners = faces.corners(face);
        for (std::uint32_t before = corners.back(); const std::uint32_t v : corners)
          count += int{std::exchange(before, v) == v};
      }
    return mReport->cornersCollapsed = count;
  }

  double toFrame(double length) const { return std::min(length * mFrame.scale, kEndless); }
  double areaToFrame(double area) const { return std::min(area * mFrame.scale * mFrame.scale, kEndless); }

  /// Runs an operation that may leave holes which are none any more; it returns how much it has changed.
  template <class Operation>
  std::uint64_t changeOutlines(Operation operation) {
    const bool hasHoles = !mMesh->storage().mHoles.empty();
    std::uint64_t changes;
    {
      const util::Monitor::Part part(monitor(), 0, hasHoles ? 0.8 : 1.0);
      changes = operation();
    }
    const util::Monitor::Part part(monitor(), hasHoles ? 0.8 : 1.0, 1);
    if (changes != 0) settleHoles();
    return changes;
  }

  /// Drops holes that are none, any more.
  void settleHoles() {
    if (mMesh->storage().mHoles.empty()) return;
    needNormals();
    util::assignHoles(*mMesh);
  }

  /// What the guards of a weld and the holes go by.
  void needNormalsForWelding(double tolerance) {
    const util::MeshStorage& m = mMesh->storage();
    if (!m.mHoles.empty() || tolerance > m.mLimits.mLargeTolerance) needNormals();
  }

  /// Faces below an area, in the frame. On the way, normals are computed where they are not known, and kept where a
  /// later step may need them.
  std::vector<std::uint32_t> findFacesBelow(double area) {
    using util::AlongNormals;
    if (mHasNormals) return util::findFacesBelow(*mMesh, area);
    mHasNormals = !mIsLast;
    return util::findFacesBelow(*mMesh, area, mIsLast ? AlongNormals::computed : AlongNormals::computedAndStored);
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

  void takeMeasures() {
    if (mOptions.measures) mMeasures = measure(util::toPolyMesh(*mMesh, mInput, mHistory));
  }

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
  bool mIsLast = false;           // of the steps
  StepReport* mReport = nullptr;  // of the step that runs
  bool mMayHaveRepeats = true;
  double mWeldedUpTo = -1;       // no two vertices lie within this tolerance
  std::vector<Step> mIdleSteps;  // that have nothing to do in the mesh as it is
  // What held before faces were merged, of which the history has a list. Only in a mesh without holes.
  std::optional<double> mNoneBelow;                // no face has an area below
  std::optional<bool> mNoDoublesBy;                // no face has a double, with attributes or without
  std::optional<util::SettledSurfaces> mSurfaces;  // faces run as they should
  std::optional<Measures> mMeasures;               // of the mesh as it is
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
  constexpr int kRounds = 4;
  constexpr double kAreaPerSquaredDiagonal = 1e-12;
  constexpr double kLargest = std::numeric_limits<double>::max();  // the square of a longer diagonal is no double
  const double radians = diagonal > 0 ? std::atan(10 * tolerance / diagonal) : 0;
  const double degrees = std::clamp(radians * 180 / std::numbers::pi, 0.01, 1.0);
  const std::vector<Step> round = {
      MergeVertices{tolerance},
      RemoveZeroEdges{tolerance},
      RemoveZeroFaces{.threshold = std::min(kAreaPerSquaredDiagonal * diagonal * diagonal, kLargest),
                      .keepClosed = true},
      RemoveDoubleFaces{.keepClosed = true},
      ConformNormals{},
      MergeCoplanar{.degrees = degrees, .isRepeated = true},
      RemoveColinear{degrees}};
  std::vector<Step> steps;
  for (int i = 0; i < kRounds; ++i) steps.insert(steps.end(), round.begin(), round.end());
  return steps;
}

Cleaned clean(const MeshView& mesh, std::span<const Step> steps, const CleanOptions& options) {
  requireUsable(steps);
  requireValid(mesh);
  CleanUp cleanUp(mesh, options);
  for (const Step& step : steps) cleanUp.run(step, &step == &steps.back());
  return std::move(cleanUp).finish();
}

}  // namespace facetbox
