#pragma once

namespace util {

/// A pointer, or null, to something that accompanies one object: copies of the object start without.
template <class T>
class OwnLink {
 public:
  OwnLink() = default;
  OwnLink(const OwnLink&) {}
  OwnLink& operator=(const OwnLink&) {
    mTarget = nullptr;
    return *this;
  }

  void set(T* target) { mTarget = target; }
  T* get() const { return mTarget; }
  T* operator->() const { return mTarget; }
  explicit operator bool() const { return mTarget != nullptr; }

 private:
  T* mTarget = nullptr;
};

}  // namespace util
