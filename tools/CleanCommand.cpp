#include <tools/CleanCommand.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <optional>

#include <fmt/format.h>

#include <tools/Errors.h>
#include <tools/MeshFacts.h>
#include <tools/ModelReader.h>
#include <tools/ObjFile.h>
#include <tools/OutputFile.h>
#include <tools/Progress.h>
#include <tools/Triangles.h>

namespace tool {
namespace {

// What a step changes, as numbers. Signed: merging flat parts can add holes.
struct Counts {
  long long mVertices = 0, mFaces = 0, mCorners = 0, mHoles = 0;

  Counts& operator+=(const Counts& other) {
    mVertices += other.mVertices;
    mFaces += other.mFaces;
    mCorners += other.mCorners;
    mHoles += other.mHoles;
    return *this;
  }
  Counts operator-(const Counts& other) const {
    return {mVertices - other.mVertices, mFaces - other.mFaces, mCorners - other.mCorners, mHoles - other.mHoles};
  }
};

Counts countsOf(const Cleanup::MeshData& record) {
  const auto groups = std::count(record.mHoles, record.mHoles + record.mHolesCount, kEndOfGroup);
  return {record.mVCCount / 3, record.mCountCount, record.mIndexCount, record.mHolesCount - 2 * groups};
}

Counts countsOf(const Model& model) {
  const auto groups = std::count(model.mHoles.begin(), model.mHoles.end(), kEndOfGroup);
  return {static_cast<long long>(model.vertexCount()), static_cast<long long>(model.faceCount()),
          static_cast<long long>(model.mIndices.size()), static_cast<long long>(model.mHoles.size()) - 2 * groups};
}

// Number of faces whose corners are in another order, for records with the same faces.
std::size_t changedFaces(const Cleanup::MeshData& before, const Cleanup::MeshData& after) {
  if (before.mCountCount != after.mCountCount || before.mIndexCount != after.mIndexCount) return 0;
  std::size_t changed = 0;
  const std::uint32_t *a = before.mIndices, *b = after.mIndices;
  for (int face = 0; face < before.mCountCount; ++face) {
    const std::uint32_t corners = before.mCounts[face];
    if (!std::equal(a, a + corners, b)) ++changed;
    a += corners;
    b += corners;
  }
  return changed;
}

// An object on its way through the steps.
class Piece {
 public:
  explicit Piece(const ObjectRecord& source) : mSource(source), mInput(source.view()) {}

  const ObjectRecord& source() const { return mSource; }
  bool isGone() const { return mIsGone; }
  const Cleanup::MeshData& record() const { return mResult ? *mResult : mInput; }

  void replace(RecordPtr result) {
    mResult = std::move(result);
    mIsGone = !mResult;
  }

 private:
  const ObjectRecord& mSource;
  Cleanup::MeshData mInput;
  RecordPtr mResult;
  bool mIsGone = false;
};

class Report {
 public:
  Report(std::FILE* stream, Progress& progress) : mStream(stream), mProgress(progress) {}

  void head() {
    print("{:<34} {:>10} {:>10} {:>10} {:>7} {:>10}\n", "", "vertices", "faces", "corners", "holes", "ms");
  }
  void totals(const char* label, const Counts& counts) {
    print("{:<34} {:>10} {:>10} {:>10} {:>7}\n", label, counts.mVertices, counts.mFaces, counts.mCorners,
          counts.mHoles);
  }
  void step(const Step& step, const Counts& change, double milliseconds, std::size_t turned) {
    print("{:<34} {:>10} {:>10} {:>10} {:>7} {:>10.1f}{}\n", describe(step), signedText(change.mVertices),
          signedText(change.mFaces), signedText(change.mCorners), signedText(change.mHoles), milliseconds,
          turned > 0 ? fmt::format("  {} faces turned", turned) : "");
  }
  template <typename... Args>
  void note(fmt::format_string<Args...> format, Args&&... args) {
    print("  note: {}\n", fmt::format(format, std::forward<Args>(args)...));
  }
  void flush() { std::fflush(mStream); }

 private:
  static std::string signedText(long long change) { return change == 0 ? "." : fmt::format("{:+}", change); }

  template <typename... Args>
  void print(fmt::format_string<Args...> format, Args&&... args) {
    mProgress.clearLine();
    fmt::print(mStream, format, std::forward<Args>(args)...);
  }

  std::FILE* mStream;
  Progress& mProgress;
};

class Cleaner {
 public:
  Cleaner(const CleanOptions& options, const Model& model, Report& report, Progress& progress)
      : mOptions(options), mReport(report), mProgress(progress), mRecords(makeRecords(model)) {
    for (const ObjectRecord& record : mRecords) mPieces.emplace_back(record);
    for (const StepRequest& request : options.mRequests) {
      if (request.mIsPreset) {
        const std::vector<Step> steps = presetSteps(request, boundingBoxDiagonal(model));
        mSteps.insert(mSteps.end(), steps.begin(), steps.end());
      } else {
        mSteps.push_back(request.mStep);
      }
    }
  }

  void run() {
    mReport.head();
    mReport.totals("before", totalCounts());
    for (std::size_t i = 0; i < mSteps.size(); ++i) runOnAll(i);
    mReport.totals("after", totalCounts());
    if (mSteps.empty() && !mOptions.mTriangulate) mReport.note("no step given: the model is only copied");
  }

  Model result(const Model& model) const {
    Model cleaned = emptyLike(model);
    for (const Piece& piece : mPieces) {
      if (!piece.isGone()) piece.source().append(piece.record(), cleaned);
    }
    return cleaned;
  }

 private:
  Counts totalCounts() const {
    Counts sum;
    for (const Piece& piece : mPieces) {
      if (!piece.isGone()) sum += countsOf(piece.record());
    }
    return sum;
  }

  std::string nameOf(std::size_t piece) const {
    const std::string& name = mRecords[piece].name();
    return name.empty() ? fmt::format("object {}", piece + 1) : fmt::format("object '{}'", name);
  }

  void runOnAll(std::size_t stepIndex) {
    const Step& step = mSteps[stepIndex];
    const auto start = std::chrono::steady_clock::now();
    Counts change;
    std::size_t turned = 0;
    std::vector<std::string> notes;
    for (std::size_t i = 0; i < mPieces.size(); ++i) {
      if (mPieces[i].isGone()) continue;
      mProgress.setStage(fmt::format("step {} of {}, {}, object {} of {}", stepIndex + 1, mSteps.size(), describe(step),
                                     i + 1, mPieces.size()));
      RecordPtr result = runOn(step, i);
      const Cleanup::MeshData& before = mPieces[i].record();
      change += (result ? countsOf(*result) : Counts{}) - countsOf(before);
      if (result && step.mKind == StepKind::conformNormals) turned += changedFaces(before, *result);
      if (result && result->mLog) notes.push_back(fmt::format("{}: {}", nameOf(i), result->mLog));
      if (!result) notes.push_back(fmt::format("{}: nothing is left of it", nameOf(i)));
      mPieces[i].replace(std::move(result));
    }
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    mReport.step(step, change, elapsed.count(), turned);
    for (const std::string& note : notes) mReport.note("{}", note);
    if (std::all_of(mPieces.begin(), mPieces.end(), [](const Piece& piece) { return piece.isGone(); }))
      throw RunError(fmt::format("{}: {} leaves nothing of the model; no file is written, try a smaller value",
                                 mOptions.mModel, describe(step)));
  }

  RecordPtr runOn(const Step& step, std::size_t piece) const {
    try {
      return runStep(step, mPieces[piece].record());
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& error) {
      throw RunError(
          fmt::format("{}: {}: {} failed: {}", mOptions.mModel, nameOf(piece), describe(step), error.what()));
    }
  }

  const CleanOptions& mOptions;
  Report& mReport;
  Progress& mProgress;
  std::vector<ObjectRecord> mRecords;
  std::vector<Piece> mPieces;
  std::vector<Step> mSteps;
};

void checkOutput(const std::string& path) {
  if (isSpecialFile(path)) return;
  if (!path.ends_with(".obj"))
    throw InputError(fmt::format("{}: the name of the output must end in .obj; no other format can be written", path));
  checkWritable(path);
}

}  // namespace

void runClean(const CleanOptions& options) {
  checkOutput(options.mOutput);
  Progress progress;
  Report report(isSpecialFile(options.mOutput) ? stderr : stdout, progress);

  progress.setStage("reading " + options.mModel);
  Model model = readModel(options.mModel);
  if (options.mJoin) model.joinObjects();
  for (const auto& [what, count] : model.mIgnored) report.note("skipped in {}: {} x {}", options.mModel, count, what);

  Cleaner cleaner(options, model, report, progress);
  cleaner.run();
  Model result = cleaner.result(model);
  if (options.mTriangulate) {
    progress.setStage("triangulating");
    result = triangulated(result, options.mModel);
    report.totals("in triangles", countsOf(result));
  }
  report.flush();

  progress.setStage("writing " + options.mOutput);
  writeFile(options.mOutput, formatObj(result));
}

}  // namespace tool
