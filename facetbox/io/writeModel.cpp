#include <facetbox/io/writeModel.h>

#include <fmt/format.h>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/CityJsonWriter.h>
#include <facetbox/io/GltfWriter.h>
#include <facetbox/io/ObjWriter.h>
#include <facetbox/io/OffWriter.h>
#include <facetbox/io/OutputFile.h>
#include <facetbox/io/PlyWriter.h>
#include <facetbox/io/StlWriter.h>
#include <facetbox/io/WriteContext.h>
#include <facetbox/io/files.h>

namespace facetbox {
namespace {

bool isIndex(std::uint32_t index, std::size_t size) { return index == kNone || index < size; }

// All that writers rely on.
void requireValid(const Model& model) {
  for (std::size_t i = 0; i < model.marks.size(); ++i) {
    const Mark& mark = model.marks[i];
    if (!isIndex(mark.material, model.materials.size()) || !isIndex(mark.group, model.groups.size()) ||
        !isIndex(mark.semantics, model.semantics.size()))
      throw WriteError(fmt::format("mark {} names a material, group or kind of surface that does not exist", i));
  }
  for (std::size_t i = 0; i < model.objects.size(); ++i) {
    const Object& object = model.objects[i];
    std::vector<Problem> problems = validate(object.mesh);
    if (!problems.empty() && problems.front().isFatal) throw InvalidMesh(std::move(problems));
    const std::size_t vertices = object.mesh.points.size() / 3;
    if (!object.colors.empty() && object.colors.size() != 4 * vertices)
      throw WriteError(fmt::format("object {} has {} vertices, but {} numbers of colors; there must be four per vertex",
                                   i, vertices, object.colors.size()));
    for (std::size_t face = 0; face < object.mesh.labels.size(); ++face) {
      if (!isIndex(object.mesh.labels[face], model.marks.size()))
        throw WriteError(fmt::format("face {} of object {} has label {}, but there are only {} marks", face, i,
                                     object.mesh.labels[face], model.marks.size()));
    }
  }
}

void write(const Model& model, Format format, WriteContext& context) {
  switch (format) {
    case Format::obj:
      writeObj(model, context);
      break;
    case Format::ply:
      writePly(model, context);
      break;
    case Format::off:
      writeOff(model, context);
      break;
    case Format::stl:
      writeStl(model, context);
      break;
    case Format::gltf:
    case Format::glb:
      writeGltf(model, format == Format::glb, context);
      break;
    case Format::cityJson:
      writeCityJson(model, context);
      break;
    default:
      throw WriteError(fmt::format("{} cannot be written", nameOf(format)));
  }
  context.output().flush();
}

}  // namespace

std::vector<Note> writeModel(const Model& model, const std::filesystem::path& path, const WriteOptions& options) {
  const std::optional<Format> format = options.format ? options.format : formatOf(path);
  if (!format)
    throw WriteError(
        fmt::format("{}: the name must end in .obj, .ply, .off, .stl, .gltf, .glb or .json; no other format is written",
                    path.string()));
  requireValid(model);
  OutputFile file(path);
  const Output::Sink sink = [&file](std::string_view bytes) { file.append(bytes); };
  WriteContext context(isSpecialFile(path) ? std::nullopt : std::optional(path), sink, options.isText);
  write(model, *format, context);
  context.commitBeside();
  file.commit();
  return context.notes().list();
}

std::vector<Note> writeModel(const Model& model, Format format, const std::function<void(std::string_view)>& sink,
                             const WriteOptions& options) {
  requireValid(model);
  WriteContext context(std::nullopt, sink, options.isText);
  write(model, format, context);
  return context.notes().list();
}

}  // namespace facetbox
