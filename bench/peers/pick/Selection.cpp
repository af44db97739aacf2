#include <algorithm>

#include "SelectionPeer.h"
#include "SelectionScene.h"
#include "Turns.h"

namespace {

constexpr std::size_t kWindows = 16;  // a query each per round
// 2, 10 and 50 percent of the screen by width and height, and then by area.
constexpr double kWidths[] = {0.02, 0.1, 0.5, 0.1414, 0.3162, 0.7071};

/// A scene in a picker, and room for what it finds.
struct OurScene {
  explicit OurScene(const SelectionScene& sceneOf)
      : scene(sceneOf),
        picker(Picker::createPicker()),
        handle(picker->createHandle()),
        ids(2 * scene.objects.size() + 1000) {
    scene.addTo(*picker, handle);
    picker->applyPendingCommands();
  }

  std::size_t find(const Window& window, bool wholeInside) {
    return static_cast<std::size_t>(
        picker->pickFrustum(handle, window.corners, window.matrix, wholeInside, ids.data(), ids.size()));
  }

  const SelectionScene& scene;
  std::unique_ptr<Picker> picker;
  std::size_t handle;
  std::vector<std::uint32_t> ids;
};

std::string nameOf(const char* what, std::size_t objects) { return std::string(what) + "/" + std::to_string(objects); }

/// Whether both find the same objects in all windows.
bool isEqual(OurScene& ours, SelectionPeer& peer, const std::vector<Window>& windows, bool wholeInside,
             std::size_t& found) {
  found = 0;
  for (const Window& window : windows) {
    const std::size_t count = ours.find(window, wholeInside);
    std::vector<std::uint32_t> mine(ours.ids.begin(), ours.ids.begin() + static_cast<std::ptrdiff_t>(count)), theirs;
    peer.find(window, wholeInside, theirs);
    std::ranges::sort(mine);
    std::ranges::sort(theirs);
    if (mine != theirs) return false;
    found += count;
  }
  return true;
}

}  // namespace

void compareSelections(const Options& options) {
  printHeading("Objects of 12 triangles in a window, so much of the screen wide and high: queries per second", "ours",
               "speed");
  for (const std::size_t count : {std::size_t{1000}, std::size_t{100'000}}) {
    if (count < options.smallest || count > options.largest) continue;
    const SelectionScene scene(count);
    OurScene ours(scene);
    const std::unique_ptr<SelectionPeer> peer = selectionPeer(scene);
    if (!peer) return;
    for (const bool wholeInside : {false, true})
      for (const double width : kWidths) {
        const std::vector<Window> windows = windowsOf(width, kWindows);
        std::size_t found;
        const bool equal = isEqual(ours, *peer, windows, wholeInside, found);
        std::vector<std::uint32_t> ids;
        const auto ourRound = [&] {
          for (const Window& window : windows) ours.find(window, wholeInside);
        };
        const auto theirRound = [&] {
          for (const Window& window : windows) {
            ids.clear();
            peer->find(window, wholeInside, ids);
          }
        };
        const std::size_t repeats = repeatsFor(secondsOf(ourRound), 2e-2);
        const auto repeated = [&](const auto& round) {
          return [&, round](std::size_t) {
            return secondsOf([&] {
              for (std::size_t i = 0; i < repeats; ++i) round();
            });
          };
        };
        const Turns turns = inTurns(options.pairs, repeated(ourRound), repeated(theirRound));
        const double queries = static_cast<double>(repeats * kWindows);
        char what[64];
        std::snprintf(what, sizeof what, "%s %2.0f %%/%zu", wholeInside ? "wholly inside" : "touching", 100 * width,
                      count);
        Row{what, queries / turns.ours, peer->name(), queries / turns.theirs, turns.speed, 1.5}.print();
        std::printf("# %.1f found per query, %s\n", static_cast<double>(found) / kWindows,
                    equal ? "the same by both" : "THE SETS DIFFER");
      }
  }
}

void compareChanges(const Options& options) {
  printHeading("Changes, executed at once: us per object", "ours", "us; speed");
  for (std::size_t count = 10; count <= std::min<std::size_t>(options.largest, 100'000); count *= 10) {
    const SelectionScene scene(count);
    OurScene ours(scene);
    const std::unique_ptr<SelectionPeer> peer = selectionPeer(scene);
    const std::string name = peer ? peer->name() : "";
    const double each = 1e6 / static_cast<double>(count);

    const auto move = [&](float dx) {
      ours.picker->relocate(ours.handle, dx, 0, 0);
      ours.picker->applyPendingCommands();
    };
    // There and back again.
    const std::size_t repeats = 2 * repeatsFor(secondsOf([&] {
                                  move(0.5f);
                                  move(-0.5f);
                                }));
    const auto repeated = [&](const auto& moveBy) {
      return secondsOf([&] {
               for (std::size_t i = 0; i < repeats; ++i) moveBy(i % 2 ? -0.5f : 0.5f);
             }) /
             static_cast<double>(repeats);
    };
    const Turns moves = inTurns(
        options.pairs, [&](std::size_t) { return repeated(move); },
        [&](std::size_t) { return peer ? repeated([&](float dx) { peer->moveAll(dx); }) : 1; });
    Row{nameOf("relocate", count),
        each * moves.ours,
        name,
        peer ? each * moves.theirs : -1,
        each * moves.ours,
        0.3,
        Row::atMost}
        .print();

    // Whole scenes into new handles; with the meshes known, and without.
    for (const bool known : {true, false}) {
      const std::unique_ptr<Picker> other(Picker::createPicker());
      Picker& picker = known ? *ours.picker : *other;
      const std::size_t scenes = repeatsFor(1e-6 * static_cast<double>(count), 2e-3);
      const Turns adds = inTurns(
          options.pairs,
          [&](std::size_t) {
            std::vector<std::size_t> handles;
            for (std::size_t i = 0; i < scenes; ++i) handles.push_back(picker.createHandle());
            const double seconds = secondsOf([&] {
              for (const std::size_t handle : handles) scene.addTo(picker, handle);
              picker.applyPendingCommands();
            });
            for (const std::size_t handle : handles) picker.dispose(handle);
            picker.applyPendingCommands();
            return seconds / static_cast<double>(scenes);
          },
          [](std::size_t) { return 1; });
      Row{nameOf(known ? "add, meshes known" : "add, meshes new", count),
          each * adds.ours,
          "",
          -1,
          each * adds.ours,
          0,
          Row::atMost}
          .print();
    }

    // One more object before every query.
    constexpr std::size_t kAdded = 50;
    const std::vector<Window> windows = windowsOf(kWidths[0], kWindows);
    std::vector<std::uint32_t> ids;
    const Turns steps = inTurns(
        options.pairs,
        [&](std::size_t) {
          OurScene fresh(scene);
          fresh.find(windows[0], false);
          return secondsOf([&] {
            for (std::size_t i = 0; i < kAdded; ++i) {
              scene.addTo(*fresh.picker, fresh.handle, i % count, static_cast<std::uint32_t>(count + i));
              fresh.find(windows[i % kWindows], false);
            }
          });
        },
        [&](std::size_t) {
          if (!peer) return 1.0;
          const double seconds = secondsOf([&] {
            for (std::size_t i = 0; i < kAdded; ++i) {
              peer->addAgain(i % count);
              ids.clear();
              peer->find(windows[i % kWindows], false, ids);
            }
          });
          for (std::size_t i = 0; i < kAdded; ++i) peer->removeLast();
          return seconds;
        });
    const double step = 1e6 / static_cast<double>(kAdded);
    Row{nameOf("add one, 2 % window", count), step * steps.ours,      name,
        peer ? step * steps.theirs : -1,      peer ? steps.speed : 0, 0}
        .print();
  }
}
