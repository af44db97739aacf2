#include <tools/commands/Options.h>

#include <map>

#include <CLI/CLI.hpp>

namespace tool {

void addModel(CLI::App& command, std::string& model) {
  command.add_option("MODEL", model, "File to read: .obj, .ply, .off, .stl, .gltf or .glb")->required();
}

void addGrouping(CLI::App& command, Grouping& grouping) {
  const std::map<std::string, Grouping> names = {
      {"object", Grouping::object}, {"face", Grouping::face}, {"material", Grouping::material}};
  command.add_option("--by", grouping, "What counts as one object: object (default), face or material")
      ->type_name("WHAT")
      ->transform(CLI::CheckedTransformer(names).description(""));
}

}  // namespace tool
