#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <facetbox/math/Box.h>
#include <facetbox/picker/Picker.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>

/// Boxes of 12 triangles, turned and stretched at random, scattered over a cube from -100 to 100. Each has a mesh of
/// its own; its id is its place in the scene.
struct SelectionScene {
  struct Object {
    std::array<double, 16> matrix;
    util::Box box;  ///< in the world
    std::unique_ptr<util::Mesh> polygons;
    std::unique_ptr<util::TriangleMesh> mesh;
  };

  explicit SelectionScene(std::size_t count);

  void addTo(Picker& picker, std::size_t handle) const {
    for (std::uint32_t id = 0; id < objects.size(); ++id) addTo(picker, handle, id, id);
  }
  void addTo(Picker& picker, std::size_t handle, std::size_t object, std::uint32_t id) const {
    picker.addEntry(handle, id, {objects[object].polygons.get()}, objects[object].matrix.data());
  }

  std::vector<Object> objects;
};

/// Part of the screen of a camera; the scene fills it.
struct Window {
  float matrix[16];
  float corners[24];
};

/// Square windows anywhere on the screen.
/// @param width  of the screen's width and height
std::vector<Window> windowsOf(double width, std::size_t count);
