#include <facetbox/picker/Picker.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <random>
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

TEST_F(PickerTest, answersAsAPlainPickerDoesOnRandomScenes) {
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

// Three cubes seen from above; the view volume lies between the bars.
//
//   x  -20             0            20
//       |            +---+        +--|--+  +---+
//       |            | 1 |        |  2  |  | 3 |
//       |            +---+        +--|--+  +---+
TEST_F(PickerTest, aViewVolumeFindsWhatItTouchesOrHolds) {
  const std::size_t handle = picker->createHandle();
  for (const std::uint32_t id : {1u, 2u, 3u}) {
    constexpr double kX[] = {0, 0, 20, 22};
    picker->addEntry(handle, id, {&meshes.cube()}, shifted(kX[id], 0, 0).data());
  }
  EXPECT_THAT(picked(*picker, handle, front, false), testing::UnorderedElementsAre(1, 2));
  EXPECT_THAT(picked(*picker, handle, front, true), ElementsAre(1));
}

// The header's advice for small models: scale the direction up, and multiply the distance by as much.
TEST_F(PickerTest, aLongDirectionHitsASmallModel) {
  const std::size_t handle = picker->createHandle();
  Matrix small = shifted(0, 0, 0);
  for (const std::size_t i : {0, 5, 10}) small[i] = 1e-4;  // a cube from -1e-4 to 1e-4
  picker->addEntry(handle, 1, {&meshes.cube()}, small.data());
  const std::array<float, 3> origin{2e-5f, 3e-5f, 5e-4f};
  EXPECT_FALSE(rayPicked(*picker, handle, 1, origin, {0, 0, -1}).mHit);
  const float scale = 1e6f;
  const support::RayAnswer answer = rayPicked(*picker, handle, 1, origin, {0, 0, -1 * scale});
  ASSERT_TRUE(answer.mHit);
  EXPECT_NEAR(answer.mDistance * scale, 4e-4f, 1e-9f);              // the way in world units
  EXPECT_NEAR(origin[2] - answer.mDistance * scale, 1e-4f, 1e-9f);  // the point hit
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

// The second ray prepares the object for later ones, up to the next relocation.
TEST_F(PickerTest, laterRaysFollowARelocation) {
  const support::Surface grid = support::gridOf(9, 9, [](unsigned, unsigned) { return false; });
  const util::Mesh mesh = support::meshOf(grid.mPoints, grid.mFaces);
  const std::size_t handle = picker->createHandle();
  picker->addEntry(handle, 1, {&mesh}, shifted(0, 0, 0).data());
  for (const float x : {4.5f, 24.5f, 44.5f}) {
    for (int ray = 0; ray < 3; ++ray)
      EXPECT_EQ(rayPicked(*picker, handle, 1, {x, 4.25f, 10}, {0, 0, -1}).mDistance, 10);
    picker->relocate(handle, 20, 0, 0);
  }
}

// Queries keep what they have learned of objects, whatever is added or moved after them.
TEST_F(PickerTest, laterVolumesFollowRelocationsAndAdditions) {
  std::mt19937 random(1);
  PlainPicker plain;
  const std::size_t handle = picker->createHandle();
  std::size_t found = 0;
  for (std::uint32_t id = 0; id < 400; ++id) {
    const Matrix place = shifted(pick(random, -9, 9), pick(random, -9, 9), pick(random, -9, 9));
    picker->addEntry(handle, id, {&meshes.cube()}, place.data());
    plain.addEntry(id, {&meshes.cube()}, place);
    if (id % 50 == 49) {
      const float x = id % 100 == 99 ? 6 : -6;
      picker->relocate(handle, x, 1, 0);
      plain.relocate(x, 1, 0);
    }
    for (int query = 0; query < (id % 8 == 0 ? 4 : 0); ++query) {
      const View view = support::viewOf(support::ortho(pick(random, 2, 12)));
      const Ids expected = plain.pickFrustum(view.mCorners, view.mMatrix, query % 2 == 0);
      found += expected.size();
      ASSERT_EQ(picked(*picker, handle, view, query % 2 == 0), expected) << "id " << id;
    }
  }
  EXPECT_GT(found, 5000u);
}

TEST_F(PickerTest, aBufferThatIsTooSmallIsUntouchedAndTheCountNegative) {
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

// Objects are moved until one corner lies within some ulps of a clip plane. The volume of the corners is much larger,
// so that ClipPlanes looks first: it has to leave these to the test of all vertices.
TEST_F(PickerTest, objectsWithinUlpsOfAClipPlaneAreTestedByTheirVertices) {
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
    // Some come from where rounding is finer, and are seen along the diagonal.
    const float away = oneIn(random, 2) ? 1e6f : 0;
    for (float& corner : view.mCorners) corner += away;
    for (const std::size_t i : {0, 1, 2})
      if (away != 0) view.mMatrix[8 + i] = -view.mMatrix[i] - view.mMatrix[4 + i];
    Matrix q, place = shifted(away, away, away);
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
    for (const std::size_t i : {12, 13, 14}) place[i] -= away;
    PlainPicker plain;
    const std::size_t handle = picker->createHandle();
    picker->addEntry(handle, 1, {&meshes.cube()}, place.data());
    plain.addEntry(1, {&meshes.cube()}, place);
    picker->relocate(handle, away, away, away);
    plain.relocate(away, away, away);
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

// A relocation multiplies matrices, and spreads a NaN that no query has looked at before.
TEST_F(PickerTest, anObjectWhoseMatrixBecomesNanIsInNoVolume) {
  PlainPicker plain;
  const std::size_t handle = picker->createHandle();
  for (std::uint32_t id = 0; id < 40; ++id) {
    Matrix place = shifted(id % 7, id / 7, 0);
    if (id == 5) place[15] = NAN;
    picker->addEntry(handle, id, {&meshes.cube()}, place.data());
    plain.addEntry(id, {&meshes.cube()}, place);
  }
  EXPECT_THAT(all(handle), testing::SizeIs(40));
  picker->relocate(handle, 1, 2, 3);
  plain.relocate(1, 2, 3);
  EXPECT_EQ(all(handle), plain.pickFrustum(front.mCorners, front.mMatrix, false));
  EXPECT_THAT(all(handle), testing::Not(testing::Contains(5)));
}

// The large element meets no coordinate but 0: the box in the world is finite, the product with the view is not.
TEST_F(PickerTest, anOverflowInTheProductOfMatricesIsNotInView) {
  const float points[] = {0, 0, 0, 0, 0, 1, 0, 0.01f, 0};
  const std::uint32_t corners[] = {0, 1, 2};
  const std::int32_t count = 3;
  const util::Mesh flat("", 9, points, corners, 1, &count, nullptr, 0, nullptr);
  Matrix place = shifted(0, 0, 0);
  place[1] = 1e308;
  front.mMatrix[5] = 20;  // more than the corners show
  PlainPicker plain;
  const std::size_t handle = picker->createHandle();
  picker->addEntry(handle, 1, {&flat}, place.data());
  plain.addEntry(1, {&flat}, place);
  EXPECT_EQ(picked(*picker, handle, front, true), plain.pickFrustum(front.mCorners, front.mMatrix, true));
}

TEST_F(PickerTest, changesOfADisposedHandleDoNothing) {
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

TEST_F(PickerTest, anInvalidMeshOrMatrixQueuesNothing) {
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

TEST(ViewVolumeCorners, projectOntoTheCubeCounterClockwiseFromOutside) {
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
      // Around the volume, and by little.
      for (std::size_t r = 0; r < 3; ++r) {
        const double size = row(r) / row(3) * (r < 2 ? std::copysign(1, row(r)) : k < 4 ? -1 : 1);
        EXPECT_GT(size, 1 - 1e-6);  // the matrix was rounded to floats
        EXPECT_LT(size, 1.005);
      }
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

/// The view projection of a small window of a camera that may stand far from the origin.
struct FarView {
  explicit FarView(std::mt19937_64& random) {
    const auto part = [&] { return std::generate_canonical<double, 53>(random); };
    const double near = std::pow(10, -3 * part()), far = near * std::pow(10, 0.5 + 4 * part());
    const double across = std::pow(2000, part()) / 4000, up = part() < 0.5 ? across : std::pow(2000, part()) / 4000;
    const bool isFlat = part() < 0.3, isReversed = part() < 0.2;
    Matrix projection{};
    projection[0] = (isFlat ? 0.01 : 1) / across;
    projection[5] = (isFlat ? 0.01 : 1) / up;
    projection[10] = isFlat ? -2 / (far - near) : (far + near) / (near - far);
    projection[11] = isFlat ? 0 : -1;
    projection[14] = isFlat ? -(far + near) / (far - near) : 2 * far * near / (near - far);
    projection[15] = isFlat ? 1 : 0;
    if (isReversed)
      for (const std::size_t i : {10, 14}) projection[i] = -projection[i];
    const auto turn = [&](std::size_t a, std::size_t b) {
      const double angle = part() < 0.3 ? std::floor(4 * part()) * std::numbers::pi / 2 : 6.28 * part();
      Matrix m = shifted(0, 0, 0);
      m[5 * a] = m[5 * b] = std::cos(angle);
      m[4 * a + b] = std::sin(angle);
      m[4 * b + a] = -m[4 * a + b];
      return m;
    };
    const double out = part() < 0.1 ? 0 : std::pow(10, 7 * part()), angle = 6.28 * part();
    const Matrix window = shifted(1.8 * (part() - 0.5) / across, 1.8 * (part() - 0.5) / up, 0);
    const Matrix all = support::product(
        isFlat ? shifted(0, 0, 0) : window,
        support::product(projection,
                         support::product(support::product(turn(1, 2), turn(0, 2)),
                                          shifted(out * std::cos(angle), 0.3 * out, out * std::sin(angle)))));
    std::ranges::transform(all, mMatrix.begin(), [](double x) { return static_cast<float>(x); });
  }

  std::array<float, 16> mMatrix{};
};

// What the matrix maps into the cube is in view, and has to meet the volume of the corners.
TEST(ViewVolumeCorners, encloseWhatTheMatrixShowsHoweverFarOutAndThin) {
  std::mt19937_64 random(5);
  const auto part = [&] { return std::generate_canonical<double, 53>(random); };
  std::size_t asked = 0, without = 0;
  for (int round = 0; round < 12000; ++round) {
    const FarView view(random);
    std::array<float, 24> corners;
    if (!facetbox::viewVolumeCorners(view.mMatrix.data(), corners.data())) {
      ++without;
      continue;
    }
    std::array<support::Vec3, 8> c;
    for (std::size_t k = 0; k < 8; ++k) c[k] = {corners[3 * k], corners[3 * k + 1], corners[3 * k + 2]};
    Matrix q;
    std::copy(view.mMatrix.begin(), view.mMatrix.end(), q.begin());
    for (int i = 0; i < 20; ++i) {
      // A cube around a point that is near, or between, some of the corners.
      support::Vec3 p = c[random() % 8];
      for (std::size_t others = random() % 3; others > 0; --others) p = p + part() * (c[random() % 8] - p);
      const double half = 0.25 * std::pow(10, -2 * part());
      std::array<support::Vec3, 8> seen;
      bool isBefore = true;
      for (std::size_t k = 0; k < 8; ++k) {
        const support::Vec3 v = p + half * support::Vec3{k % 2 * 2.0 - 1, k / 2 % 2 * 2.0 - 1, k / 4 * 2.0 - 1};
        const auto row = [&](std::size_t r) { return q[r] * v.x + q[4 + r] * v.y + q[8 + r] * v.z + q[12 + r]; };
        isBefore = isBefore && row(3) > 1e-9;
        seen[k] = support::Vec3{row(0), row(1), row(2)} / std::fabs(row(3));
      }
      if (!isBefore) continue;  // mirrored into view
      constexpr std::size_t kFaces[6][4] = {{0, 1, 3, 2}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                            {2, 3, 7, 6}, {0, 2, 6, 4}, {1, 3, 7, 5}};
      const double middle[3] = {0, 0, 0}, one[3] = {1, 1, 1};
      const bool isSeen = std::ranges::any_of(kFaces, [&](const auto& f) {
        return util::overlapsBox(&seen[f[0]].x, &seen[f[1]].x, &seen[f[2]].x, middle, one) ||
               util::overlapsBox(&seen[f[0]].x, &seen[f[2]].x, &seen[f[3]].x, middle, one);
      });
      if (!isSeen) continue;
      ++asked;
      EXPECT_TRUE(support::meetsVolume(c, p, {half, half, half})) << round;
    }
  }
  EXPECT_GT(asked, 100000u);
  EXPECT_LT(without, 300u);
}

}  // namespace
