#include <tools/Json.h>

#include <cstdint>

namespace tool {

using facetbox::DroppedHole;
using nlohmann::ordered_json;

ordered_json jsonOf(const std::vector<facetbox::Note>& notes) {
  ordered_json json = ordered_json::object();
  for (const facetbox::Note& note : notes) json[note.what] = note.count;
  return json;
}

const char* codeOf(DroppedHole::Reason reason) {
  switch (reason) {
    case DroppedHole::Reason::outside:
      return "outside";
    case DroppedHole::Reason::crosses:
      return "crosses";
    case DroppedHole::Reason::touches:
      return "touches";
    case DroppedHole::Reason::overlaps:
      return "overlaps";
    case DroppedHole::Reason::tooFewCorners:
      return "tooFewCorners";
    case DroppedHole::Reason::tooSmall:
      return "tooSmall";
    case DroppedHole::Reason::outerIsGone:
      return "outerIsGone";
  }
  return "";
}

ordered_json jsonOf(const DroppedHole& hole) {
  const auto face = [](std::uint32_t number) {
    return number == facetbox::kNone ? ordered_json() : ordered_json(number);
  };
  return {{"outer", face(hole.outer)},
          {"hole", face(hole.hole)},
          {"reason", codeOf(hole.reason)},
          {"text", facetbox::describe(hole)}};
}

ordered_json jsonOf(const Seconds& seconds, const char* work) {
  ordered_json own = ordered_json::object(), shares = ordered_json::object();
  const double total = seconds.total();
  const auto add = [&](const char* name, double value) {
    own[name] = value;
    shares[name] = total > 0 ? value / total : 0.0;
  };
  add("reading", seconds.mReading);
  if (work) add(work, seconds.mWorking);
  add("writing", seconds.mWriting);
  own["total"] = total;
  own["shares"] = shares;
  return own;
}

}  // namespace tool
