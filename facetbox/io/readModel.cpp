#include <facetbox/io/readModel.h>

#include <algorithm>

#include <fmt/format.h>

#include <facetbox/io/CityJsonReader.h>
#include <facetbox/io/GltfReader.h>
#include <facetbox/io/ImportedModel.h>
#include <facetbox/io/InputFile.h>
#include <facetbox/io/ObjReader.h>
#include <facetbox/io/OffReader.h>
#include <facetbox/io/PlyReader.h>
#include <facetbox/io/ReadContext.h>
#include <facetbox/io/StlReader.h>

namespace facetbox {
namespace {

Model parse(std::string_view bytes, Format format, ReadContext& context) {
  switch (format) {
    case Format::obj:
      return parseObj(bytes, context);
    case Format::gltf:
    case Format::glb:
      return parseGltf(bytes, context);
    case Format::ply:
      return parsePly(bytes, context);
    case Format::off:
      return parseOff(bytes, context);
    case Format::stl:
      return parseStl(bytes, context);
    case Format::cityJson:
      return parseCityJson(bytes, context);
    default:
      context.fail(fmt::format("{} cannot be read", nameOf(format)));
  }
}

// What holds for models of every format, whatever their readers look at.
Model finished(Model model, ReadContext& context) {
  std::size_t faces = 0;
  for (std::size_t i = 0; i < model.objects.size(); ++i) {
    context.pollNow();
    const Object& object = model.objects[i];
    faces += object.mesh.counts.size();
    const std::vector<Problem> problems = validate(object.mesh, 1);
    if (!problems.empty() && problems.front().isFatal)
      context.fail(fmt::format("object {}{}: {}", i + 1, object.name.empty() ? "" : fmt::format(" ('{}')", object.name),
                               describe(problems.front())));
  }
  if (faces == 0) context.fail("has no faces, so there is nothing to work on");
  model.notes = context.notes().list();
  return model;
}

}  // namespace

Model readModel(const std::filesystem::path& path, const ReadOptions& options) {
  const std::optional<Format> format = options.format ? options.format : formatOf(path);
  ReadContext context(path.string(), path.parent_path(), options);
  if (!format) return finished(importModel(path, context), context);
  util::Buffer<char> bytes = readBytes(path);
  context.whenBytesAreRead([&bytes] { util::Buffer<char>().swap(bytes); });
  Model model = parse({bytes.data(), bytes.size()}, *format, context);
  model.format = format;
  return finished(std::move(model), context);
}

Model parseModel(std::string_view bytes, Format format, const std::string& name, const ReadOptions& options) {
  ReadContext context(name, std::nullopt, options);
  if (bytes.empty()) context.fail("is empty; there is nothing to read");
  Model model = parse(bytes, format, context);
  model.format = format;
  return finished(std::move(model), context);
}

}  // namespace facetbox
