#include <facetbox/io/LeftOut.h>

#include <algorithm>

#include <fmt/format.h>

namespace facetbox {

void noteMarks(const Model& model, Notes& notes) {
  notes.add("groups", model.groups.size());
  notes.add("kinds of surface", model.semantics.size());
  notes.add("parts of solids", static_cast<std::size_t>(std::ranges::count_if(
                                   model.marks, [](const Mark& mark) { return mark.part != kNone; })));
  if (model.document && model.format) notes.add(fmt::format("what only {} knows", nameOf(*model.format)));
}

void noteObjectNames(const Model& model, Notes& notes) {
  notes.add("names of objects", static_cast<std::size_t>(std::ranges::count_if(
                                    model.objects, [](const Object& object) { return !object.name.empty(); })));
}

void noteMaterials(const Model& model, Notes& notes) { notes.add("materials", model.materials.size()); }

}  // namespace facetbox
