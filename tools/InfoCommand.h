#pragma once

#include <string>

#include <facetbox/io/Model.h>
#include <tools/MeshFacts.h>

namespace tool {

struct InfoOptions {
  std::string mModel;
  bool mJson = false;
};

/// The facts as a table for people.
std::string formatFacts(const std::string& name, const facetbox::Model& model, const MeshFacts& facts);

/// The facts as one JSON object; bytes of names that are not UTF-8 are replaced.
std::string formatFactsAsJson(const std::string& name, const facetbox::Model& model, const MeshFacts& facts);

/// Prints the facts of a model. @throws InputError
void runInfo(const InfoOptions& options);

}  // namespace tool
