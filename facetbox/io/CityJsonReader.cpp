#include <facetbox/io/CityJsonReader.h>

#include <memory>
#include <string>
#include <utility>

#include <facetbox/io/CityJsonFile.h>

namespace facetbox {
namespace {

// A sequence has an object of its own in each line.
void rejectSequence(std::string_view bytes, const ReadContext& context) {
  const std::size_t feature = bytes.find("\"CityJSONFeature\"");
  if (feature == std::string_view::npos) return;
  const std::size_t line = bytes.rfind('\n', feature);
  if (line == std::string_view::npos || bytes.find_last_not_of(" \r\n\t", line) == std::string_view::npos) return;
  if (bytes[bytes.find_last_not_of(" \r\n\t", line)] != '}') return;
  const std::size_t start = bytes.find_first_not_of(" \r\n\t", line);
  if (bytes[start] != '{') return;
  context.fail("this is a sequence of features, one a line (CityJSONSeq); only whole CityJSON files are read");
}

}  // namespace

Model parseCityJson(std::string_view bytes, ReadContext& context) {
  rejectSequence(bytes, context);
  const auto document = std::make_shared<CityJsonDocument>(bytes);
  context.releaseBytes();
  CityJsonFile file(document->text, context, CityJsonFile::Geometries::forgotten);
  Model model = std::move(file.model());
  model.document = document;
  return model;
}

}  // namespace facetbox
