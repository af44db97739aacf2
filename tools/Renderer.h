#pragma once

#include <tools/Arguments.h>
#include <tools/Camera.h>
#include <tools/PngFile.h>
#include <tools/Progress.h>
#include <tools/Scene.h>

namespace tool {

enum class Coloring { entries, normals };

struct RenderSettings {
  int mWidth = 640, mHeight = 480;
  int mSamples = 2;  ///< rays per pixel along each side
  bool mWireframe = false;
  Coloring mColoring = Coloring::entries;
  Color mBackground{255, 255, 255};
};

/// Draws what the camera sees of the scene. Colors show entries, or the normals of faces; the backs of faces are red,
/// or dark. The light comes from the camera. Casts one ray of the picker per sample and candidate object.
Picture render(const Scene& scene, const Camera& camera, const RenderSettings& settings, Progress& progress);

}  // namespace tool
