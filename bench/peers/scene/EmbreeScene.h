#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "../pick/RayWorkloads.h"

enum class Packets { none, of16 };

/// A scene of Embree's, in its robust mode, on one thread.
class EmbreeScene {
 public:
  EmbreeScene();
  ~EmbreeScene();
  EmbreeScene(const EmbreeScene&) = delete;
  EmbreeScene& operator=(const EmbreeScene&) = delete;

  void add(const Triangles& triangles);
  /// Meshes that are only there as instances.
  void addMesh(const Triangles& triangles);
  /// @param rows  3 x 4, as facetbox::Transform has them
  void addInstance(std::size_t mesh, const double rows[3][4]);
  void move(std::size_t instance, const double rows[3][4]);
  void commit();

  /// Rays are laid out for its calls once, before they are timed.
  void prepare(std::span<const Ray> rays, Packets packets, bool isCoherent);
  void cast();
  /// Of the rays cast last; infinity without a hit.
  std::vector<float> distances() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> mParts;
};
