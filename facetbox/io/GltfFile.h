#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <facetbox/io/JsonTree.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Bytes of a buffer, and where they begin in the file; kOutside where they are not in it as they are.
struct GltfBytes {
  static constexpr std::size_t kOutside = ~std::size_t{0};

  std::string_view bytes;
  std::size_t firstByte = kOutside;
};

/// A part of a buffer.
struct GltfView {
  GltfBytes data;
  std::optional<JsonValue> stride = {};  ///< bytes from one element to the next, where that is said
};

/// A glTF file, checked as a whole: its JSON, the elements of its arrays, its buffers.
class GltfFile {
 public:
  /// @param bytes  GLB or JSON; stay as long as the file
  GltfFile(std::string_view bytes, ReadContext& context);

  ReadContext& context() const { return mContext; }
  JsonValue root() const { return mTree->root(); }

  /// How many elements the array of that name has; 0 where there is none.
  std::size_t count(std::string_view array) const;
  /// The element that `index` names.
  JsonValue element(std::string_view array, const JsonValue& index) const;
  JsonValue element(std::string_view array, std::size_t index) const;

  /// Stays as long as the file.
  const GltfView& bufferView(const JsonValue& index);
  /// What a data URI stands for. Nothing where the text is none.
  std::optional<std::string> dataOf(const JsonValue& uri);

  /// Counts what the file names and nobody knows; names by the thousand are counted together.
  void note(const std::string& what, std::size_t count = 1);
  /// Counts what is not understood of an object: its members apart from those named, and each of its extensions.
  void noteOthers(const JsonValue& object, std::initializer_list<std::string_view> known, const char* what);

  /// Memory that is going to be used. An error where it comes to more than 256 MB and more than ten times the files, as
  /// it does where very many nodes show one mesh, or counts say what nothing in the file backs.
  void take(std::size_t bytes, const JsonValue& where);
  void giveBack(std::size_t bytes) { mTaken -= bytes; }

 private:
  struct Buffer {
    std::string own;
    GltfBytes bytes;
  };

  std::string_view openGlb(std::string_view bytes);
  void checkAsset() const;
  void checkExtensions();
  void listArrays();
  const Buffer& buffer(const JsonValue& index);
  void fill(Buffer& buffer, const JsonValue& value, std::size_t index);
  GltfView openView(const JsonValue& view);
  void readBeside(Buffer& buffer, const JsonValue& uri);

  ReadContext& mContext;
  std::size_t mJsonByte = 0;  // where the JSON text begins
  std::optional<GltfBytes> mBinary;
  std::unique_ptr<JsonTree> mTree;
  std::map<std::string, std::vector<std::uint32_t>, std::less<>> mArrays;  // places in the tree
  std::map<std::size_t, Buffer> mBuffers;
  std::map<std::size_t, GltfView> mViews;
  std::set<std::string> mFilesBeside;
  std::set<std::string> mNotedExtensions, mNotedNames;
  std::size_t mAllowed, mTaken = 0;
};

}  // namespace facetbox
