#include <tools/Cleaner.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include <tools/Errors.h>
#include <tools/MeshFacts.h>
#include <tools/Triangles.h>
#include <tools/Welds.h>

namespace tool {
namespace {

using facetbox::Cleaned;
using facetbox::Counts;
using facetbox::Measures;
using facetbox::Model;
using facetbox::Object;
using facetbox::PolyMesh;

class Cleaner {
 public:
  Cleaner(const Model& model, const CleanRequest& request, Progress& progress)
      : mModel(model), mRequest(request), mProgress(progress), mModelDiagonal(boundingBoxDiagonal(model)) {
    mResult.mModel = {.marks = model.marks,
                      .materials = model.materials,
                      .groups = model.groups,
                      .semantics = model.semantics,
                      .format = model.format,
                      .document = model.document};
    mResult.mPlan = planFor(0);
    mResult.mSteps.resize(mResult.mPlan.mSteps.size());
    mResult.mIsTriangulated = request.mTriangulate;
  }

  CleanedModel run() {
    for (std::size_t object = 0; object < mModel.objects.size(); ++object) {
      mFirstFaces.push_back(mFaceCount);
      mFaceCount += mModel.objects[object].mesh.counts.size();
      try {
        runOn(object);
      } catch (const std::bad_alloc&) {
        throw;
      } catch (const std::exception& error) {
        throw RunError(fmt::format("{}: {} cannot be cleaned: {}", mRequest.mName, nameOf(object), error.what()));
      }
    }
    if (mRequest.mCountsOtherObjects) countOtherObjects();
    return std::move(mResult);
  }

 private:
  StepPlan planFor(std::size_t object) const {
    const double diagonal = object < mModel.objects.size() ? boundingBoxDiagonal(mModel.objects[object].mesh) : 0;
    return planOf(mRequest.mSteps, diagonal, mModelDiagonal);
  }

  std::string nameOf(std::size_t object) const {
    const std::string& name = mModel.objects[object].name;
    return name.empty() ? fmt::format("object {}", object + 1) : fmt::format("object '{}'", name);
  }

  /// The number of an object's face in the file, counted from 1.
  std::uint32_t fileFace(std::size_t object, std::uint32_t face) const {
    return face == facetbox::kNone ? face : static_cast<std::uint32_t>(mFirstFaces[object] + face + 1);
  }

  void runOn(std::size_t object) {
    const PolyMesh& mesh = mModel.objects[object].mesh;
    const StepPlan plan = planFor(object);
    facetbox::CleanOptions options{.measures = true};
    options.progress = [&](std::size_t step, double fraction) {
      mProgress.setStage(fmt::format("object {} of {}, step {} of {}, {}, {:.0f} %", object + 1, mModel.objects.size(),
                                     step + 1, plan.mSteps.size(), plan.mLabels[step], 100 * fraction));
    };
    Cleaned cleaned = facetbox::clean(mesh, plan.mSteps, options);
    const Counts counts = countsOf(cleaned.mesh);
    const Measures measures =
        cleaned.steps.empty() ? facetbox::measure(cleaned.mesh) : *cleaned.steps.back().measuresAfter;
    addInput(object, mesh, cleaned, counts, measures);
    for (std::size_t step = 0; step < plan.mSteps.size(); ++step) {
      addStep(object, cleaned.steps[step], measures, mResult.mSteps[step]);
      if (plan.mIsRelative[step]) mResult.mSteps[step].mValues.push_back(*valueOf(plan.mSteps[step]));
    }
    mResult.mAfter.add(counts, measures);
    if (mRequest.mTriangulate) {
      mProgress.setStage(fmt::format("triangulating object {} of {}", object + 1, mModel.objects.size()));
      cleaned.mesh = triangulated(object, cleaned, measures);
    }
    if (!cleaned.mesh.counts.empty())
      mResult.mModel.objects.push_back(changed(mModel.objects[object], std::move(cleaned)));
  }

  // What belonged to the old vertices stays with those that are left.
  static Object changed(const Object& old, Cleaned cleaned) {
    Object object{.name = old.name, .place = old.place};
    const std::vector<std::uint32_t>& sources = cleaned.vertexSources;
    // Triangulation may have made vertices, which have no number in the file.
    const std::size_t made = cleaned.mesh.points.size() / 3 - sources.size();
    if (!old.fileVertices.empty() && made == 0)
      for (const std::uint32_t source : sources) object.fileVertices.push_back(old.fileVertices[source]);
    if (!old.colors.empty()) {
      object.colors.reserve(4 * (sources.size() + made));
      for (const std::uint32_t source : sources)
        object.colors.insert(object.colors.end(), &old.colors[std::size_t{4} * source],
                             &old.colors[std::size_t{4} * source] + 4);
      object.colors.resize(4 * (sources.size() + made), 1.0F);
    }
    object.mesh = std::move(cleaned.mesh);
    return object;
  }

  void addInput(std::size_t object, const PolyMesh& mesh, const Cleaned& cleaned, const Counts& counts,
                const Measures& measures) {
    const Counts& settled = cleaned.steps.empty() ? counts : cleaned.steps.front().before;
    const Measures& settledMeasures = cleaned.steps.empty() ? measures : *cleaned.steps.front().measuresBefore;
    const bool isAllKept = cleaned.leftOut.empty() && cleaned.droppedHoles.empty();
    mResult.mInput.mBefore.add(countsOf(mesh), isAllKept ? settledMeasures : facetbox::measure(mesh));
    mResult.mInput.mAfter.add(settled, settledMeasures);
    for (facetbox::Problem problem : cleaned.leftOut) {
      problem.face = fileFace(object, problem.face);
      mResult.mInput.mLeftOut.push_back(problem);
    }
    addHoles(object, cleaned.droppedHoles, mResult.mInput);
  }

  void addHoles(std::size_t object, const std::vector<facetbox::DroppedHole>& holes, Change& change) const {
    for (facetbox::DroppedHole hole : holes) {
      hole.outer = fileFace(object, hole.outer);
      hole.hole = fileFace(object, hole.hole);
      change.mHoles.push_back(hole);
    }
  }

  void addStep(std::size_t object, const facetbox::StepReport& step, const Measures& last, Change& change) const {
    change.mBefore.add(step.before, *step.measuresBefore);
    change.mAfter.add(step.after, *step.measuresAfter);
    change.mSeconds += step.seconds;
    change.mTurned += step.facesTurned;
    change.mCollapsed += step.cornersCollapsed;
    if (step.before.faces > 0 && step.after.faces == 0) {
      change.mDoubts.push_back(nameOf(object) + ": nothing is left of it");
    } else {
      for (const std::string& doubt : doubtsAbout(*step.measuresBefore, *step.measuresAfter, last, &step.step))
        change.mDoubts.push_back(nameOf(object) + ": " + doubt);
    }
    addHoles(object, step.droppedHoles, change);
  }

  PolyMesh triangulated(std::size_t object, const Cleaned& cleaned, const Measures& before) {
    Change& change = mResult.mTriangles;
    Triangles triangles = trianglesOf(cleaned.mesh);
    const Measures after = facetbox::measure(triangles.mMesh);
    change.mAfter.add(countsOf(triangles.mMesh), after);
    for (const std::string& doubt : doubtsAbout(before, after, after, nullptr))
      change.mDoubts.push_back(nameOf(object) + ": " + doubt);
    if (triangles.mMadePoints > 0)
      change.mDoubts.push_back(
          fmt::format("{}: {} made where outlines cross", nameOf(object), counted(triangles.mMadePoints, "point")));
    for (facetbox::SkippedFace skipped : triangles.mSkipped) {
      // Faces that merging has brought out have no number in the file.
      const std::uint32_t first = cleaned.sourceOffsets[skipped.face];
      if (first < cleaned.sourceOffsets[skipped.face + 1]) skipped.face = fileFace(object, cleaned.sources[first]);
      change.mSkipped.push_back(skipped);
    }
    return std::move(triangles.mMesh);
  }

  // Of the first weld; the others do what is left of it.
  void countOtherObjects() {
    const std::vector<facetbox::Step>& steps = mResult.mPlan.mSteps;
    const auto weld = std::find_if(steps.begin(), steps.end(), [](const facetbox::Step& step) {
      return std::holds_alternative<facetbox::MergeVertices>(step);
    });
    if (weld == steps.end() || mModel.objects.size() < 2) return;
    mProgress.setStage("comparing objects");
    Change& change = mResult.mSteps[static_cast<std::size_t>(weld - steps.begin())];
    const std::vector<double> same(mModel.objects.size(), *valueOf(*weld));
    change.mInDifferentObjects = weldsAcrossObjects(mModel, change.mValues.empty() ? same : change.mValues);
  }

  const Model& mModel;
  const CleanRequest& mRequest;
  Progress& mProgress;
  const double mModelDiagonal;
  CleanedModel mResult;
  std::vector<std::size_t> mFirstFaces;  // per object, counted through the file
  std::size_t mFaceCount = 0;
};

}  // namespace

CleanedModel cleanModel(const Model& model, const CleanRequest& request, Progress& progress) {
  return Cleaner(model, request, progress).run();
}

}  // namespace tool
