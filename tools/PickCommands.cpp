#include <tools/PickCommands.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/Errors.h>
#include <tools/Model.h>
#include <tools/OtherFormats.h>
#include <tools/Progress.h>
#include <tools/Scene.h>

namespace tool {
namespace {

using nlohmann::ordered_json;

void print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

std::string dumped(const ordered_json& json) {
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

// The picker counts in floats: more digits would say nothing.
std::string shown(double value) { return fmt::format("{:.6g}", value + 0.0); }
std::string shown(const Vector& v) { return fmt::format("{} {} {}", shown(v.x), shown(v.y), shown(v.z)); }
ordered_json rounded(double value) { return std::stod(shown(value)); }
ordered_json rounded(const Vector& v) { return {rounded(v.x), rounded(v.y), rounded(v.z)}; }

std::string formatHit(const PickOptions& options, const Scene& scene, const std::optional<Hit>& hit) {
  if (!hit) return options.mJson ? dumped({{"hit", false}}) : "nothing\n";
  const Vector direction = normalized(options.mDirection);
  const double distance = hit->mDistance / scene.scale();
  // What floats round off would show as odd numbers near 0.
  const auto snapped = [&](double value) { return std::fabs(value * scene.scale()) < 1e-6 ? 0 : value; };
  const Vector exact = options.mOrigin + direction * distance;
  const Vector point{snapped(exact.x), snapped(exact.y), snapped(exact.z)};
  const std::string& name = scene.entry(hit->mId).mName;
  const char* const side = dot(hit->mNormal, direction) > 0 ? "back" : "front";
  if (options.mJson)
    return dumped({{"hit", true},
                   {"id", hit->mId},
                   {"name", name},
                   {"distance", rounded(distance)},
                   {"point", rounded(point)},
                   {"normal", rounded(hit->mNormal)},
                   {"side", side}});
  return fmt::format("name      {}\nid        {}\ndistance  {}\npoint     {}\nnormal    {}\nside      {}\n", name,
                     hit->mId, shown(distance), shown(point), shown(hit->mNormal), side);
}

std::array<float, 16> volumeMatrix(const SelectOptions& options, const Scene& scene) {
  if (options.mVolume) {
    std::array<Vector, 8> corners = *options.mVolume;
    for (Vector& corner : corners) corner = scene.toScene(corner);
    return matrixOfCorners(corners, "--volume");
  }
  const auto& [left, top, right, bottom] = options.mWindow;
  if (!(left < right && top < bottom))
    throw InputError(
        "--window: is empty; give the left, upper, right and lower side, from 0,0,1,1 for all of the picture");
  const Camera camera(scene, options.mCamera, static_cast<double>(options.mSize[0]) / options.mSize[1]);
  return camera.matrixOf({2 * left - 1, 1 - 2 * bottom, 2 * right - 1, 1 - 2 * top});
}

std::string formatSelection(const SelectOptions& options, const Scene& scene, const std::vector<std::uint32_t>& ids) {
  if (options.mJson) {
    ordered_json json = ordered_json::array();
    for (const std::uint32_t id : ids) json.push_back({{"id", id}, {"name", scene.entry(id).mName}});
    return dumped(json);
  }
  std::string text;
  for (const std::uint32_t id : ids) text += fmt::format("{:>6}  {}\n", id, scene.entry(id).mName);
  return ids.empty() ? "nothing\n" : text;
}

}  // namespace

void runPick(const PickOptions& options) {
  if (!(length(options.mDirection) > 0)) throw InputError("--ray: has no direction; its last three numbers are 0");
  std::string text;
  {
    Progress progress;
    progress.setStage("reading " + options.mModel);
    const Model model = readModel(options.mModel);
    const Scene scene(model, options.mModel, options.mGrouping, progress);
    std::vector<std::uint32_t> ids;
    for (const SceneEntry& entry : scene.entries()) ids.push_back(entry.mId);
    text =
        formatHit(options, scene, scene.firstHit(scene.toScene(options.mOrigin), normalized(options.mDirection), ids));
  }
  print(text);
}

void runSelect(const SelectOptions& options) {
  std::string text;
  {
    Progress progress;
    progress.setStage("reading " + options.mModel);
    const Model model = readModel(options.mModel);
    const Scene scene(model, options.mModel, options.mGrouping, progress);
    text = formatSelection(options, scene, scene.idsIn(volumeMatrix(options, scene), options.mWholeInside));
  }
  print(text);
}

}  // namespace tool
