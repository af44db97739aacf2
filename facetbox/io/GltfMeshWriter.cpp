#include <facetbox/io/GltfMeshWriter.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include <fmt/format.h>

#include <facetbox/io/CutFaces.h>

namespace facetbox {
namespace {

// The mesh with all faces cut into triangles, and without those of fewer corners; nothing where it is so already.
std::optional<PolyMesh> trianglesOf(const PolyMesh& mesh, Notes& notes) {
  std::optional<PolyMesh> cut = cutFaces(mesh, Unknown::polygons, notes);
  const PolyMesh& faces = cut ? *cut : mesh;
  const auto small = std::count_if(faces.counts.begin(), faces.counts.end(), [](auto n) { return n < 3; });
  if (small == 0) return cut;
  notes.add("faces of fewer than three corners", static_cast<std::size_t>(small));
  PolyMesh kept = {.points = faces.points, .texCoords = faces.texCoords};
  std::size_t corner = 0;
  for (std::size_t face = 0; face < faces.counts.size(); corner += faces.counts[face++]) {
    if (faces.counts[face] < 3) continue;
    kept.counts.push_back(3);
    kept.indices.insert(kept.indices.end(), &faces.indices[corner], &faces.indices[corner] + 3);
    if (!faces.texIndices.empty())
      kept.texIndices.insert(kept.texIndices.end(), &faces.texIndices[corner], &faces.texIndices[corner] + 3);
    if (!faces.labels.empty()) kept.labels.push_back(faces.labels[face]);
  }
  return kept;
}

// What makes triangles one primitive: their material, and whether they have texture coordinates.
using Surface = std::pair<std::uint32_t, bool>;

std::uint32_t materialOf(const Model& model, const PolyMesh& mesh, std::size_t face) {
  if (mesh.labels.empty() || mesh.labels[face] >= model.marks.size()) return kNone;
  const std::uint32_t material = model.marks[mesh.labels[face]].material;
  return material < model.materials.size() ? material : kNone;
}

// The elements of the triangles of each surface, surfaces in the order in which they come up.
std::vector<std::pair<Surface, std::vector<std::uint32_t>>> bySurface(const Model& model, const PolyMesh& triangles,
                                                                      const std::vector<std::uint32_t>& corners) {
  std::vector<std::pair<Surface, std::vector<std::uint32_t>>> lists;
  std::map<Surface, std::size_t> known;
  for (std::size_t t = 0; t < triangles.counts.size(); ++t) {
    const bool isTextured = !triangles.texIndices.empty() && triangles.texIndices[3 * t] != kNone;
    const Surface surface = {materialOf(model, triangles, t), isTextured};
    const auto [place, isNew] = known.try_emplace(surface, lists.size());
    if (isNew) lists.push_back({surface, {}});
    std::vector<std::uint32_t>& list = lists[place->second].second;
    list.insert(list.end(), &corners[3 * t], &corners[3 * t] + 3);
  }
  return lists;
}

// A number as a float that is added to an offset again.
double afterRounding(double value, double offset) {
  return offset == 0 ? static_cast<double>(static_cast<float>(value))
                     : static_cast<double>(static_cast<float>(value - offset)) + offset;
}

// The middle of a range in so few digits that differences to it are exact.
double middleOf(double low, double high) {
  if (low == high) return low;
  const double middle = low / 2 + high / 2;
  int exponent = 0;
  std::frexp(high / 2 - low / 2, &exponent);
  constexpr int kDigits = 3;
  const double step = std::ldexp(1.0, exponent - kDigits);
  const double rounded = std::nearbyint(middle / step) * step;
  return std::isfinite(rounded) ? rounded : middle;
}

// What to subtract from the coordinates of an axis so that floats hold as much as they can of the rest: nothing where
// they hold all. The middle of what is read back is the same, so that another round changes nothing.
double offsetOf(const PolyMesh& triangles, const std::vector<std::uint32_t>& vertices, std::size_t axis) {
  double low = std::numeric_limits<double>::infinity(), high = -low;
  bool isExact = true;
  for (const std::uint32_t vertex : vertices) {
    const double value = triangles.points[3 * std::size_t{vertex} + axis];
    low = std::min(low, value);
    high = std::max(high, value);
    isExact &= static_cast<double>(static_cast<float>(value)) == value;
  }
  double offset = isExact ? 0 : middleOf(low, high);
  constexpr int kMostTries = 8;
  for (int i = 0; offset != 0 && i < kMostTries; ++i) {
    const double next = middleOf(afterRounding(low, offset), afterRounding(high, offset));
    if (next == offset) return offset;
    offset = next;
  }
  return 0;
}

}  // namespace

std::array<double, 3> GltfMeshWriter::addPositions(const PolyMesh& triangles, const GltfElements& elements) {
  const std::vector<std::uint32_t> used(
      elements.vertices().begin(), elements.vertices().begin() + static_cast<std::ptrdiff_t>(elements.usedCount()));
  std::array<double, 3> offset = {};
  for (std::size_t axis = 0; axis < 3; ++axis) offset[axis] = offsetOf(triangles, used, axis);
  std::vector<float> positions;
  positions.reserve(3 * elements.vertices().size());
  for (const std::uint32_t vertex : elements.vertices())
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double value = triangles.points[3 * std::size_t{vertex} + axis];
      const float rest = floatOf(offset[axis] == 0 ? value : value - offset[axis]);
      if (positions.size() < 3 * elements.usedCount()) mCoordinates.add(value, afterRounding(value, offset[axis]));
      positions.push_back(rest);
    }
  mBuffer.addPositions(positions);
  return offset;
}

std::vector<float> GltfMeshWriter::colorsOf(const Object& object, const GltfElements& elements) {
  std::vector<float> colors;
  std::size_t outside = 0;
  for (const std::uint32_t vertex : elements.vertices())
    for (std::size_t i = 0; i < 4; ++i) {
      // A vertex that was made where outlines cross has no color.
      const std::size_t at = 4 * std::size_t{vertex} + i;
      const float value = at < object.colors.size() ? object.colors[at] : 1.0F;
      const float kept = value >= 0 ? std::min(value, 1.0F) : 0.0F;
      outside += kept == value ? 0 : 1;
      colors.push_back(kept);
    }
  mNotes.add("colors below 0 or above 1", outside);
  const auto made = std::count_if(
      elements.vertices().begin(), elements.vertices().begin() + static_cast<std::ptrdiff_t>(elements.usedCount()),
      [&](std::uint32_t vertex) { return 4 * std::size_t{vertex} >= object.colors.size(); });
  mNotes.add("vertices made where outlines cross, which are white", static_cast<std::size_t>(made));
  return colors;
}

std::optional<GltfMeshWriter::Written> GltfMeshWriter::write(const Object& object) {
  const auto cut = trianglesOf(object.mesh, mNotes);
  const PolyMesh& triangles = cut ? *cut : object.mesh;
  if (triangles.counts.empty()) {
    mNotes.add("objects without triangles");
    return std::nullopt;
  }
  const GltfElements elements(triangles, mTexCoords);
  mNotes.add("vertices that no triangle uses", triangles.points.size() / 3 - elements.usedCount());
  Written written;
  const std::size_t positions = mBuffer.accessors().size();
  written.translation = addPositions(triangles, elements);
  const std::string colors =
      object.colors.empty() ? "" : fmt::format(R"(,"COLOR_0":{})", mBuffer.addColors(colorsOf(object, elements)));
  const std::string texCoords = elements.texCoords().empty()
                                    ? ""
                                    : fmt::format(R"(,"TEXCOORD_0":{})", mBuffer.addTexCoords(elements.texCoords()));
  written.mesh = R"({"primitives":[)";
  for (const auto& [surface, corners] : bySurface(mModel, triangles, elements.corners())) {
    const auto [material, isTextured] = surface;
    if (written.mesh.back() != '[') written.mesh += ',';
    written.mesh +=
        fmt::format(R"({{"attributes":{{"POSITION":{}{}{}}},"indices":{}{}}})", positions, colors,
                    isTextured ? texCoords : "", mBuffer.addIndices(corners, elements.vertices().size()),
                    material == kNone ? "" : fmt::format(R"(,"material":{})", mMaterialIndex(material, isTextured)));
  }
  written.mesh += "]}";
  return written;
}

void GltfMeshWriter::noteRounding() {
  mNotes.add(fmt::format("coordinates rounded to floats, by {:.1g} at most", mCoordinates.most), mCoordinates.count);
  mNotes.add(fmt::format("texture coordinates rounded to floats, by {:.1g} at most", mTexCoords.most),
             mTexCoords.count);
}

}  // namespace facetbox
