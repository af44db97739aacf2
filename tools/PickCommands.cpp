#include <tools/PickCommands.h>

#include <cstdint>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/Errors.h>
#include <tools/FacePool.h>
#include <tools/ModelFile.h>
#include <tools/Printing.h>
#include <tools/Progress.h>
#include <tools/Scene.h>

namespace tool {
namespace {

using nlohmann::ordered_json;

std::string formatHit(const PickOptions& options, const Scene& scene, const std::optional<Hit>& hit) {
  if (!hit) return options.mJson ? dumped({{"hit", false}}) : "nothing\n";
  const Vector direction = normalized(options.mDirection);
  const double distance = hit->mDistance / scene.scale();
  const Vector point = snapped(options.mOrigin + direction * distance, scene.scale());
  const std::string& name = scene.entry(hit->mId).mName;
  const char* const side = dot(hit->mNormal, direction) > 0 ? "back" : "front";
  if (options.mJson)
    return dumped({{"hit", true},
                   {"id", hit->mId},
                   {"name", name},
                   {"distance", inFull(distance)},
                   {"point", inFull(point)},
                   {"normal", inFull(hit->mNormal)},
                   {"side", side}});
  return fmt::format("name      {}\nid        {}\ndistance  {}\npoint     {}\nnormal    {}\nside      {}\n", name,
                     hit->mId, shown(distance), shown(point), shown(hit->mNormal), side);
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

template <typename Options>
FacePool poolIn(const Options& options, Progress& progress) {
  return poolOf(readAndSay(options.mModel, options.mFrom, progress), shownInput(options.mModel));
}

}  // namespace

void runPick(const PickOptions& options) {
  if (!(length(options.mDirection) > 0)) throw InputError("--ray: has no direction; its last three numbers are 0");
  std::string text;
  {
    Progress progress;
    const FacePool model = poolIn(options, progress);
    const Scene scene(model, shownInput(options.mModel), options.mGrouping, progress);
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
    const FacePool model = poolIn(options, progress);
    const Scene scene(model, shownInput(options.mModel), options.mGrouping, progress);
    text = formatSelection(options, scene, scene.idsIn(matrixOf(options.mView, scene), options.mWholeInside));
  }
  print(text);
}

}  // namespace tool
