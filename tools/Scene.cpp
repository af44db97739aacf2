#include <tools/Scene.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <new>

#include <fmt/format.h>

#include <facetbox/viewVolume.h>
#include <tools/Errors.h>

namespace tool {
namespace {

// Of the ball around the scene, with some room.
constexpr double kRadius = 1.01;

// Length of rays' directions: faces from some 1e-6 of the model's size on are hit, which no picture resolves.
constexpr double kDirectionLength = 1e8;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Box {
  Vector mMin{kInfinity, kInfinity, kInfinity}, mMax{-kInfinity, -kInfinity, -kInfinity};

  void extend(const float* p) {
    mMin = {std::min<double>(mMin.x, p[0]), std::min<double>(mMin.y, p[1]), std::min<double>(mMin.z, p[2])};
    mMax = {std::max<double>(mMax.x, p[0]), std::max<double>(mMax.y, p[1]), std::max<double>(mMax.z, p[2])};
  }
};

std::string quotedOr(const std::string& name, const std::string& unnamed) { return name.empty() ? unnamed : name; }

std::string objectName(const Model& model, std::size_t object) {
  return quotedOr(model.mObjects[object].mName, fmt::format("object {}", object + 1));
}

std::string nameOf(const Model& model, Grouping grouping, std::uint32_t number) {
  const std::size_t index = number - 1;
  if (grouping == Grouping::object) return objectName(model, index);
  if (grouping == Grouping::material)
    return index < model.mMaterials.size() ? quotedOr(model.mMaterials[index], "unnamed material") : "no material";
  const auto behind =
      std::upper_bound(model.mObjects.begin(), model.mObjects.end(), index,
                       [](std::size_t face, const ObjectStart& object) { return face < object.mFirstFace; });
  return fmt::format("face {} of {}", number,
                     objectName(model, static_cast<std::size_t>(behind - model.mObjects.begin()) - 1));
}

std::array<float, 3> narrowed(const Vector& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

}  // namespace

Scene::Scene(const Model& model, const std::string& name, Grouping grouping, Progress& progress) : mModel(model) {
  measure();
  addEntries(name, grouping, progress);
}

void Scene::measure() {
  Box box;
  for (const std::uint32_t vertex : mModel.mIndices) box.extend(mModel.mVertices.data() + std::size_t{3} * vertex);
  mCenter = (box.mMin + box.mMax) * 0.5;
  const double radius = length(box.mMax - mCenter);
  mScale = radius > 0 ? 1 / radius : 1;
  mHalfSize = (box.mMax - mCenter) * mScale;
}

void Scene::addEntries(const std::string& name, Grouping grouping, Progress& progress) {
  const FaceSets sets = groupFaces(mModel, grouping);
  MeshMaker maker(mModel);
  const Vector moved = toScene({});
  const std::array<double, 16> matrix = {mScale, 0, 0,      0, 0,       mScale,  0,       0,
                                         0,      0, mScale, 0, moved.x, moved.y, moved.z, 1};
  mEntries.reserve(sets.size());
  for (std::size_t set = 0; set < sets.size(); ++set) {
    if (set % 1024 == 0) progress.setStage(fmt::format("preparing {}: {} of {}", name, set, sets.size()));
    const std::uint32_t number = sets.mNumbers[set];
    SceneEntry entry{number, nameOf(mModel, grouping, number), {}, {}};
    try {
      // The picker keeps the triangles, not the mesh.
      const util::Mesh mesh = maker.make(sets.faces(set));
      mPicker->addEntry(mHandle, number, {&mesh}, matrix.data());
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& error) {
      throw RunError(fmt::format("{}: {} cannot be triangulated: {}", name, entry.mName, error.what()));
    }
    Box box;
    for (std::size_t i = 0; i < maker.coordinates().size(); i += 3) box.extend(maker.coordinates().data() + i);
    entry.mMin = toScene(box.mMin);
    entry.mMax = toScene(box.mMax);
    mEntries.push_back(std::move(entry));
  }
  mPicker->applyPendingCommands();
}

const SceneEntry& Scene::entry(std::uint32_t id) const {
  return *std::lower_bound(mEntries.begin(), mEntries.end(), id,
                           [](const SceneEntry& entry, std::uint32_t wanted) { return entry.mId < wanted; });
}

std::optional<Hit> Scene::firstHit(const Vector& origin, const Vector& direction,
                                   std::span<const std::uint32_t> ids) const {
  // From far off, the ray starts where it comes to the scene: there its start is not rounded to much.
  const double ahead = std::max(0.0, -dot(origin, direction) - kRadius);
  const std::array<float, 3> from = narrowed(origin + direction * ahead);
  const std::array<float, 3> along = narrowed(direction * kDirectionLength);
  std::optional<Hit> first;
  float nearest = std::numeric_limits<float>::max();
  for (const std::uint32_t id : ids) {
    float distance = 0;
    std::array<float, 3> normal{};
    if (!mPicker->pickRay(mHandle, static_cast<std::int32_t>(id), from.data(), along.data(), &distance,
                          normal.data()) ||
        distance >= nearest)
      continue;
    nearest = distance;
    first = Hit{id, ahead + distance * kDirectionLength, {normal[0], normal[1], normal[2]}};
  }
  return first;
}

std::vector<std::uint32_t> Scene::idsIn(const std::array<float, 16>& matrix, bool wholeInside) const {
  std::array<float, 24> corners{};
  if (!facetbox::viewVolumeCorners(matrix.data(), corners.data())) return {};
  std::vector<std::uint32_t> ids(64);
  const auto pick = [&] {
    return mPicker->pickFrustum(mHandle, corners.data(), matrix.data(), wholeInside, ids.data(), ids.size());
  };
  std::int64_t count = pick();
  if (count < 0) {
    // Too many: the negative of their number came back.
    ids.resize(static_cast<std::size_t>(-count));
    count = pick();
  }
  ids.resize(static_cast<std::size_t>(count));
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace tool
