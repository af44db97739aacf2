#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/Format.h>

namespace facetbox {

/// What faces are made of. Numbers are those of the file; no color space is converted.
struct Material {
  std::string name = {};                            ///< bytes as in the file; may be empty
  std::optional<std::array<double, 4>> color = {};  ///< red, green, blue, opacity, from 0 to 1
  std::string texture = {};                         ///< image of the color, as the file names it; empty: none
  std::string definition = {};                      ///< all that the file says of it, in the words of Model::format

  friend bool operator==(const Material&, const Material&) = default;
};

/// The kind of surface that a face is, in models of cities: a roof, a wall.
struct Semantics {
  std::string type = {};        ///< "RoofSurface", say
  std::string definition = {};  ///< all that the file says of it, in the words of Model::format

  friend bool operator==(const Semantics&, const Semantics&) = default;
};

/// What a face is marked with, besides its texture coordinates. Each is an index, kNone for none.
struct Mark {
  std::uint32_t material = kNone;   ///< into Model::materials
  std::uint32_t group = kNone;      ///< into Model::groups
  std::uint32_t semantics = kNone;  ///< into Model::semantics
  std::uint32_t part = kNone;       ///< the shell of a solid, where an object has several: a number of the format's own

  friend auto operator<=>(const Mark&, const Mark&) = default;
};

/// A named mesh of a model.
struct Object {
  std::string name = {};  ///< may be empty; names may repeat
  PolyMesh mesh = {};     ///< `labels` are indices into Model::marks; without labels, no face is marked

  /// Red, green, blue, opacity per vertex, from 0 to 1: vertex v at [4v]. Empty: no colors.
  std::vector<float> colors = {};

  /// The number of each vertex in the file, from 0, where objects of the file share vertices. A vertex that two objects
  /// share is in both meshes. Empty, or not one per
  /// vertex: vertices are numbered through, object after object.
  std::vector<std::uint32_t> fileVertices = {};

  /// Where the object comes from, in the words of Model::format.
  std::string place = {};

  friend bool operator==(const Object&, const Object&) = default;
};

/// Something that was left out, and how often.
struct Note {
  std::string what;  ///< "normals", "statement 'curv'"
  std::size_t count = 0;

  friend bool operator==(const Note&, const Note&) = default;
};

/// What only a format itself understands of a file of it, such as unknown members. Its writer takes up what still fits.
class FACETBOX_EXPORT Document {
 public:
  Document() = default;
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;
  virtual ~Document();
};

/// A polygon model: what a file holds.
struct Model {
  std::vector<Object> objects = {};
  std::vector<Mark> marks = {};
  std::vector<Material> materials = {};
  std::vector<std::string> groups = {};  ///< distinct
  std::vector<Semantics> semantics = {};
  std::vector<Note> notes = {};                   ///< what the reader has left out
  std::optional<Format> format = {};              ///< that it was read from
  std::shared_ptr<const Document> document = {};  ///< may be null
};

}  // namespace facetbox
