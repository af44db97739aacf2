#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace util {

class Texture;

/// The type of a shader key's value, in the order of the alternatives of ShaderValue. Clean-up stores textures only;
/// the others are part of what a material is.
enum class ShaderType : std::uint8_t { texture, doubles, floats, integers, string };

using ShaderValue = std::variant<std::shared_ptr<const Texture>, std::vector<double>, std::vector<float>,
                                 std::vector<std::int64_t>, std::string>;

/// A material record: a name and typed keys, each with or without a value. Immutable: changes yield a new record.
class Shader {
 public:
  explicit Shader(std::string name) : mName(std::move(name)) {}

  const std::string& name() const noexcept { return mName; }

  /// The record with one more key, without a value. A key that exists with the same type and size stays as it is.
  ///
  /// @param size  number of elements that a value has; 1 for textures and strings
  /// @throws std::runtime_error where the key exists with another type or size
  Shader declare(std::string_view key, ShaderType type, std::size_t size = 1) const;

  /// The record with another value for a declared key.
  ///
  /// @throws std::invalid_argument where the key is not declared, or the value is a null texture or not of the declared
  ///                               type and size
  Shader set(std::string_view key, ShaderValue value) const;

  bool declares(std::string_view key) const noexcept;

  /// The value of a declared key, or null while none is set; lives as long as the record.
  ///
  /// @throws std::invalid_argument where the key is not declared
  const ShaderValue* find(std::string_view key) const;

  /// Equal content: numbers bit by bit (a NaN equals itself, the two zeros differ), textures by URI and digest.
  friend bool operator==(const Shader& a, const Shader& b) noexcept;
  friend std::size_t hash_value(const Shader& shader) noexcept;

 private:
  struct Entry {
    std::string mKey;
    ShaderType mType;
    std::size_t mSize;
    std::optional<ShaderValue> mValue;
  };

  /// Position of the key, or of the first entry after the place where it would stand.
  std::size_t lowerBound(std::string_view key) const noexcept;
  /// Position of a declared key; throws where it is not declared.
  std::size_t indexOf(std::string_view key) const;

  std::string mName;
  std::vector<Entry> mEntries;  // ascending by key
};

/// A shared shader. Copies share the record, and handles are equal if they share one: `intern` keeps one record per
/// content for the whole process. A default-constructed handle is the empty material, a record named "EmptyShader"
/// without keys. Any number of threads may copy and release handles of the same record.
class ShaderHandle {
 public:
  ShaderHandle() noexcept = default;

  /// A handle without a record that stands for a number of the caller's. It equals the handles of the same number, and
  /// reads as the empty material. Not to be compared with handles of records.
  static ShaderHandle ofNumber(std::uint32_t number);
  /// The number of a handle that ofNumber() made.
  std::uint32_t number() const;

  const Shader& operator*() const { return mRecord.use_count() != 0 ? *mRecord : emptyShader(); }
  const Shader* operator->() const { return &**this; }

  friend bool operator==(const ShaderHandle& a, const ShaderHandle& b) noexcept { return a.mRecord == b.mRecord; }
  /// Equal for equal handles only.
  const void* identity() const noexcept { return mRecord.get(); }

 private:
  friend ShaderHandle intern(const Shader& shader);

  explicit ShaderHandle(std::shared_ptr<const Shader> record) noexcept : mRecord(std::move(record)) {}
  static const Shader& emptyShader();

  // Null for the empty material. A number is an address that nobody owns and nothing reads; else it keeps the record in
  // the store.
  std::shared_ptr<const Shader> mRecord;
};

/// The handle of the one record with this content. A record leaves the store with its last handle.
///
/// The store lies in the process's own memory; a child process has its own copy. It is never destroyed, so handles may
/// be released at any time. May be called from several threads. O(size of the content), one
/// allocation beyond a new record.
ShaderHandle intern(const Shader& shader);

/// The material of a run of faces: what is not set in the first record is looked up in the second.
struct MaterialPair {
  ShaderHandle first;
  ShaderHandle second;

  friend bool operator==(const MaterialPair&, const MaterialPair&) noexcept = default;
};

/// The texture under `key`, or null. Only a key that the first record declares counts: its value is taken from the
/// first record, or, if not set there, from the second.
std::shared_ptr<const Texture> findTexture(const MaterialPair& material, std::string_view key);

}  // namespace util
