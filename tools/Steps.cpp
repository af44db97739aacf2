#include <tools/Steps.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numbers>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {

std::string describe(const Step& step) {
  switch (step.mKind) {
    case StepKind::mergeVertices:
      return fmt::format("--merge-vertices {}", step.mValue);
    case StepKind::removeColinear:
      return fmt::format("--remove-colinear {:.4g}", step.mValue);
    case StepKind::removeCoplanar:
      return fmt::format("--remove-coplanar {:.4g}", step.mValue);
    case StepKind::removeDouble:
      return "--remove-double";
    case StepKind::removeZeroArea:
      return fmt::format("--remove-zero-area {:.6g}", step.mValue);
    case StepKind::removeZeroEdges:
      return fmt::format("--remove-zero-edges {}", step.mValue);
    case StepKind::conformNormals:
      return "--conform-normals";
  }
  return {};
}

std::vector<Step> presetSteps(const StepRequest& request, double diagonal) {
  const double length = request.mStep.mValue;
  const double radians = diagonal > 0 ? std::atan(10 * length / diagonal) : 0;
  const auto angle = static_cast<float>(std::clamp(radians * 180 / std::numbers::pi, 0.01, 1.0));
  constexpr double kShortestForCollapse = 0.001;

  std::vector<Step> steps = {{StepKind::mergeVertices, request.mStep.mValue}};
  if (length >= kShortestForCollapse) steps.push_back({StepKind::removeZeroEdges, request.mStep.mValue});
  steps.push_back({StepKind::removeZeroArea, static_cast<float>(length * length)});
  steps.push_back({StepKind::removeDouble, 0, request.mCompareAttributes});
  steps.push_back({StepKind::conformNormals});
  steps.push_back({StepKind::removeCoplanar, angle, request.mCompareAttributes});
  steps.push_back({StepKind::removeColinear, angle, request.mKeepTextureMapping});
  return steps;
}

RecordPtr runStep(const Step& step, const Cleanup::MeshData& record) {
  const auto call = [&] {
    switch (step.mKind) {
      case StepKind::mergeVertices:
        return Cleanup::mergeVertices(step.mValue, record);
      case StepKind::removeColinear:
        return Cleanup::removeVerticesColinear(step.mValue, step.mFlag, record);
      case StepKind::removeCoplanar:
        return Cleanup::removeEdgesCoplanar(step.mValue, step.mFlag, record);
      case StepKind::removeDouble:
        return Cleanup::removeFacesDouble(step.mFlag, record);
      case StepKind::removeZeroArea:
        return Cleanup::removeFacesZero(step.mValue, record);
      case StepKind::removeZeroEdges:
        return Cleanup::removeEdgesZero(step.mValue, record);
      case StepKind::conformNormals:
        break;
    }
    return Cleanup::conformNormals(record);
  };
  return RecordPtr(call());
}

float parseTolerance(const std::string& text, const std::string& option, float largest) {
  const char* const end = text.data() + text.size();
  const char* const start = text.size() > 1 && text[0] == '+' && text[1] != '-' ? text.data() + 1 : text.data();
  float value = 0;
  const auto [next, error] = std::from_chars(start, end, value);
  // Not "value < 0 || value > largest": that would let NaN pass.
  if (error != std::errc() || next != end || !(value >= 0 && value <= largest))
    throw InputError(std::isfinite(largest) && largest < 1e6F
                         ? fmt::format("{}: '{}' is not a number from 0 to {}", option, text, largest)
                         : fmt::format("{}: '{}' is not a finite number of 0 or more", option, text));
  return value;
}

}  // namespace tool
