#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <facetbox/io/ReadContext.h>

namespace facetbox {

class JsonTree;

/// A value of a JsonTree. As light as a pointer; valid as long as the tree and its text.
class JsonValue {
 public:
  bool isObject() const { return first() == '{'; }
  bool isArray() const { return first() == '['; }
  bool isString() const { return first() == '"'; }

  /// Its words in the file, byte for byte.
  std::string_view text() const;
  /// Where it begins in the file.
  std::size_t byte() const;
  /// Gives up with a message that names the byte.
  [[noreturn]] void fail(const std::string& what) const;

  // Each of these fails where the value is not of that kind.
  std::string string() const;
  /// What stands between the quotes; nothing where it has escapes, and string() is needed.
  std::optional<std::string_view> plainString() const;
  double number() const;
  std::uint64_t integer(std::uint64_t most) const;
  bool boolean() const;

  /// The member of that name of an object; an error where it stands there twice.
  std::optional<JsonValue> find(std::string_view name) const;
  /// The same, an error where there is none.
  JsonValue at(std::string_view name) const;

  /// Goes through the elements of an array, or through the members of an object.
  class Iterator;
  Iterator begin() const;

  /// For tables of many values: JsonTree::value() takes it back.
  std::uint32_t place() const { return mPlace; }

 private:
  friend class JsonTree;
  JsonValue(const JsonTree& tree, std::uint32_t place) : mTree(&tree), mPlace(place) {}
  char first() const;

  const JsonTree* mTree;
  std::uint32_t mPlace;
};

class JsonValue::Iterator {
 public:
  bool atEnd() const { return mPlace == mEnd; }
  void next();
  JsonValue value() const;
  JsonValue name() const;  ///< of a member

 private:
  friend class JsonValue;
  Iterator(const JsonTree& tree, std::uint32_t place, std::uint32_t end, bool isObject)
      : mTree(&tree), mPlace(place), mEnd(end), mIsObject(isObject) {}

  const JsonTree* mTree;
  std::uint32_t mPlace, mEnd;
  bool mIsObject;
};

/// Where the values of a JSON text stand in it: four bytes per string, number and name, twelve per array and object.
/// So a text takes at most four times its size, whatever it says, and errors can name the byte. The library that checks
/// the text knows no positions, and its own values take up to some thirty times the size of the text.
class JsonTree {
 public:
  /// @param text       stays where it is as long as the tree
  /// @param firstByte  where the text begins in the file, for messages
  /// @throws ReadError where it is no JSON, has arrays or objects in each other more than kMostNesting times, or is
  ///                   larger than 4 GB
  JsonTree(std::string_view text, std::size_t firstByte, const ReadContext& context);
  JsonTree(const JsonTree&) = delete;
  JsonTree& operator=(const JsonTree&) = delete;

  JsonValue root() const { return value(0); }
  JsonValue value(std::uint32_t place) const { return {*this, place}; }
  std::size_t memory() const { return mPlaces.capacity() * sizeof(std::uint32_t); }

  /// So that what is kept of a file can be written by functions that call themselves.
  static constexpr std::size_t kMostNesting = 256;

 private:
  friend class JsonValue;
  friend class JsonValue::Iterator;
  class Builder;

  /// The place of the value after this one.
  std::uint32_t after(std::uint32_t place) const;
  bool isContainer(std::uint32_t place) const;

  std::string_view mText;
  std::size_t mFirstByte;
  const ReadContext& mContext;
  // A value is the offset of its first character. After that of an array or object come the place behind its last
  // entry, then its values (names and values in turn), then the offset behind its closing bracket.
  std::vector<std::uint32_t> mPlaces;
};

}  // namespace facetbox
