#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>

namespace facetbox {

inline std::string written(const Model& model, Format format, bool isText = false, std::vector<Note>* notes = nullptr) {
  std::string bytes;
  const std::vector<Note> left =
      writeModel(model, format, [&bytes](std::string_view piece) { bytes += piece; }, {.isText = isText});
  if (notes) *notes = left;
  return bytes;
}

inline std::string readErrorOf(const std::string& bytes, Format format) {
  try {
    parseModel(bytes, format, "t");
  } catch (const ReadError& error) {
    return error.what();
  }
  return "read";
}

/// "3 normals, 1 holes"
inline std::string textOf(const std::vector<Note>& notes) {
  std::string text;
  for (const Note& note : notes) text += (text.empty() ? "" : ", ") + std::to_string(note.count) + " " + note.what;
  return text;
}

/// The bits of the numbers: -0 is not 0.
template <typename T>
std::string bitsOf(const std::vector<T>& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

/// Any finite number.
inline double randomDouble(std::mt19937& random) {
  for (;;) {
    const std::uint64_t bits = std::uint64_t{random()} << 32 | random();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    if (value - value == 0) return value;
  }
}

/// The positions of the corners, face after face.
inline std::vector<std::vector<double>> facesOf(const Model& model) {
  std::vector<std::vector<double>> faces;
  for (const Object& object : model.objects) {
    std::size_t corner = 0;
    for (const std::uint32_t count : object.mesh.counts) {
      std::vector<double>& face = faces.emplace_back();
      for (const std::size_t end = corner + count; corner < end; ++corner)
        for (std::size_t axis = 0; axis < 3; ++axis)
          face.push_back(object.mesh.points[3 * std::size_t{object.mesh.indices[corner]} + axis]);
    }
  }
  return faces;
}

/// The color of a face's material, red below 0 where there is none.
inline std::array<double, 4> faceColor(const Model& model, std::size_t object, std::size_t face) {
  const std::vector<std::uint32_t>& labels = model.objects[object].mesh.labels;
  const std::uint32_t material = labels.empty() ? kNone : model.marks.at(labels[face]).material;
  return material == kNone ? std::array<double, 4>{-1, -1, -1, -1} : model.materials.at(material).color.value();
}

}  // namespace facetbox
