// Any bytes as a CityJSON file: an error, or a model that comes back as it is from what is written of it.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>

using namespace facetbox;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

std::string written(const Model& model) {
  std::string text;
  writeModel(model, Format::cityJson, [&](std::string_view bytes) { text += bytes; });
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Model model;
  try {
    model = parseModel({reinterpret_cast<const char*>(data), size}, Format::cityJson, "input");
  } catch (const ReadError&) {
    return 0;
  }
  for (const Object& object : model.objects)
    for (const Problem& problem : validate(object.mesh)) require(!problem.isFatal);

  const Model back = parseModel(written(model), Format::cityJson, "written");
  require(back.objects == model.objects && back.marks == model.marks && back.semantics == model.semantics &&
          back.materials == model.materials);

  // A file of its own, and one in which a geometry has changed. Both may round coordinates, but lose no face.
  const auto requireFaces = [](const Model& from) {
    const Model copy = parseModel(written(from), Format::cityJson, "written");
    std::size_t next = 0;
    for (const Object& object : from.objects) {
      if (object.mesh.counts.empty()) continue;
      require(next < copy.objects.size() && copy.objects[next].mesh.counts == object.mesh.counts);
      require(copy.objects[next++].mesh.holes == object.mesh.holes);
    }
    require(next == copy.objects.size());
  };
  Model changed = model;
  if (std::vector<double>& points = changed.objects.front().mesh.points; !points.empty()) points.front() += 0.3;
  requireFaces(changed);
  model.document = nullptr;
  requireFaces(model);
  return 0;
}
