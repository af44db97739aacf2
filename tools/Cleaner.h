#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/clean.h>
#include <facetbox/io/Model.h>
#include <facetbox/triangulate.h>
#include <tools/CleanReport.h>
#include <tools/Progress.h>
#include <tools/Steps.h>

namespace tool {

/// A change of all objects together. Face numbers are those of the file, from 1.
struct Change {
  Figures mBefore, mAfter;
  double mSeconds = 0;
  std::size_t mTurned = 0, mCollapsed = 0;
  std::vector<double> mValues;          ///< of a relative step: its length or area for each object
  std::size_t mInDifferentObjects = 0;  ///< of a weld: vertices that it would weld as well if all objects were one
  std::vector<std::string> mDoubts;
  std::vector<facetbox::Problem> mLeftOut;
  std::vector<facetbox::DroppedHole> mHoles;
  std::vector<facetbox::SkippedFace> mSkipped;

  bool isNothing() const { return mBefore == mAfter && mTurned + mCollapsed == 0 && mDoubts.empty() && mHoles.empty(); }
};

/// What a clean-up has made of a model.
struct CleanedModel {
  facetbox::Model mModel;  ///< without objects that have no faces left
  StepPlan mPlan;          ///< of the first object
  Change mInput;           ///< faces and holes that are none
  std::vector<Change> mSteps;
  Figures mAfter;
  bool mIsTriangulated = false;
  Change mTriangles;
};

struct CleanRequest {
  std::string mName;  ///< of the model, for messages
  std::vector<StepRequest> mSteps;
  bool mTriangulate = false;         ///< after all steps
  bool mCountsOtherObjects = false;  ///< Change::mInDifferentObjects is wanted
};

/// Cleans each object of a model. @throws RunError
CleanedModel cleanModel(const facetbox::Model& model, const CleanRequest& request, Progress& progress);

}  // namespace tool
