#include <tools/Model.h>

#include <cmath>
#include <limits>
#include <numeric>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {

std::uint32_t Model::endFace(std::size_t object) const {
  return object + 1 < mObjects.size() ? mObjects[object + 1].mFirstFace : static_cast<std::uint32_t>(faceCount());
}

void Model::joinObjects() { mObjects.resize(1); }

void Model::startRun(Label label) {
  const auto face = static_cast<std::uint32_t>(faceCount());
  const Label current = mRuns.empty() ? Label{} : mRuns.back().mLabel;
  if (label == current) return;
  if (mRuns.empty() && face > 0) mRuns.push_back({0, Label{}});
  mRuns.push_back({face, label});
}

void checkModel(const Model& model, const std::string& name) {
  const std::size_t largest = std::numeric_limits<int>::max();
  if (model.mVertices.size() > largest || model.mIndices.size() > largest || model.mTexCoords.size() > largest)
    throw InputError(fmt::format("{}: is too large: more than {} numbers in one list; split the model", name, largest));

  for (std::size_t i = 0; i < model.mVertices.size(); ++i) {
    if (!std::isfinite(model.mVertices[i]))
      throw InputError(fmt::format("{}: vertex {} has a coordinate that is not a finite number; correct or remove it",
                                   name, i / 3 + 1));
  }
  for (std::size_t i = 0; i < model.mTexCoords.size(); ++i) {
    if (!std::isfinite(model.mTexCoords[i]))
      throw InputError(
          fmt::format("{}: texture coordinate {} is not a finite number; correct or remove it", name, i / 2 + 1));
  }

  const std::size_t corners = std::accumulate(model.mCounts.begin(), model.mCounts.end(), std::size_t{0});
  const bool textured = !model.mTexIndices.empty();
  if (corners != model.mIndices.size() || (textured && corners != model.mTexIndices.size()))
    throw InputError(
        fmt::format("{}: the faces have {} corners by their counts, but {} vertex indices and {} texture "
                    "indices; the file is damaged",
                    name, corners, model.mIndices.size(), model.mTexIndices.size()));

  std::size_t corner = 0;
  for (std::size_t face = 0; face < model.faceCount(); ++face) {
    for (const std::size_t end = corner + model.mCounts[face]; corner < end; ++corner) {
      if (model.mIndices[corner] >= model.vertexCount())
        throw InputError(fmt::format("{}: face {} refers to vertex {}, but there are only {}; correct the face", name,
                                     face + 1, std::size_t{model.mIndices[corner]} + 1, model.vertexCount()));
      if (textured && model.mTexIndices[corner] != kNoTexCoord &&
          model.mTexIndices[corner] >= model.mTexCoords.size() / 2)
        throw InputError(
            fmt::format("{}: face {} refers to texture coordinate {}, but there are only {}; correct the "
                        "face",
                        name, face + 1, std::size_t{model.mTexIndices[corner]} + 1, model.mTexCoords.size() / 2));
    }
  }
  if (model.faceCount() == 0) throw InputError(fmt::format("{}: has no faces, so there is nothing to work on", name));
}

}  // namespace tool
