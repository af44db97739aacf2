#include <facetbox/picker/Picker.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <facetbox/viewVolume.h>
#include <tests/support/Meshes.h>
#include <tests/support/Scenes.h>

namespace {

using support::Matrix;
using support::oneIn;
using support::pick;
using support::picked;
using support::PlainPicker;
using support::rayPicked;
using support::shifted;
using support::View;
using testing::ElementsAre;
using Ids = std::vector<std::uint32_t>;

struct PickerTest : testing::Test {
  std::unique_ptr<Picker> picker{Picker::createPicker()};
  support::SceneMeshes meshes;
  View front = support::viewOf(support::ortho(20));  ///< sees everything within 20 of the origin

  Ids all(std::size_t handle) { return picked(*picker, handle, front, false); }
};

TEST_F(PickerTest, answersAsTheSlowTwinDoesOnRandomScenes) {
  std::size_t found = 0, hits = 0;
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::array<PlainPicker, 2> plain;
    std::array<std::size_t, 2> handles{picker->createHandle(), picker->createHandle()};
    const int reach = pick(random, 3, 25), idCount = pick(random, 20, 200);
    for (int step = 0; step < 300; ++step) {
      const std::size_t h = random() % 2;
      switch (pick(random, 0, 40)) {
        case 0: {
          // Whole steps keep ties; thirds are rounded.
          const float d = pick(random, -4, 4) * (pick(random, 0, 1) == 0 ? 1.0f : 1.0f / 3);
          picker->relocate(handles[h], d, 2, -d);
          plain[h].relocate(d, 2, -d);
          break;
        }
        case 1:
          if (pick(random, 0, 3) == 0) {
            picker->dispose(handles[h]);
            handles[h] = picker->createHandle();
            plain[h] = PlainPicker();
          }
          break;
        case 2: {
          const View view = support::randomView(random, reach);
          const bool wholeInside = pick(random, 0, 1) == 1;
          const Ids expected = plain[h].pickFrustum(view.mCorners, view.mMatrix, wholeInside);
          found += expected.size();
          ASSERT_EQ(picked(*picker, handles[h], view, wholeInside), expected) << "step " << step;
          break;
        }
        default: {
          const auto id = static_cast<std::uint32_t>(pick(random, -2, idCount));
          const auto some = meshes.some(random);
          const Matrix matrix = support::randomPlace(random, reach);
          picker->addEntry(handles[h], id, some, matrix.data());
          plain[h].addEntry(id, some, matrix);
        }
      }
    }
    for (int q = 0; q < 40; ++q) {
      const std::size_t h = random() % 2;
      const View view = support::randomView(random, reach);
      for (const bool wholeInside : {false, true}) {
        const Ids expected = plain[h].pickFrustum(view.mCorners, view.mMatrix, wholeInside);
        found += expected.size();
        ASSERT_EQ(picked(*picker, handles[h], view, wholeInside), expected) << "query " << q;
      }
      const auto coordinate = [&] { return static_cast<float>(pick(random, -reach, reach)); };
      const std::array<float, 3> origin{coordinate(), coordinate(), coordinate()};
      for (int id = -3; id <= idCount; id += 7) {
        // At the object, or past it.
        const support::Vec3 aim = plain[h].placeOf(id);
        const std::array<float, 3> direction{static_cast<float>(aim.x) - origin[0],
                                             static_cast<float>(aim.y) - origin[1] + 0.25f * (id % 3),
                                             static_cast<float>(aim.z) - origin[2] + 0.5f * (q % 2)};
        const auto expected = plain[h].pickRay(id, origin, direction);
        hits += expected.mHit;
        ASSERT_EQ(rayPicked(*picker, handles[h], id, origin, direction), expected) << "query " << q;
      }
    }
  }
  EXPECT_GT(found, 3000u);
  EXPECT_GT(hits, 2000u);
}

TEST(Picker, virtualSlotsFollowTheDestructorInTheOrderOfTheInterface) {
  // Itanium ABI: a pointer to a virtual member holds 1 plus the byte offset of its slot; a destructor takes two slots.
  const auto slotOf = [](auto member) {
    std::ptrdiff_t parts[2];
    static_assert(sizeof(member) == sizeof(parts));
    std::memcpy(parts, &member, sizeof(parts));
    return (parts[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
  };
  EXPECT_THAT((std::array{slotOf(&Picker::createHandle), slotOf(&Picker::addEntry), slotOf(&Picker::relocate),
                          slotOf(&Picker::dispose), slotOf(&Picker::getPendingCommandCount),
                          slotOf(&Picker::discardPendingCommands), slotOf(&Picker::applyPendingCommands),
                          slotOf(&Picker::pickFrustum), slotOf(&Picker::pickRay)}),
              ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST_F(PickerTest, aHandleLeadsToItsPickerAndStartsWithIt) {
  const std::unique_ptr<Picker> other(Picker::createPicker());
  const std::size_t first = picker->createHandle(), second = picker->createHandle();
  EXPECT_EQ(Picker::getAssociatedPicker(first), picker.get());
  EXPECT_EQ(Picker::getAssociatedPicker(other->createHandle()), other.get());
  const auto* record = reinterpret_cast<const std::uint64_t*>(second);
  EXPECT_EQ(record[0], reinterpret_cast<std::uintptr_t>(picker.get()));
  EXPECT_EQ(record[1], 2u);
}

TEST_F(PickerTest, raysFollowAnObjectThatIsMoved) {
  const support::Surface grid = support::gridOf(9, 9, [](unsigned, unsigned) { return false; });
  const util::Mesh mesh = support::meshOf(grid.mPoints, grid.mFaces);
  const std::size_t handle = picker->createHandle();
  picker->addEntry(handle, 1, {&mesh}, shifted(0, 0, 0).data());
  for (const float x : {4.5f, 24.5f, 44.5f}) {
    EXPECT_EQ(rayPicked(*picker, handle, 1, {x, 4.25f, 10}, {0, 0, -1}).mDistance, 10);
    picker->relocate(handle, 20, 0, 0);
  }
}

TEST_F(PickerTest, aBufferTooSmallIsLeftAloneAndTheCountNegated) {
  const std::size_t handle = picker->createHandle();
  for (const std::uint32_t id : {7u, 8u, 9u}) picker->addEntry(handle, id, {&meshes.cube()}, shifted(0, 0, 0).data());
  std::array<std::uint32_t, 4> ids{1, 1, 1, 1};
  const auto pickInto = [&](std::uint32_t* out, std::size_t capacity) {
    return picker->pickFrustum(handle, front.mCorners.data(), front.mMatrix.data(), false, out, capacity);
  };
  EXPECT_EQ(pickInto(nullptr, 0), -3);
  EXPECT_EQ(pickInto(ids.data(), 2), -3);
  EXPECT_THAT(ids, ElementsAre(1, 1, 1, 1));
  EXPECT_EQ(pickInto(ids.data(), 3), 3);
  EXPECT_THAT(ids, ElementsAre(7, 8, 9, 1));
}

// Corners of boxes lie some ulps on either side of the view volume's planes, in a place that the octree finds well
// within the volume of the corners: there the clip planes are first to judge.
TEST_F(PickerTest, objectsWithinUlpsOfTheClipPlanesAreJudgedByTheirVertices) {
  std::mt19937 random(1);
  const std::array<float, 24> corners = support::viewOf(support::ortho(90)).mCorners;
  const auto number = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  constexpr int kRounds = 1000;
  int found = 0;
  for (int round = 0; round < kRounds; ++round) {
    View view{{}, corners};
    for (const std::size_t i : {0, 1, 2, 4, 5, 6, 8, 9, 10}) view.mMatrix[i] = static_cast<float>(number(-0.05, 0.05));
    view.mMatrix[15] = 1;
    Matrix q, place = shifted(0, 0, 0);
    std::ranges::copy(view.mMatrix, q.begin());
    for (const std::size_t i : {0, 5, 10}) place[i] = number(0.5, 2);
    const std::size_t row = random() % 3;
    const double plane = oneIn(random, 2) ? 1 : -1, side = oneIn(random, 2) ? 1 : -1;
    // Along the axis on which the row rests most, so that one corner of the box comes to the plane.
    std::size_t axis = 0;
    for (const std::size_t a : {1, 2})
      if (std::fabs(q[4 * a + row]) > std::fabs(q[4 * axis + row])) axis = a;
    for (int step = 0; step < 3; ++step) {
      const Matrix c = support::product(q, place);
      const double reach = std::fabs(c[row]) + std::fabs(c[4 + row]) + std::fabs(c[8 + row]);
      place[12 + axis] += (plane - (c[12 + row] + side * reach)) / q[4 * axis + row];
    }
    for (int ulps = pick(random, -3, 3); ulps != 0; ulps -= ulps < 0 ? -1 : 1)
      place[12 + axis] = std::nextafter(place[12 + axis], ulps < 0 ? -1e9 : 1e9);
    PlainPicker plain;
    const std::size_t handle = picker->createHandle();
    picker->addEntry(handle, 1, {&meshes.cube()}, place.data());
    plain.addEntry(1, {&meshes.cube()}, place);
    for (const bool wholeInside : {false, true}) {
      const Ids expected = plain.pickFrustum(view.mCorners, view.mMatrix, wholeInside);
      found += static_cast<int>(expected.size());
      ASSERT_EQ(picked(*picker, handle, view, wholeInside), expected) << "round " << round;
    }
    picker->dispose(handle);
  }
  EXPECT_GT(found, kRounds / 10);
  EXPECT_LT(found, 2 * kRounds - kRounds / 10);
}

TEST_F(PickerTest, aHandleDisposedOfInTheBatchFindsNothingAndTakesNothing) {
  const std::size_t handle = picker->createHandle(), other = picker->createHandle();
  picker->addEntry(handle, 1, {&meshes.cube()}, shifted(0, 0, 0).data());
  picker->dispose(handle);
  picker->addEntry(handle, 2, {&meshes.cube()}, shifted(0, 0, 0).data());
  picker->relocate(handle, 1, 1, 1);
  picker->dispose(handle);
  picker->addEntry(other, 3, {&meshes.cube()}, shifted(0, 0, 0).data());
  EXPECT_THAT(all(handle), ElementsAre());
  EXPECT_THAT(all(other), ElementsAre(3));
}

TEST_F(PickerTest, whatCannotBeTriangulatedOrIsNullQueuesNothing) {
  const std::size_t handle = picker->createHandle();
  const util::Mesh tangled = support::tangledStar();
  EXPECT_THAT(
      [&] {
        picker->addEntry(handle, 1, {&meshes.cube(), &tangled}, shifted(0, 0, 0).data());
      },
      testing::ThrowsMessage<std::runtime_error>("Triangulator: not enough space for combined vertices!"));
  EXPECT_THROW(picker->addEntry(handle, 1, {nullptr}, shifted(0, 0, 0).data()), std::invalid_argument);
  EXPECT_THROW(picker->addEntry(handle, 1, {}, nullptr), std::invalid_argument);
  EXPECT_EQ(picker->getPendingCommandCount(), 0u);
  EXPECT_THAT(all(handle), ElementsAre());
}

TEST(ViewVolume, cornersProjectOntoTheCubeCounterClockwiseFromOutside) {
  std::mt19937 random(2);
  for (int round = 0; round < 200; ++round) {
    Matrix matrix = support::randomViewProjection(random, 10);
    if (round % 2 == 1)
      for (const std::size_t i : {0, 4, 8, 12}) matrix[i] = -matrix[i];  // mirrors
    const View view = support::viewOf(matrix);
    std::array<support::Vec3, 8> c;
    for (std::size_t k = 0; k < 8; ++k)
      c[k] = {view.mCorners[3 * k], view.mCorners[3 * k + 1], view.mCorners[3 * k + 2]};
    for (std::size_t k = 0; k < 8; ++k) {
      const auto row = [&](std::size_t r) {
        return matrix[r] * c[k].x + matrix[4 + r] * c[k].y + matrix[8 + r] * c[k].z + matrix[12 + r];
      };
      ASSERT_GT(row(3), 0);
      for (std::size_t r = 0; r < 2; ++r) EXPECT_NEAR(std::fabs(row(r) / row(3)), 1, 1e-3);
      EXPECT_NEAR(row(2) / row(3), k < 4 ? -1 : 1, 1e-3);
    }
    EXPECT_LT(dot(cross(c[1] - c[0], c[3] - c[0]), c[6] - c[0]), 0);
    EXPECT_GT(dot(cross(c[1] - c[0], c[2] - c[1]), cross(c[2] - c[1], c[3] - c[2])), 0);
  }
  std::array<float, 24> corners{};
  for (const float bad : {0.0f, NAN, INFINITY}) {
    std::array<float, 16> matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, bad, 0, 0, 0, 0, 1};
    EXPECT_FALSE(facetbox::viewVolumeCorners(matrix.data(), corners.data()));
  }
  const float behindTheEye[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1};
  EXPECT_FALSE(facetbox::viewVolumeCorners(behindTheEye, corners.data()));
  EXPECT_THAT(corners, testing::Each(0.0f));
}

}  // namespace
