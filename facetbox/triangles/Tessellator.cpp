#include <facetbox/triangles/Tessellator.h>

#include <new>
#include <utility>

namespace util {

/// What libGLU calls; `data` is the tessellator.
struct Tessellator::Callbacks {
  static Tessellator& of(void* data) { return *static_cast<Tessellator*>(data); }

  static void GLAPIENTRY onBegin(GLenum type, void* data) {
    of(data).mPrimitiveType = type;
    of(data).mPrimitive.clear();
  }
  static void GLAPIENTRY onEnd(void* data) {
    of(data).guarded([&] { of(data).endPrimitive(); });
  }
  static void GLAPIENTRY onVertex(void* number, void* data) {
    of(data).guarded([&] { of(data).mPrimitive.push_back(*static_cast<const std::uint32_t*>(number)); });
  }
  static void GLAPIENTRY onCombine(GLdouble position[3], void* sources[4], GLfloat weights[4], void** out, void* data) {
    // Where something has gone wrong, the tessellator still gets some corner: without one it would report an error of
    // its own.
    *out = sources[0];
    of(data).guarded([&] { *out = of(data).combine(position, sources, weights); });
  }
  static void GLAPIENTRY onError(GLenum code, void* data) { of(data).mCaller.reportError(code); }
};

Tessellator::Tessellator(Caller& caller) : mCaller(caller), mTess(gluNewTess()) {
  if (!mTess) throw std::bad_alloc();
  gluTessCallback(mTess.get(), GLU_TESS_BEGIN_DATA, reinterpret_cast<_GLUfuncptr>(&Callbacks::onBegin));
  gluTessCallback(mTess.get(), GLU_TESS_END_DATA, reinterpret_cast<_GLUfuncptr>(&Callbacks::onEnd));
  gluTessCallback(mTess.get(), GLU_TESS_VERTEX_DATA, reinterpret_cast<_GLUfuncptr>(&Callbacks::onVertex));
  gluTessCallback(mTess.get(), GLU_TESS_ERROR_DATA, reinterpret_cast<_GLUfuncptr>(&Callbacks::onError));
  gluTessCallback(mTess.get(), GLU_TESS_COMBINE_DATA, reinterpret_cast<_GLUfuncptr>(&Callbacks::onCombine));
  mAdded.reserve(kMostAddedCorners);
}

Tessellator::~Tessellator() = default;

void Tessellator::begin(std::size_t cornerCount, const Vec3& normal, std::vector<std::uint32_t>& triangles) {
  mNumbers.resize(cornerCount);
  mNextNumber = mNumbers.data();
  mAdded.clear();
  mPrimitive.clear();
  mTriangles = &triangles;
  gluTessBeginPolygon(mTess.get(), this);
  gluTessNormal(mTess.get(), normal.x, normal.y, normal.z);
}

bool Tessellator::end() {
  gluTessEndPolygon(mTess.get());
  const bool isComplete = !std::exchange(mIsTooMuch, false);
  if (mKept) std::rethrow_exception(std::exchange(mKept, nullptr));
  return isComplete;
}

/// Turns the primitive's corners into triangles that all have the primitive's orientation.
void Tessellator::endPrimitive() {
  const std::size_t n = mPrimitive.size();
  if (n < 3 ||
      (mPrimitiveType != GL_TRIANGLES && mPrimitiveType != GL_TRIANGLE_FAN && mPrimitiveType != GL_TRIANGLE_STRIP))
    return;
  const std::size_t count = mPrimitiveType == GL_TRIANGLES ? n / 3 : n - 2;
  mTriangles->resize(mTriangles->size() + 3 * count);
  std::uint32_t* out = mTriangles->data() + mTriangles->size() - 3 * count;
  const std::uint32_t* const v = mPrimitive.data();
  const auto emit = [&out, v](std::size_t a, std::size_t b, std::size_t c) {
    *out++ = v[a];
    *out++ = v[b];
    *out++ = v[c];
  };
  switch (mPrimitiveType) {
    case GL_TRIANGLES:
      for (std::size_t i = 0; i < count; ++i) emit(3 * i, 3 * i + 1, 3 * i + 2);
      break;
    case GL_TRIANGLE_FAN:
      for (std::size_t i = 0; i < count; ++i) emit(0, i + 1, i + 2);
      break;
    default:  // a strip: every second triangle is the other way round
      for (std::size_t i = 0; i < count; ++i) emit(i + i % 2, i + 1 - i % 2, i + 2);
      break;
  }
}

std::uint32_t* Tessellator::combine(const double position[3], void* const sources[4], const float weights[4]) {
  Source some[4];
  std::size_t count = 0;
  for (int i = 0; i < 4; ++i)
    if (sources[i]) some[count++] = {*static_cast<const std::uint32_t*>(sources[i]), weights[i]};
  const std::uint32_t number = mCaller.addCorner(toVec3(position), {some, count});
  for (int i = 0; i < 4; ++i)
    if (auto* const source = static_cast<std::uint32_t*>(sources[i]); source && *source == number) return source;
  if (mAdded.size() == kMostAddedCorners) {
    mIsTooMuch = true;
    return static_cast<std::uint32_t*>(sources[0]);
  }
  return &mAdded.emplace_back(number);
}

}  // namespace util
