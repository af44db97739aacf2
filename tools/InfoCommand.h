#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <facetbox/io/Model.h>
#include <tools/Errors.h>
#include <tools/MeshFacts.h>

namespace tool {

struct InfoOptions {
  std::vector<std::string> mModels;  ///< "-" is standard input
  std::optional<facetbox::Format> mFrom;
  bool mJson = false;
};

/// The facts as a table for people.
std::string formatFacts(const std::string& name, const facetbox::Model& model, const MeshFacts& facts);

/// The facts as a JSON object.
nlohmann::ordered_json factsAsJson(const std::string& name, const facetbox::Model& model, const MeshFacts& facts);

/// Prints the facts of models.
ExitCode runInfo(const InfoOptions& options);

}  // namespace tool
