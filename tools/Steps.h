#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <facetbox/clean.h>
#include <tools/Tolerance.h>

namespace tool {

/// A step whose length or area is relative: its value is in per cent.
struct RelativeStep {
  facetbox::Step mStep;
};

/// All steps for a length.
struct Preset {
  Tolerance mLength;
  bool mCompareAttributes = true;
  bool mKeepTextureMapping = true;
};

/// One entry of the command line.
using StepRequest = std::variant<facetbox::Step, RelativeStep, Preset>;

/// The step as written on the command line, such as "--merge-vertices 0.01".
std::string describe(const facetbox::Step& step);

/// Its length, area or angle, if it has one.
std::optional<double> valueOf(const facetbox::Step& step);

/// The steps to run on an object.
struct StepPlan {
  std::vector<facetbox::Step> mSteps;
  std::vector<std::string> mLabels;  ///< the same for all objects: relative values stay relative
  std::vector<bool> mIsRelative;
  std::vector<bool> mIsRepeated;  ///< by a preset that has the same step before
};

/// The steps of all entries: facetbox::allSteps() for a preset, with its switches.
/// @param diagonal       of the object's bounding box, for what is relative
/// @param modelDiagonal  of all objects, for presets that are not
StepPlan planOf(const std::vector<StepRequest>& requests, double diagonal, double modelDiagonal);

/// The steps of a command line, in its order; a switch affects the steps after it.
class StepList {
 public:
  using Step = facetbox::Step;
  /// A step, whose own switches are overwritten.
  void add(Step step, bool isRelative = false);
  void addPreset(const Tolerance& length);

  enum class Switch { compareAttributes, keepTextureMapping };
  /// @param name  of the option
  /// @throws InputError where a switch before this one has not affected anything
  void set(Switch which, bool value, const std::string& name);

  /// @throws InputError where the last switch has not affected anything
  std::vector<StepRequest> finish() const;

 private:
  struct State {
    bool mValue = true;
    std::string mUnused;  // name of the option that has set it, until a step reads it
  };
  bool read(Switch which);
  static void requireUsed(Switch which, const State& state);

  State mStates[2];
  std::vector<StepRequest> mRequests;
};

}  // namespace tool
