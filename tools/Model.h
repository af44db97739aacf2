#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tool {

/// Texture index of a corner without texture coordinates.
constexpr std::uint32_t kNoTexCoord = 0xFFFFFFFF;
/// Ends a hole group.
constexpr std::uint32_t kEndOfGroup = 0xFFFFFFFF;

/// What a face is marked with, besides its texture coordinates: indices into Model::mMaterials and mGroups, -1 for
/// none.
struct Label {
  int mMaterial = -1;
  int mGroup = -1;
  auto operator<=>(const Label&) const = default;
};

/// Faces from mFirstFace up to the next run carry mLabel.
struct LabelRun {
  std::uint32_t mFirstFace;
  Label mLabel;
};

/// Faces from mFirstFace up to the next object belong to it, and so do the vertices from mFirstVertex on that no other
/// object uses.
struct ObjectStart {
  std::string mName;
  std::uint32_t mFirstFace = 0;
  std::uint32_t mFirstVertex = 0;
  std::uint32_t mFirstTexCoord = 0;
};

/// A polygon model in memory: one pool of vertices and faces. Objects and runs are given by their first faces.
struct Model {
  std::vector<double> mVertices;           ///< x, y, z per vertex
  std::vector<double> mTexCoords;          ///< u, v per pair
  std::vector<std::uint32_t> mCounts;      ///< corners per face
  std::vector<std::uint32_t> mIndices;     ///< vertex per corner, face after face
  std::vector<std::uint32_t> mTexIndices;  ///< pair per corner, or kNoTexCoord on all corners of a face; may be empty
  std::vector<std::uint32_t> mHoles;       ///< groups: outer face, its hole faces ..., kEndOfGroup
  std::vector<LabelRun> mRuns;             ///< ascending, the first at face 0; empty when no face is marked
  std::vector<std::string> mMaterials;     ///< distinct names in order of appearance, bytes as in the file
  std::vector<std::string> mGroups;        ///< likewise
  std::vector<ObjectStart> mObjects;       ///< at least one; ascending, the first at face 0
  std::vector<std::string> mLibraries;     ///< material libraries, as named by the file
  std::map<std::string, std::size_t> mIgnored;  ///< what the reader skipped, and how often

  std::size_t vertexCount() const { return mVertices.size() / 3; }
  std::size_t faceCount() const { return mCounts.size(); }

  /// The face after the last one of object `object`.
  std::uint32_t endFace(std::size_t object) const;

  /// Joins all objects into one, named after the first.
  void joinObjects();

  /// Marks the face that is added next, and those after it, with `label`.
  void startRun(Label label);
};

/// Checks that every index is in range, all counts add up and every coordinate is finite.
/// @throws InputError with a text that starts with `name` and names the vertex or face (counted from 1)
void checkModel(const Model& model, const std::string& name);

}  // namespace tool
