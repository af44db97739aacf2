#include <facetbox/io/ObjWriter.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <facetbox/io/FileError.h>
#include <facetbox/io/LeftOut.h>
#include <facetbox/io/LineNames.h>
#include <facetbox/io/MaterialLibrary.h>

namespace facetbox {
namespace {

constexpr std::string_view kHolesTag = "facetbox:holes";

// Vertices that objects share by their numbers in the file, once.
class SharedVertices {
 public:
  struct Row {
    std::uint32_t fileVertex, object, vertex;
    bool isUsed;  // by a face
  };

  /// Without rows where objects do not tell, or tell what cannot be.
  explicit SharedVertices(const std::vector<Object>& objects) {
    for (std::uint32_t i = 0; i < objects.size(); ++i) {
      const std::size_t count = objects[i].mesh.points.size() / 3;
      if (objects[i].fileVertices.size() != count) {
        mRows.clear();
        return;
      }
      std::vector<bool> isUsed(count);
      for (const std::uint32_t index : objects[i].mesh.indices) isUsed[index] = true;
      for (std::uint32_t vertex = 0; vertex < count; ++vertex)
        mRows.push_back({objects[i].fileVertices[vertex], i, vertex, isUsed[vertex]});
    }
    std::stable_sort(mRows.begin(), mRows.end(),
                     [](const Row& a, const Row& b) { return a.fileVertex < b.fileVertex; });
    std::size_t kept = 0;
    for (const Row& row : mRows) {
      const bool isNew = kept == 0 || mRows[kept - 1].fileVertex != row.fileVertex;
      if (!isNew && !areEqual(objects, mRows[kept - 1], row)) {
        mRows.clear();
        return;
      }
      if (isNew)
        mRows[kept++] = row;
      else
        mRows[kept - 1].isUsed = mRows[kept - 1].isUsed || row.isUsed;
    }
    mRows.resize(kept);
  }

  const std::vector<Row>& rows() const { return mRows; }

  std::uint32_t numberOf(std::uint32_t fileVertex) const {
    const auto row = std::lower_bound(mRows.begin(), mRows.end(), fileVertex,
                                      [](const Row& r, std::uint32_t wanted) { return r.fileVertex < wanted; });
    return static_cast<std::uint32_t>(row - mRows.begin());
  }

 private:
  static bool areEqual(const std::vector<Object>& objects, const Row& a, const Row& b) {
    const auto equal = [&](const auto& listOf, std::size_t width) {
      const auto &p = listOf(objects[a.object]), &q = listOf(objects[b.object]);
      if (p.empty() || q.empty()) return p.empty() == q.empty();
      return std::memcmp(&p[width * a.vertex], &q[width * b.vertex], width * sizeof p[0]) == 0;
    };
    return equal(
               [](const Object& o) -> const auto& { return o.mesh.points; }, 3) &&
           equal(
               [](const Object& o) -> const auto& { return o.colors; }, 4);
  }

  std::vector<Row> mRows;
};

class Writer {
 public:
  Writer(const Model& model, WriteContext& context)
      : mModel(model), mContext(context), mOutput(context.output()), mShared(model.objects) {}

  void write() {
    nameAll();
    writeLibrary();
    for (const Object& object : mModel.objects) writeObject(object);
    writeHoles();
    Notes& notes = mContext.notes();
    noteSemantics(mModel, notes);
    noteParts(mModel, notes);
    if (mModel.format != Format::obj) noteDocument(mModel, notes);
    notes.add("names that were changed, to fit into a line or to differ",
              mLineNames.changed() + mMaterials.changed() + mGroups.changed());
  }

 private:
  // What the words of a line can hold. Groups of no name, or of the name for none, need another.
  void nameAll() {
    std::map<std::string, std::size_t> firstOf;  // of a name
    for (std::size_t i = 0; i < mModel.materials.size(); ++i) {
      const Material& material = mModel.materials[i];
      const std::size_t first = firstOf.try_emplace(material.name, i).first->second;
      mIsWritten.push_back(first == i || !(material == mModel.materials[first]));
      mMaterialNames.push_back(mIsWritten[i] ? mMaterials.distinct(material.name, "material") : mMaterialNames[first]);
    }
    mGroups.distinct("default", "default");
    for (const std::string& group : mModel.groups) mGroupNames.push_back(mGroups.distinct(group, "group"));
  }

  void line(std::string_view keyword, std::string_view name) {
    mOutput.text(keyword);
    if (!name.empty()) {
      mOutput.letter(' ');
      mOutput.text(name);
    }
    mOutput.letter('\n');
  }

  // Names of materials alone need no library.
  void writeLibrary() {
    const auto isKnown = [](const Material& m) { return m.color || !m.texture.empty() || !m.definition.empty(); };
    const auto known =
        static_cast<std::size_t>(std::count_if(mModel.materials.begin(), mModel.materials.end(), isKnown));
    if (known == 0) return;
    const bool isKept = mModel.format == Format::obj;
    if (!isKept)
      mContext.notes().add(
          "materials of which only name, color and texture are kept",
          static_cast<std::size_t>(std::count_if(mModel.materials.begin(), mModel.materials.end(),
                                                 [](const Material& m) { return !m.definition.empty(); })));
    std::string text;
    {
      const Output::Sink sink = [&text](std::string_view bytes) { text.append(bytes); };
      Output output(sink);
      for (std::size_t i = 0; i < mModel.materials.size(); ++i) {
        Material material = mModel.materials[i];
        if (!isKnown(material) || !mIsWritten[i]) continue;
        material.name = mMaterialNames[i];
        material.texture = mLineNames.fitted(material.texture);
        if (material.texture.starts_with('-')) material.texture.insert(0, "./");
        writeMaterial(material, isKept, output);
      }
      output.flush();
    }
    const std::string name = LineNames(LineNames::Backslash::continues).fitted(mContext.stem()) + ".mtl";
    if (mContext.writeBeside(name, text))
      line("mtllib", name);
    else
      mContext.notes().add("definitions of materials (they need a file of their own)", known);
  }

  void numbers(const double* values, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      mOutput.letter(' ');
      mOutput.number(values[i]);
    }
  }

  void writeVertex(const Object& object, std::size_t vertex) {
    mOutput.letter('v');
    numbers(&object.mesh.points[vertex * 3], 3);
    // Opacity is a fourth number, which few others know.
    const std::size_t numbersOfColor = object.colors.empty() ? 0 : object.colors[vertex * 4 + 3] == 1 ? 3 : 4;
    for (std::size_t i = 0; i < numbersOfColor; ++i) {
      mOutput.letter(' ');
      mOutput.number(object.colors[vertex * 4 + i]);
    }
    mOutput.letter('\n');
  }

  void writeObject(const Object& object) {
    const PolyMesh& mesh = object.mesh;
    if (mModel.objects.size() > 1 || !object.name.empty()) line("o", mLineNames.fitted(object.name));
    numberVertices(object);
    for (std::size_t i = 0; i < mesh.texCoords.size(); i += 2) {
      mOutput.text("vt");
      numbers(&mesh.texCoords[i], 2);
      mOutput.letter('\n');
    }
    std::size_t corner = 0;
    for (std::size_t face = 0; face < mesh.counts.size(); ++face) {
      const std::size_t end = corner + mesh.counts[face];
      if (corner == end)
        throw WriteError(
            fmt::format("face {} of object {} has no corners; remove it", face + 1, mFirstFaces.size() + 1));
      const std::uint32_t label = mesh.labels.empty() ? kNone : mesh.labels[face];
      writeMark(label == kNone ? Mark{} : mModel.marks[label]);
      writeFace(mesh, corner, end);
      corner = end;
    }
    mFirstFaces.push_back(mFirstFace);
    mFirstVertex += mesh.points.size() / 3;
    mFirstPair += mesh.texCoords.size() / 2;
    mFirstFace += mesh.counts.size();
  }

  // Shared vertices stand in the order of the file. One that no face uses belongs to the object in which it stands.
  void writeShared() {
    const std::vector<SharedVertices::Row>& rows = mShared.rows();
    const std::size_t object = mFirstFaces.size();
    const bool isLast = object + 1 == mModel.objects.size();
    for (; mNextRow < rows.size() && (isLast || rows[mNextRow].isUsed || rows[mNextRow].object <= object); ++mNextRow)
      writeVertex(mModel.objects[rows[mNextRow].object], rows[mNextRow].vertex);
  }

  // Writes the object's vertices, and those that objects share as far as they may stand here.
  void numberVertices(const Object& object) {
    writeShared();
    mNumbers.resize(object.mesh.points.size() / 3);
    for (std::uint32_t vertex = 0; vertex < mNumbers.size(); ++vertex) {
      const bool isShared = !mShared.rows().empty();
      mNumbers[vertex] = isShared ? mShared.numberOf(object.fileVertices[vertex]) : mFirstVertex + vertex;
      if (!isShared) writeVertex(object, vertex);
    }
  }

  void writeMark(const Mark& mark) {
    if (mark.group != mMark.group) line("g", mark.group == kNone ? "default" : mGroupNames[mark.group]);
    if (mark.material != mMark.material) line("usemtl", mark.material == kNone ? "" : mMaterialNames[mark.material]);
    mMark = mark;
  }

  void writeFace(const PolyMesh& mesh, std::size_t corner, std::size_t end) {
    mOutput.letter('f');
    for (; corner < end; ++corner) {
      mOutput.letter(' ');
      mOutput.number(mNumbers[mesh.indices[corner]] + 1);
      if (mesh.texIndices.empty() || mesh.texIndices[corner] == kNone) continue;
      mOutput.letter('/');
      mOutput.number(mFirstPair + mesh.texIndices[corner] + 1);
    }
    mOutput.letter('\n');
  }

  void writeHoles() {
    for (std::size_t i = 0; i < mModel.objects.size(); ++i) {
      bool atGroupStart = true;
      for (const std::uint32_t entry : mModel.objects[i].mesh.holes) {
        if (atGroupStart) {
          mOutput.text("# ");
          mOutput.text(kHolesTag);
        }
        atGroupStart = entry == kNone;
        mOutput.letter(atGroupStart ? '\n' : ' ');
        if (!atGroupStart) mOutput.number(mFirstFaces[i] + entry + 1);
      }
    }
  }

  const Model& mModel;
  WriteContext& mContext;
  Output& mOutput;
  const SharedVertices mShared;
  std::size_t mFirstVertex = 0, mFirstPair = 0, mFirstFace = 0;  // of the object that is written
  std::vector<std::size_t> mNumbers;                             // of its vertices
  std::size_t mNextRow = 0;                                      // of the shared vertices
  std::vector<std::size_t> mFirstFaces;                          // per object
  Mark mMark;
  LineNames mLineNames{LineNames::Backslash::continues}, mMaterials = mLineNames, mGroups = mLineNames;
  std::vector<std::string> mMaterialNames, mGroupNames;
  std::vector<bool> mIsWritten;  // per material; not those that repeat another
};

}  // namespace

void writeObj(const Model& model, WriteContext& context) { Writer(model, context).write(); }

}  // namespace facetbox
