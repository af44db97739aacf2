#include <facetbox/io/GltfMesh.h>

#include <algorithm>
#include <bit>
#include <iterator>
#include <limits>

#include <fmt/format.h>

#include <facetbox/io/GltfNames.h>
#include <facetbox/io/HashIndex.h>

namespace facetbox {
namespace {

constexpr std::size_t kMostElements = std::numeric_limits<std::uint32_t>::max();

// Of one primitive while its mesh is read, where a vector of them grows.
constexpr std::size_t kMemoryOfPrimitive = 400;

// Of an object besides its arrays, where a vector of objects grows.
constexpr std::size_t kMemoryOfObject = 4 * sizeof(Object);

enum : std::uint64_t { kTriangles = 4, kStrip, kFan };

// Minus zero is at the place of zero.
std::uint64_t bitsOf(double number) { return std::bit_cast<std::uint64_t>(number + 0.0); }

// Numbers texture coordinates: one pair for all corners of a vertex that have the same.
class TexCoordJoin {
 public:
  TexCoordJoin(std::vector<double>& texCoords, std::size_t count) : mTexCoords(texCoords) {
    mTexCoords.reserve(2 * count);
    mVertices.reserve(count);
    mIndex.reserve(count);
  }

  std::uint32_t add(std::uint32_t vertex, double u, double v) {
    const std::uint64_t words[3] = {vertex, std::bit_cast<std::uint64_t>(u), std::bit_cast<std::uint64_t>(v)};
    const auto isEqual = [&](std::uint32_t pair) {
      return mVertices[pair] == vertex && std::bit_cast<std::uint64_t>(mTexCoords[2 * pair]) == words[1] &&
             std::bit_cast<std::uint64_t>(mTexCoords[2 * std::size_t{pair} + 1]) == words[2];
    };
    const auto next = static_cast<std::uint32_t>(mVertices.size());
    const std::uint32_t pair = mIndex.findOrAdd(hashOf(words, 3), next, isEqual);
    if (pair != next) return pair;
    mTexCoords.insert(mTexCoords.end(), {u, v});
    mVertices.push_back(vertex);
    return pair;
  }

 private:
  std::vector<double>& mTexCoords;
  std::vector<std::uint32_t> mVertices;  // of each pair
  HashIndex mIndex;
};

std::string kindOfAttribute(const std::string& name) {
  if (name == "NORMAL") return "normals";
  if (name == "TANGENT") return "tangents";
  if (name.starts_with("TEXCOORD_")) return "further texture coordinates";
  if (name.starts_with("COLOR_")) return "further colors";
  if (name.starts_with("JOINTS_") || name.starts_with("WEIGHTS_")) return "skin weights";
  return fmt::format("attribute {}", gltfQuoted(name));
}

}  // namespace

GltfMesh::GltfMesh(GltfFile& file, const JsonValue& mesh, Numbered<Mark>& marks, GltfAccessors& accessors,
                   std::map<std::size_t, std::vector<bool>>& touched, Notes notes)
    : mFile(file),
      mMesh(mesh),
      mMarks(marks),
      mAccessors(accessors),
      mTouched(touched),
      mIsNoting(notes == Notes::areTaken) {}

bool GltfMesh::read(bool isMirrored, Object& object) {
  if (mIsNoting) mFile.noteOthers(mMesh, {"primitives"}, "meshes");
  for (auto at = mMesh.at("primitives").begin(); !at.atEnd(); at.next()) openPrimitive(at.value());
  if (mPrimitives.empty()) return false;
  findUses();
  takeMemory();
  readVertices(object.mesh);
  if (mIsNoting) noteAttributes();
  readColors(object.mesh.points.size() / 3, object.colors);
  readFaces(isMirrored, object.mesh);
  mFile.giveBack(mTaken);
  return true;
}

void GltfMesh::note(const char* what, std::size_t count) {
  if (mIsNoting) mFile.context().notes().add(what, count);
}

void GltfMesh::openPrimitive(const JsonValue& value) {
  mFile.context().poll();
  if (mIsNoting) mFile.noteOthers(value, {"attributes", "indices", "material", "mode", "targets"}, "primitives");
  if (const auto targets = value.find("targets"))
    for (auto at = targets->begin(); !at.atEnd(); at.next()) note("morph targets");
  const auto modeValue = value.find("mode");
  const std::uint64_t mode = modeValue ? modeValue->integer(kFan) : kTriangles;
  const JsonValue attributes = value.at("attributes");
  const auto position = attributes.find("POSITION");
  if (mode < kTriangles || !position) {
    note(mode < kTriangles ? "primitives of points or lines" : "primitives without positions");
    return;
  }
  mFile.take(kMemoryOfPrimitive, value);
  mTaken += kMemoryOfPrimitive;
  const std::size_t positions = openPositions(*position);
  const std::size_t count = mPositions[positions].accessor->size();
  Primitive primitive{value, positions, readCorners(value, count, mode)};
  primitive.texCoords = openAttribute(attributes, "TEXCOORD_0", count, {"VEC2"});
  primitive.colors = openAttribute(attributes, "COLOR_0", count, {"VEC4", "VEC3"});
  if (const auto material = value.find("material")) {
    mFile.element("materials", *material);
    primitive.mark.material = static_cast<std::uint32_t>(material->integer(kMostElements));
  }
  mPrimitives.push_back(std::move(primitive));
}

std::size_t GltfMesh::openPositions(const JsonValue& index) {
  const GltfAccessor& accessor = mAccessors.open(index, {"VEC3"});
  const auto number = static_cast<std::size_t>(index.integer(kMostElements));
  const auto [known, isNew] = mPositionsOf.try_emplace(number, mPositions.size());
  if (isNew) mPositions.push_back({&accessor, number, {}, {}});
  return known->second;
}

const GltfAccessor* GltfMesh::openAttribute(const JsonValue& attributes, std::string_view name, std::size_t count,
                                            std::initializer_list<std::string_view> types) {
  const auto index = attributes.find(name);
  if (!index) return nullptr;
  const GltfAccessor& accessor = mAccessors.open(*index, types);
  if (accessor.size() != count)
    index->fail(fmt::format("{} for {} elements, but there are {} positions", name, accessor.size(), count));
  return &accessor;
}

std::vector<std::uint32_t> GltfMesh::readCorners(const JsonValue& primitive, std::size_t vertices, std::uint64_t mode) {
  const auto indexValue = primitive.find("indices");
  const GltfAccessor* const indices = indexValue ? &mAccessors.open(*indexValue, {"SCALAR"}) : nullptr;
  const std::size_t count = indices ? indices->size() : vertices;
  if (count < 3 || (mode == kTriangles && count % 3 != 0))
    primitive.fail(fmt::format("{} corners are no {}", count, mode == kTriangles ? "triangles" : "strip or fan"));
  const auto corner = [&](std::size_t i) {
    const auto element = indices ? indices->readIndex(i) : static_cast<std::uint32_t>(i);
    if (element >= vertices)
      indexValue->fail(fmt::format("index {} is {}, but there are {} vertices, counted from 0", i, element, vertices));
    return element;
  };
  const std::size_t triangles = mode == kTriangles ? count / 3 : count - 2;
  mFile.take(3 * triangles * sizeof(std::uint32_t), primitive);
  mTaken += 3 * triangles * sizeof(std::uint32_t);
  std::vector<std::uint32_t> corners;
  corners.reserve(3 * triangles);
  for (std::size_t t = 0; t < triangles; ++t) {
    mFile.context().poll();
    if (mode == kTriangles)
      corners.insert(corners.end(), {corner(3 * t), corner(3 * t + 1), corner(3 * t + 2)});
    else if (mode == kStrip)  // every other triangle is wound the other way
      corners.insert(corners.end(), {corner(t), corner(t + 1 + t % 2), corner(t + 2 - t % 2)});
    else
      corners.insert(corners.end(), {corner(t + 1), corner(t + 2), corner(0)});
  }
  return corners;
}

void GltfMesh::findUses() {
  std::vector<std::vector<const std::vector<std::uint32_t>*>> lists(mPositions.size());
  for (const Primitive& primitive : mPrimitives) lists[primitive.positions].push_back(&primitive.corners);
  for (std::size_t i = 0; i < mPositions.size(); ++i) {
    Positions& positions = mPositions[i];
    positions.uses.emplace(lists[i]);
    std::vector<bool>& touched = mTouched[positions.index];
    if (touched.empty()) {
      mFile.take(positions.accessor->size() / 8, positions.accessor->value());
      touched.resize(positions.accessor->size());
    }
    for (const std::uint32_t element : positions.uses->elements()) touched[element] = true;
  }
}

std::size_t GltfMesh::memoryOf(const Object& object) {
  const PolyMesh& mesh = object.mesh;
  return (mesh.points.size() + mesh.texCoords.size()) * sizeof(double) + object.colors.size() * sizeof(float) +
         (mesh.counts.size() + mesh.indices.size() + mesh.texIndices.size() + mesh.labels.size()) *
             sizeof(std::uint32_t) +
         kMemoryOfObject;
}

bool GltfMesh::isAnyTextured() const {
  return std::any_of(mPrimitives.begin(), mPrimitives.end(), [](const Primitive& p) { return p.texCoords; });
}

// What the object takes for good; what is needed on the way is in proportion to that.
void GltfMesh::takeMemory() {
  std::size_t corners = 0, vertices = 0;
  for (const Primitive& primitive : mPrimitives) corners += primitive.corners.size();
  for (const Positions& positions : mPositions) vertices += positions.uses->elements().size();
  const bool isTextured = isAnyTextured();
  constexpr std::size_t kPerVertex = 3 * sizeof(double), kPerPair = 2 * sizeof(double), kColor = 4 * sizeof(float);
  // A count and a label per triangle; an index, and one of a pair, per corner.
  mFile.take(corners / 3 * 8 + corners * (isTextured ? 8 : 4) + vertices * (kPerVertex + (isTextured ? kPerPair : 0)) +
                 (mPrimitives.front().colors ? vertices * kColor : 0) + kMemoryOfObject,
             mMesh);
}

void GltfMesh::readVertices(PolyMesh& mesh) {
  std::size_t count = 0;
  for (const Positions& positions : mPositions) count += positions.uses->elements().size();
  HashIndex index;
  index.reserve(count);
  mesh.points.reserve(3 * count);
  for (Positions& positions : mPositions) {
    positions.vertices.reserve(positions.uses->elements().size());
    for (const std::uint32_t element : positions.uses->elements()) {
      mFile.context().poll();
      double point[3];
      positions.accessor->read(element, point);
      const std::uint64_t words[3] = {bitsOf(point[0]), bitsOf(point[1]), bitsOf(point[2])};
      const auto next = static_cast<std::uint32_t>(mesh.points.size() / 3);
      const auto isEqual = [&](std::uint32_t vertex) {
        const double* const p = &mesh.points[3 * std::size_t{vertex}];
        return p[0] == point[0] && p[1] == point[1] && p[2] == point[2];
      };
      positions.vertices.push_back(index.findOrAdd(hashOf(words, 3), next, isEqual));
      if (positions.vertices.back() == next) mesh.points.insert(mesh.points.end(), point, point + 3);
    }
  }
}

void GltfMesh::readFaces(bool isMirrored, PolyMesh& mesh) {
  std::size_t corners = 0, pairs = 0;
  bool isMarked = false;
  const bool isTextured = isAnyTextured();
  for (const Primitive& primitive : mPrimitives) {
    corners += primitive.corners.size();
    isMarked |= primitive.mark.material != kNone;
    if (primitive.texCoords)
      pairs += std::min(primitive.corners.size(), mPositions[primitive.positions].vertices.size());
  }
  mesh.counts.assign(corners / 3, 3);
  mesh.indices.reserve(corners);
  mesh.texIndices.reserve(isTextured ? corners : 0);
  mesh.labels.reserve(isMarked ? corners / 3 : 0);
  TexCoordJoin join(mesh.texCoords, pairs);
  std::vector<std::uint32_t> pairOf;  // by rank
  for (Primitive& primitive : mPrimitives) {
    const Positions& positions = mPositions[primitive.positions];
    if (isMarked) mesh.labels.resize(mesh.labels.size() + primitive.corners.size() / 3, mMarks(primitive.mark));
    pairOf.assign(primitive.texCoords ? positions.vertices.size() : 0, kNone);
    for (std::size_t i = 0; i < primitive.corners.size(); ++i) {
      mFile.context().poll();
      // A mirroring transform turns triangles inside out; this turns them back.
      const std::uint32_t element = primitive.corners[isMirrored ? i / 3 * 3 + 2 - i % 3 : i];
      const std::uint32_t rank = positions.uses->rank(element);
      mesh.indices.push_back(positions.vertices[rank]);
      if (!isTextured) continue;
      if (primitive.texCoords && pairOf[rank] == kNone) {
        double uv[2];
        primitive.texCoords->read(element, uv);
        // v goes down in glTF, and up in a model.
        if (1 - (1 - uv[1]) != uv[1]) note("last digits of texture coordinates next to zero");
        pairOf[rank] = join.add(positions.vertices[rank], uv[0], 1 - uv[1]);
      }
      mesh.texIndices.push_back(primitive.texCoords ? pairOf[rank] : kNone);
    }
    primitive.corners = {};
  }
}

void GltfMesh::readColors(std::size_t vertices, std::vector<float>& colors) {
  std::vector<bool> isColored(vertices);
  std::size_t differing = 0, outside = 0;
  for (const Primitive& primitive : mPrimitives) {
    if (!primitive.colors) continue;
    colors.resize(4 * vertices, 1.0F);  // what has no color of its own is white
    const Positions& positions = mPositions[primitive.positions];
    for (const std::uint32_t element : primitive.corners) {
      mFile.context().poll();
      const std::uint32_t vertex = positions.vertices[positions.uses->rank(element)];
      double read[4] = {0, 0, 0, 1};
      primitive.colors->read(element, read);
      std::array<float, 4> color = {};
      std::transform(std::begin(read), std::end(read), color.begin(),
                     [](double part) { return static_cast<float>(std::clamp(part, 0.0, 1.0)); });
      float* const kept = &colors[4 * std::size_t{vertex}];
      if (!isColored[vertex]) {
        std::copy(color.begin(), color.end(), kept);
        if (std::any_of(std::begin(read), std::end(read), [](double part) { return part < 0 || part > 1; })) ++outside;
      } else if (!std::equal(color.begin(), color.end(), kept)) {
        ++differing;
      }
      isColored[vertex] = true;
    }
  }
  note("colors below 0 or above 1, of which the nearest is kept", outside);
  note("corners with another color than their vertex", differing);
}

void GltfMesh::noteAttributes() {
  std::set<std::pair<std::size_t, std::string>> noted;
  for (const Primitive& primitive : mPrimitives) {
    const JsonValue attributes = primitive.value.at("attributes");
    for (auto at = attributes.begin(); !at.atEnd(); at.next()) {
      const std::string name = at.name().string();
      if (name == "POSITION" || name == "TEXCOORD_0" || name == "COLOR_0") continue;
      if (noted.insert({primitive.positions, name}).second)
        mFile.note(kindOfAttribute(name), mPositions[primitive.positions].uses->elements().size());
    }
  }
}

}  // namespace facetbox
