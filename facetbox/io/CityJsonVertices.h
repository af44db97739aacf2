#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <facetbox/io/CityJsonFile.h>
#include <facetbox/io/CityJsonGrid.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// Tuples of doubles that a file has, each with its number, and more that are added behind them.
template <std::size_t kSize>
class NumberedTuples {
 public:
  using Tuple = std::array<double, kSize>;

  /// @param known  stays with the caller; it keeps its numbers
  explicit NumberedTuples(std::span<const double> known) : mKnown(known) {}

  /// The number of the first that equals, bit for bit; a new one where there is none.
  std::uint32_t numberOf(const Tuple& tuple);
  /// The same, but each number once: equal tuples get the numbers of all that equal, then new ones.
  /// @param taken  by earlier calls; empty at first
  std::uint32_t nextNumberOf(const Tuple& tuple, std::unordered_map<std::size_t, std::size_t>& taken);
  /// A new one, even where one equals.
  std::uint32_t add(const Tuple& tuple);

  bool isAt(std::size_t number, const Tuple& tuple) const;
  std::size_t size() const { return (mKnown.size() + mAdded.size()) / kSize; }
  std::span<const double> known() const { return mKnown; }
  const std::vector<double>& added() const { return mAdded; }

 private:
  Tuple tupleAt(std::size_t number) const;
  std::size_t firstSorted(const Tuple& tuple);

  std::span<const double> mKnown;
  std::vector<double> mAdded;
  std::vector<std::uint32_t> mSorted;                                       // of the known; empty until asked for
  std::map<std::array<std::uint64_t, kSize>, std::uint32_t> mAddedNumbers;  // by their bits
};

/// The vertices of a file that is written.
class CityJsonVertices {
 public:
  /// Of a file of its own.
  explicit CityJsonVertices(const Model& model);
  /// Of a file that has vertices. They keep their numbers: an address, say, may point at one.
  explicit CityJsonVertices(const CityJsonFile& file);

  /// The numbers of an object's vertices; kNone for those that no face uses.
  std::vector<std::uint32_t> numbersOf(const Object& object);

  /// To be called once, when all vertices are numbered: chooses the grid that loses least.
  void fit(Notes& notes);

  /// The members of the file; null for what stays as it is.
  std::string transform() const;
  std::string vertices() const;

 private:
  bool isOnGrid(std::span<const double> points) const;
  void append(std::string& text, std::span<const double> points) const;

  const CityJsonFile* mFile = nullptr;
  NumberedTuples<3> mPoints;
  CityJsonGrid mGrid;
  bool mIsNewGrid = false;
  bool mSharesVertices = false;                    // by Object::fileVertices
  std::map<std::uint32_t, std::uint32_t> mShared;  // their numbers here
};

}  // namespace facetbox
