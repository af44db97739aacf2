#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include <facetbox/io/Model.h>

namespace facetbox {

/// A color as an OFF file has it: components from 0 to 1 or from 0 to 255, and the file does not say which. It is 255
/// if one is above 1; else 1 if one is written with a decimal point. A color of zeros and ones is what others of the
/// file are: 255 if there is one like that, else 1.
struct OffColor {
  std::array<double, 4> values = {0, 0, 0, 1};  ///< red, green, blue, opacity
  std::size_t size = 0;                         ///< components that the file has: 3 or 4
  bool hasPoint = false;

  bool is255() const;
  bool isOpen() const { return !hasPoint && !is255(); }
  /// From 0 to 1, if the file means up to 255.
  std::array<double, 4> from255() const;
};

/// The colors of the vertices, in their order. All have the same number of components.
class OffVertexColors {
 public:
  void add(const OffColor& color);
  std::vector<float> finish();

 private:
  std::vector<float> mColors;
  std::vector<std::uint32_t> mOpen;  // vertices
  std::size_t mSize = 0;
  bool mIs255 = false;
};

/// The colors of the faces, in their order. They become materials, one per color.
class OffFaceColors {
 public:
  /// @param most  colors that are told apart; if there are more, the faces get none
  explicit OffFaceColors(std::size_t most) : mMost(most) {}

  void add(const OffColor& color);
  void addNone();  ///< the face has none

  /// Marks the faces of the model's only object.
  /// @return how many faces lost their color, because there are too many
  std::size_t finish(Model& model);

 private:
  struct Key {
    std::array<double, 4> values;
    std::size_t openSize;  // components, where the color is open

    auto operator<=>(const Key&) const = default;
  };

  void addFace(std::uint32_t key);
  std::vector<std::uint32_t> settleOpenKeys();

  std::size_t mMost;
  std::map<Key, std::uint32_t> mKeys;
  std::vector<std::uint32_t> mKeyOfFace;  // empty as long as no face has a color
  std::size_t mFaces = 0, mColored = 0;
  bool mIs255 = false;
};

}  // namespace facetbox
