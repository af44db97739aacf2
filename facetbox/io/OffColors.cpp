#include <facetbox/io/OffColors.h>

#include <algorithm>
#include <utility>

namespace facetbox {

bool OffColor::is255() const {
  return std::ranges::any_of(values, [](double value) { return value > 1; });
}

std::array<double, 4> OffColor::from255() const {
  std::array<double, 4> scaled = values;
  for (std::size_t i = 0; i < size; ++i) scaled[i] /= 255;
  return scaled;
}

void OffVertexColors::add(const OffColor& color) {
  mSize = color.size;
  mIs255 |= color.is255();
  if (color.isOpen()) mOpen.push_back(static_cast<std::uint32_t>(mColors.size() / 4));
  for (const double value : color.is255() ? color.from255() : color.values)
    mColors.push_back(static_cast<float>(value));
}

std::vector<float> OffVertexColors::finish() {
  for (const std::uint32_t vertex : mOpen)
    for (std::size_t i = 0; mIs255 && i < mSize; ++i) {
      float& value = mColors[std::size_t{4} * vertex + i];
      value = static_cast<float>(static_cast<double>(value) / 255);
    }
  return std::move(mColors);
}

void OffFaceColors::add(const OffColor& color) {
  ++mColored;
  mIs255 |= color.is255();
  const Key key = {color.is255() ? color.from255() : color.values, color.isOpen() ? color.size : 0};
  // Once there are too many, it does not matter which.
  if (mKeys.size() <= mMost) mKeys.try_emplace(key, static_cast<std::uint32_t>(mKeys.size()));
  const auto known = mKeys.find(key);
  if (mKeyOfFace.empty()) mKeyOfFace.assign(mFaces, kNone);
  addFace(known == mKeys.end() ? kNone : known->second);
}

void OffFaceColors::addNone() { addFace(kNone); }

void OffFaceColors::addFace(std::uint32_t key) {
  ++mFaces;
  if (mColored > 0) mKeyOfFace.push_back(key);
}

std::size_t OffFaceColors::finish(Model& model) {
  if (mColored == 0) return 0;
  if (mKeys.size() > mMost) return mColored;
  const std::vector<std::uint32_t> settled = settleOpenKeys();
  std::vector<const Key*> keys(settled.size());
  for (const auto& [key, number] : mKeys) keys[number] = &key;
  std::vector<std::uint32_t> markOfKey(settled.size());
  model.materials.reserve(settled.size());
  model.marks.reserve(settled.size() + 1);
  for (std::uint32_t key = 0; key < settled.size(); ++key) {
    if (settled[key] < key) {
      markOfKey[key] = markOfKey[settled[key]];
      continue;
    }
    markOfKey[key] = static_cast<std::uint32_t>(model.materials.size());
    model.marks.push_back({.material = markOfKey[key]});
    model.materials.push_back({.color = keys[key]->values});
  }
  const auto unmarked = static_cast<std::uint32_t>(model.marks.size());
  if (mColored < mFaces) model.marks.emplace_back();
  for (std::uint32_t& key : mKeyOfFace) key = key == kNone ? unmarked : markOfKey[key];
  model.objects.front().mesh.labels = std::move(mKeyOfFace);
  return 0;
}

// For each key the first one that means the same color. There are few open keys: zeros and ones.
std::vector<std::uint32_t> OffFaceColors::settleOpenKeys() {
  std::vector<std::uint32_t> settled(mKeys.size());
  for (std::uint32_t key = 0; key < settled.size(); ++key) settled[key] = key;
  std::vector<std::pair<std::uint32_t, Key>> open;
  for (const auto& [key, number] : mKeys)
    if (key.openSize > 0) open.emplace_back(number, key);
  std::ranges::sort(open);
  for (const auto& [number, key] : open) {
    mKeys.erase(key);
    const OffColor color = {key.values, key.openSize};
    const auto [same, isNew] = mKeys.try_emplace({mIs255 ? color.from255() : color.values, 0}, number);
    const std::uint32_t first = std::min(number, same->second);
    settled[std::max(number, same->second)] = first;
    same->second = first;
  }
  return settled;
}

}  // namespace facetbox
