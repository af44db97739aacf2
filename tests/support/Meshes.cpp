#include <tests/support/Meshes.h>

#include <span>
#include <sstream>

#include <facetbox/mesh/Validate.h>
#include <facetbox/triangles/TriangleMeshFactory.h>
#include <tests/support/PolygonFormulas.h>

namespace support {
namespace {

template <class T>
void describeArray(std::ostream& out, const char* name, const T* array, int count) {
  out << name << ':';
  if (!array) out << " null";
  for (const T& value : std::span(array, array ? static_cast<std::size_t>(count) : 0)) out << ' ' << value;
  out << '\n';
}

}  // namespace

Mesh meshOf(const std::vector<Vec3>& points, const Faces& faces, const Indices& holes) {
  std::vector<util::Polygon> records(faces.size());
  for (std::size_t i = 0; i < faces.size(); ++i) records[i].mVertexIndices.assign(faces[i].begin(), faces[i].end());
  for (std::size_t i = 0; i < faces.size(); ++i) records[i].mNormal = normalOf(points, faces[i]);
  Mesh mesh("", points, records);
  mesh.storage().mHoles.append(holes.data(), holes.size());
  return mesh;
}

std::unique_ptr<util::TriangleMesh> triangleMeshOf(std::vector<double> coordinates,
                                                   std::vector<std::uint32_t> indices) {
  util::TriangleMeshArrays arrays;
  arrays.vertexCoordinates = std::move(coordinates);
  arrays.indices = std::move(indices);
  std::unique_ptr<util::TriangleMesh> mesh(util::Triangulator::TriangleMeshFactory().create(std::move(arrays)));
  mesh->buildHierarchy();
  return mesh;
}

Faces facesOf(const Mesh& mesh) {
  const util::PrimitiveList& list = mesh.storage().mFaces;
  Faces faces(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) faces[i].assign(list.corners(i).begin(), list.corners(i).end());
  return faces;
}

Indices holesOf(const Mesh& mesh) {
  const auto& list = mesh.storage().mHoles.list();
  return {list.begin(), list.end()};
}

void expectConsistent(const Mesh& mesh) { EXPECT_EQ(util::findMeshProblem(mesh), ""); }

void warmCache(const Mesh& mesh) { mesh.storage().mConnectivity.edges(mesh.storage().mFaces); }

Indices randomIndices(std::mt19937& random, std::size_t count, std::size_t end) {
  Indices indices(count);
  for (std::uint32_t& index : indices) index = below(random, end);
  return indices;
}

std::vector<Edge> edgesOf(const Indices& corners) {
  std::vector<Edge> edges;
  for (std::size_t i = 0; i < corners.size(); ++i) edges.emplace_back(corners[i], corners[(i + 1) % corners.size()]);
  return edges;
}

Surface surfaceOf(const std::set<std::array<int, 3>>& cubes, double size) {
  Surface surface;
  std::map<std::array<int, 3>, std::uint32_t> numbers;
  for (const auto& cube : cubes)
    for (int axis = 0; axis < 3; ++axis)
      for (const int side : {0, 1}) {
        auto beyond = cube;
        beyond[axis] += 2 * side - 1;
        if (cubes.contains(beyond)) continue;
        Indices& square = surface.mFaces.emplace_back();
        for (const auto& [s, t] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 1}}) {
          auto p = cube;
          p[axis] += side, p[(axis + 1) % 3] += s, p[(axis + 2) % 3] += t;
          square.push_back(numbers.try_emplace(p, numbers.size()).first->second);
          if (square.back() == surface.mPoints.size())
            surface.mPoints.push_back({size * p[0], size * p[1], size * p[2]});
        }
        if (side == 0) std::ranges::reverse(square);
      }
  return surface;
}

Surface gridOf(std::uint32_t width, std::uint32_t height, const std::function<bool(unsigned, unsigned)>& missing) {
  Surface grid;
  for (unsigned y = 0; y <= height; ++y)
    for (unsigned x = 0; x <= width; ++x) {
      grid.mPoints.push_back({1.0 * x, 1.0 * y, 0});
      const std::uint32_t a = y * (width + 1) + x, above = a + width + 1;
      if (x < width && y < height && !missing(x, y)) grid.mFaces.push_back({a, a + 1, above + 1, above});
    }
  return grid;
}

Cleanup::MeshData Record::view() {
  const auto orNull = [](auto& array) { return array.empty() ? nullptr : array.data(); };
  const auto countOf = [](const auto& array) { return static_cast<int>(array.size()); };
  mTexturePointers.clear();
  for (auto& texture : mTextures) mTexturePointers.push_back(texture ? texture->data() : nullptr);
  Cleanup::MeshData data{};
  data.mName = mName ? mName->c_str() : nullptr;
  data.mVertexCoords = orNull(mCoords);
  data.mVCCount = countOf(mCoords);
  data.mIndices = orNull(mIndices);
  data.mIndexCount = countOf(mIndices);
  data.mTexCoords = orNull(mTexCoords);
  data.mTCCount = countOf(mTexCoords);
  data.mTCIndices = orNull(mTexCoordIndices);
  data.mTCIndexCount = countOf(mTexCoordIndices);
  data.mCounts = reinterpret_cast<std::uint32_t*>(orNull(mCounts));
  data.mCountCount = countOf(mCounts);
  data.mTextures = orNull(mTexturePointers);
  data.mTexturesCount = countOf(mTextures);
  data.mTexturesStartFaces = orNull(mStarts);
  data.mTexturesStartFacesCount = countOf(mStarts);
  data.mHoles = orNull(mHoles);
  data.mHolesCount = countOf(mHoles);
  return data;
}

Record recordOf(const std::vector<Vec3>& points, const Faces& faces) {
  Record record;
  for (const Vec3& p : points)
    for (const double c : {p.x, p.y, p.z}) record.mCoords.push_back(static_cast<float>(c));
  for (const Indices& face : faces) {
    record.mIndices.insert(record.mIndices.end(), face.begin(), face.end());
    record.mCounts.push_back(static_cast<std::int32_t>(face.size()));
  }
  return record;
}

std::vector<std::optional<std::string>> texturesOf(const Cleanup::MeshData& data) {
  std::vector<std::optional<std::string>> names;
  for (char* name : arrayOf(data.mTextures, data.mTexturesCount))
    names.push_back(name ? std::optional<std::string>(name) : std::nullopt);
  return names;
}

std::string describe(const Cleanup::MeshData& data) {
  std::ostringstream out;
  out << std::hexfloat << "name: " << (data.mName ? data.mName : "null") << '\n';
  describeArray(out, "coords", data.mVertexCoords, data.mVCCount);
  describeArray(out, "indices", data.mIndices, data.mIndexCount);
  describeArray(out, "texture coords", data.mTexCoords, data.mTCCount);
  describeArray(out, "texture indices", data.mTCIndices, data.mTCIndexCount);
  describeArray(out, "counts", data.mCounts, data.mCountCount);
  for (const auto& name : texturesOf(data)) out << "texture: " << (name ? *name : "null") << '\n';
  describeArray(out, "starts", data.mTexturesStartFaces, data.mTexturesStartFacesCount);
  describeArray(out, "holes", data.mHoles, data.mHolesCount);
  out << "log: " << (data.mLog ? data.mLog : "null") << '\n';
  return std::move(out).str();
}

}  // namespace support
