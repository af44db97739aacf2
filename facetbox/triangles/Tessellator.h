#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <vector>

#include <GL/glu.h>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Vec3.h>

namespace util {

/// Cuts the inside of contours, which may cross, into triangles: libGLU's tessellator with the odd winding rule.
///
/// Corners have numbers of the caller's choice. Face by face: begin(), then contours, then end().
class Tessellator {
 public:
  /// Where contours cross or meet, at most so many corners are added to a face.
  static constexpr std::size_t kMostAddedCorners = 512;

  /// A corner that an added one lies between, and its share. Shares add up to one.
  struct Source {
    std::uint32_t number;
    float weight;
  };

  class Caller {
   public:
    /// Two edges cross at `position`: their ends are the sources, first those of one, then those of the other. Or two
    /// corners, the sources, coincide there along the normal. An end of an edge may be an added corner.
    /// @return the number of the added corner, or that of one of the sources if it can serve
    virtual std::uint32_t addCorner(const Vec3& position, std::span<const Source> sources) = 0;
    virtual void reportError(GLenum code) noexcept = 0;

   protected:
    ~Caller() = default;
  };

  /// @throws std::bad_alloc where libGLU finds no memory
  explicit Tessellator(Caller& caller);
  ~Tessellator();
  Tessellator(const Tessellator&) = delete;
  Tessellator& operator=(const Tessellator&) = delete;

  /// Begins a face, seen along `normal`, of `cornerCount` corners in all contours.
  /// @param triangles  three numbers per triangle are appended to it
  void begin(std::size_t cornerCount, const Vec3& normal, std::vector<std::uint32_t>& triangles);

  /// Adds a contour. Throws nothing.
  /// @param cornerAt  returns the number of the corner at i, below `count`, and a pointer to its three coordinates
  template <class CornerAt>
  void addContour(std::size_t count, CornerAt cornerAt) {
    gluTessBeginContour(mTess.get());
    for (std::size_t i = 0; i < count; ++i) {
      const auto [number, position] = cornerAt(i);
      *mNextNumber = number;
      gluTessVertex(mTess.get(), const_cast<double*>(position), mNextNumber++);
    }
    gluTessEndContour(mTess.get());
  }

  /// Tessellates the face. O(e w), where e counts corners and crossings and w is the largest number of edges that a
  /// line across the face meets.
  /// @return false where more corners than kMostAddedCorners are needed; the triangles are incomplete then
  /// @throws what the caller's addCorner() threw; the tessellator remains usable
  [[nodiscard]] bool end();

 private:
  struct Callbacks;
  struct Deleter {
    void operator()(GLUtesselator* tess) const { gluDeleteTess(tess); }
  };

  void endPrimitive();
  std::uint32_t* combine(const double position[3], void* const sources[4], const float weights[4]);

  /// Does `work` unless something has gone wrong with the face. No exception may cross the tessellator's frames: it is
  /// kept until end().
  template <class Work>
  void guarded(Work work) noexcept {
    if (mKept || mIsTooMuch) return;
    try {
      work();
    } catch (...) {
      mKept = std::current_exception();
    }
  }

  Caller& mCaller;
  std::unique_ptr<GLUtesselator, Deleter> mTess;
  GLenum mPrimitiveType = 0;
  std::vector<std::uint32_t> mPrimitive;  ///< numbers since the last begin
  std::vector<std::uint32_t>* mTriangles = nullptr;
  // The tessellator knows corners by the addresses of their numbers.
  Buffer<std::uint32_t> mNumbers;  ///< never resized while a face is under way
  std::uint32_t* mNextNumber = nullptr;
  std::vector<std::uint32_t> mAdded;  ///< likewise: capacity kMostAddedCorners
  bool mIsTooMuch = false;
  std::exception_ptr mKept;
};

}  // namespace util
