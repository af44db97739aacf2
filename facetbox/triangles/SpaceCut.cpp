#include <facetbox/triangles/SpaceCut.h>

#include <cstddef>
#include <limits>
#include <numeric>
#include <utility>

#include <facetbox/triangles/ThinTriangles.h>

namespace util {
namespace {

constexpr std::size_t kMostForBest = 64;
constexpr std::size_t kMostSamples = 256;

/// Thin triangles, then area: what is less is better.
using Cost = std::pair<std::uint32_t, double>;

Cost costOf(const Vec3& a, const Vec3& b, const Vec3& c) {
  constexpr double kOfLength = 1e-3;
  const Vec3 ab = b - a, ac = c - a;
  const double edges = lengthSq(ab) + lengthSq(ac) + lengthSq(c - b);
  return {isThin(shapeOf(a, b, c)), length(cross(ab, ac)) + kOfLength * edges};
}

class SpaceCut {
 public:
  SpaceCut(std::span<const Vec3> outline, std::vector<std::uint32_t>& triangles)
      : mOutline(outline), mTriangles(triangles) {}

  void run();

 private:
  using Positions = std::vector<std::uint32_t>;
  struct Part {
    Cost cost{0, 0.0};
    std::size_t third = 0;  ///< makes a triangle with both ends
  };

  const Vec3& at(const Positions& piece, std::size_t i) const { return mOutline[piece[i]]; }
  std::pair<std::size_t, std::size_t> findNeck(const Positions& piece) const;
  void cutBest(const Positions& piece);

  std::span<const Vec3> mOutline;
  std::vector<std::uint32_t>& mTriangles;
  std::vector<Part> mParts;  ///< of a piece, by their ends
  std::vector<std::pair<std::size_t, std::size_t>> mOpen;
};

void SpaceCut::run() {
  Positions all(mOutline.size());
  std::iota(all.begin(), all.end(), 0u);
  std::vector<Positions> pieces{std::move(all)};
  while (!pieces.empty()) {
    Positions piece = std::move(pieces.back());
    pieces.pop_back();
    if (piece.size() <= kMostForBest) {
      cutBest(piece);
      continue;
    }
    const auto [from, to] = findNeck(piece);
    pieces.emplace_back(piece.begin() + static_cast<std::ptrdiff_t>(from),
                        piece.begin() + static_cast<std::ptrdiff_t>(to) + 1);
    piece.erase(piece.begin() + static_cast<std::ptrdiff_t>(from) + 1, piece.begin() + static_cast<std::ptrdiff_t>(to));
    pieces.push_back(std::move(piece));
  }
}

/// The shortest diagonal, among some that leave a quarter of the corners on either side.
std::pair<std::size_t, std::size_t> SpaceCut::findNeck(const Positions& piece) const {
  const std::size_t n = piece.size(), step = (n + kMostSamples - 1) / kMostSamples;
  std::pair<std::size_t, std::size_t> best{0, n / 2};
  double bestSq = std::numeric_limits<double>::infinity();
  for (std::size_t from = 0; from < n; from += step)
    for (std::size_t to = from + n / 4; to < n && n - (to - from) >= n / 4; to += step) {
      const double size = lengthSq(at(piece, to) - at(piece, from));
      if (size >= bestSq) continue;
      bestSq = size;
      best = {from, to};
    }
  return best;
}

/// The cheapest of all cuts of a piece, by the cheapest of each part of it that a diagonal cuts off.
void SpaceCut::cutBest(const Positions& piece) {
  const std::size_t n = piece.size();
  mParts.assign(n * n, {});
  for (std::size_t size = 2; size < n; ++size)
    for (std::size_t from = 0; from + size < n; ++from) {
      const std::size_t to = from + size;
      Part best{{std::numeric_limits<std::uint32_t>::max(), 0.0}, from + 1};
      for (std::size_t k = from + 1; k < to; ++k) {
        const Cost own = costOf(at(piece, from), at(piece, k), at(piece, to));
        const Cost &left = mParts[from * n + k].cost, &right = mParts[k * n + to].cost;
        const Cost cost{own.first + left.first + right.first, own.second + left.second + right.second};
        if (cost < best.cost) best = {cost, k};
      }
      mParts[from * n + to] = best;
    }
  mOpen = {{0, n - 1}};
  while (!mOpen.empty()) {
    const auto [from, to] = mOpen.back();
    mOpen.pop_back();
    if (to - from < 2) continue;
    const std::size_t third = mParts[from * n + to].third;
    mTriangles.insert(mTriangles.end(), {piece[from], piece[third], piece[to]});
    mOpen.insert(mOpen.end(), {{third, to}, {from, third}});
  }
}

}  // namespace

void cutInSpace(std::span<const Vec3> outline, std::vector<std::uint32_t>& triangles) {
  SpaceCut(outline, triangles).run();
}

}  // namespace util
