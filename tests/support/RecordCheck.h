#pragma once

#include <cstdint>
#include <string>

#include <facetbox/cleanup/Cleanup.h>

namespace support {

namespace detail {

/// What is wrong with the hole groups, or "".
inline std::string findHoleProblem(const Cleanup::MeshData& data) {
  constexpr std::uint32_t kEnd = 0xFFFFFFFFu;
  const auto faceCount = static_cast<std::uint32_t>(data.mCountCount);
  std::uint32_t outer = kEnd;
  for (int i = 0; i < data.mHolesCount; ++i) {
    const std::uint32_t entry = data.mHoles[i];
    const std::string where = " at hole entry " + std::to_string(i);
    if (entry == kEnd) {
      if (outer == kEnd) return "bare terminator" + where;
      outer = kEnd;
      continue;
    }
    if (entry >= faceCount) return "no such face" + where;
    if (outer == kEnd)
      outer = entry;
    else if (entry == outer)
      return "face is its own hole" + where;
  }
  return outer == kEnd ? "" : "unterminated hole group";
}

}  // namespace detail

/// What is wrong with a record that the library has returned, or "". Arrays must be as long as their counts say.
/// Texture-coordinate indices may lie beyond the pairs: they are passed through.
inline std::string findRecordProblem(const Cleanup::MeshData& data) {
  const auto mismatch = [](const void* array, int count) { return count < 0 || (array != nullptr) != (count > 0); };
  if (mismatch(data.mVertexCoords, data.mVCCount)) return "mVertexCoords and mVCCount";
  if (mismatch(data.mIndices, data.mIndexCount)) return "mIndices and mIndexCount";
  if (mismatch(data.mTexCoords, data.mTCCount)) return "mTexCoords and mTCCount";
  if (mismatch(data.mTCIndices, data.mTCIndexCount)) return "mTCIndices and mTCIndexCount";
  if (mismatch(data.mCounts, data.mCountCount)) return "mCounts and mCountCount";
  if (mismatch(data.mTextures, data.mTexturesCount)) return "mTextures and mTexturesCount";
  if (mismatch(data.mTexturesStartFaces, data.mTexturesStartFacesCount)) return "mTexturesStartFaces and its count";
  if (mismatch(data.mHoles, data.mHolesCount)) return "mHoles and mHolesCount";

  if (data.mVCCount == 0 || data.mVCCount % 3 != 0) return "mVCCount is not three per vertex";
  if (data.mCountCount == 0) return "no faces";
  std::int64_t cornerCount = 0;
  for (int face = 0; face < data.mCountCount; ++face) {
    if (data.mCounts[face] < 3) return "face " + std::to_string(face) + " has fewer than three corners";
    cornerCount += data.mCounts[face];
  }
  if (cornerCount != data.mIndexCount) return "mCounts do not add up to mIndexCount";
  for (int i = 0; i < data.mIndexCount; ++i)
    if (data.mIndices[i] >= static_cast<std::uint32_t>(data.mVCCount / 3))
      return "index " + std::to_string(i) + " out of range";

  if (data.mTCCount % 2 != 0) return "mTCCount is not two per pair";
  if (data.mTCIndexCount != (data.mTexCoords ? data.mIndexCount : 0)) return "mTCIndices not parallel to mIndices";
  if (data.mTexturesCount == 0) return "no texture entry";
  const bool startsFit = data.mTexturesStartFacesCount == data.mTexturesCount ||
                         (data.mTexturesStartFacesCount == 0 && data.mTexturesCount == 1);
  if (!startsFit) return "mTexturesStartFaces not parallel to mTextures";
  if (data.mName && !*data.mName) return "empty mName";
  if (data.mLog && !*data.mLog) return "empty mLog";
  return detail::findHoleProblem(data);
}

}  // namespace support
