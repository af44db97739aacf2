#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/App.hpp>

#include <facetbox/io/Format.h>
#include <tools/MeshMaker.h>

namespace tool {

/// How help calls a list of kinds of defects.
inline constexpr const char* kDefectKindList = "KIND,...";

/// The model that a command reads, and --from.
void addModel(CLI::App& command, std::string& model, std::optional<facetbox::Format>& from);

/// The models that a command reads, one or more, and --from.
void addModels(CLI::App& command, std::vector<std::string>& models, std::optional<facetbox::Format>& from);

/// --from or --to.
void addFormat(CLI::App& command, const std::string& name, const std::string& help,
               std::optional<facetbox::Format>& format);

/// What counts as one object.
void addGrouping(CLI::App& command, Grouping& grouping);

/// An option whose text `parse` reads: it takes the text and the name of the option.
/// @param unit  what the text is, in capitals, or the words that it may be: "object|face". Completions offer these.
template <typename Value, typename Parse>
CLI::Option* addParsed(CLI::App& command, const std::string& name, const std::string& unit, const std::string& help,
                       Value& target, Parse parse) {
  const auto take = [name, &target, parse](const std::string& text) { target = parse(text, name); };
  return command.add_option_function<std::string>(name, take, help)->type_name(unit);
}

}  // namespace tool
