#include <facetbox/io/OffMesh.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace facetbox {
namespace {

OffMesh::Complaint complaintAbout(const OffColor& color) {
  for (const double value : color.values)
    if (!(value >= 0 && value <= 255))
      return fmt::format("{} is no component of a color; from 0 to 1 or to 255 is expected", value);
  return std::nullopt;
}

}  // namespace

void OffMesh::reserve(std::uint64_t vertices, std::uint64_t faces) {
  mVertexCount = vertices;
  mesh().points.reserve(vertices * 3);
  if (mLayout.hasTexCoord) mesh().texCoords.reserve(vertices * 2);
  mesh().counts.reserve(faces);
}

OffMesh::Complaint OffMesh::addVertex(const std::array<double, 4>& position) {
  const double w = mLayout.hasWeight ? position[3] : 1;
  if (w != 1) ++mWeights;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    mesh().points.push_back(w == 1 ? position[axis] : position[axis] / w);
    if (!std::isfinite(mesh().points.back())) return fmt::format("divided by {}, this vertex is at no finite place", w);
  }
  return std::nullopt;
}

OffMesh::Complaint OffMesh::addVertexColor(const OffColor& color) {
  if (mColorSize == 0) mColorSize = color.size;
  if (color.size != mColorSize)
    return fmt::format("this color has {} components, but those before have {}", color.size, mColorSize);
  mVertexColors.add(color);
  return complaintAbout(color);
}

void OffMesh::addTexCoord(double u, double v) { mesh().texCoords.insert(mesh().texCoords.end(), {u, v}); }

OffMesh::Complaint OffMesh::addCorner(std::uint64_t vertex) {
  if (vertex >= mVertexCount)
    return fmt::format("face {} refers to vertex {}, but there are only {}, counted from 0", mesh().counts.size(),
                       vertex, mVertexCount);
  mesh().indices.push_back(static_cast<std::uint32_t>(vertex));
  return std::nullopt;
}

OffMesh::Complaint OffMesh::endFace(const OffColor& color) {
  if (mesh().indices.size() == mFirstCorner) return fmt::format("face {} has no vertices", mesh().counts.size());
  mesh().counts.push_back(static_cast<std::uint32_t>(mesh().indices.size() - mFirstCorner));
  mFirstCorner = mesh().indices.size();
  if (color.size == 1) ++mColorNumbers;
  if (color.size < 3) {
    mFaceColors.addNone();
    return std::nullopt;
  }
  mFaceColors.add(color);
  return complaintAbout(color);
}

Model OffMesh::finish(ReadContext& context) {
  if (mLayout.hasTexCoord) mesh().texIndices = mesh().indices;  // a pair per vertex
  mModel.objects.front().colors = mVertexColors.finish();
  if (mLayout.hasNormal) context.notes().add("vertex normals", mVertexCount);
  context.notes().add("weights of vertices, after dividing by them", mWeights);
  context.notes().add("colors of faces by number", mColorNumbers);
  context.notes().add("colors of faces, which are too many different ones", mFaceColors.finish(mModel));
  return std::move(mModel);
}

}  // namespace facetbox
