#pragma once

#include <string>
#include <vector>

#include <tools/RecordBridge.h>

namespace tool {

enum class StepKind {
  mergeVertices,
  removeColinear,
  removeCoplanar,
  removeDouble,
  removeZeroArea,
  removeZeroEdges,
  conformNormals,
};

/// One call of the library.
struct Step {
  StepKind mKind = StepKind::mergeVertices;
  float mValue = 0;    ///< length, area or degrees; unused by removeDouble and conformNormals
  bool mFlag = false;  ///< keep texture mapping (removeColinear) or compare attributes (removeCoplanar, removeDouble)
};

/// What the command line asks for: a step, or the preset in its place.
struct StepRequest {
  bool mIsPreset = false;
  Step mStep;  ///< of a preset, mValue is the length
  bool mKeepTextureMapping = true;
  bool mCompareAttributes = true;
};

/// The step as it is written on the command line, such as "--merge-vertices 0.01".
std::string describe(const Step& step);

/// Steps of the preset for a model of the given bounding-box diagonal.
///
/// Order: weld; collapse what short edges are left; drop slivers; drop doubles; orient; merge flat parts; drop straight
/// corners. Each step leaves the next one what it needs: doubles are told by vertex index, orientation passes over
/// edges that two faces share, and flat parts merge only where they are oriented alike. Area tolerance: length squared.
/// Angle tolerance: that at which a tenth of the diagonal moves its end by the length, but at least 0.01 (float
/// coordinates are no better) and at most 1 degree. Below a length of 0.001 the collapse of short edges is left out: it
/// also drops every face below 1e-6 square units, which is then more than length squared.
std::vector<Step> presetSteps(const StepRequest& request, double diagonal);

/// Runs the step. Null when nothing is left. Throws what the library throws.
RecordPtr runStep(const Step& step, const Cleanup::MeshData& record);

/// A tolerance from the command line: a finite number from 0 to `largest`, in the syntax of OBJ numbers.
/// @throws InputError that names `option`
float parseTolerance(const std::string& text, const std::string& option, float largest);

}  // namespace tool
