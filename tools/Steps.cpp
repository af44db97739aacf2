#include <tools/Steps.h>

#include <algorithm>
#include <charconv>
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

/// Calls `read` for each switch of a step, with what it is stored in.
template <class Read>
void forEachSwitch(Step& step, Read read) {
  using Switch = StepList::Switch;
  if (auto* const merge = std::get_if<MergeCoplanar>(&step)) merge->compareAttributes = read(Switch::compareAttributes);
  if (auto* const remove = std::get_if<RemoveDoubleFaces>(&step))
    remove->compareAttributes = read(Switch::compareAttributes);
  if (auto* const remove = std::get_if<RemoveColinear>(&step))
    remove->keepTextureMapping = read(Switch::keepTextureMapping);
}

}  // namespace

std::string describe(const Step& step) { return std::visit(Describe{}, step); }

StepPlan planOf(const std::vector<StepRequest>& requests, double diagonal) {
  StepPlan plan;
  const auto add = [&plan](const Step& step, bool isRepeated) {
    plan.mSteps.push_back(step);
    plan.mIsRepeated.push_back(isRepeated);
  };
  for (const StepRequest& request : requests) {
    if (const auto* const step = std::get_if<Step>(&request)) {
      add(*step, false);
      continue;
    }
    const Preset& preset = std::get<Preset>(request);
    const auto begin = static_cast<std::ptrdiff_t>(plan.mSteps.size());
    for (Step step : allSteps(preset.mLength, diagonal)) {
      forEachSwitch(step, [&](StepList::Switch which) {
        return which == StepList::Switch::compareAttributes ? preset.mCompareAttributes : preset.mKeepTextureMapping;
      });
      add(step, std::find(plan.mSteps.begin() + begin, plan.mSteps.end(), step) != plan.mSteps.end());
    }
  }
  return plan;
}

double parseTolerance(const std::string& text, const std::string& option, double largest) {
  const char* const end = text.data() + text.size();
  const char* const start = text.size() > 1 && text[0] == '+' && text[1] != '-' ? text.data() + 1 : text.data();
  double value = 0;
  const auto [next, error] = std::from_chars(start, end, value);
  // Not "value < 0 || value > largest": that would let NaN pass.
  if (error != std::errc() || next != end || !(value >= 0 && value <= largest))
    throw InputError(largest < 1e6 ? fmt::format("{}: '{}' is not a number from 0 to {}", option, text, largest)
                                   : fmt::format("{}: '{}' is not a finite number of 0 or more", option, text));
  return value;
}

void StepList::add(Step step) {
  forEachSwitch(step, [this](Switch which) { return read(which); });
  mRequests.emplace_back(step);
}

void StepList::addPreset(double length) {
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
