#include <tools/Frame.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <new>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {
namespace {

// Radius of the ball around the scene, with some room.
constexpr double kRadius = 1.01;

// Length of rays' directions: rays hit faces down to about 1e-6 of the model's size, smaller than any picture shows.
constexpr double kDirectionLength = 1e8;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Box {
  Vector mMin{kInfinity, kInfinity, kInfinity}, mMax{-kInfinity, -kInfinity, -kInfinity};

  template <typename Number>
  void extend(const Number* p) {
    mMin = {std::min<double>(mMin.x, p[0]), std::min<double>(mMin.y, p[1]), std::min<double>(mMin.z, p[2])};
    mMax = {std::max<double>(mMax.x, p[0]), std::max<double>(mMax.y, p[1]), std::max<double>(mMax.z, p[2])};
  }
};

std::string quotedOr(const std::string& name, const std::string& unnamed) { return name.empty() ? unnamed : name; }

std::string objectName(const FacePool& model, std::size_t object) {
  return quotedOr(model.mObjects[object].mName, fmt::format("object {}", object + 1));
}

std::string nameOf(const FacePool& model, Grouping grouping, std::uint32_t number) {
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

}  // namespace

std::array<float, 3> narrowed(const Vector& v) {
  return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

double FloatRay::distanceOf(float distance) const { return mAhead + distance * kDirectionLength; }

Frame::Frame(const FacePool& model) : mModel(model) {
  Box box;
  for (const std::uint32_t vertex : mModel.mIndices) box.extend(mModel.mVertices.data() + std::size_t{3} * vertex);
  mCenter = (box.mMin + box.mMax) * 0.5;
  const double radius = length(box.mMax - mCenter);
  mScale = radius > 0 ? 1 / radius : 1;
  mHalfSize = (box.mMax - mCenter) * mScale;
}

FloatRay Frame::rayOf(const Vector& origin, const Vector& direction) {
  // A ray from far away starts where it reaches the scene, so that rounding moves its start only a little.
  const double ahead = std::max(0.0, -dot(origin, direction) - kRadius);
  return {narrowed(origin + direction * ahead), narrowed(direction * kDirectionLength), ahead};
}

std::vector<SceneEntry> Frame::takeApart(const std::string& name, Grouping grouping, Progress& progress,
                                         const TakeMesh& take) const {
  const FaceSets sets = groupFaces(mModel, grouping);
  MeshMaker maker(mModel, mCenter, mScale);
  std::vector<SceneEntry> entries;
  entries.reserve(sets.size());
  for (std::size_t set = 0; set < sets.size(); ++set) {
    if (set % 1024 == 0) progress.setStage(fmt::format("preparing {}: {} of {}", name, set, sets.size()));
    const std::uint32_t number = sets.mNumbers[set];
    SceneEntry entry{number, nameOf(mModel, grouping, number), {}, {}};
    const util::Mesh mesh = maker.make(sets.faces(set));
    Box box;
    for (std::size_t i = 0; i < maker.coordinates().size(); i += 3) box.extend(maker.coordinates().data() + i);
    entry.mMin = box.mMin;
    entry.mMax = box.mMax;
    try {
      take(entry, mesh, maker.coordinates());
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& error) {
      throw RunError(fmt::format("{}: {} cannot be triangulated: {}", name, entry.mName, error.what()));
    }
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace tool
