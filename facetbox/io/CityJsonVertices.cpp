#include <facetbox/io/CityJsonVertices.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <numeric>

#include <fmt/format.h>

namespace facetbox {
namespace {

std::vector<bool> usedVertices(const PolyMesh& mesh) {
  std::vector<bool> isUsed(mesh.points.size() / 3, false);
  for (const std::uint32_t vertex : mesh.indices) isUsed[vertex] = true;
  return isUsed;
}

std::array<double, 3> pointAt(std::span<const double> points, std::size_t vertex) {
  return {points[3 * vertex], points[3 * vertex + 1], points[3 * vertex + 2]};
}

template <std::size_t kSize>
std::array<std::uint64_t, kSize> bitsOf(const std::array<double, kSize>& tuple) {
  std::array<std::uint64_t, kSize> bits;
  std::transform(tuple.begin(), tuple.end(), bits.begin(),
                 [](double value) { return std::bit_cast<std::uint64_t>(value); });
  return bits;
}

void appendNumber(std::string& text, double value) {
  std::array<char, 32> digits;
  // Integers of the grid without exponent.
  const bool isInteger = std::abs(value) <= CityJsonGrid::kLargestInteger && value == std::trunc(value);
  const auto end = isInteger ? std::to_chars(digits.begin(), digits.end(), static_cast<std::int64_t>(value)).ptr
                             : std::to_chars(digits.begin(), digits.end(), value).ptr;
  text.append(digits.begin(), end);
}

}  // namespace

template <std::size_t kSize>
typename NumberedTuples<kSize>::Tuple NumberedTuples<kSize>::tupleAt(std::size_t number) const {
  Tuple tuple;
  const std::size_t at = number * kSize;
  for (std::size_t i = 0; i < kSize; ++i)
    tuple[i] = at < mKnown.size() ? mKnown[at + i] : mAdded[at - mKnown.size() + i];
  return tuple;
}

template <std::size_t kSize>
bool NumberedTuples<kSize>::isAt(std::size_t number, const Tuple& tuple) const {
  return number < size() && bitsOf(tupleAt(number)) == bitsOf(tuple);
}

template <std::size_t kSize>
std::uint32_t NumberedTuples<kSize>::add(const Tuple& tuple) {
  mAdded.insert(mAdded.end(), tuple.begin(), tuple.end());
  return static_cast<std::uint32_t>(size() - 1);
}

// Where the first of the known that is not less stands among them in order.
template <std::size_t kSize>
std::size_t NumberedTuples<kSize>::firstSorted(const Tuple& tuple) {
  if (mSorted.empty() && !mKnown.empty()) {
    mSorted.resize(mKnown.size() / kSize);
    std::iota(mSorted.begin(), mSorted.end(), 0u);
    std::stable_sort(mSorted.begin(), mSorted.end(),
                     [this](std::uint32_t a, std::uint32_t b) { return bitsOf(tupleAt(a)) < bitsOf(tupleAt(b)); });
  }
  const auto found = std::lower_bound(mSorted.begin(), mSorted.end(), bitsOf(tuple),
                                      [this](std::uint32_t a, const auto& bits) { return bitsOf(tupleAt(a)) < bits; });
  return static_cast<std::size_t>(found - mSorted.begin());
}

template <std::size_t kSize>
std::uint32_t NumberedTuples<kSize>::numberOf(const Tuple& tuple) {
  const std::size_t at = firstSorted(tuple);
  if (at < mSorted.size() && isAt(mSorted[at], tuple)) return mSorted[at];
  const auto [known, isNew] = mAddedNumbers.try_emplace(bitsOf(tuple), static_cast<std::uint32_t>(size()));
  if (isNew) add(tuple);
  return known->second;
}

template <std::size_t kSize>
std::uint32_t NumberedTuples<kSize>::nextNumberOf(const Tuple& tuple,
                                                  std::unordered_map<std::size_t, std::size_t>& taken) {
  const std::size_t first = firstSorted(tuple);
  if (first < mSorted.size() && isAt(mSorted[first], tuple)) {
    const std::size_t at = first + taken[first]++;
    if (at < mSorted.size() && isAt(mSorted[at], tuple)) return mSorted[at];
  }
  return add(tuple);
}

template class NumberedTuples<2>;
template class NumberedTuples<3>;

CityJsonVertices::CityJsonVertices(const Model& model) : mPoints({}) {
  mGrid.isGiven = true;
  mIsNewGrid = true;
  // Shared vertices are written once, where the numbers of all objects agree and are in order.
  std::map<std::uint32_t, std::array<double, 3>> shared;
  for (const Object& object : model.objects) {
    const std::vector<std::uint32_t>& numbers = object.fileVertices;
    if (numbers.size() * 3 != object.mesh.points.size()) return;
    if (std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>()) != numbers.end()) return;
    const std::vector<bool> isUsed = usedVertices(object.mesh);
    for (std::size_t vertex = 0; vertex < numbers.size(); ++vertex) {
      if (!isUsed[vertex]) continue;
      const auto point = pointAt(object.mesh.points, vertex);
      const auto [known, isNew] = shared.try_emplace(numbers[vertex], point);
      if (!isNew && bitsOf(known->second) != bitsOf(point)) return;
    }
  }
  mSharesVertices = true;
  for (const auto& [number, point] : shared) mShared[number] = mPoints.add(point);
}

CityJsonVertices::CityJsonVertices(const CityJsonFile& file)
    : mFile(&file), mPoints(file.points()), mGrid(file.grid()) {}

std::vector<std::uint32_t> CityJsonVertices::numbersOf(const Object& object) {
  const std::vector<bool> isUsed = usedVertices(object.mesh);
  std::vector<std::uint32_t> numbers(isUsed.size(), kNone);
  const bool isNumbered = object.fileVertices.size() == numbers.size();
  std::unordered_map<std::size_t, std::size_t> taken;
  for (std::size_t vertex = 0; vertex < numbers.size(); ++vertex) {
    if (!isUsed[vertex]) continue;
    const auto point = pointAt(object.mesh.points, vertex);
    if (mSharesVertices)
      numbers[vertex] = mShared.at(object.fileVertices[vertex]);
    else if (mFile == nullptr)
      numbers[vertex] = mPoints.add(point);
    else if (isNumbered && mPoints.isAt(object.fileVertices[vertex], point))
      numbers[vertex] = object.fileVertices[vertex];
    else
      numbers[vertex] = mPoints.nextNumberOf(point, taken);
  }
  return numbers;
}

bool CityJsonVertices::isOnGrid(std::span<const double> points) const {
  for (std::size_t i = 0; i < points.size(); ++i)
    if (!mGrid.holds(points[i], i % 3)) return false;
  return true;
}

void CityJsonVertices::fit(Notes& notes) {
  if (!mGrid.isGiven || (mFile != nullptr && isOnGrid(mPoints.added()))) return;
  mIsNewGrid = true;
  mGrid.translate = {0, 0, 0};
  std::size_t rounded = 0;
  double largest = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    std::vector<double> coordinates;
    for (const std::span<const double> points : {mPoints.known(), std::span<const double>(mPoints.added())})
      for (std::size_t i = axis; i < points.size(); i += 3) coordinates.push_back(points[i]);
    mGrid.scale[axis] = scaleFor(coordinates);
    for (const double coordinate : coordinates) {
      const double error = std::abs(mGrid.integerFor(coordinate, axis) * mGrid.scale[axis] - coordinate);
      if (error > 0) ++rounded;
      largest = std::max(largest, error);
    }
  }
  if (rounded > 0) notes.add(fmt::format("digits of coordinates, rounded by at most {}", largest), rounded);
}

std::string CityJsonVertices::transform() const {
  if (!mIsNewGrid) return {};
  const auto numbers = [](const std::array<double, 3>& values) {
    return fmt::format("[{},{},{}]", values[0], values[1], values[2]);
  };
  return fmt::format(R"({{"scale":{},"translate":{}}})", numbers(mGrid.scale), numbers(mGrid.translate));
}

void CityJsonVertices::append(std::string& text, std::span<const double> points) const {
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (i % 3 == 0) text += text.size() > 1 ? ",[" : "[";
    appendNumber(text, mGrid.isGiven ? mGrid.integerFor(points[i], i % 3) : points[i]);
    text += i % 3 == 2 ? ']' : ',';
  }
}

std::string CityJsonVertices::vertices() const {
  if (!mIsNewGrid && mPoints.added().empty()) return {};
  std::string text = "[";
  if (mIsNewGrid) {
    append(text, mPoints.known());
  } else {
    // As they stand, without the closing bracket; "[" for none.
    const std::string_view old = mFile->vertices();
    text = old.substr(0, 1 + old.find_last_not_of(" \r\n\t", old.size() - 2));
  }
  append(text, mPoints.added());
  return text + "]";
}

}  // namespace facetbox
