// When picker and intersector release triangle meshes, compared with shared pointers that are counted in full.

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/intersector/Intersector.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/picker/Picker.h>
#include <facetbox/util/Triangulator.h>
#include <tests/support/Meshes.h>
#include <tests/support/Scenes.h>

namespace {

using support::oneIn;
using support::pick;

constexpr int kIds = 3;

/// Counts who holds a triangulation, by shared pointers to its version alone.
class PlainLifetimes {
 public:
  using Held = std::shared_ptr<const int>;

  Held get(std::size_t mesh, int version) {
    Held& cached = mCache[mesh];
    if (!cached) cached = std::make_shared<const int>(version);
    return cached;
  }
  void add(std::size_t handle, int id, Held mesh) { mQueue.push_back({handle, id, std::move(mesh)}); }
  void dispose(std::size_t handle) { mQueue.push_back({handle, -1, nullptr}); }
  void drain(bool lateAdditionsCount) {
    bool mayBeUnused = false;
    for (const Command& command : mQueue)
      if (command.mId >= 0 && !mDead.contains(command.mHandle)) {
        mObjects[command.mHandle].push_back(command);
      } else if (command.mId >= 0) {
        mayBeUnused = mayBeUnused || lateAdditionsCount;
      } else {
        mObjects.erase(command.mHandle);
        mayBeUnused = mDead.insert(command.mHandle).second || mayBeUnused;
      }
    mQueue.clear();
    if (mayBeUnused) prune();
  }
  void discard(bool release) {
    if (!release) mLeaked.insert(mLeaked.end(), mQueue.begin(), mQueue.end());
    mQueue.clear();
    if (release) prune();
  }
  /// The version of the object that was last given an id; or, for -1, the highest of the set. 0 without one.
  int versionOf(std::size_t handle, int id) const {
    int version = 0;
    if (const auto found = mObjects.find(handle); found != mObjects.end())
      for (const Command& object : found->second)
        if (id < 0 || object.mId == id) version = id < 0 ? std::max(version, *object.mMesh) : *object.mMesh;
    return version;
  }

 private:
  struct Command {
    std::size_t mHandle;
    int mId;  ///< -1: disposes
    Held mMesh;
  };
  void prune() {
    std::erase_if(mCache, [](const auto& entry) { return entry.second.use_count() == 1; });
  }

  std::map<std::size_t, Held> mCache;
  std::vector<Command> mQueue, mLeaked;
  std::map<std::size_t, std::vector<Command>> mObjects;
  std::set<std::size_t> mDead;
};

constexpr float kAbove[3] = {0.25f, 0.25f, 10'000}, kDown[3] = {0, 0, -1};

struct PickerScene {
  static constexpr bool kReleasesWhatIsDiscarded = true, kTriangulatesInVain = true, kLateAdditionsCount = false;
  std::unique_ptr<Picker> scene{Picker::createPicker()};

  void add(std::size_t handle, int id, const util::Mesh& mesh) {
    scene->addEntry(handle, static_cast<std::uint32_t>(id), {&mesh}, support::shifted(0, 0, 0).data());
  }
  /// Triangulates a mesh for an addition that fails.
  void addInVain(std::size_t handle, const util::Mesh& mesh) {
    static const util::Mesh tangled = support::tangledStar();
    EXPECT_THROW(scene->addEntry(handle, 0, {&mesh, &tangled}, support::shifted(0, 0, 0).data()), std::runtime_error);
  }
  static std::vector<int> questions() { return {0, 1, 2}; }
  float height(std::size_t handle, int id) const {
    float distance = 10'000;
    return scene->pickRay(handle, id, kAbove, kDown, &distance, nullptr) ? 10'000 - distance : 0;
  }
};

struct IntersectorScene {
  static constexpr bool kReleasesWhatIsDiscarded = false, kTriangulatesInVain = false, kLateAdditionsCount = true;
  std::unique_ptr<Intersector> scene{Intersector::createIntersector()};
  util::Triangulator triangulator;

  void add(std::size_t handle, int, const util::Mesh& mesh) {
    scene->addEntry(handle, mesh, support::shifted(0, 0, 0).data(), triangulator);
  }
  void addInVain(std::size_t handle, const util::Mesh& mesh) {
    EXPECT_THROW(scene->addEntry(handle, mesh, nullptr, triangulator), std::invalid_argument);
  }
  static std::vector<int> questions() { return {-1}; }
  float height(std::size_t handle, int) const {
    float distance = 10'000;
    return scene->intersectsRay(handle, kAbove, kDown, &distance, nullptr) ? 10'000 - distance : 0;
  }
};

template <class Scene>
class MeshLifetime : public testing::Test {};
using Scenes = testing::Types<PickerScene, IntersectorScene>;
TYPED_TEST_SUITE(MeshLifetime, Scenes);

/// A triangle, and enough vertices for the cache to share it.
util::Mesh sharedTriangle() {
  std::vector<util::Vec3> points{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  points.resize(16, {0, 0, 0});
  return support::meshOf(points, {{0, 1, 2}});
}

// A mesh changes its height before each addition. The height at which a ray hits it tells when it was triangulated, and
// so whether its earlier triangles had been released.
TYPED_TEST(MeshLifetime, isThatOfAFullWalkAtEveryDisposalAndDiscard) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<util::Mesh> meshes;
    for (int i = 0; i < 6; ++i) meshes.push_back(sharedTriangle());
    TypeParam scene;
    PlainLifetimes plain;
    std::array<std::size_t, 3> handles, serials{0, 1, 2};
    for (std::size_t& handle : handles) handle = scene.scene->createHandle();
    int version = 0;
    const auto raise = [&](std::size_t m) {
      for (std::size_t v = 0; v < 3; ++v) meshes[m].storage().mVertices[v].z = version;
    };
    const auto add = [&](std::size_t h, std::size_t m, int id) {
      raise(m);
      scene.add(handles[h], id, meshes[m]);
      plain.add(serials[h], id, plain.get(m, version));
    };
    for (int step = 0; step < 250; ++step) {
      const std::size_t h = random() % 3, m = random() % meshes.size();
      ++version;
      switch (pick(random, 0, 9)) {
        case 0:
          // An addition behind the disposal comes too late; the handle is valid until the disposal is executed.
          scene.scene->dispose(handles[h]);
          plain.dispose(serials[h]);
          if (oneIn(random, 2)) add(h, m, 0);
          handles[h] = scene.scene->createHandle();
          serials[h] = 3 + static_cast<std::size_t>(version);
          break;
        case 1:
          scene.scene->discardPendingCommands();
          plain.discard(TypeParam::kReleasesWhatIsDiscarded);
          break;
        case 2:
        case 3:
          plain.drain(TypeParam::kLateAdditionsCount);
          for (std::size_t set = 0; set < 3; ++set)
            for (const int id : TypeParam::questions())
              ASSERT_EQ(scene.height(handles[set], id), plain.versionOf(serials[set], id)) << "step " << step;
          break;
        case 4:
          if (!oneIn(random, 8)) break;
          raise(m);
          scene.addInVain(handles[h], meshes[m]);
          if (TypeParam::kTriangulatesInVain) plain.get(m, version);
          break;
        default:
          add(h, m, pick(random, 0, kIds - 1));
      }
    }
  }
}

}  // namespace
