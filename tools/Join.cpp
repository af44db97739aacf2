#include <tools/Join.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <numeric>
#include <utility>

namespace tool {

using facetbox::kNone;
using facetbox::Mark;
using facetbox::Model;
using facetbox::Object;
using facetbox::PolyMesh;

namespace {

// Puts a row of `from` behind those of `to`.
template <typename T>
void appendRow(std::vector<T>& to, const std::vector<T>& from, std::size_t row, std::size_t width) {
  const auto first = from.begin() + static_cast<std::ptrdiff_t>(row * width);
  to.insert(to.end(), first, first + static_cast<std::ptrdiff_t>(width));
}

// Renumbers to the order of first use, and tells which are used.
class Renumbering {
 public:
  explicit Renumbering(std::size_t count) : mNew(count, kNone) {}
  std::uint32_t operator()(std::uint32_t old) {
    if (mNew[old] == kNone) {
      mNew[old] = static_cast<std::uint32_t>(mUsed.size());
      mUsed.push_back(old);
    }
    return mNew[old];
  }
  const std::vector<std::uint32_t>& used() const { return mUsed; }
  void clear() {
    for (const std::uint32_t old : mUsed) mNew[old] = kNone;
    mUsed.clear();
  }

 private:
  std::vector<std::uint32_t> mNew, mUsed;
};

}  // namespace

// Puts one object behind the other.
class Joined::Appender {
 public:
  Appender(Joined& joined, bool isTextured, bool isColored)
      : mJoined(joined),
        mObject(joined.mModel.objects[0]),
        mMesh(mObject.mesh),
        mIsTextured(isTextured),
        mIsColored(isColored),
        mNoMark(static_cast<std::uint32_t>(joined.mMarks.size() - 1)) {}

  void append(const Object& object, std::uint32_t number) {
    const std::vector<std::uint32_t> vertices = appendVertices(object);
    appendFaces(object.mesh, vertices);
    appendLabels(object.mesh, number);
    mVerticesBefore += static_cast<std::uint32_t>(object.mesh.points.size() / 3);
  }

 private:
  std::vector<std::uint32_t> appendVertices(const Object& object) {
    const std::vector<double>& points = object.mesh.points;
    std::vector<std::uint32_t> vertices(points.size() / 3);
    for (std::size_t v = 0; v < vertices.size(); ++v) {
      const auto next = static_cast<std::uint32_t>(mMesh.points.size() / 3);
      vertices[v] = next;
      if (!object.fileVertices.empty()) vertices[v] = mVertexOf.try_emplace(object.fileVertices[v], next).first->second;
      if (vertices[v] < next) continue;
      appendRow(mMesh.points, points, v, 3);
      mObject.fileVertices.push_back(object.fileVertices.empty() ? mVerticesBefore + static_cast<std::uint32_t>(v)
                                                                 : object.fileVertices[v]);
      if (!mIsColored) continue;
      if (object.colors.empty())
        mObject.colors.resize(mMesh.points.size() / 3 * 4, 1.0F);
      else
        appendRow(mObject.colors, object.colors, v, 4);
    }
    return vertices;
  }

  void appendFaces(const PolyMesh& part, const std::vector<std::uint32_t>& vertices) {
    const auto firstFace = static_cast<std::uint32_t>(mMesh.counts.size());
    const auto firstPair = static_cast<std::uint32_t>(mMesh.texCoords.size() / 2);
    for (const std::uint32_t index : part.indices) mMesh.indices.push_back(vertices[index]);
    for (const std::uint32_t index : part.texIndices)
      mMesh.texIndices.push_back(index == kNone ? kNone : firstPair + index);
    if (mIsTextured) mMesh.texIndices.resize(mMesh.indices.size(), kNone);
    for (const std::uint32_t entry : part.holes) mMesh.holes.push_back(entry == kNone ? kNone : firstFace + entry);
    mMesh.counts.insert(mMesh.counts.end(), part.counts.begin(), part.counts.end());
    mMesh.texCoords.insert(mMesh.texCoords.end(), part.texCoords.begin(), part.texCoords.end());
  }

  void appendLabels(const PolyMesh& part, std::uint32_t number) {
    std::map<std::uint32_t, std::uint32_t> labelOf;  // of a mark, in this object
    for (std::size_t face = 0; face < part.counts.size(); ++face) {
      const std::uint32_t mark = part.labels.empty() ? mNoMark : part.labels[face];
      const auto [label, isNew] = labelOf.try_emplace(mark, static_cast<std::uint32_t>(mJoined.mMarkOf.size()));
      if (isNew) {
        mJoined.mMarkOf.push_back(mark);
        mJoined.mObjectOf.push_back(number);
      }
      mMesh.labels.push_back(label->second);
    }
  }

  Joined& mJoined;
  Object& mObject;
  PolyMesh& mMesh;
  bool mIsTextured, mIsColored;
  std::uint32_t mNoMark, mVerticesBefore = 0;
  std::map<std::uint32_t, std::uint32_t> mVertexOf;  // by number in the file
};

Joined::Joined(Model model) : mMarks(model.marks) {
  std::vector<Object> objects = std::exchange(model.objects, {});
  mModel = std::move(model);
  mModel.objects.resize(1);
  mMarks.push_back({});
  bool isTextured = false, isColored = false;
  for (const Object& object : objects) {
    isTextured = isTextured || !object.mesh.texIndices.empty();
    isColored = isColored || !object.colors.empty();
  }
  Appender appender(*this, isTextured, isColored);
  for (std::uint32_t number = 0; number < objects.size(); ++number) {
    Object& object = objects[number];
    appender.append(object, number);
    mNames.push_back(std::move(object.name));
    mPlaces.push_back(std::move(object.place));
    object = {};
  }
  mModel.marks.clear();
  for (const std::uint32_t mark : mMarkOf) mModel.marks.push_back(mMarks[mark]);
}

// What belongs to which object in the mesh that is split.
struct Joined::Parts {
  std::vector<std::size_t> mFirstCorners;
  std::vector<std::vector<std::uint32_t>> mFacesOf;              // per object
  std::map<std::uint32_t, std::vector<std::uint32_t>> mHolesOf;  // per outer face

  Parts(const PolyMesh& mesh, const std::vector<std::uint32_t>& objectOf, std::size_t objects)
      : mFirstCorners(mesh.counts.size()), mFacesOf(objects) {
    std::exclusive_scan(mesh.counts.begin(), mesh.counts.end(), mFirstCorners.begin(), std::size_t{0});
    std::vector<std::uint32_t> homeOf(mesh.counts.size());
    for (std::size_t face = 0; face < homeOf.size(); ++face) homeOf[face] = objectOf[mesh.labels[face]];
    // A hole belongs to the object of its outer face.
    for (auto entry = mesh.holes.begin(); entry != mesh.holes.end(); ++entry) {
      const std::uint32_t outer = *entry;
      while (*++entry != kNone) {
        mHolesOf[outer].push_back(*entry);
        homeOf[*entry] = homeOf[outer];
      }
    }
    for (std::uint32_t face = 0; face < homeOf.size(); ++face) mFacesOf[homeOf[face]].push_back(face);
  }
};

// Takes out the parts, one after the other.
class Splitter {
 public:
  explicit Splitter(const Object& whole)
      : mWhole(whole),
        mMesh(whole.mesh),
        mVertices(mMesh.points.size() / 3),
        mPairs(mMesh.texCoords.size() / 2),
        mFaces(mMesh.counts.size()) {}

  template <typename Parts>
  void fill(Object& object, const Parts& parts, const std::vector<std::uint32_t>& faces,
            const std::vector<std::uint32_t>& markOf) {
    for (const std::uint32_t face : faces) {
      mFaces(face);
      object.mesh.counts.push_back(mMesh.counts[face]);
      object.mesh.labels.push_back(markOf[mMesh.labels[face]]);
      takeCorners(object.mesh, parts.mFirstCorners[face], mMesh.counts[face]);
    }
    const auto isPair = [](std::uint32_t pair) { return pair != kNone; };
    std::vector<std::uint32_t>& pairs = object.mesh.texIndices;
    if (std::none_of(pairs.begin(), pairs.end(), isPair)) pairs.clear();
    for (const std::uint32_t face : faces) takeHoles(object.mesh, parts, face);
    for (const std::uint32_t vertex : mVertices.used()) {
      appendRow(object.mesh.points, mMesh.points, vertex, 3);
      if (!mWhole.colors.empty()) appendRow(object.colors, mWhole.colors, vertex, 4);
    }
    object.fileVertices = mVertices.used();
    for (const std::uint32_t pair : mPairs.used()) appendRow(object.mesh.texCoords, mMesh.texCoords, pair, 2);
    mVertices.clear();
    mPairs.clear();
    mFaces.clear();
  }

 private:
  void takeCorners(PolyMesh& part, std::size_t first, std::size_t count) {
    for (std::size_t corner = first; corner < first + count; ++corner) {
      part.indices.push_back(mVertices(mMesh.indices[corner]));
      if (mMesh.texIndices.empty()) continue;
      const std::uint32_t pair = mMesh.texIndices[corner];
      part.texIndices.push_back(pair == kNone ? kNone : mPairs(pair));
    }
  }

  template <typename Parts>
  void takeHoles(PolyMesh& part, const Parts& parts, std::uint32_t face) {
    const auto holes = parts.mHolesOf.find(face);
    if (holes == parts.mHolesOf.end()) return;
    part.holes.push_back(mFaces(face));
    for (const std::uint32_t hole : holes->second) part.holes.push_back(mFaces(hole));
    part.holes.push_back(kNone);
  }

  const Object& mWhole;
  const PolyMesh& mMesh;
  Renumbering mVertices, mPairs, mFaces;
};

Model Joined::split(Model changed) const {
  const std::vector<Object> all = std::exchange(changed.objects, {});
  changed.marks = mMarks;
  if (all.empty()) return changed;
  const Parts parts(all[0].mesh, mObjectOf, mNames.size());
  Splitter splitter(all[0]);
  for (std::size_t number = 0; number < parts.mFacesOf.size(); ++number) {
    if (parts.mFacesOf[number].empty()) continue;
    Object object{.name = mNames[number], .place = mPlaces[number]};
    splitter.fill(object, parts, parts.mFacesOf[number], mMarkOf);
    changed.objects.push_back(std::move(object));
  }
  return changed;
}

}  // namespace tool
