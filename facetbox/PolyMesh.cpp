#include <facetbox/PolyMesh.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>
#include <utility>

#include <facetbox/mesh/RequireValid.h>

namespace facetbox {
namespace {

using Kind = Problem::Kind;

/// Numbers of 32 bits address vertices, corners, pairs and faces; kNone is none of them.
constexpr std::uint64_t kMostEntries = kNone;
/// A bit of a face's number is ours where faces are renumbered.
constexpr std::uint64_t kMostFaces = 0x80000000u;

/// Collects problems up to a limit and counts the rest. What is fatal displaces what is not: nobody must be turned away
/// without a reason.
class Findings {
 public:
  explicit Findings(std::size_t limit) : mLimit(limit) {}

  void add(const Problem& problem) {
    std::vector<Finding>& list = problem.isFatal ? mFatal : mOthers;
    if (list.size() < mLimit)
      list.push_back({mCount, problem});
    else
      mIsFurtherFatal |= problem.isFatal;
    ++mCount;
  }

  /// In the order in which they came.
  std::vector<Problem> take() const {
    const auto others = std::span(mOthers).first(std::min(mOthers.size(), mLimit - mFatal.size()));
    std::vector<Finding> listed;
    std::ranges::merge(mFatal, others, std::back_inserter(listed), {}, &Finding::number, &Finding::number);
    std::vector<Problem> problems;
    for (const Finding& finding : listed) problems.push_back(finding.problem);
    if (mCount > listed.size())
      problems.push_back({.kind = Kind::more, .isFatal = mIsFurtherFatal, .value = mCount - listed.size()});
    return problems;
  }

 private:
  struct Finding {
    std::uint64_t number;
    Problem problem;
  };

  const std::size_t mLimit;
  std::vector<Finding> mFatal, mOthers;
  std::uint64_t mCount = 0;
  bool mIsFurtherFatal = false;
};

/// Whether no number is NaN or infinite, without a branch per number.
bool allFinite(std::span<const double> numbers) {
  // 0 times a number that is not finite is NaN, and stays so in a sum.
  double sums[8] = {};
  std::size_t i = 0;
  for (; i + 8 <= numbers.size(); i += 8)
    for (std::size_t lane = 0; lane < 8; ++lane) sums[lane] += 0.0 * numbers[i + lane];
  double sum = std::accumulate(sums, sums + 8, 0.0);
  for (; i < numbers.size(); ++i) sum += 0.0 * numbers[i];
  return sum == 0.0;
}

/// Lists the points, of some numbers each, that are not finite.
void checkFinite(std::span<const double> numbers, std::size_t perPoint, Kind kind, Findings& findings) {
  if (allFinite(numbers)) return;
  for (std::size_t first = 0; first < numbers.size(); first += perPoint)
    if (!allFinite(numbers.subspan(first, perPoint))) findings.add({.kind = kind, .value = first / perPoint});
}

/// Whether the arrays fit each other: whatever else is looked up lies in them then.
bool checkSizes(const MeshView& mesh, Findings& findings) {
  bool fits = true;
  const auto report = [&](const Problem& problem) {
    findings.add(problem);
    fits = false;
  };
  for (const std::size_t size : {mesh.points.size() / 3, mesh.indices.size(), mesh.texCoords.size() / 2,
                                 mesh.texIndices.size(), mesh.labels.size(), mesh.holes.size()})
    if (size >= kMostEntries) report({.kind = Kind::tooLarge, .value = size, .limit = kMostEntries});
  if (mesh.counts.size() >= kMostFaces)
    report({.kind = Kind::tooLarge, .value = mesh.counts.size(), .limit = kMostFaces});
  if (mesh.points.size() % 3 != 0) report({.kind = Kind::pointsAreNoTriples, .value = mesh.points.size()});
  if (mesh.texCoords.size() % 2 != 0) report({.kind = Kind::texCoordsAreNoPairs, .value = mesh.texCoords.size()});
  // Fewer than 2^32 counts of 32 bits each: no overflow.
  const std::uint64_t corners = std::accumulate(mesh.counts.begin(), mesh.counts.end(), std::uint64_t{0});
  if (corners != mesh.indices.size())
    report({.kind = Kind::countsDoNotAddUp, .value = mesh.indices.size(), .limit = corners});
  if (!mesh.texIndices.empty() && mesh.texIndices.size() != mesh.indices.size())
    report({.kind = Kind::texIndicesDoNotMatch, .value = mesh.texIndices.size(), .limit = mesh.indices.size()});
  if (!mesh.labels.empty() && mesh.labels.size() != mesh.counts.size())
    report({.kind = Kind::labelsDoNotMatch, .value = mesh.labels.size(), .limit = mesh.counts.size()});
  return fits;
}

/// The corners of one face that starts at `first`.
void checkFace(const MeshView& mesh, std::uint32_t face, std::size_t first, Findings& findings) {
  const std::uint32_t count = mesh.counts[face];
  if (count < 3) findings.add({.kind = Kind::tooFewCorners, .face = face, .isFatal = false, .value = count});
  const std::size_t vertices = mesh.points.size() / 3, pairs = mesh.texCoords.size() / 2;
  const auto textures = mesh.texIndices.empty() ? mesh.texIndices : mesh.texIndices.subspan(first, count);
  const bool hasPairs = std::ranges::any_of(textures, [](std::uint32_t pair) { return pair != kNone; });
  for (std::uint32_t corner = 0; corner < count; ++corner) {
    const std::uint32_t vertex = mesh.indices[first + corner];
    if (vertex >= vertices)
      findings.add({.kind = Kind::indexOutOfRange, .face = face, .corner = corner, .value = vertex, .limit = vertices});
    if (!hasPairs) continue;
    const std::uint32_t pair = textures[corner];
    if (pair == kNone)
      findings.add({.kind = Kind::texIndicesAreIncomplete, .face = face, .corner = corner});
    else if (pair >= pairs)
      findings.add({.kind = Kind::texIndexOutOfRange, .face = face, .corner = corner, .value = pair, .limit = pairs});
  }
}

/// Whether a run of corners is free of problems: one pass without a branch per corner.
bool isRunSound(const MeshView& mesh, std::size_t first, std::size_t past) {
  const auto largest = [&](std::span<const std::uint32_t> indices) {
    std::uint32_t max = 0;
    for (std::size_t i = first; i < past; ++i) max = std::max(max, indices[i]);
    return max;
  };
  if (first == past) return true;
  // A pair of kNone fails here as well: the slow look decides.
  return largest(mesh.indices) < mesh.points.size() / 3 &&
         (mesh.texIndices.empty() || largest(mesh.texIndices) < mesh.texCoords.size() / 2);
}

void checkFaces(const MeshView& mesh, Findings& findings) {
  constexpr std::size_t kRun = 1024;  // faces whose corners are looked at in one go
  const std::size_t faces = mesh.counts.size();
  std::size_t first = 0;
  for (std::size_t begin = 0; begin < faces; begin += kRun) {
    const auto run = mesh.counts.subspan(begin, std::min(kRun, faces - begin));
    std::size_t past = first;
    std::uint32_t fewest = 3;
    for (const std::uint32_t count : run) {
      past += count;
      fewest = std::min(fewest, count);
    }
    if (fewest < 3 || !isRunSound(mesh, first, past)) {
      for (std::size_t i = 0; i < run.size(); ++i) {
        checkFace(mesh, static_cast<std::uint32_t>(begin + i), first, findings);
        first += run[i];
      }
    }
    first = past;
  }
}

void checkHoles(const MeshView& mesh, Findings& findings) {
  enum class Role : std::uint8_t { none, outer, hole };
  std::vector<Role> roles(mesh.holes.empty() ? 0 : mesh.counts.size());
  bool isOuter = true;
  for (std::size_t entry = 0; entry < mesh.holes.size(); ++entry) {
    const std::uint32_t face = mesh.holes[entry];
    const auto report = [&](Kind kind) {
      findings.add({.kind = kind, .face = face, .value = entry, .limit = mesh.counts.size()});
    };
    if (face == kNone) {
      if (isOuter) report(Kind::holeGroupIsEmpty);
      isOuter = true;
      continue;
    }
    const Role role = isOuter ? Role::outer : Role::hole;
    isOuter = false;
    if (face >= mesh.counts.size()) {
      report(Kind::holeFaceIsMissing);
    } else if (roles[face] == Role::none) {
      roles[face] = role;
    } else {
      report(roles[face] == role ? Kind::holeFaceIsRepeated : Kind::outerFaceIsHole);
    }
  }
  if (!isOuter) findings.add({.kind = Kind::holesHaveNoEnd, .value = mesh.holes.size()});
}

/// "Face 7, corner 2" or what of it is known.
std::string placeOf(const Problem& problem) {
  std::string place = "Face " + std::to_string(problem.face);
  if (problem.corner != kNone) place += ", corner " + std::to_string(problem.corner);
  return place;
}

std::string textOf(std::span<const Problem> problems) {
  std::string text;
  for (const Problem& problem : problems) {
    if (!text.empty()) text += '\n';
    text += describe(problem);
  }
  return text;
}

std::string textOf(DroppedHole::Reason reason) {
  using Reason = DroppedHole::Reason;
  switch (reason) {
    case Reason::outside:
      return "it lies outside";
    case Reason::crosses:
      return "it crosses the outline";
    case Reason::touches:
      return "it touches the outline";
    case Reason::overlaps:
      return "it overlaps or touches another hole";
    case Reason::tooFewCorners:
      return "it has fewer than three corners";
    case Reason::tooSmall:
      return "its area is too small";
    case Reason::outerIsGone:
      return "its outer face is gone";
  }
  return "unknown reason";
}

}  // namespace

std::string describe(const Problem& problem) {
  const std::string value = std::to_string(problem.value), limit = std::to_string(problem.limit);
  const std::string entry = "Entry " + value + " of holes ";
  switch (problem.kind) {
    case Kind::pointsAreNoTriples:
      return "points holds " + value + " numbers, which is not a multiple of three.";
    case Kind::texCoordsAreNoPairs:
      return "texCoords holds " + value + " numbers, which is odd.";
    case Kind::tooLarge:
      return "An array of " + value + " entries is too large: there must be fewer than " + limit + ".";
    case Kind::countsDoNotAddUp:
      return "The counts add up to " + limit + " corners, but there are " + value + " indices.";
    case Kind::texIndicesDoNotMatch:
      return "There are " + value + " texIndices for " + limit + " corners.";
    case Kind::labelsDoNotMatch:
      return "There are " + value + " labels for " + limit + " faces.";
    case Kind::pointIsNotFinite:
      return "Vertex " + value + " has a coordinate that is infinite or not a number.";
    case Kind::texCoordIsNotFinite:
      return "Texture coordinate pair " + value + " has a number that is infinite or not a number.";
    case Kind::indexOutOfRange:
      return placeOf(problem) + ": vertex " + value + " does not exist (the mesh has " + limit + " vertices).";
    case Kind::texIndexOutOfRange:
      return placeOf(problem) + ": texture coordinate pair " + value + " does not exist (the mesh has " + limit +
             " pairs).";
    case Kind::texIndicesAreIncomplete:
      return placeOf(problem) + ": no texture coordinates, but other corners of the face have some.";
    case Kind::tooFewCorners:
      return placeOf(problem) + ": " + value + (problem.value == 1 ? " corner" : " corners") +
             ", fewer than three; the face is left out.";
    case Kind::holesHaveNoEnd:
      return "The last group of holes does not end with kNone.";
    case Kind::holeGroupIsEmpty:
      return entry + "ends a group that names no outer face.";
    case Kind::holeFaceIsMissing:
      return entry + "names face " + std::to_string(problem.face) + ", which does not exist (the mesh has " + limit +
             " faces).";
    case Kind::holeFaceIsRepeated:
      return entry + "names face " + std::to_string(problem.face) + " a second time.";
    case Kind::outerFaceIsHole:
      return entry + "makes face " + std::to_string(problem.face) + " both an outer face and a hole.";
    case Kind::more:
      return "And " + value + " more.";
  }
  return "Unknown problem.";
}

std::string describe(const DroppedHole& dropped) {
  const std::string hole =
      dropped.hole == kNone ? "A hole that a merge brought out" : "Face " + std::to_string(dropped.hole);
  const std::string outer = dropped.outer == kNone ? "a merged face" : "face " + std::to_string(dropped.outer);
  return hole + " is no hole of " + outer + " any more: " + textOf(dropped.reason) + '.';
}

std::vector<Problem> validate(const MeshView& mesh, std::size_t limit) {
  Findings findings(limit);
  if (checkSizes(mesh, findings)) {
    checkFinite(mesh.points, 3, Kind::pointIsNotFinite, findings);
    checkFinite(mesh.texCoords, 2, Kind::texCoordIsNotFinite, findings);
    checkFaces(mesh, findings);
    checkHoles(mesh, findings);
  }
  return findings.take();
}

void requireValid(const MeshView& mesh) {
  std::vector<Problem> problems = validate(mesh);
  if (std::ranges::any_of(problems, &Problem::isFatal)) throw InvalidMesh(std::move(problems));
}

InvalidMesh::InvalidMesh(std::vector<Problem> problems)
    : std::invalid_argument(textOf(problems)),
      mProblems(std::make_shared<const std::vector<Problem>>(std::move(problems))) {}

InvalidMesh::~InvalidMesh() = default;

}  // namespace facetbox
