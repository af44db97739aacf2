#include <tests/cleanup/AllOperations.h>
#include <tests/support/RecordCheck.h>
#include <tests/support/Threads.h>

namespace {

using namespace support;

Record randomRecord(unsigned seed) {
  std::mt19937 random(seed);
  std::vector<Vec3> points(60);
  for (Vec3& p : points) p = {1.0 * pick(random, 0, 4), 1.0 * pick(random, 0, 4), 1.0 * pick(random, 0, 4)};
  Faces faces(40);
  for (auto& face : faces) face = randomIndices(random, pick(random, 2, 6), points.size());
  Record record = recordOf(points, faces);
  record.mTexCoords = {0, 0, 1, 1};
  record.mTexCoordIndices.assign(record.mIndices.size(), 1);
  for (std::uint32_t run = 0; run < 8; ++run) {
    // The same few names everywhere: the threads meet in the material store.
    record.mTextures.push_back("texture " + std::to_string(pick(random, 0, 4)));
    record.mStarts.push_back(5 * run);
  }
  record.mHoles = {0, 1, 2, kEnd, 3, 4, kEnd};
  return record;
}

/// All operations on one record, as text.
std::string cleanedUp(unsigned seed) {
  Record record = randomRecord(seed);
  std::string text;
  for (const Operation& operation : kOperations) {
    const Result result(operation.mRun(record.view()));
    text += result ? findRecordProblem(*result) + describe(*result) : "null";
  }
  return text;
}

TEST(CleanupConcurrency, parallelCallsOnDifferentRecordsGiveTheSerialResults) {
  constexpr unsigned kRecords = 40;
  std::vector<std::string> serial;
  for (unsigned seed = 0; seed < kRecords; ++seed) serial.push_back(cleanedUp(seed));
  EXPECT_GT(std::set(serial.begin(), serial.end()).size(), kRecords / 2);

  std::vector<std::string> parallel(kThreads * kRecords);
  onAllThreads([&](int t) {
    for (unsigned seed = 0; seed < kRecords; ++seed)
      parallel[static_cast<unsigned>(t) * kRecords + seed] = cleanedUp(seed);
  });
  for (std::size_t i = 0; i < parallel.size(); ++i) EXPECT_EQ(parallel[i], serial[i % kRecords]);
}

TEST(MeshConcurrency, parallelReadersShareOneConnectivityAndOneStamp) {
  const Mesh mesh = meshOf(std::vector<Vec3>(4), {{0, 1, 2}, {1, 2, 3}});
  std::vector<const void*> edges(kThreads);
  std::vector<std::uint64_t> stamps(kThreads);
  onAllThreads([&](int t) {
    const auto i = static_cast<std::size_t>(t);
    edges[i] = &mesh.storage().mConnectivity.edges(mesh.storage().mFaces);
    stamps[i] = mesh.storage().mStamps.stampOr(0, i + 1);
  });
  EXPECT_EQ(std::set(edges.begin(), edges.end()).size(), 1u);
  EXPECT_EQ(std::set(stamps.begin(), stamps.end()).size(), 1u);
  EXPECT_NE(stamps[0], 0u);
}

}  // namespace
