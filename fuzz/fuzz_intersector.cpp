// Turns bytes into meshes, places and views, plays them to an intersector and to its slow twin, and compares every
// answer.

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include <facetbox/intersector/Intersector.h>
#include "SceneInput.h"
#include "tests/support/PlainIntersector.h"

namespace {

support::Question nextQuestion(Bytes& in) {
  support::Question q;
  std::ranges::transform(nextMatrix(in), q.mView.begin(), [](double x) { return static_cast<float>(x * 0.125); });
  for (float& x : q.mFrom) x = nextNumber(in);
  for (float& x : q.mAlong) x = nextNumber(in);
  support::Raster& r = q.mRaster;
  r.mWidth = in.next() % 40 - 1;
  r.mHeight = in.next() % 40 - 1;
  r.mViewport = {in.next() % 8 - 4, in.next() % 8 - 4, r.mWidth, r.mHeight};
  r.mOffsetX = in.next() % 8 - 4;
  if (r.mWidth > 0 && r.mHeight > 0) {
    r.mCells.assign(static_cast<std::size_t>(r.mWidth * r.mHeight), 1);
    r.mCells[in.next() % r.mCells.size()] = 0;
  }
  return q;
}

/// What is discarded is never released: not too often in one process.
int discardsLeft = 10'000;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Bytes in(bytes, size);
  const std::unique_ptr<Intersector> intersector(Intersector::createIntersector());
  util::Triangulator triangulator;
  support::PlainIntersector plain;
  // Few vertices or enough to be shared, few triangles or enough for a hierarchy.
  std::vector<util::Mesh> meshes;
  for (int count = 1 + in.next() % 3; count > 0; --count) {
    const std::uint32_t fewestVertices = in.next() % 2 == 0 ? 3 : 12;
    const int mostFaces = in.next() % 4 == 0 ? 60 : 4;
    meshes.push_back(nextMesh(in, fewestVertices, mostFaces));
  }
  std::size_t handle = intersector->createHandle();
  if (Intersector::getAssociatedIntersector(handle) != intersector.get()) fail("owners");
  // What the object was when the changes were executed last: a discard leads back there.
  support::PlainIntersector executed;
  std::uint64_t pending = 0;
  while (!in.empty()) {
    const std::uint8_t step = in.next();
    const util::Mesh& mesh = meshes[step % meshes.size()];
    if (step < 120) {
      const support::Matrix matrix = nextMatrix(in);
      intersector->addEntry(handle, mesh, matrix.data(), triangulator);
      plain.addEntry(mesh, matrix);
      ++pending;
    } else if (step < 135) {
      intersector->setOABBox(handle, mesh, triangulator);
      plain.setBox(mesh);
      ++pending;
    } else if (step < 160) {
      const float dx = nextNumber(in), dy = nextNumber(in);
      intersector->relocate(handle, dx, dy, 1);
      plain.relocate(dx, dy, 1);
      ++pending;
    } else if (step < 164) {
      intersector->dispose(handle);
      handle = intersector->createHandle();
      plain = executed = {};
      ++pending;
    } else if (step == 164 && discardsLeft > 0) {
      --discardsLeft;
      intersector->discardPendingCommands();
      plain = executed;
      pending = 0;
    } else {
      if (intersector->getPendingCommandCount() != pending) fail("numbers of changes");
      if (step < 170) intersector->applyPendingCommands();
      executed = plain;
      pending = 0;
      const support::Question question = nextQuestion(in);
      if (!(answersOf(*intersector, handle, question) == plain.answers(question))) fail("answers");
    }
  }
  return 0;
}
