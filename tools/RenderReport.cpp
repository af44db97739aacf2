#include <tools/RenderReport.h>

#include <memory>
#include <span>

#include <facetbox/util/TriangleMesh.h>
#include <facetbox/util/Triangulator.h>
#include <tools/Json.h>
#include <tools/MeshMaker.h>
#include <tools/Printing.h>

namespace tool {

using nlohmann::ordered_json;

DrawnCounts countDrawn(const Frame& frame, const std::string& name, Progress& progress) {
  DrawnCounts counts;
  util::Triangulator triangulator;
  const auto add = [&](const SceneEntry&, const util::Mesh& mesh, std::span<const float> coordinates) {
    const std::unique_ptr<util::TriangleMesh> triangles(
        triangulator.triangulate(mesh, {coordinates.begin(), coordinates.end()}, 0));
    counts.mTriangles += triangles->indices().size() / 3;
  };
  counts.mObjects = frame.takeApart(name, Grouping::object, progress, add).size();
  counts.mFaces = groupFaces(frame.model(), Grouping::face).size();
  return counts;
}

ordered_json jsonOf(const DrawnModel& model) {
  ordered_json defects;
  for (std::size_t kind = 0; model.mMarks && kind < kMarkKinds; ++kind)
    if (model.mIntersections || static_cast<MarkKind>(kind) != MarkKind::intersectingFace)
      defects[keyOf(static_cast<MarkKind>(kind))] = {{"count", model.mMarks->mCounts[kind]},
                                                     {"isCounted", model.mMarks->mAreComplete[kind]}};
  const DrawnCounts& counts = model.mCounts;
  return {{"file", model.mName},           {"objects", counts.mObjects},
          {"faces", counts.mFaces},        {"triangles", counts.mTriangles},
          {"defects", std::move(defects)}, {"passedOver", jsonOf(model.mNotes)}};
}

ordered_json jsonOf(const CameraOptions& camera) {
  return {{"eye", inFull(*camera.mEye)},
          {"lookAt", inFull(*camera.mLookAt)},
          {"up", inFull(camera.mUp)},
          {"fieldOfView", inFull(camera.mFieldOfView)}};
}

}  // namespace tool
