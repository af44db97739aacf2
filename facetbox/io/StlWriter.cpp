#include <facetbox/io/StlWriter.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <facetbox/io/CutFaces.h>
#include <facetbox/io/LeftOut.h>
#include <facetbox/io/LineNames.h>

namespace facetbox {
namespace {

using Triple = std::array<double, 3>;

// Of the length 1, or zeros for a triangle without area.
Triple normalOf(const std::array<Triple, 3>& corners) {
  Triple a{}, b{};
  for (std::size_t i = 0; i < 3; ++i) {
    a[i] = corners[1][i] - corners[0][i];
    b[i] = corners[2][i] - corners[0][i];
  }
  const Triple n = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
  const double length = std::hypot(n[0], n[1], n[2]);
  if (!(length > 0 && std::isfinite(length))) return {};
  return {n[0] / length, n[1] / length, n[2] / length};
}

class Writer {
 public:
  Writer(const Model& model, WriteContext& context)
      : mModel(model), mContext(context), mNotes(context.notes()), mOutput(context.output()) {}

  void write() {
    for (const Object& object : mModel.objects) prepare(object);
    if (mTriangleCount == 0) mContext.fail("has no face that STL can hold; nothing is written");
    noteGroups(mModel, mNotes);
    noteSemantics(mModel, mNotes);
    noteParts(mModel, mNotes);
    noteDocument(mModel, mNotes);
    noteMaterials(mModel, mNotes);
    if (mContext.isText()) {
      for (std::size_t i = 0; i < mMeshes.size(); ++i) writeText(mModel.objects[i].name, mesh(i));
    } else {
      noteObjectNames(mModel, mNotes);
      if (mModel.objects.size() > 1) mNotes.add("limits between objects", mModel.objects.size());
      writeBytes();
    }
  }

 private:
  const PolyMesh& mesh(std::size_t object) const {
    return mMeshes[object] ? *mMeshes[object] : mModel.objects[object].mesh;
  }

  void prepare(const Object& object) {
    mMeshes.push_back(cutFaces(object.mesh, Unknown::polygons, mNotes));
    const PolyMesh& mesh = mMeshes.back() ? *mMeshes.back() : object.mesh;
    const auto triangles = static_cast<std::uint64_t>(std::ranges::count(mesh.counts, 3U));
    mTriangleCount += triangles;
    mNotes.add("faces with fewer than three corners", mesh.counts.size() - triangles);
    mNotes.add("colors of vertices", object.colors.size() / 4);
    mNotes.add("texture coordinates", object.mesh.texCoords.size() / 2);
    checkVertices(mesh);
  }

  void checkVertices(const PolyMesh& mesh) {
    std::vector<bool> isUsed(mesh.points.size() / 3);
    forEachTriangle(mesh, [&](const std::uint32_t* corners) {
      for (int c = 0; c < 3; ++c) isUsed[corners[c]] = true;
    });
    std::size_t rounded = 0;
    for (std::size_t i = 0; i < mesh.points.size() && !mContext.isText(); ++i) {
      if (!isUsed[i / 3]) continue;
      if (std::abs(mesh.points[i]) > static_cast<double>(std::numeric_limits<float>::max()))
        mContext.fail(fmt::format("the coordinate {} is too large for STL in bytes", mesh.points[i]));
      if (static_cast<double>(static_cast<float>(mesh.points[i])) != mesh.points[i]) ++rounded;
    }
    mNotes.add("coordinates that are rounded to floats", rounded);
    mNotes.add("vertices that no triangle uses", static_cast<std::size_t>(std::ranges::count(isUsed, false)));
  }

  template <typename F>
  static void forEachTriangle(const PolyMesh& mesh, F&& f) {
    std::size_t corner = 0;
    for (const std::uint32_t count : mesh.counts) {
      if (count == 3) f(&mesh.indices[corner]);
      corner += count;
    }
  }

  static Triple position(const PolyMesh& mesh, std::uint32_t vertex) {
    const double* const p = &mesh.points[3 * std::size_t{vertex}];
    return {p[0], p[1], p[2]};
  }

  // A line end would end the name; blanks around it are not read.
  std::string writableName(const std::string& name) {
    LineNames names(LineNames::Backslash::isPlain);
    std::string fitted = names.fitted(name);
    mNotes.add("names of objects, changed to fit into a line", names.changed());
    return fitted;
  }

  void writeText(const std::string& objectName, const PolyMesh& mesh) {
    const std::string name = writableName(objectName);
    mOutput.text("solid ");
    mOutput.text(name);
    forEachTriangle(mesh, [&](const std::uint32_t* vertices) {
      const std::array<Triple, 3> corners = {position(mesh, vertices[0]), position(mesh, vertices[1]),
                                             position(mesh, vertices[2])};
      mOutput.text("\nfacet normal");
      writeNumbers<float>(normalOf(corners));
      mOutput.text("\n outer loop\n");
      for (const Triple& corner : corners) {
        mOutput.text("  vertex");
        writeNumbers<double>(corner);
        mOutput.letter('\n');
      }
      mOutput.text(" endloop\nendfacet");
    });
    mOutput.text("\nendsolid ");
    mOutput.text(name);
    mOutput.letter('\n');
  }

  template <typename T>
  void writeNumbers(const Triple& values) {
    for (const double value : values) {
      mOutput.letter(' ');
      mOutput.number(static_cast<T>(value));
    }
  }

  void writeBytes() {
    if (mTriangleCount > std::numeric_limits<std::uint32_t>::max())
      mContext.fail(fmt::format("{} triangles are too many for STL", mTriangleCount));
    std::string header = "STL in bytes";  // must not begin with "solid"
    header.resize(80, '\0');
    mOutput.text(header);
    writeLittle(static_cast<std::uint32_t>(mTriangleCount));
    for (std::size_t i = 0; i < mMeshes.size(); ++i)
      forEachTriangle(mesh(i), [&](const std::uint32_t* vertices) { writeFacet(mesh(i), vertices); });
  }

  void writeFacet(const PolyMesh& mesh, const std::uint32_t* vertices) {
    std::array<Triple, 3> corners{};
    for (std::size_t c = 0; c < 3; ++c) {
      corners[c] = position(mesh, vertices[c]);
      for (double& value : corners[c]) value = static_cast<double>(static_cast<float>(value));
    }
    for (const double value : normalOf(corners)) writeLittle(static_cast<float>(value));
    for (const Triple& corner : corners)
      for (const double value : corner) writeLittle(static_cast<float>(value));
    writeLittle(std::uint16_t{0});
  }

  template <typename T>
  void writeLittle(T value) {
    auto bytes = std::bit_cast<std::array<char, sizeof(T)>>(value);
    if constexpr (std::endian::native == std::endian::big) std::ranges::reverse(bytes);
    mOutput.raw(bytes);
  }

  const Model& mModel;
  WriteContext& mContext;
  Notes& mNotes;
  Output& mOutput;
  std::vector<std::optional<PolyMesh>> mMeshes;  // nothing where the object's own will do
  std::uint64_t mTriangleCount = 0;
};

}  // namespace

void writeStl(const Model& model, WriteContext& context) { Writer(model, context).write(); }

}  // namespace facetbox
