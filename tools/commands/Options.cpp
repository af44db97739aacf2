#include <tools/commands/Options.h>

#include <map>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <tools/Errors.h>

namespace tool {

void addModel(CLI::App& command, std::string& model, std::optional<facetbox::Format>& from) {
  command.add_option("MODEL", model, "File to read: .obj, .ply, .off, .stl, .gltf, .glb, .json; - is standard input")
      ->required();
  addFormat(command, "--from", "Format of the model, whatever its name", from);
}

void addModels(CLI::App& command, std::vector<std::string>& models, std::optional<facetbox::Format>& from) {
  command.add_option("MODEL", models, "Files to read: .obj, .ply, .off, .stl, .gltf, .glb, .json; - is standard input")
      ->required();
  addFormat(command, "--from", "Format of the models, whatever their names", from);
}

void addFormat(CLI::App& command, const std::string& name, const std::string& help,
               std::optional<facetbox::Format>& format) {
  addParsed(command, name, "obj|ply|off|stl|gltf|glb|cityjson", help, format,
            [](const std::string& text, const std::string& option) {
              const std::optional<facetbox::Format> named = facetbox::formatNamed(text);
              if (!named)
                throw InputError(
                    fmt::format("{}: '{}' is not one of obj, ply, off, stl, gltf, glb and cityjson", option, text));
              return named;
            });
}

void addGrouping(CLI::App& command, Grouping& grouping) {
  const std::map<std::string, Grouping> names = {
      {"object", Grouping::object}, {"face", Grouping::face}, {"material", Grouping::material}};
  command.add_option("--by", grouping, "What counts as one object (default: object)")
      ->type_name("object|face|material")
      ->transform(CLI::CheckedTransformer(names).description(""));
}

}  // namespace tool
