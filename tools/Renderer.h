#pragma once

#include <array>

#include <tools/Arguments.h>
#include <tools/Camera.h>
#include <tools/DefectMarks.h>
#include <tools/PngFile.h>
#include <tools/Progress.h>
#include <tools/Scene.h>

namespace tool {

enum class Coloring { entries, normals, defects };

struct RenderSettings {
  std::array<int, 2> mSize{640, 480};  ///< width and height, pixels
  int mSamples = 2;                    ///< rays per pixel along each side
  bool mWireframe = false;
  bool mAxes = false;
  bool mScaleBar = false;
  Coloring mColoring = Coloring::entries;
  Color mBackground{255, 255, 255};
};

/// Draws what the camera sees of the scene. Colors show entries, or the normals of faces; the backs of faces are red,
/// or dark. The light comes from the camera. Casts one ray of the picker per sample and candidate object.
/// @param defects  drawn over the faces; null: none. With Coloring::defects the entries are those of withDefectKinds().
Picture render(const Scene& scene, const Camera& camera, const RenderSettings& settings, const DefectMarks* defects,
               Progress& progress);

}  // namespace tool
