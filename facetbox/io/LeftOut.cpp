#include <facetbox/io/LeftOut.h>

#include <algorithm>

#include <fmt/format.h>

namespace facetbox {

namespace {

// Faces whose mark has something.
std::size_t facesWith(std::uint32_t Mark::*member, const Model& model) {
  std::size_t faces = 0;
  for (const Object& object : model.objects)
    faces += static_cast<std::size_t>(std::ranges::count_if(object.mesh.labels, [&](std::uint32_t label) {
      return label != kNone && model.marks[label].*member != kNone;
    }));
  return faces;
}

}  // namespace

void noteGroups(const Model& model, Notes& notes) { notes.add("groups of faces", facesWith(&Mark::group, model)); }

void noteSemantics(const Model& model, Notes& notes) {
  notes.add("semantics of faces", facesWith(&Mark::semantics, model));
}

void noteParts(const Model& model, Notes& notes) {
  notes.add("parts that faces belong to", facesWith(&Mark::part, model));
}

void noteDocument(const Model& model, Notes& notes) {
  if (model.document && model.format) notes.add(fmt::format("what only {} knows", nameOf(*model.format)));
}

void noteObjectNames(const Model& model, Notes& notes) {
  notes.add("names of objects", static_cast<std::size_t>(std::ranges::count_if(
                                    model.objects, [](const Object& object) { return !object.name.empty(); })));
}

void noteMaterials(const Model& model, Notes& notes) { notes.add("materials", model.materials.size()); }

}  // namespace facetbox
