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

/// One entry of the command line: a step, or the preset.
struct StepRequest {
  bool mIsPreset = false;
  Step mStep;  ///< of a preset, mValue is the length
  bool mKeepTextureMapping = true;
  bool mCompareAttributes = true;
};

/// The step as written on the command line, such as "--merge-vertices 0.01".
std::string describe(const Step& step);

/// Steps of the preset for a model of the given bounding-box diagonal.
///
/// Order: weld; collapse remaining short edges; remove slivers; remove doubles; orient; merge flat parts; remove
/// straight corners. Each step prepares the next: doubles are recognized by vertex indices, orientation spreads over
/// edges that two faces share, and flat parts merge only where they are oriented alike. The area tolerance is the
/// length squared. The angle tolerance is the angle that moves the end of a line by the length if the line is a tenth
/// of the diagonal long; it is at least 0.01 (float coordinates are no better) and at most 1 degree. Below a length of
/// 0.001, short edges are not collapsed: that would also remove every face below 1e-6 square units, which is then more
/// than the length squared.
std::vector<Step> presetSteps(const StepRequest& request, double diagonal);

/// Runs the step. Null when nothing is left. Throws what the library throws.
RecordPtr runStep(const Step& step, const Cleanup::MeshData& record);

/// A tolerance from the command line: a finite number from 0 to `largest`, in the number syntax of OBJ.
/// @throws InputError that names `option`
float parseTolerance(const std::string& text, const std::string& option, float largest);

}  // namespace tool
