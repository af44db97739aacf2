#include <tools/Steps.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {
namespace {

using namespace facetbox;

struct Describe {
  std::string operator()(const MergeVertices& step) const { return fmt::format("--merge-vertices {}", step.tolerance); }
  std::string operator()(const RemoveZeroEdges& step) const {
    return fmt::format("--remove-zero-edges {}", step.threshold);
  }
  std::string operator()(const RemoveZeroFaces& step) const {
    return fmt::format("--remove-zero-area {:.6g}", step.threshold);
  }
  std::string operator()(const RemoveDoubleFaces&) const { return "--remove-double"; }
  std::string operator()(const ConformNormals&) const { return "--conform-normals"; }
  std::string operator()(const MergeCoplanar& step) const {
    return fmt::format("--remove-coplanar {:.4g}", step.degrees);
  }
  std::string operator()(const RemoveColinear& step) const {
    return fmt::format("--remove-colinear {:.4g}", step.degrees);
  }
};

// Calls `read` for each switch of a step, with what it is stored in.
template <class Read>
void forEachSwitch(Step& step, Read read) {
  using Switch = StepList::Switch;
  if (auto* const merge = std::get_if<MergeCoplanar>(&step)) merge->compareAttributes = read(Switch::compareAttributes);
  if (auto* const remove = std::get_if<RemoveDoubleFaces>(&step))
    remove->compareAttributes = read(Switch::compareAttributes);
  if (auto* const remove = std::get_if<RemoveColinear>(&step))
    remove->keepTextureMapping = read(Switch::keepTextureMapping);
}

// A step whose value is in per cent, for an object.
Step resolved(Step step, double diagonal) {
  const auto relative = [](double percent) { return Tolerance{percent, true}; };
  if (auto* const merge = std::get_if<MergeVertices>(&step))
    merge->tolerance = relative(merge->tolerance).length(diagonal);
  if (auto* const edges = std::get_if<RemoveZeroEdges>(&step))
    edges->threshold = relative(edges->threshold).length(diagonal);
  if (auto* const faces = std::get_if<RemoveZeroFaces>(&step))
    faces->threshold = relative(faces->threshold).area(diagonal);
  return step;
}

bool hasLengthOrArea(const Step& step) {
  return std::holds_alternative<MergeVertices>(step) || std::holds_alternative<RemoveZeroEdges>(step) ||
         std::holds_alternative<RemoveZeroFaces>(step);
}

struct Planner {
  double mDiagonal, mModelDiagonal;
  StepPlan mPlan;

  void operator()(const Step& step) { add(step, describe(step), false, false); }

  void operator()(const RelativeStep& step) {
    add(resolved(step.mStep, mDiagonal), describe(step.mStep) + "%", true, false);
  }

  void operator()(const Preset& preset) {
    const bool isRelative = preset.mLength.mIsRelative;
    const auto begin = static_cast<std::ptrdiff_t>(mPlan.mSteps.size());
    const double diagonal = isRelative ? mDiagonal : mModelDiagonal;
    // In per cent, a diagonal is 100 long.
    const std::vector<Step> percents = allSteps(preset.mLength.mValue, 100);
    const std::vector<Step> steps = allSteps(preset.mLength.length(diagonal), diagonal);
    for (std::size_t i = 0; i < steps.size(); ++i) {
      Step step = steps[i];
      forEachSwitch(step, [&](StepList::Switch which) {
        return which == StepList::Switch::compareAttributes ? preset.mCompareAttributes : preset.mKeepTextureMapping;
      });
      const bool isRepeated = std::find(mPlan.mSteps.begin() + begin, mPlan.mSteps.end(), step) != mPlan.mSteps.end();
      const bool isOwn = isRelative && hasLengthOrArea(step);
      add(step, isOwn ? labelInPercent(percents[i]) : describe(step), isOwn, isRepeated);
    }
  }

 private:
  // Areas are parts of the squared diagonal, which is 10000 here.
  static std::string labelInPercent(Step step) {
    if (auto* const faces = std::get_if<RemoveZeroFaces>(&step)) faces->threshold /= 100;
    return describe(step) + "%";
  }

  void add(const Step& step, const std::string& label, bool isRelative, bool isRepeated) {
    mPlan.mSteps.push_back(step);
    mPlan.mLabels.push_back(label);
    mPlan.mIsRelative.push_back(isRelative);
    mPlan.mIsRepeated.push_back(isRepeated);
  }
};

}  // namespace

std::string describe(const Step& step) { return std::visit(Describe{}, step); }

std::optional<double> valueOf(const Step& step) {
  if (const auto* const merge = std::get_if<MergeVertices>(&step)) return merge->tolerance;
  if (const auto* const edges = std::get_if<RemoveZeroEdges>(&step)) return edges->threshold;
  if (const auto* const faces = std::get_if<RemoveZeroFaces>(&step)) return faces->threshold;
  if (const auto* const merge = std::get_if<MergeCoplanar>(&step)) return merge->degrees;
  if (const auto* const remove = std::get_if<RemoveColinear>(&step)) return remove->degrees;
  return std::nullopt;
}

StepPlan planOf(const std::vector<StepRequest>& requests, double diagonal, double modelDiagonal) {
  Planner planner{diagonal, modelDiagonal, {}};
  for (const StepRequest& request : requests) std::visit(planner, request);
  return planner.mPlan;
}

void StepList::add(Step step, bool isRelative) {
  forEachSwitch(step, [this](Switch which) { return read(which); });
  if (isRelative)
    mRequests.emplace_back(RelativeStep{step});
  else
    mRequests.emplace_back(step);
}

void StepList::addPreset(const Tolerance& length) {
  mRequests.emplace_back(Preset{length, read(Switch::compareAttributes), read(Switch::keepTextureMapping)});
}

void StepList::set(Switch which, bool value, const std::string& name) {
  State& state = mStates[static_cast<int>(which)];
  requireUsed(which, state);
  state = {value, name};
}

std::vector<StepRequest> StepList::finish() const {
  for (const Switch which : {Switch::compareAttributes, Switch::keepTextureMapping})
    requireUsed(which, mStates[static_cast<int>(which)]);
  return mRequests;
}

bool StepList::read(Switch which) {
  State& state = mStates[static_cast<int>(which)];
  state.mUnused.clear();
  return state.mValue;
}

void StepList::requireUsed(Switch which, const State& state) {
  if (state.mUnused.empty()) return;
  throw InputError(fmt::format(
      "{}: has no effect here: a switch affects the steps after it, up to the next such switch; put it before {}",
      state.mUnused,
      which == Switch::compareAttributes ? "--remove-double, --remove-coplanar or --all"
                                         : "--remove-colinear or --all"));
}

}  // namespace tool
