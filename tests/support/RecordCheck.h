#pragma once

#include <cstdint>
#include <span>
#include <string>

#include <facetbox/cleanup/Cleanup.h>

namespace support {

/// What is wrong with a flat list of hole groups, or "".
inline std::string findHoleProblem(std::span<const std::uint32_t> list, std::size_t faceCount) {
  constexpr std::uint32_t kNone = 0xFFFFFFFFu;
  std::uint32_t outer = kNone;
  for (const std::uint32_t entry : list) {
    if (entry == kNone && outer == kNone) return "bare terminator in the hole list";
    if (entry != kNone && entry >= faceCount) return "hole list refers to face " + std::to_string(entry);
    if (entry != kNone && entry == outer) return "face is its own hole";
    if (entry == kNone || outer == kNone) outer = entry;
  }
  return outer == kNone ? "" : "unterminated hole group";
}

/// What is wrong with a record that the library has returned, or "". Arrays must be as long as their counts say.
/// Texture-coordinate indices may lie beyond the pairs: they are passed through.
inline std::string findRecordProblem(const Cleanup::MeshData& data) {
  const auto mismatch = [](const void* array, int count) { return count < 0 || (array != nullptr) != (count > 0); };
  if (mismatch(data.mVertexCoords, data.mVCCount) || mismatch(data.mIndices, data.mIndexCount) ||
      mismatch(data.mTexCoords, data.mTCCount) || mismatch(data.mTCIndices, data.mTCIndexCount) ||
      mismatch(data.mCounts, data.mCountCount) || mismatch(data.mTextures, data.mTexturesCount) ||
      mismatch(data.mTexturesStartFaces, data.mTexturesStartFacesCount) || mismatch(data.mHoles, data.mHolesCount))
    return "an array and its count";

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
  return findHoleProblem({data.mHoles, static_cast<std::size_t>(data.mHolesCount)}, data.mCountCount);
}

}  // namespace support
