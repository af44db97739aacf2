#include <facetbox/io/OffWriter.h>

#include <algorithm>
#include <array>
#include <cmath>

#include <facetbox/io/JoinedObjects.h>

namespace facetbox {
namespace {

// Whether a color is written as integers up to 255 or with decimal points. Integers must give back the same number, and
// one of them must be above 1: it tells readers what they are.
class ColorForm {
 public:
  template <typename T>
  void take(T value) {
    const long scaled = std::lround(static_cast<double>(value) * 255);
    mIsExact &= static_cast<T>(static_cast<double>(scaled) / 255) == value;
    mIsClear |= scaled > 1;
  }
  bool isInteger() const { return mIsExact && mIsClear; }

 private:
  bool mIsExact = true, mIsClear = false;
};

bool hasWritableColor(const Material& material) {
  return material.color && std::ranges::all_of(*material.color, [](double value) { return value >= 0 && value <= 1; });
}

// An opacity of 1 need not be said.
std::size_t colorSize(const std::array<double, 4>& color) { return color[3] == 1 ? 3 : 4; }

class Writer {
 public:
  Writer(const Model& model, WriteContext& context)
      : mModel(model), mNotes(context.notes()), mOutput(context.output()), mJoined(model, context.notes()) {
    if (mJoined.faceCount() == 0) context.fail("has no face that OFF can hold; nothing is written");
  }

  void write() {
    noteLosses();
    chooseForms();
    if (mJoined.hasTexCoordPerVertex()) mOutput.text("ST");
    if (mJoined.hasColors()) mOutput.text("C");
    mOutput.text("OFF\n");
    mOutput.number(mJoined.vertexCount());
    mOutput.letter(' ');
    mOutput.number(mJoined.faceCount());
    mOutput.text(" 0\n");
    for (const JoinedObjects::Part& part : mJoined.parts()) writeVertices(part);
    for (const JoinedObjects::Part& part : mJoined.parts()) writeFaces(part);
  }

 private:
  void noteLosses() {
    std::size_t pairs = 0;
    if (mJoined.hasTexCoords() && !mJoined.hasTexCoordPerVertex())
      for (const JoinedObjects::Part& part : mJoined.parts()) pairs += part.mesh->texCoords.size() / 2;
    mNotes.add("texture coordinates: not every vertex has one pair", pairs);
    mNotes.add("materials, but for their colors",
               static_cast<std::size_t>(std::ranges::count_if(mModel.materials, [](const Material& material) {
                 return !hasWritableColor(material) || !material.name.empty() || !material.texture.empty() ||
                        !material.definition.empty();
               })));
  }

  void chooseForms() {
    if (mJoined.hasColors())
      for (const JoinedObjects::Part& part : mJoined.parts())
        for (const float value : *part.colors) mVertexForm.take(value);
    for (const JoinedObjects::Part& part : mJoined.parts())
      for (std::size_t face = 0; face < part.mesh->labels.size(); ++face) {
        const Material* const material = materialOf(mModel, *part.mesh, face);
        if (!material || !hasWritableColor(*material)) continue;
        for (std::size_t i = 0; i < colorSize(*material->color); ++i) mFaceForm.take((*material->color)[i]);
      }
  }

  template <typename T>
  void writeComponent(T value, const ColorForm& form) {
    mOutput.letter(' ');
    if (form.isInteger()) return mOutput.number(std::lround(static_cast<double>(value) * 255));
    mOutput.number(value);
    if (value == 0 || value == 1) mOutput.text(".0");
  }

  void writeVertices(const JoinedObjects::Part& part) {
    const bool hasPairs = mJoined.hasTexCoordPerVertex();
    const PolyMesh& mesh = *part.mesh;
    for (std::size_t vertex = 0; vertex < mesh.points.size() / 3; ++vertex) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        if (axis > 0) mOutput.letter(' ');
        mOutput.number(mesh.points[3 * vertex + axis]);
      }
      for (std::size_t i = 0; mJoined.hasColors() && i < 4; ++i)
        writeComponent((*part.colors)[4 * vertex + i], mVertexForm);
      for (std::size_t i = 0; hasPairs && i < 2; ++i) {
        mOutput.letter(' ');
        mOutput.number(mesh.texCoords[2 * std::size_t{part.pairOfVertex[vertex]} + i]);
      }
      mOutput.letter('\n');
    }
  }

  void writeFaces(const JoinedObjects::Part& part) {
    const PolyMesh& mesh = *part.mesh;
    std::size_t corner = 0;
    for (std::size_t face = 0; face < mesh.counts.size(); ++face) {
      if (mesh.counts[face] == 0) continue;
      mOutput.number(mesh.counts[face]);
      for (const std::size_t end = corner + mesh.counts[face]; corner < end; ++corner) {
        mOutput.letter(' ');
        mOutput.number(part.firstVertex + mesh.indices[corner]);
      }
      const Material* const material = materialOf(mModel, mesh, face);
      if (material && hasWritableColor(*material))
        for (std::size_t i = 0; i < colorSize(*material->color); ++i) writeComponent((*material->color)[i], mFaceForm);
      mOutput.letter('\n');
    }
  }

  const Model& mModel;
  Notes& mNotes;
  Output& mOutput;
  const JoinedObjects mJoined;
  ColorForm mVertexForm, mFaceForm;
};

}  // namespace

void writeOff(const Model& model, WriteContext& context) { Writer(model, context).write(); }

}  // namespace facetbox
