#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>

/// What every format must do with any bytes: refuse them, or give a valid model that can be written and read again.
class FileRoundTrip {
 public:
  /// What is read back as the same model. What has been read back once is, always. Apart from numbers of pairs: the
  /// table of texture coordinates may be another one, but each corner has the same.
  enum class Exact { always, apartFromNumbersOfPairs, asText, never };

  static void check(facetbox::Format format, const std::uint8_t* data, std::size_t size, Exact exact = Exact::always) {
    const auto model = parsed(format, {reinterpret_cast<const char*>(data), size});
    if (!model) return;
    for (const bool isText : {false, true}) {
      const auto bytes = written(*model, format, isText);
      if (!bytes) continue;
      const auto second = parsed(format, *bytes);
      if (!second) fail("what was written cannot be read");
      const bool isNumbered = exact == Exact::always || (isText && exact == Exact::asText);
      const bool isSame = isNumbered                                ? areSame(*model, *second)
                          : exact == Exact::apartFromNumbersOfPairs ? areSame(byCorner(*model), byCorner(*second))
                                                                    : true;
      if (!isSame) fail("another model was read than was written");
      const auto third = parsed(format, written(*second, format, isText).value());
      if (!third || !areSame(*second, *third)) fail("a model changes from file to file");
    }
  }

 private:
  [[noreturn]] static void fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::abort();
  }

  static std::optional<facetbox::Model> parsed(facetbox::Format format, std::string_view bytes) {
    try {
      return facetbox::parseModel(bytes, format, "fuzzed");
    } catch (const facetbox::ReadError&) {
      return std::nullopt;
    }
  }

  // Nothing where numbers do not fit.
  static std::optional<std::string> written(const facetbox::Model& model, facetbox::Format format, bool isText) {
    try {
      std::string bytes;
      facetbox::writeModel(model, format, [&bytes](std::string_view piece) { bytes += piece; }, {.isText = isText});
      return bytes;
    } catch (const facetbox::WriteError&) {
      return std::nullopt;
    }
  }

  // With a table that lists the pairs of all corners in their order.
  static facetbox::Model byCorner(facetbox::Model model) {
    for (facetbox::Object& object : model.objects) {
      std::vector<double> pairs;
      for (std::uint32_t& index : object.mesh.texIndices) {
        if (index == facetbox::kNone) continue;
        for (const std::size_t i : {0U, 1U}) pairs.push_back(object.mesh.texCoords.at(2 * std::size_t{index} + i));
        index = static_cast<std::uint32_t>(pairs.size() / 2 - 1);
      }
      object.mesh.texCoords = pairs;
    }
    return model;
  }

  template <typename T>
  static const T* at(const std::vector<T>& table, std::uint32_t index) {
    return index == facetbox::kNone ? nullptr : &table.at(index);
  }
  template <typename T>
  static bool areSame(const T* a, const T* b) {
    return a && b ? *a == *b : a == b;
  }

  // Tables may be sorted otherwise.
  static bool areSame(const facetbox::Model& a, const facetbox::Model& b) {
    if (a.objects.size() != b.objects.size()) return false;
    for (std::size_t i = 0; i < a.objects.size(); ++i) {
      const facetbox::Object &p = a.objects[i], &q = b.objects[i];
      facetbox::PolyMesh unmarkedP = p.mesh, unmarkedQ = q.mesh;
      unmarkedP.labels.clear();
      unmarkedQ.labels.clear();
      if (p.name != q.name || p.colors != q.colors || !(unmarkedP == unmarkedQ)) return false;
      for (std::size_t face = 0; face < p.mesh.counts.size(); ++face) {
        const facetbox::Mark m = markOf(a, p, face), n = markOf(b, q, face);
        if (!areSame(at(a.materials, m.material), at(b.materials, n.material)) ||
            !areSame(at(a.groups, m.group), at(b.groups, n.group)) ||
            !areSame(at(a.semantics, m.semantics), at(b.semantics, n.semantics)) || m.part != n.part)
          return false;
      }
    }
    return true;
  }

  static facetbox::Mark markOf(const facetbox::Model& model, const facetbox::Object& object, std::size_t face) {
    return object.mesh.labels.empty() ? facetbox::Mark{} : model.marks.at(object.mesh.labels[face]);
  }
};
