#pragma once

#include <string>
#include <variant>
#include <vector>

#include <facetbox/clean.h>

namespace tool {

/// All steps for a length.
struct Preset {
  double mLength = 0;
  bool mCompareAttributes = true;
  bool mKeepTextureMapping = true;
};

/// One entry of the command line.
using StepRequest = std::variant<facetbox::Step, Preset>;

/// The step as written on the command line, such as "--merge-vertices 0.01".
std::string describe(const facetbox::Step& step);

/// The steps to run.
struct StepPlan {
  std::vector<facetbox::Step> mSteps;
  std::vector<bool> mIsRepeated;  ///< by a preset that has the same step before
};

/// The steps of all entries, for a model of the given bounding-box diagonal: facetbox::allSteps() for a preset, with
/// its switches.
StepPlan planOf(const std::vector<StepRequest>& requests, double diagonal);

/// A tolerance from the command line: a finite number from 0 to `largest`, in the number syntax of OBJ.
/// @throws InputError that names `option`
double parseTolerance(const std::string& text, const std::string& option, double largest);

/// The steps of a command line, in its order; a switch affects the steps after it.
class StepList {
 public:
  using Step = facetbox::Step;
  /// A step, whose own switches are overwritten.
  void add(Step step);
  void addPreset(double length);

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
