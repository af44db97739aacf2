#include <array>
#include <cmath>
#include <cstdint>
#include <deque>
#include <vector>

#include <BulletCollision/BroadphaseCollision/btDbvt.h>

#include <facetbox/math/Matrix4.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/FrustumCulling.h>

#include "../../PlainClip.h"
#include "SelectionPeer.h"

namespace {

using util::Vec3;

// Boxes and planes are in floats: this much further out, none is lost.
constexpr double kSlack = 1e-3;

class BulletPeer final : public SelectionPeer {
 public:
  explicit BulletPeer(const SelectionScene& scene) {
    for (const SelectionScene::Object& object : scene.objects) add(object);
    mTree.optimizeTopDown();
  }

  std::string name() const override { return "Bullet dynamic tree + plain exact test"; }

  void find(const Window& window, bool wholeInside, std::vector<std::uint32_t>& ids) override {
    btVector3 normals[6];
    btScalar offsets[6];
    // Three corners of each face, so that its normal points inward.
    constexpr std::array<std::array<int, 3>, 6> kFaces{
        {{0, 2, 1}, {4, 5, 6}, {0, 4, 3}, {1, 2, 5}, {0, 1, 4}, {3, 7, 2}}};
    for (std::size_t face = 0; face < kFaces.size(); ++face) {
      const auto at = [&](std::size_t i) {
        const float* p = window.corners + 3 * kFaces[face][i];
        return Vec3{p[0], p[1], p[2]};
      };
      const Vec3 normal = util::cross(at(1) - at(0), at(2) - at(0)), unit = normal / util::length(normal);
      normals[face] = vectorOf(unit);
      offsets[face] = static_cast<btScalar>(kSlack - util::dot(unit, at(0)));
    }
    Collector collector{*this, {}, wholeInside, ids, mProjected};
    for (int i = 0; i < 16; ++i) collector.matrix[i] = window.matrix[i];
    btDbvt::collideKDOP(mTree.m_root, normals, offsets, 6, collector);
  }

  void moveAll(float dx) override {
    for (Item& item : mItems) {
      item.matrix[12] += double{dx};
      item.box.min.x += double{dx};
      item.box.max.x += double{dx};
      btDbvtVolume volume = volumeOf(item.box);
      mTree.update(item.leaf, volume);
    }
  }

  void addAgain(std::size_t object) override { add(mItems[object]); }
  void removeLast() override {
    mTree.remove(mItems.back().leaf);
    mItems.pop_back();
  }

 private:
  struct Item {
    std::array<double, 16> matrix;
    util::Box box;
    const util::TriangleMesh* mesh;
    std::uint32_t id;
    btDbvtNode* leaf;
  };

  struct Collector final : btDbvt::ICollide {
    Collector(const BulletPeer& peerOf, std::array<double, 16> m, bool whole, std::vector<std::uint32_t>& out,
              std::vector<double>& room)
        : peer(peerOf), matrix(m), wholeInside(whole), ids(out), projected(room) {}

    void Process(const btDbvtNode* leaf) override {
      const Item& item = *static_cast<const Item*>(leaf->data);
      double c[16];
      util::multiply(matrix.data(), item.matrix.data(), c);
      if (wholeInside ? plainLiesInClipCube(*item.mesh, c) : plainOverlapsClipCube(*item.mesh, c, projected))
        ids.push_back(item.id);
    }

    const BulletPeer& peer;
    std::array<double, 16> matrix;
    const bool wholeInside;
    std::vector<std::uint32_t>& ids;
    std::vector<double>& projected;  // scratch
  };

  static btVector3 vectorOf(const Vec3& v) {
    return {static_cast<btScalar>(v.x), static_cast<btScalar>(v.y), static_cast<btScalar>(v.z)};
  }
  static btDbvtVolume volumeOf(const util::Box& box) {
    return btDbvtVolume::FromMM(vectorOf(box.min), vectorOf(box.max));
  }

  void add(const SelectionScene::Object& object) {
    insert({object.matrix, object.box, object.mesh.get(), static_cast<std::uint32_t>(mItems.size()), nullptr});
  }
  void add(Item item) {
    item.id = static_cast<std::uint32_t>(mItems.size());
    insert(item);
  }
  void insert(const Item& item) {
    mItems.push_back(item);
    mItems.back().leaf = mTree.insert(volumeOf(item.box), &mItems.back());
  }

  std::deque<Item> mItems;  // stay where they are
  btDbvt mTree;
  std::vector<double> mProjected;  // scratch
};

}  // namespace

std::unique_ptr<SelectionPeer> selectionPeer(const SelectionScene& scene) {
  return std::make_unique<BulletPeer>(scene);
}
