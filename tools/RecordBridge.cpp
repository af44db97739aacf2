#include <tools/RecordBridge.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <string_view>

#include <fmt/format.h>

namespace tool {
namespace {

constexpr std::uint32_t kUnmapped = 0xFFFFFFFF;

// Renumbers `indices` (entries kNoTexCoord stay) to the ascending list of the distinct ones and `extra`, which is
// returned. Costs no more than sorting the indices, however large the pool that they point into.
std::vector<std::uint32_t> compactIndices(std::vector<std::uint32_t>& indices, std::vector<std::uint32_t> extra) {
  std::vector<std::uint32_t> used = std::move(extra);
  std::copy_if(indices.begin(), indices.end(), std::back_inserter(used),
               [](std::uint32_t index) { return index != kNoTexCoord; });
  if (used.empty()) return used;
  const auto [lowest, highest] = std::minmax_element(used.begin(), used.end());
  const std::uint32_t base = *lowest;
  const std::size_t window = std::size_t{*highest} - base + 1;
  if (window / 16 > used.size()) {  // a few indices, far apart
    std::sort(used.begin(), used.end());
    used.erase(std::unique(used.begin(), used.end()), used.end());
    for (std::uint32_t& index : indices) {
      if (index != kNoTexCoord)
        index = static_cast<std::uint32_t>(std::lower_bound(used.begin(), used.end(), index) - used.begin());
    }
    return used;
  }
  std::vector<std::uint32_t> newIndices(window, kUnmapped);
  for (const std::uint32_t index : used) newIndices[index - base] = 0;
  used.clear();
  for (std::size_t i = 0; i < window; ++i) {
    if (newIndices[i] == kUnmapped) continue;
    newIndices[i] = static_cast<std::uint32_t>(used.size());
    used.push_back(base + static_cast<std::uint32_t>(i));
  }
  for (std::uint32_t& index : indices) {
    if (index != kNoTexCoord) index = newIndices[index - base];
  }
  return used;
}

template <std::size_t kWidth>
std::vector<float> gather(const std::vector<float>& pool, const std::vector<std::uint32_t>& rows) {
  std::vector<float> values;
  values.reserve(rows.size() * kWidth + kWidth);
  for (const std::uint32_t row : rows) {
    const auto first = pool.begin() + static_cast<std::ptrdiff_t>(row * kWidth);
    values.insert(values.end(), first, first + kWidth);
  }
  return values;
}

// Splits the model into its objects.
std::vector<ObjectSlice> sliceObjects(const Model& model) {
  std::vector<bool> isUsed(model.vertexCount());
  for (const std::uint32_t index : model.mIndices) isUsed[index] = true;
  std::vector<ObjectSlice> slices(model.mObjects.size());
  std::size_t corner = 0;
  for (std::size_t object = 0; object < slices.size(); ++object) {
    ObjectSlice& slice = slices[object];
    slice.mObject = object;
    slice.mFirstCorner = corner;
    for (std::uint32_t face = model.mObjects[object].mFirstFace; face < model.endFace(object); ++face)
      corner += model.mCounts[face];
    slice.mEndCorner = corner;
    const std::size_t endVertex =
        object + 1 < slices.size() ? model.mObjects[object + 1].mFirstVertex : model.vertexCount();
    for (std::uint32_t vertex = model.mObjects[object].mFirstVertex; vertex < endVertex; ++vertex) {
      if (!isUsed[vertex]) slice.mUnusedVertices.push_back(vertex);
    }
  }
  // Groups never span objects, so the outer face decides.
  for (auto group = model.mHoles.begin(); group != model.mHoles.end();) {
    const auto groupEnd = std::find(group, model.mHoles.end(), kEndOfGroup) + 1;
    const auto behind = std::upper_bound(model.mObjects.begin(), model.mObjects.end(), *group,
                                         [](std::uint32_t face, const ObjectStart& o) { return face < o.mFirstFace; });
    auto& holes = slices[static_cast<std::size_t>(behind - model.mObjects.begin()) - 1].mHoles;
    holes.insert(holes.end(), group, groupEnd);
    group = groupEnd;
  }
  return slices;
}

}  // namespace

ObjectRecord::ObjectRecord(const Model& model, const ObjectSlice& slice) : mName(model.mObjects[slice.mObject].mName) {
  copyFaces(model, slice);
  mVertices = gather<3>(model.mVertices, compactIndices(mIndices, slice.mUnusedVertices));
  copyTexCoords(model);
  makeRuns(model, slice.mObject);
}

void ObjectRecord::copyFaces(const Model& model, const ObjectSlice& slice) {
  const std::uint32_t begin = model.mObjects[slice.mObject].mFirstFace;
  mCounts.assign(model.mCounts.begin() + begin, model.mCounts.begin() + model.endFace(slice.mObject));
  const auto first = static_cast<std::ptrdiff_t>(slice.mFirstCorner);
  const auto last = static_cast<std::ptrdiff_t>(slice.mEndCorner);
  mIndices.assign(model.mIndices.begin() + first, model.mIndices.begin() + last);
  if (!model.mTexIndices.empty())
    mTexIndices.assign(model.mTexIndices.begin() + first, model.mTexIndices.begin() + last);
  mHoles = slice.mHoles;
  for (std::uint32_t& entry : mHoles) {
    if (entry != kEndOfGroup) entry -= begin;
  }
}

void ObjectRecord::copyTexCoords(const Model& model) {
  const auto isNone = [](std::uint32_t index) { return index == kNoTexCoord; };
  mIsTextured = !std::all_of(mTexIndices.begin(), mTexIndices.end(), isNone);
  if (!mIsTextured) {
    mTexIndices.clear();
    return;
  }
  mTexCoords = gather<2>(model.mTexCoords, compactIndices(mTexIndices, {}));
  if (std::none_of(mTexIndices.begin(), mTexIndices.end(), isNone)) return;
  // Beyond all others, so that it never equals one of them.
  float largest = 0;
  for (const float value : mTexCoords) largest = std::max(largest, std::fabs(value));
  const float outside = std::min(2 * largest + 1, std::numeric_limits<float>::max());
  mUntexturedPair = static_cast<std::uint32_t>(mTexCoords.size() / 2);
  mTexCoords.insert(mTexCoords.end(), {outside, outside});
  std::replace(mTexIndices.begin(), mTexIndices.end(), kNoTexCoord, mUntexturedPair);
}

void ObjectRecord::makeRuns(const Model& model, std::size_t object) {
  const std::uint32_t begin = model.mObjects[object].mFirstFace;
  const std::uint32_t end = model.endFace(object);
  auto run = std::upper_bound(model.mRuns.begin(), model.mRuns.end(), begin,
                              [](std::uint32_t face, const LabelRun& r) { return face < r.mFirstFace; });
  if (run != model.mRuns.begin()) --run;
  std::vector<std::size_t> labelOfRun;
  std::map<Label, std::size_t> ids;
  bool isMarked = false;
  for (; run != model.mRuns.end() && run->mFirstFace < end; ++run) {
    const auto [known, isNew] = ids.try_emplace(run->mLabel, mLabels.size());
    labelOfRun.push_back(known->second);
    if (isNew) mLabels.push_back(run->mLabel);
    mRunStarts.push_back(std::max(run->mFirstFace, begin) - begin);
    isMarked = isMarked || run->mLabel != Label{};
  }
  if (!isMarked) {
    mRunStarts.clear();
    mLabels.clear();
    return;
  }
  for (std::size_t i = 0; i < mLabels.size(); ++i) mTokens.push_back(fmt::format("m{}", i));
  for (const std::size_t label : labelOfRun) mRunTokens.push_back(mTokens[label].data());
  if (!mIsTextured) {
    mTexCoords = {0, 0};
    mTexIndices.assign(mIndices.size(), 0);
  }
}

Cleanup::MeshData ObjectRecord::view() const {
  // The record's pointers are not const because results are the caller's; input is never written to.
  const auto data = [](const auto& list) {
    using Item = typename std::decay_t<decltype(list)>::value_type;
    return list.empty() ? nullptr : const_cast<Item*>(list.data());
  };
  Cleanup::MeshData record = {};
  record.mVertexCoords = data(mVertices);
  record.mVCCount = static_cast<int>(mVertices.size());
  record.mIndices = data(mIndices);
  record.mIndexCount = static_cast<int>(mIndices.size());
  record.mTexCoords = data(mTexCoords);
  record.mTCCount = static_cast<int>(mTexCoords.size());
  record.mTCIndices = data(mTexIndices);
  record.mTCIndexCount = static_cast<int>(mTexIndices.size());
  record.mCounts = data(mCounts);
  record.mCountCount = static_cast<int>(mCounts.size());
  record.mTextures = data(mRunTokens);
  record.mTexturesCount = static_cast<int>(mRunTokens.size());
  record.mTexturesStartFaces = data(mRunStarts);
  record.mTexturesStartFacesCount = static_cast<int>(mRunStarts.size());
  record.mHoles = data(mHoles);
  record.mHolesCount = static_cast<int>(mHoles.size());
  return record;
}

Label ObjectRecord::labelOf(const char* token) const {
  if (!token) return {};
  const std::string_view text(token);
  std::size_t index = mLabels.size();
  std::from_chars(text.data() + std::min<std::size_t>(1, text.size()), text.data() + text.size(), index);
  return index < mLabels.size() ? mLabels[index] : Label{};
}

// Adds the corner counts of the faces, each under the label of its run: the last run before the first one that starts
// after the face.
void ObjectRecord::appendRuns(const Cleanup::MeshData& record, Model& model) const {
  const int runs = record.mTextures ? record.mTexturesCount : 0;
  int behind = 0;
  Label label;
  int labeled = -1;
  for (int face = 0; face < record.mCountCount; ++face) {
    while (behind < runs &&
           (!record.mTexturesStartFaces || record.mTexturesStartFaces[behind] <= static_cast<std::uint32_t>(face)))
      ++behind;
    const int run = std::max(behind - 1, 0);
    if (runs > 0 && run != labeled) {
      label = labelOf(record.mTextures[run]);
      labeled = run;
    }
    model.startRun(label);
    model.mCounts.push_back(record.mCounts[face]);
  }
}

// A face with a corner without texture coordinates counts as a face without: OBJ files have no others.
void ObjectRecord::appendTexCoords(const Cleanup::MeshData& record, Model& model) const {
  const std::size_t corners = model.mIndices.size();
  const std::size_t cornersBefore = corners - static_cast<std::size_t>(record.mIndexCount);
  if (!mIsTextured || !record.mTCIndices) {
    if (!model.mTexIndices.empty()) model.mTexIndices.resize(corners, kNoTexCoord);
    return;
  }
  std::vector<std::uint32_t> indices(record.mTCIndices, record.mTCIndices + record.mTCIndexCount);
  const auto pairs = static_cast<std::uint32_t>(record.mTCCount / 2);
  auto corner = indices.begin();
  for (int face = 0; face < record.mCountCount; ++face) {
    const auto end = corner + static_cast<std::ptrdiff_t>(record.mCounts[face]);
    if (std::any_of(corner, end, [&](std::uint32_t index) { return index == mUntexturedPair || index >= pairs; }))
      std::fill(corner, end, kNoTexCoord);
    corner = end;
  }
  const std::vector<float> pool(record.mTexCoords, record.mTexCoords + 2 * std::size_t{pairs});
  const std::vector<float> used = gather<2>(pool, compactIndices(indices, {}));
  const auto first = static_cast<std::uint32_t>(model.mTexCoords.size() / 2);
  model.mTexCoords.insert(model.mTexCoords.end(), used.begin(), used.end());
  model.mTexIndices.resize(cornersBefore, kNoTexCoord);
  for (const std::uint32_t index : indices)
    model.mTexIndices.push_back(index == kNoTexCoord ? kNoTexCoord : first + index);
}

void ObjectRecord::append(const Cleanup::MeshData& record, Model& model) const {
  const auto firstFace = static_cast<std::uint32_t>(model.faceCount());
  const auto firstVertex = static_cast<std::uint32_t>(model.vertexCount());
  model.mObjects.push_back({mName, firstFace, firstVertex, static_cast<std::uint32_t>(model.mTexCoords.size() / 2)});
  model.mVertices.insert(model.mVertices.end(), record.mVertexCoords, record.mVertexCoords + record.mVCCount);
  for (int i = 0; i < record.mIndexCount; ++i) model.mIndices.push_back(firstVertex + record.mIndices[i]);
  appendRuns(record, model);
  appendTexCoords(record, model);
  appendHoles(record, firstFace, model);
}

// Groups without holes stay in the record with only their outer face; files cannot express them.
void ObjectRecord::appendHoles(const Cleanup::MeshData& record, std::uint32_t firstFace, Model& model) {
  const std::uint32_t* const end = record.mHoles + record.mHolesCount;
  for (const std::uint32_t* entry = record.mHoles; entry != end; ++entry) {
    const std::uint32_t* const groupEnd = std::find(entry, end, kEndOfGroup);
    if (groupEnd - entry >= 2) {
      for (; entry != groupEnd; ++entry) model.mHoles.push_back(firstFace + *entry);
      model.mHoles.push_back(kEndOfGroup);
    }
    entry = groupEnd;
  }
}

std::vector<ObjectRecord> makeRecords(const Model& model) {
  std::vector<ObjectRecord> records;
  records.reserve(model.mObjects.size());
  for (const ObjectSlice& slice : sliceObjects(model)) records.emplace_back(model, slice);
  return records;
}

Model emptyLike(const Model& model) {
  Model empty;
  empty.mMaterials = model.mMaterials;
  empty.mGroups = model.mGroups;
  empty.mLibraries = model.mLibraries;
  return empty;
}

}  // namespace tool
