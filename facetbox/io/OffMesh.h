#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <facetbox/io/Model.h>
#include <facetbox/io/OffColors.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// What the vertices of an OFF file have, in this order behind their position.
struct OffLayout {
  bool hasWeight = false;  ///< the position is x, y, z, w and stands for x / w, y / w, z / w
  bool hasNormal = false, hasColor = false, hasTexCoord = false;
};

/// Takes what the text and the bytes of an OFF file say alike. What is wrong comes back as a sentence, since only the
/// caller knows where it stands.
class OffMesh {
 public:
  using Complaint = std::optional<std::string>;

  /// @param fileSize  bytes; what is kept is in proportion to it
  OffMesh(const OffLayout& layout, std::size_t fileSize) : mLayout(layout), mFaceColors(1000 + fileSize / 40) {
    mModel.objects.emplace_back();
  }

  /// They must be in proportion to the file.
  void reserve(std::uint64_t vertices, std::uint64_t faces);

  /// @param position  x, y, z, w
  Complaint addVertex(const std::array<double, 4>& position);
  Complaint addVertexColor(const OffColor& color);
  void addTexCoord(double u, double v);

  Complaint addCorner(std::uint64_t vertex);
  /// Ends the face of all corners since the last one.
  /// @param color  of 0 components: none; of 1: the number of a color that stands in no file
  Complaint endFace(const OffColor& color);

  Model finish(ReadContext& context);

 private:
  PolyMesh& mesh() { return mModel.objects.front().mesh; }

  OffLayout mLayout;
  Model mModel;
  OffVertexColors mVertexColors;
  OffFaceColors mFaceColors;
  std::uint64_t mVertexCount = 0;
  std::size_t mFirstCorner = 0, mColorSize = 0;
  std::size_t mWeights = 0, mColorNumbers = 0;
};

}  // namespace facetbox
