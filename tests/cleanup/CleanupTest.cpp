#include <facetbox/cleanup/Cleanup.h>

#include <bit>
#include <iomanip>
#include <sstream>

#include <gmock/gmock.h>

#include <facetbox/cleanup/MeshDataConversion.h>
#include <tests/cleanup/AllOperations.h>
#include <tests/support/RecordCheck.h>

namespace {

using namespace support;
using Names = std::vector<std::optional<std::string>>;

/// A square with a square hole, both apart from a triangle, with texture coordinates.
Record perforatedSquare() {
  std::vector<Vec3> points;
  for (const auto& [low, high] : {std::pair(0.0, 9.0), {2.0, 4.0}})
    points.insert(points.end(), {{low, low, 0}, {high, low, 0}, {high, high, 0}, {low, high, 0}});
  points.insert(points.end(), {{20, 0, 0.1}, {30, 0, 0.2}, {20, 9, 0.3}});
  Record record = recordOf(points, {{8, 9, 10}, {0, 1, 2, 3}, {4, 5, 6, 7}});
  record.mName = "square";
  record.mTexCoords = {0, 0, 1, 0, 0.1f, 1};
  record.mTexCoordIndices = {0, 1, 2, 0, 1, 2, 77, 0, 1, 2, 0};
  record.mTextures = {"one", std::nullopt};
  record.mStarts = {0, 1};
  record.mHoles = {1, 2, kEnd};
  return record;
}

/// The record through the library by an operation that finds nothing to do.
Result roundTrip(const Cleanup::MeshData& data) {
  Result result(Cleanup::removeFacesZero(0, data));
  EXPECT_EQ(result ? findRecordProblem(*result) : "", "");
  return result;
}
Result roundTrip(Record record) { return roundTrip(record.view()); }

Indices startsOf(const Cleanup::MeshData& data) {
  return arrayOf(data.mTexturesStartFaces, data.mTexturesStartFacesCount);
}

TEST(Cleanup, recordSurvivesTheRoundTripAndTheInputIsLeftAlone) {
  Record record = perforatedSquare();
  const Cleanup::MeshData data = record.view();
  const std::string before = describe(data);
  EXPECT_EQ(describe(*roundTrip(data)), before);
  EXPECT_EQ(describe(data), before);

  // Released without the holes array, which stays with the process.
  Cleanup::freeMeshData(Cleanup::removeFacesZero(0, data));
  Cleanup::freeMeshDataAndHoles(nullptr);
}

TEST(Cleanup, nothingLeftGivesNull) {
  Record record = recordOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
  EXPECT_EQ(Cleanup::removeFacesZero(1.0f, record.view()), nullptr);
  const auto isNull = [&](auto edit) {
    Cleanup::MeshData data = record.view();
    edit(data);
    EXPECT_EQ(roundTrip(data), nullptr);
  };
  for (const int count : {-3, 0, 1, 2}) isNull([&](Cleanup::MeshData& data) { data.mVCCount = count; });
  isNull([](Cleanup::MeshData& data) { data.mVertexCoords = nullptr; });
  isNull([](Cleanup::MeshData& data) { data.mCountCount = -1; });
  record.mCounts = {2, 1};
  EXPECT_EQ(roundTrip(record), nullptr);
  // Faces without corners need no indices, not even beside texture coordinates.
  record.mCounts = {0};
  record.mTexCoords = {0, 0};
  isNull([](Cleanup::MeshData& data) { data.mIndices = data.mTCIndices = nullptr; });
}

TEST(Cleanup, thresholdIsWidenedNotRoundedAndOnlyRemovingEdgesDropsUnusedVerticesWhenNothingIsShort) {
  Record record = recordOf({{0, 0, 0}, {1, 0, 0}, {1, 0.1f, 0}, {0, 0.1f, 0}, {5, 5, 5}}, {{0, 1, 2, 3}});
  EXPECT_EQ(Result(Cleanup::removeFacesZero(0.1f, record.view()))->mVCCount, 15);
  EXPECT_EQ(Result(Cleanup::removeFacesZero(std::nextafter(0.1f, 1.0f), record.view())), nullptr);
  EXPECT_EQ(Result(Cleanup::removeEdgesZero(0.1f, record.view()))->mVCCount, 12);
}

TEST(Cleanup, textureRunsComeBackAsTheyCame) {
  Record record = perforatedSquare();
  const auto names = [&](Names textures) {
    record.mTextures = std::move(textures);
    record.mStarts.assign(record.mTextures.size(), 0);
    return texturesOf(*roundTrip(record));
  };
  EXPECT_EQ(names({"a\xE9"}), Names({"a\xC3\xA9"}));  // Latin-1 in, UTF-8 out
  EXPECT_EQ(names({"same", "other", "same"}), Names({"same", "other", "same"}));
  EXPECT_EQ(names({std::nullopt, std::nullopt}), Names({std::nullopt, std::nullopt}));
  EXPECT_EQ(names({"", "x"}), Names({std::nullopt, "x"}));
  EXPECT_EQ(names({}), Names({std::nullopt}));

  // Without starts every run begins at face 0; odd starts pass through.
  record = perforatedSquare();
  record.mStarts = {};
  Result result = roundTrip(record);
  EXPECT_EQ(startsOf(*result), Indices({0, 0}));
  record.mStarts = {kEnd, 3};
  result = roundTrip(record);
  EXPECT_EQ(startsOf(*result), Indices({kEnd, 3}));
}

TEST(Cleanup, missingArraysAndWildIndicesAreRefused) {
  Record record = perforatedSquare();
  const auto refuses = [&](auto edit) {
    Cleanup::MeshData data = record.view();
    edit(data);
    EXPECT_THROW(Cleanup::removeFacesZero(0, data), std::invalid_argument);
  };
  refuses([](Cleanup::MeshData& data) { data.mIndices = nullptr; });
  refuses([](Cleanup::MeshData& data) { data.mCounts = nullptr; });
  refuses([](Cleanup::MeshData& data) { data.mTCIndices = nullptr; });
  refuses([](Cleanup::MeshData& data) { data.mTextures = nullptr; });
  record.mIndices.back() = 11;
  EXPECT_THAT([&] { Cleanup::removeFacesZero(0, record.view()); },
              testing::ThrowsMessage<std::out_of_range>("face 2 refers to vertex 11, but the mesh has 11 vertices"));
  Cleanup::MeshData data = record.view();
  data.mHoles = nullptr;  // with a count: no holes
  record.mIndices.back() = 7;
  EXPECT_EQ(roundTrip(data)->mHoles, nullptr);
}

TEST(Cleanup, coordinatesAreRoundedToTheNearestFloatAtEveryArrayLength) {
  std::mt19937 random(1);
  for (std::size_t vertexCount = 1; vertexCount <= 40; ++vertexCount)
    // A third of a float is hardly ever a float; others are out of range, tiny, or exactly between two floats.
    for (const double scale : {1.0 / 3, 1e-46, 1 + 0x1p-24, 0x1p-150, 1e38}) {
      std::vector<Vec3> points(vertexCount);
      for (Vec3& p : points)
        for (double* c : {&p.x, &p.y, &p.z}) *c = scale * (pick(random, -999, 999) + (scale < 1 ? 0.1 : 0));
      points[0] = {kNaN, -kInfinity, -0.0};
      if (scale > 1) points.back() = {1 + 0x1p-24, 1 + 3 * 0x1p-24, 0x1p-150};
      const Result result(util::meshToMeshData(meshOf(points, {{0, 0, 0}}), ""));
      for (std::size_t i = 0; i < 3 * vertexCount; ++i) {
        const Vec3& p = points[i / 3];
        const volatile double exact = i % 3 == 0 ? p.x : i % 3 == 1 ? p.y : p.z;
        const float expected = static_cast<float>(exact), got = result->mVertexCoords[i];
        EXPECT_TRUE(std::bit_cast<std::uint32_t>(got) == std::bit_cast<std::uint32_t>(expected) ||
                    (std::isnan(got) && std::isnan(expected)))
            << got << " for " << exact << ", " << i << " of " << 3 * vertexCount;
      }
    }
}

/// The faces as numbers of texture-coordinate pairs, which stay the same where vertices go. A pair that has the number
/// of a vertex of the busy record must stand at a corner with that vertex's place.
Faces pairsOf(const Cleanup::MeshData& data) {
  Faces faces;
  const std::uint32_t* pair = data.mTCIndices;
  for (const std::uint32_t count : arrayOf(data.mCounts, data.mCountCount)) {
    faces.emplace_back(pair, pair + count);
    pair += count;
  }
  for (int i = 0; i < data.mIndexCount; ++i) {
    const float* place = data.mVertexCoords + std::ptrdiff_t{3} * data.mIndices[i];
    const float* pairPlace = data.mTexCoords + std::ptrdiff_t{2} * data.mTCIndices[i];
    EXPECT_TRUE(data.mTCIndices[i] == 31 || (place[0] == 8 * pairPlace[0] && place[2] == 8 * pairPlace[1])) << i;
  }
  return faces;
}

TEST(Cleanup, everyOperationDoesItsWorkOnAllPartsOfTheRecord) {
  const Faces input{{0, 31, 2, 3, 4}, {8, 7, 6, 5},     {9, 10, 11},      {9, 11, 12},
                    {13, 14, 15},     {13, 14, 15},     {31, 14, 13},     {16, 17, 18},
                    {19, 20, 21, 22}, {20, 23, 24, 21}, {25, 26, 27, 28}, {26, 27, 30, 29}};
  struct Change {
    std::map<std::size_t, Indices> mFaces;  // by number: what becomes of it; nothing: it goes
    Indices mStarts;
  };
  const Indices square{9, 10, 11, 12}, pairs{19, 20, 23, 24, 21, 22};
  const std::map<std::string, Change> changes{
      {"mergeVertices", {{{7, {}}}, {0, 8, 9}}},
      {"removeVerticesColinear", {{{0, {0, 2, 3, 4}}}, {0, 9, 10}}},
      {"removeVerticesColinear, flag", {{}, {0, 9, 10}}},
      {"removeEdgesCoplanar", {{{2, square}, {3, {}}, {8, pairs}, {9, {}}}, {0, 8, 8}}},
      {"removeEdgesCoplanar, flag", {{{2, square}, {3, {}}}, {0, 8, 9}}},
      {"removeFacesDouble", {{{5, {}}, {6, {}}}, {0, 7, 8}}},
      {"removeFacesDouble, flag", {{{5, {}}}, {0, 8, 9}}},
      {"removeFacesZero", {{{7, {}}}, {0, 8, 9}}},
      {"removeEdgesZero", {{{7, {}}}, {0, 8, 9}}},
      {"conformNormals", {{{6, {14, 31, 13}}, {11, {27, 26, 29, 30}}}, {0, 9, 10}}},
  };
  Record record = busyRecord();
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.mName);
    const Change& change = changes.at(operation.mName);
    Faces expected;
    for (std::size_t face = 0; face < input.size(); ++face) {
      const auto changed = change.mFaces.find(face);
      const Indices& now = changed == change.mFaces.end() ? input[face] : changed->second;
      if (!now.empty()) expected.push_back(now);
    }
    const Result result(operation.mRun(record.view()));
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(findRecordProblem(*result), "");
    EXPECT_EQ(pairsOf(*result), expected);
    EXPECT_EQ(startsOf(*result), change.mStarts);
    EXPECT_EQ(texturesOf(*result), Names({"one", "two\xC3\xA9", std::nullopt}));
    EXPECT_EQ(arrayOf(result->mHoles, result->mHolesCount),
              Indices({0, 1, kEnd, 2, kEnd}));  // what is no hole has gone
    EXPECT_EQ(result->mTCCount, std::ssize(record.mTexCoords));
    EXPECT_STREQ(result->mLog, "Constructing Mesh from array : 1 illegal faces (<3 vertices) were ignored.");
  }
}

TEST(Cleanup, countsThatMeanNoneActLikeAMissingArrayWhateverThePointersSay) {
  constexpr int kLowest = std::numeric_limits<int>::min();
  Record record = busyRecord();
  const std::vector<std::uint32_t> nothing(1);  // not a byte more: reading on is noticed
  auto* few = const_cast<std::uint32_t*>(nothing.data());
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.mName);
    const auto textOf = [&](auto... edits) {
      Cleanup::MeshData data = record.view();
      (edits(data), ...);
      const Result result(operation.mRun(data));
      return result ? describe(*result) : "null";
    };
    const std::string whole = textOf(), bare = textOf([](auto&data) { data.mTexCoords = nullptr; }),
                      withoutHoles = textOf([](auto&data) { data.mHoles = nullptr; }),
                      withoutRuns = textOf([](auto&data) { data.mTexturesCount = 0; });
    EXPECT_EQ(std::set({whole, bare, withoutHoles, withoutRuns}).size(), 4u);
    for (const int none : {0, -1, kLowest}) {
      SCOPED_TRACE(none);
      for (std::uint32_t* array : {few, static_cast<std::uint32_t*>(nullptr)}) {
        EXPECT_EQ(bare, textOf([&](auto& data) { data.mTCCount = none, data.mTCIndices = array; }));
        EXPECT_EQ(bare, textOf([&](auto& data) { data.mTCCount = none, data.mTextures = nullptr; }));
        EXPECT_EQ(withoutHoles, textOf([&](auto& data) { data.mHolesCount = none, data.mHoles = array; }));
        EXPECT_EQ(withoutRuns, textOf([&](auto& data) { data.mTexturesCount = none, data.mTextures = nullptr; }));
        EXPECT_EQ(withoutRuns,
                  textOf([&](auto& data) { data.mTexturesCount = none, data.mTexturesStartFaces = array; }));
        EXPECT_EQ("null", textOf([&](auto& data) { data.mCountCount = none, data.mCounts = data.mIndices = array; }));
        EXPECT_EQ("null", textOf([&](auto& data) { data.mVCCount = none, data.mIndices = array; }));
      }
      EXPECT_EQ(whole, textOf([&](auto& data) {
                  data.mIndexCount = data.mTCIndexCount = data.mTexturesStartFacesCount = none;
                }));
    }
    EXPECT_EQ(bare, textOf([&](auto& data) { data.mTCCount = 1, data.mTCIndices = few; }));  // no whole pair
  }
}

TEST(Cleanup, runsAreWrittenOnlyWithTextureCoordinates) {
  Record record = busyRecord();
  std::string log;
  const std::unique_ptr<Mesh> mesh = util::meshDataToMesh(record.view(), log);
  mesh->storage().mTexCoords[0].clear();
  const Result result(util::meshToMeshData(*mesh, log));
  EXPECT_EQ(findRecordProblem(*result), "");
  EXPECT_EQ(texturesOf(*result), Names({std::nullopt}));
  EXPECT_EQ(result->mTexturesStartFaces, nullptr);
}

TEST(CleanupDump, writesCountsPointersAndNamesWhateverTheStreamIsSetTo) {
  char texture[] = "wood\xFF";
  char* textures[] = {texture, nullptr};
  std::uintptr_t address = 0x1000;
  const auto give = [&]<class T>(T*& pointer, int& count) {
    pointer = reinterpret_cast<T*>(address);
    count = static_cast<int>(address / 0x1000);
    address += 0x1000;
  };
  Cleanup::MeshData data{};
  data.mName = "caf\xE9";
  give(data.mVertexCoords, data.mVCCount);
  give(data.mIndices, data.mIndexCount);
  give(data.mTexCoords, data.mTCCount);
  give(data.mTCIndices, data.mTCIndexCount);
  give(data.mCounts, data.mCountCount);
  give(data.mTexturesStartFaces, data.mTexturesStartFacesCount);
  give(data.mHoles, data.mHolesCount);
  data.mTextures = textures;
  data.mTexturesCount = 2;
  data.mVCCount = 1234567;
  data.mIndexCount = -1;
  std::wostringstream texturesAt;
  texturesAt << static_cast<const void*>(textures);
  const std::wstring expected =
      L"MeshData, \nmName: caf\u00E9\nmVertexCoords: 0x1000\nmVCCount: 1234567\nmIndices: 0x2000\nmIndexCount: -1\n"
      L"mTexCoords: 0x3000\nmTCCount: 3\nmTCIndices: 0x4000\nmTCIndexCount: 4\nmCounts: 0x5000\nmCountCount: 5\n"
      L"mTextures: " +
      texturesAt.str() +
      L" [ wood\u00FF, 0x0,  ] \nmTexturesCount: 2\nmTexturesStartFaces: 0x6000\nmTexturesStartFacesCount: 6\n"
      L"mHoles: 0x7000\n\nmHolesCount: 7\n\n";

  std::wostringstream stream;
  stream << std::hex << std::showbase << std::showpos << std::uppercase << std::setw(40) << std::setfill(L'*');
  EXPECT_EQ(&(stream << data), &stream);
  EXPECT_EQ(stream.str(), expected);
}

}  // namespace
