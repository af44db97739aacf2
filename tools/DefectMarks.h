#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/io/Model.h>

namespace tool {

enum class MarkKind : std::uint8_t {
  openEdge,
  overusedEdge,
  sameDirectionEdge,
  turnedFace,
  doubleFace,
  intersectingFace,
  zeroFace,
  badHole,
  zeroEdge,
  tCorner,
  sameVertex
};
inline constexpr std::size_t kMarkKinds = 11;

/// Its name in JSON: "openEdges". What `facetbox check` finds too is called alike.
const char* keyOf(MarkKind kind);

/// Where a model is defective. Faces and vertices are numbered through all objects, as in FacePool.
struct DefectMarks {
  struct Edge {
    MarkKind mKind;
    std::uint32_t mFrom, mTo;
  };
  struct Vertex {
    MarkKind mKind;
    std::uint32_t mVertex;
  };
  struct Face {
    MarkKind mKind;
    std::uint32_t mFace;
  };

  std::vector<Edge> mEdges;
  std::vector<Face> mFaces;
  std::vector<Vertex> mVertices;
  /// As check() lists them: of double faces and same vertices all but the first, of intersections the pairs, zero
  /// edges once for each face.
  std::array<std::size_t, kMarkKinds> mCounts{};
  /// False where there are more than counted.
  std::array<bool, kMarkKinds> mAreComplete{};
};

/// Looks at each object on its own. Turned faces are those that the step ConformNormals turns.
/// @param intersections  whether to look for faces that intersect, too; this takes longer
DefectMarks findDefects(const facetbox::Model& model, bool intersections);

}  // namespace tool
