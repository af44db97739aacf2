#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <facetbox/cleanup/Cleanup.h>
#include <tools/Model.h>

namespace tool {

struct RecordDeleter {
  void operator()(const Cleanup::MeshData* record) const { Cleanup::freeMeshDataAndHoles(record); }
};
using RecordPtr = std::unique_ptr<const Cleanup::MeshData, RecordDeleter>;

/// The part of a model that belongs to one object, found in one pass for all objects.
struct ObjectSlice {
  std::size_t mObject = 0;
  std::size_t mFirstCorner = 0;
  std::size_t mEndCorner = 0;
  std::vector<std::uint32_t> mUnusedVertices;  ///< its vertices that no face of the model uses, ascending
  std::vector<std::uint32_t> mHoles;           ///< its hole groups, in face numbers of the model
};

/// Converts one object of a model to a record, and results of the library back.
///
/// Records read texture names as Latin-1 and return UTF-8, so every chained call would re-encode names that are not
/// ASCII. And they keep names and runs only with texture coordinates. Therefore runs get tokens as names ("m0", "m1",
/// one for each distinct label). An object without texture coordinates gets one pair that all corners share. In an
/// object with some texture coordinates, corners without them share a pair that is far from all others.
class ObjectRecord {
 public:
  /// Copies what the object needs.
  ObjectRecord(const Model& model, const ObjectSlice& slice);

  /// The record; it points into this object.
  Cleanup::MeshData view() const;

  const std::string& name() const { return mName; }

  /// Appends a record that came from view() through any number of library calls to `model` as a new object.
  /// `model` must have the names (mMaterials, mGroups) of the model that this object was made from.
  void append(const Cleanup::MeshData& record, Model& model) const;

 private:
  void copyFaces(const Model& model, const ObjectSlice& slice);
  void copyTexCoords(const Model& model);
  void makeRuns(const Model& model, std::size_t object);
  Label labelOf(const char* token) const;
  void appendRuns(const Cleanup::MeshData& record, Model& model) const;
  void appendTexCoords(const Cleanup::MeshData& record, Model& model) const;
  static void appendHoles(const Cleanup::MeshData& record, std::uint32_t firstFace, Model& model);

  std::string mName;
  std::vector<float> mVertices, mTexCoords;
  std::vector<std::uint32_t> mCounts, mIndices, mTexIndices, mHoles, mRunStarts;
  bool mIsTextured = false;                     // false: mTexCoords is the shared pair or empty
  std::uint32_t mUntexturedPair = kNoTexCoord;  // stands for "none" where mIsTextured
  std::vector<Label> mLabels;                   // label of token "m<index>"
  std::vector<std::string> mTokens;
  std::vector<char*> mRunTokens;  // per run, into mTokens
};

/// All objects of a model.
std::vector<ObjectRecord> makeRecords(const Model& model);

/// An empty model with the names and libraries of `model`, to append cleaned objects to.
Model emptyLike(const Model& model);

}  // namespace tool
