#include <facetbox/io/GltfNodes.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

#include <fmt/format.h>

namespace facetbox {
namespace {

constexpr std::uint32_t kNoParent = 0xFFFFFFFFu;

// The parent of each node. There are fewer than 2^32 nodes: the text has fewer bytes.
std::vector<std::uint32_t> findParents(const GltfFile& file) {
  const std::size_t count = file.count("nodes");
  std::vector<std::uint32_t> parents(count, kNoParent);
  for (std::size_t node = 0; node < count; ++node) {
    const auto children = file.element("nodes", node).find("children");
    if (!children) continue;
    for (auto at = children->begin(); !at.atEnd(); at.next()) {
      file.element("nodes", at.value());
      const auto child = static_cast<std::size_t>(at.value().integer(count));
      if (parents[child] != kNoParent)
        at.value().fail(fmt::format("node {} has two parents: nodes {} and {}", child, parents[child], node));
      parents[child] = static_cast<std::uint32_t>(node);
    }
  }
  return parents;
}

void requireNoCycle(const GltfFile& file, const std::vector<std::uint32_t>& parents) {
  // The node from which a node was first come across; its own number means that the walk ends well.
  std::vector<std::uint32_t> seenFrom(parents.size(), kNoParent);
  for (std::uint32_t start = 0; start < parents.size(); ++start)
    for (std::uint32_t node = start; node != kNoParent; node = parents[node]) {
      if (seenFrom[node] == start) file.element("nodes", node).fail(fmt::format("node {} is below itself", node));
      if (seenFrom[node] != kNoParent) break;
      seenFrom[node] = start;
    }
}

template <std::size_t N>
std::optional<std::array<double, N>> findNumbers(const JsonValue& node, const char* name) {
  const auto list = node.find(name);
  if (!list) return std::nullopt;
  std::array<double, N> numbers = {};
  std::size_t count = 0;
  for (auto at = list->begin(); !at.atEnd(); at.next(), ++count)
    if (count < N) numbers[count] = at.value().number();
  if (count != N) list->fail(fmt::format("'{}' has {} numbers, expected {}", name, count, N));
  return numbers;
}

GltfTransform fromMatrix(const JsonValue& node, const std::array<double, 16>& columns) {
  if (columns[3] != 0 || columns[7] != 0 || columns[11] != 0 || columns[15] != 1)
    node.at("matrix").fail("the last row of the matrix is not 0 0 0 1");
  GltfTransform transform;
  for (std::size_t row = 0; row < 3; ++row)
    for (std::size_t column = 0; column < 4; ++column) transform.m[4 * row + column] = columns[4 * column + row];
  return transform;
}

// First the scale, then the rotation, then the translation.
GltfTransform fromParts(GltfFile const& file, const JsonValue& node) {
  GltfTransform transform;
  auto& m = transform.m;
  if (const auto q = findNumbers<4>(node, "rotation")) {
    const auto [x, y, z, w] = *q;
    const double lengthSq = x * x + y * y + z * z + w * w;
    if (!(lengthSq > 0) || !std::isfinite(lengthSq)) node.at("rotation").fail("this is no rotation");
    constexpr double kRoundingOfFloats = 1e-5;
    if (std::abs(lengthSq - 1) > kRoundingOfFloats) file.context().notes().add("lengths of rotations that are not one");
    const double s = 2 / lengthSq;
    m = {1 - s * (y * y + z * z), s * (x * y - z * w),     s * (x * z + y * w),     0,
         s * (x * y + z * w),     1 - s * (x * x + z * z), s * (y * z - x * w),     0,
         s * (x * z - y * w),     s * (y * z + x * w),     1 - s * (x * x + y * y), 0};
  }
  const auto scale = findNumbers<3>(node, "scale"), translation = findNumbers<3>(node, "translation");
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; scale && column < 3; ++column) m[4 * row + column] *= (*scale)[column];
    if (translation) m[4 * row + 3] = (*translation)[row];
  }
  return transform;
}

std::optional<GltfTransform> transformOf(const GltfFile& file, const JsonValue& node) {
  const bool hasParts = node.find("rotation") || node.find("scale") || node.find("translation");
  const auto matrix = findNumbers<16>(node, "matrix");
  if (matrix && hasParts) node.fail("a node has both a matrix and a translation, rotation or scale");
  if (matrix) return fromMatrix(node, *matrix);
  if (hasParts) return fromParts(file, node);
  return std::nullopt;
}

// The nodes at the top of what is shown: those of the scene or, where there are no scenes, all without a parent.
std::vector<std::uint32_t> findRoots(const GltfFile& file, const std::vector<std::uint32_t>& parents) {
  std::vector<std::uint32_t> roots;
  const auto chosen = file.root().find("scene");
  if (!chosen && file.count("scenes") == 0) {
    roots.reserve(static_cast<std::size_t>(std::count(parents.begin(), parents.end(), kNoParent)));
    for (std::uint32_t node = 0; node < parents.size(); ++node)
      if (parents[node] == kNoParent) roots.push_back(node);
    return roots;
  }
  const JsonValue scene = chosen ? file.element("scenes", *chosen) : file.element("scenes", 0);
  const auto nodes = scene.find("nodes");
  if (!nodes) return roots;
  std::vector<bool> isListed(parents.size());
  for (auto at = nodes->begin(); !at.atEnd(); at.next()) {
    file.element("nodes", at.value());
    const auto root = static_cast<std::uint32_t>(at.value().integer(parents.size()));
    if (parents[root] != kNoParent)
      at.value().fail(fmt::format("node {} is in the scene and below node {}", root, parents[root]));
    if (isListed[root]) at.value().fail(fmt::format("node {} is in the scene twice", root));
    isListed[root] = true;
    roots.push_back(root);
  }
  return roots;
}

// Goes down without recursion: chains of nodes may be as long as they like.
class Walk {
 public:
  using Visit = std::function<void(std::size_t, const JsonValue&, const GltfTransform&)>;

  Walk(const GltfFile& file, const Visit& visit) : mFile(file), mVisit(visit), mTransforms(1) {}

  void from(std::size_t root) {
    enter(root);
    while (!mLevels.empty()) {
      Level& level = mLevels.back();
      if (level.children && !level.children->atEnd()) {
        const JsonValue child = level.children->value();
        level.children->next();
        enter(static_cast<std::size_t>(child.integer(mFile.count("nodes"))));
      } else {
        if (level.isPlaced) mTransforms.pop_back();
        mLevels.pop_back();
      }
    }
  }

  std::size_t visited() const { return mVisited; }

 private:
  struct Level {
    std::optional<JsonValue::Iterator> children;
    bool isPlaced;
  };

  void enter(std::size_t index) {
    const JsonValue node = mFile.element("nodes", index);
    const auto transform = transformOf(mFile, node);
    if (transform) mTransforms.push_back(mTransforms.back().after(*transform));
    ++mVisited;
    mVisit(index, node, mTransforms.back());
    const auto children = node.find("children");
    mLevels.push_back({children ? std::optional(children->begin()) : std::nullopt, transform.has_value()});
  }

  const GltfFile& mFile;
  const Visit& mVisit;
  std::vector<GltfTransform> mTransforms;
  std::vector<Level> mLevels;
  std::size_t mVisited = 0;
};

}  // namespace

void GltfTransform::apply(double* point) const {
  const double x = point[0], y = point[1], z = point[2];
  for (std::size_t row = 0; row < 3; ++row) {
    const double* const r = &m[4 * row];
    const bool isKept = r[row] == 1 && r[(row + 1) % 3] == 0 && r[(row + 2) % 3] == 0;
    const double turned = isKept ? point[row] : r[0] * x + r[1] * y + r[2] * z;
    point[row] = r[3] == 0 ? turned : turned + r[3];
  }
}

bool GltfTransform::isMirroring() const {
  return m[0] * (m[5] * m[10] - m[6] * m[9]) - m[1] * (m[4] * m[10] - m[6] * m[8]) +
             m[2] * (m[4] * m[9] - m[5] * m[8]) <
         0;
}

GltfTransform GltfTransform::after(const GltfTransform& inner) const {
  GltfTransform both;
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 4; ++column)
      both.m[4 * row + column] =
          m[4 * row] * inner.m[column] + m[4 * row + 1] * inner.m[4 + column] + m[4 * row + 2] * inner.m[8 + column];
    both.m[4 * row + 3] += m[4 * row + 3];
  }
  return both;
}

void visitNodes(const GltfFile& file,
                const std::function<void(std::size_t, const JsonValue&, const GltfTransform&)>& visit) {
  const std::vector<std::uint32_t> parents = findParents(file);
  requireNoCycle(file, parents);
  Walk walk(file, visit);
  for (const std::uint32_t root : findRoots(file, parents)) walk.from(root);
  file.context().notes().add("nodes outside of the scene", parents.size() - walk.visited());
}

}  // namespace facetbox
