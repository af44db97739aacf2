#include <facetbox/materials/Shader.h>

#include <algorithm>
#include <cassert>
#include <stdexcept>

#include <boost/container_hash/hash.hpp>
#include <boost/flyweight/flyweight.hpp>
#include <boost/flyweight/hashed_factory.hpp>
#include <boost/flyweight/holder_tag.hpp>
#include <boost/flyweight/refcounted.hpp>
#include <boost/flyweight/simple_locking.hpp>

#include <facetbox/materials/Texture.h>

namespace util {
namespace {

using TexturePtr = std::shared_ptr<const Texture>;

/// Holds the store in the process's own memory and never destroys it: a handle in a static object may be released after
/// the static objects of this file.
struct LastingHolder : boost::flyweights::holder_marker {
  template <class Store>
  struct apply {
    struct type : boost::flyweights::holder_marker {
      static Store& get() {
        static Store& store = *new Store;
        return store;
      }
    };
  };
};

using InternedShader = boost::flyweight<Shader, boost::flyweights::hashed_factory<>, boost::flyweights::refcounted,
                                        boost::flyweights::simple_locking, LastingHolder>;

template <class T>
std::string_view bytesOf(const std::vector<T>& values) noexcept {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

std::string_view bytesOf(const std::string& text) noexcept { return text; }

std::size_t sizeOf(const TexturePtr& texture) noexcept { return texture ? 1 : 0; }
std::size_t sizeOf(const std::string&) noexcept { return 1; }

template <class T>
std::size_t sizeOf(const std::vector<T>& values) noexcept {
  return values.size();
}

bool isNullTexture(const ShaderValue& value) noexcept {
  const auto* texture = std::get_if<TexturePtr>(&value);
  return texture && !*texture;
}

bool sameContent(const TexturePtr& a, const TexturePtr& b) noexcept { return a == b || *a == *b; }

template <class T>
bool sameContent(const T& a, const T& b) noexcept {
  return bytesOf(a) == bytesOf(b);
}

bool sameContent(const std::optional<ShaderValue>& a, const std::optional<ShaderValue>& b) noexcept {
  if (!a || !b) return a.has_value() == b.has_value();
  const auto equalsB = [&b](const auto& x) {
    const auto* y = std::get_if<std::decay_t<decltype(x)>>(&*b);
    return y && sameContent(x, *y);
  };
  return std::visit(equalsB, *a);
}

std::size_t hashOf(const TexturePtr& texture) noexcept {
  std::size_t seed = std::hash<std::u16string>()(texture->uri());
  boost::hash_range(seed, texture->digest().begin(), texture->digest().end());
  return seed;
}

template <class T>
std::size_t hashOf(const T& value) noexcept {
  return std::hash<std::string_view>()(bytesOf(value));
}

}  // namespace

std::size_t Shader::lowerBound(std::string_view key) const noexcept {
  const auto at = std::lower_bound(mEntries.begin(), mEntries.end(), key,
                                   [](const Entry& entry, std::string_view k) { return entry.mKey < k; });
  return static_cast<std::size_t>(at - mEntries.begin());
}

bool Shader::declares(std::string_view key) const noexcept {
  const std::size_t at = lowerBound(key);
  return at < mEntries.size() && mEntries[at].mKey == key;
}

std::size_t Shader::indexOf(std::string_view key) const {
  if (!declares(key)) throw std::invalid_argument("unknown shader key: " + std::string(key));
  return lowerBound(key);
}

Shader Shader::declare(std::string_view key, ShaderType type, std::size_t size) const {
  Shader result = *this;
  const std::size_t at = lowerBound(key);
  if (!declares(key)) {
    result.mEntries.insert(result.mEntries.begin() + static_cast<std::ptrdiff_t>(at),
                           Entry{std::string(key), type, size, std::nullopt});
  } else if (mEntries[at].mType != type || mEntries[at].mSize != size) {
    throw std::runtime_error("tried to add an existing key with non-matching type/size");
  }
  return result;
}

Shader Shader::set(std::string_view key, ShaderValue value) const {
  Shader result = *this;
  Entry& entry = result.mEntries[indexOf(key)];
  const bool sameSize = std::visit([](const auto& v) { return sizeOf(v); }, value) == entry.mSize;
  if (value.index() != static_cast<std::size_t>(entry.mType) || !sameSize || isNullTexture(value))
    throw std::invalid_argument("value of non-matching type/size for shader key: " + std::string(key));
  entry.mValue = std::move(value);
  return result;
}

const ShaderValue* Shader::find(std::string_view key) const {
  const Entry& entry = mEntries[indexOf(key)];
  return entry.mValue ? &*entry.mValue : nullptr;
}

bool operator==(const Shader& a, const Shader& b) noexcept {
  const auto sameEntry = [](const Shader::Entry& x, const Shader::Entry& y) {
    return x.mKey == y.mKey && x.mType == y.mType && x.mSize == y.mSize && sameContent(x.mValue, y.mValue);
  };
  return a.mName == b.mName && std::ranges::equal(a.mEntries, b.mEntries, sameEntry);
}

std::size_t hash_value(const Shader& shader) noexcept {
  std::size_t seed = std::hash<std::string>()(shader.mName);
  for (const Shader::Entry& entry : shader.mEntries) {
    boost::hash_combine(seed, std::hash<std::string>()(entry.mKey));
    boost::hash_combine(seed, static_cast<std::size_t>(entry.mType));
    boost::hash_combine(seed, entry.mSize);
    if (entry.mValue) boost::hash_combine(seed, std::visit([](const auto& v) { return hashOf(v); }, *entry.mValue));
  }
  return seed;
}

const Shader& ShaderHandle::emptyShader() {
  // Never destroyed, like the store.
  static const Shader& empty = *new Shader("EmptyShader");
  return empty;
}

// Numbers become the addresses of places that a record could have, the null address aside.
ShaderHandle ShaderHandle::ofNumber(std::uint32_t number) {
  const std::uintptr_t address = (std::uintptr_t{number} + 1) * alignof(Shader);
  return ShaderHandle({std::shared_ptr<const Shader>(), reinterpret_cast<const Shader*>(address)});
}

std::uint32_t ShaderHandle::number() const {
  assert(mRecord && mRecord.use_count() == 0);
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(mRecord.get()) / alignof(Shader) - 1);
}

ShaderHandle intern(const Shader& shader) {
  if (shader == ShaderHandle::emptyShader()) return {};
  const auto interned = std::make_shared<const InternedShader>(shader);
  return ShaderHandle(std::shared_ptr<const Shader>(interned, &interned->get()));
}

std::shared_ptr<const Texture> findTexture(const MaterialPair& material, std::string_view key) {
  if (!material.first->declares(key)) return nullptr;
  const ShaderValue* value = material.first->find(key);
  if (!value && material.second->declares(key)) value = material.second->find(key);
  const TexturePtr* texture = value ? std::get_if<TexturePtr>(value) : nullptr;
  return texture ? *texture : nullptr;
}

}  // namespace util
