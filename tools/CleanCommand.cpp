#include <tools/CleanCommand.h>

#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include <facetbox/io/files.h>
#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>
#include <tools/CleanReport.h>
#include <tools/Errors.h>
#include <tools/Join.h>
#include <tools/MeshFacts.h>
#include <tools/Progress.h>
#include <tools/Triangles.h>

namespace tool {
namespace {

using facetbox::Cleaned;
using facetbox::Counts;
using facetbox::Measures;
using facetbox::Model;
using facetbox::Object;
using facetbox::PolyMesh;

/// A change of all objects together: a line of the report.
struct Change {
  Figures mBefore, mAfter;
  double mSeconds = 0;
  std::size_t mTurned = 0, mCollapsed = 0;
  Notes mDoubts, mDropped;

  bool isNothing() const { return mBefore == mAfter && mTurned + mCollapsed + mDoubts.size() + mDropped.size() == 0; }
};

class Cleaner {
 public:
  Cleaner(const CleanOptions& options, const Model& model, CleanReport& report, Progress& progress)
      : mOptions(options),
        mModel(model),
        mReport(report),
        mProgress(progress),
        mPlan(planOf(options.mRequests, boundingBoxDiagonal(model))),
        mStepChanges(mSteps.size()) {}

  Model run() {
    Model result{.marks = mModel.marks,
                 .materials = mModel.materials,
                 .groups = mModel.groups,
                 .semantics = mModel.semantics,
                 .format = mModel.format,
                 .document = mModel.document};
    for (std::size_t object = 0; object < mModel.objects.size(); ++object) {
      mFirstFaces.push_back(mFaceCount);
      mFaceCount += mModel.objects[object].mesh.counts.size();
      try {
        runOn(object, result);
      } catch (const std::bad_alloc&) {
        throw;
      } catch (const std::exception& error) {
        throw RunError(fmt::format("{}: {} cannot be cleaned: {}", mOptions.mModel, nameOf(object), error.what()));
      }
    }
    print();
    return result;
  }

 private:
  std::string nameOf(std::size_t object) const {
    const std::string& name = mModel.objects[object].name;
    return name.empty() ? fmt::format("object {}", object + 1) : fmt::format("object '{}'", name);
  }

  /// The number of an object's face in the file, counted from 1.
  std::uint32_t fileFace(std::size_t object, std::uint32_t face) const {
    return face == facetbox::kNone ? face : static_cast<std::uint32_t>(mFirstFaces[object] + face + 1);
  }

  void runOn(std::size_t object, Model& result) {
    const PolyMesh& mesh = mModel.objects[object].mesh;
    facetbox::CleanOptions options{.measures = true};
    options.progress = [&](std::size_t step, double fraction) {
      mProgress.setStage(fmt::format("object {} of {}, step {} of {}, {}, {:.0f} %", object + 1, mModel.objects.size(),
                                     step + 1, mSteps.size(), describe(mSteps[step]), 100 * fraction));
    };
    Cleaned cleaned = facetbox::clean(mesh, mSteps, options);
    const Counts counts = countsOf(cleaned.mesh);
    const Measures measures =
        cleaned.steps.empty() ? facetbox::measure(cleaned.mesh) : *cleaned.steps.back().measuresAfter;
    addInput(object, mesh, cleaned, counts, measures);
    for (std::size_t step = 0; step < mSteps.size(); ++step)
      addStep(object, cleaned.steps[step], measures, mStepChanges[step]);
    mAfter.add(counts, measures);
    if (mOptions.mTriangulate) {
      mProgress.setStage(fmt::format("triangulating object {} of {}", object + 1, mModel.objects.size()));
      cleaned.mesh = triangulated(object, cleaned, measures);
    }
    if (!cleaned.mesh.counts.empty()) result.objects.push_back(changed(mModel.objects[object], std::move(cleaned)));
  }

  // What belonged to the old vertices stays with those that are left.
  Object changed(const Object& old, Cleaned cleaned) const {
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
    mInput.mBefore.add(countsOf(mesh), isAllKept ? settledMeasures : facetbox::measure(mesh));
    mInput.mAfter.add(settled, settledMeasures);
    for (facetbox::Problem problem : cleaned.leftOut) {
      problem.face = fileFace(object, problem.face);
      mInput.mDropped.add(facetbox::describe(problem));
    }
    addHoles(object, cleaned.droppedHoles, mInput);
  }

  void addHoles(std::size_t object, const std::vector<facetbox::DroppedHole>& holes, Change& change) const {
    for (facetbox::DroppedHole hole : holes) {
      hole.outer = fileFace(object, hole.outer);
      hole.hole = fileFace(object, hole.hole);
      change.mDropped.add(facetbox::describe(hole));
    }
  }

  void addStep(std::size_t object, const facetbox::StepReport& step, const Measures& last, Change& change) const {
    change.mBefore.add(step.before, *step.measuresBefore);
    change.mAfter.add(step.after, *step.measuresAfter);
    change.mSeconds += step.seconds;
    change.mTurned += step.facesTurned;
    change.mCollapsed += step.cornersCollapsed;
    if (step.before.faces > 0 && step.after.faces == 0) {
      change.mDoubts.add(nameOf(object) + ": nothing is left of it");
    } else {
      for (const std::string& doubt : doubtsAbout(*step.measuresBefore, *step.measuresAfter, last, &step.step))
        change.mDoubts.add(nameOf(object) + ": " + doubt);
    }
    addHoles(object, step.droppedHoles, change);
  }

  PolyMesh triangulated(std::size_t object, const Cleaned& cleaned, const Measures& before) {
    Triangles triangles = trianglesOf(cleaned.mesh);
    const Measures after = facetbox::measure(triangles.mMesh);
    mTriangles.mAfter.add(countsOf(triangles.mMesh), after);
    for (const std::string& doubt : doubtsAbout(before, after, after, nullptr))
      mTriangles.mDoubts.add(nameOf(object) + ": " + doubt);
    if (triangles.mMadePoints > 0)
      mTriangles.mDoubts.add(
          fmt::format("{}: {} made where outlines cross", nameOf(object), counted(triangles.mMadePoints, "point")));
    for (facetbox::SkippedFace skipped : triangles.mSkipped) {
      // Faces that merging has brought out have no number in the file.
      const std::uint32_t first = cleaned.sourceOffsets[skipped.face];
      if (first < cleaned.sourceOffsets[skipped.face + 1]) skipped.face = fileFace(object, cleaned.sources[first]);
      mTriangles.mDropped.add(facetbox::describe(skipped));
    }
    return std::move(triangles.mMesh);
  }

  void print() {
    mReport.head();
    mReport.totals("before", mInput.mBefore);
    if (mInput.mDropped.size() > 0) mReport.change("changes of input", mInput.mBefore, mInput.mAfter);
    mReport.notes(mInput.mDropped);
    if (mInput.mAfter.mFaces == 0)
      throw RunError(fmt::format("{}: no face has three corners; no file is written", mOptions.mModel));
    for (std::size_t step = 0; step < mSteps.size(); ++step) {
      const Change& change = mStepChanges[step];
      if (mPlan.mIsRepeated[step] && change.isNothing()) continue;
      mReport.change(describe(mSteps[step]), change.mBefore, change.mAfter, change.mSeconds, remarkOn(change));
      if (change.mCollapsed > 0) mReport.note(counted(change.mCollapsed, "repeated corner") + " collapsed");
      mReport.notes(change.mDoubts);
      mReport.notes(change.mDropped);
      requireRest(change,
                  describe(mSteps[step]) + " leaves nothing of the model; no file is written, try a smaller value");
    }
    mReport.totals("after", mAfter);
    if (mSteps.empty() && !mOptions.mTriangulate) mReport.note("no step given: the model is only copied");
    if (!mOptions.mTriangulate) return;
    mReport.totals("in triangles", mTriangles.mAfter);
    mReport.notes(mTriangles.mDoubts);
    mReport.notes(mTriangles.mDropped);
    requireRest(mTriangles, "--triangulate leaves nothing of the model; no file is written");
  }

  static std::string remarkOn(const Change& change) {
    return change.mTurned > 0 ? counted(change.mTurned, "face") + " turned" : "";
  }

  void requireRest(const Change& change, const std::string& text) const {
    if (change.mAfter.mFaces == 0) throw RunError(mOptions.mModel + ": " + text);
  }

  const CleanOptions& mOptions;
  const Model& mModel;
  CleanReport& mReport;
  Progress& mProgress;
  std::vector<std::size_t> mFirstFaces;  // per object, counted through the file
  std::size_t mFaceCount = 0;
  const StepPlan mPlan;
  const std::vector<facetbox::Step>& mSteps = mPlan.mSteps;
  Change mInput, mTriangles;
  std::vector<Change> mStepChanges;
  Figures mAfter;
};

void checkOutput(const std::string& path) {
  if (facetbox::isSpecialFile(path)) return;
  if (!facetbox::formatOf(path))
    throw InputError(
        fmt::format("{}: the name of the output must end in .obj, .ply, .off, .stl, .gltf, .glb or .json; "
                    "no other format can be written",
                    path));
  facetbox::checkWritable(path);
}

}  // namespace

void runClean(const CleanOptions& options) {
  checkOutput(options.mOutput);
  Progress progress;
  const bool isStream = facetbox::isSpecialFile(options.mOutput);
  CleanReport report(isStream ? stderr : stdout, progress);

  progress.setStage("reading " + options.mModel);
  Model model = facetbox::readModel(options.mModel);
  for (const facetbox::Note& note : model.notes)
    report.note(fmt::format("skipped in {}: {} x {}", options.mModel, note.count, note.what));

  std::optional<Joined> joined;
  if (options.mJoin) joined.emplace(std::move(model));
  Model result = Cleaner(options, joined ? joined->model() : model, report, progress).run();
  if (joined) result = joined->split(std::move(result));
  report.flush();

  progress.setStage("writing " + options.mOutput);
  facetbox::WriteOptions how;
  if (isStream) how.format = facetbox::Format::obj;
  for (const facetbox::Note& note : facetbox::writeModel(result, options.mOutput, how))
    report.note(fmt::format("not in {}: {} x {}", options.mOutput, note.count, note.what));
}

}  // namespace tool
