#include <tools/DefectPicture.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <facetbox/PolyMesh.h>
#include <tools/LinePainter.h>
#include <tools/Text.h>

namespace tool {
namespace {

enum class Symbol { line, surface, disc, diamond, square };

struct Style {
  const char* mName;
  Symbol mSymbol;
  Color mColor;
};

// Colors that people tell apart however they see colors; kinds that are closest differ in their shape as well.
constexpr Style kStyles[kMarkKinds] = {{"open edges", Symbol::line, {213, 94, 0}},
                                       {"overused edges", Symbol::line, {0, 114, 178}},
                                       {"same-direction edges", Symbol::line, {170, 51, 119}},
                                       {"turned faces", Symbol::surface, {230, 159, 0}},
                                       {"double faces", Symbol::surface, {86, 180, 233}},
                                       {"intersecting pairs", Symbol::surface, {240, 228, 66}},
                                       {"zero faces", Symbol::line, {0, 158, 115}},
                                       {"holes that are none", Symbol::line, {0, 0, 0}},
                                       {"zero edges", Symbol::square, {0, 158, 115}},
                                       {"T-corners", Symbol::diamond, {0, 0, 0}},
                                       {"repeated vertices", Symbol::disc, {255, 255, 255}}};
constexpr Color kSound{214, 217, 221}, kSoundBack{168, 173, 180};

constexpr double kLineWidth = 3, kOutlineWidth = 1.5, kRadius = 3, kHalo = 1;
// Larger than the disc that marks the two vertices at one place.
constexpr double kSquare = 5.5;
constexpr double kHidden = 0.3;

double radiusOf(Symbol symbol) { return symbol == Symbol::square ? kSquare : kRadius; }

DotShape shapeOf(Symbol symbol) {
  return symbol == Symbol::disc ? DotShape::disc : symbol == Symbol::square ? DotShape::square : DotShape::diamond;
}

// What makes marks of a color stand out from all that may lie below.
Color haloOf(const Color& color) { return isBright(color) ? Color{0, 0, 0} : Color{255, 255, 255}; }

const Style& styleOf(MarkKind kind) { return kStyles[static_cast<std::size_t>(kind)]; }

// Fill one coverage with all marks of a kind, a little larger or not.
class MarkPainter {
 public:
  MarkPainter(const DefectMarks& marks, const Frame& scene, const LinePainter& painter)
      : mMarks(marks), mScene(scene), mPainter(painter) {
    std::size_t start = 0;
    for (const std::uint32_t count : scene.model().mCounts) {
      mStarts.push_back(start);
      start += count;
    }
  }

  bool hasAny(MarkKind kind) const { return mMarks.mCounts[static_cast<std::size_t>(kind)] > 0; }

  void paint(MarkKind kind, double growth, Coverage& coverage) const {
    for (const DefectMarks::Edge& edge : mMarks.mEdges)
      if (edge.mKind == kind)
        mPainter.paintEdge(coverage, mScene.vertex(edge.mFrom), mScene.vertex(edge.mTo), kLineWidth + 2 * growth);
    const Symbol symbol = styleOf(kind).mSymbol;
    for (const DefectMarks::Face& face : mMarks.mFaces)
      if (face.mKind == kind)
        paintOutline(face.mFace, (symbol == Symbol::line ? kLineWidth : kOutlineWidth) + 2 * growth, coverage);
    for (const DefectMarks::Vertex& vertex : mMarks.mVertices)
      if (vertex.mKind == kind)
        mPainter.paintVertex(coverage, mScene.vertex(vertex.mVertex), radiusOf(symbol) + growth, shapeOf(symbol));
  }

 private:
  void paintOutline(std::uint32_t face, double width, Coverage& coverage) const {
    const FacePool& model = mScene.model();
    const std::uint32_t count = model.mCounts[face];
    const std::uint32_t* const loop = model.mIndices.data() + mStarts[face];
    for (std::uint32_t i = 0; i < count; ++i)
      mPainter.paintEdge(coverage, mScene.vertex(loop[i]), mScene.vertex(loop[(i + 1) % count]), width);
  }

  const DefectMarks& mMarks;
  const Frame& mScene;
  const LinePainter& mPainter;
  std::vector<std::size_t> mStarts;
};

void paintSquare(Coverage& coverage, int left, int top, int growth) {
  constexpr int kSide = 9;
  for (int y = top - growth; y < top + kSide + growth; ++y)
    for (int x = left - growth; x < std::min(left + kSide + growth, coverage.width()); ++x) coverage.raise(x, y, 1);
}

void drawSymbol(Picture& picture, const Style& style, int left, int top) {
  constexpr double kLength = 14;
  const double x = left + 0.5 * kLength, y = top + 0.5 * kCharacterHeight;
  for (const double growth : {kHalo, 0.0}) {
    Coverage coverage(picture.mWidth, picture.mHeight);
    const auto always = [](double) { return 1.0; };
    if (style.mSymbol == Symbol::line)
      paintLine(coverage, left, y, left + kLength, y, kLineWidth + 2 * growth, always);
    else if (style.mSymbol == Symbol::surface)
      paintSquare(coverage, left + 3, top + 2, static_cast<int>(growth));
    else
      paintDot(coverage, x, y, radiusOf(style.mSymbol) + growth, shapeOf(style.mSymbol), 1);
    coverage.blendInto(picture, growth > 0 ? haloOf(style.mColor) : style.mColor);
  }
}

std::string legendText(const DefectMarks& marks, std::size_t kind) {
  return fmt::format("{} {}{}", marks.mCounts[kind], marks.mAreComplete[kind] ? "" : "or more ", kStyles[kind].mName);
}

constexpr int kSymbolWidth = 20, kGap = 8, kLineHeight = kCharacterHeight + 4;

}  // namespace

FacePool withDefectKinds(FacePool model, const DefectMarks& marks) {
  model.mMaterials.assign(1, "sound");
  for (const Style& style : kStyles) model.mMaterials.emplace_back(style.mName);
  model.mMaterialOf.assign(model.faceCount(), 0);
  // Of several kinds the one that tells most shows: faces that repeat others intersect them, too.
  for (const MarkKind kind :
       {MarkKind::zeroFace, MarkKind::intersectingFace, MarkKind::doubleFace, MarkKind::turnedFace})
    for (const DefectMarks::Face& face : marks.mFaces)
      if (face.mKind == kind) model.mMaterialOf[face.mFace] = static_cast<std::uint32_t>(kind) + 1;
  return model;
}

Color faceColorOf(std::uint32_t id, bool isBack) {
  if (id <= 1 || id > kMarkKinds + 1) return isBack ? kSoundBack : kSound;
  return kStyles[id - 2].mColor;
}

void paintDefects(Picture& picture, const DefectMarks& marks, const Frame& scene, const SampleGrid& grid,
                  const Camera& camera) {
  const LinePainter lines(grid, camera, kHidden);
  const MarkPainter painter(marks, scene, lines);
  // Faces below edges, edges below vertices, and no halo above a mark.
  const std::vector<MarkKind> order[] = {
      {MarkKind::intersectingFace, MarkKind::doubleFace, MarkKind::turnedFace},
      {MarkKind::sameDirectionEdge, MarkKind::overusedEdge, MarkKind::openEdge, MarkKind::zeroFace, MarkKind::badHole},
      {MarkKind::zeroEdge},
      {MarkKind::sameVertex, MarkKind::tCorner}};
  for (const auto& level : order) {
    for (const double growth : {kHalo, 0.0}) {
      for (const MarkKind kind : level) {
        if (!painter.hasAny(kind)) continue;
        if (growth > 0 && styleOf(kind).mSymbol == Symbol::surface) continue;
        Coverage coverage(picture.mWidth, picture.mHeight);
        painter.paint(kind, growth, coverage);
        coverage.blendInto(picture, growth > 0 ? haloOf(styleOf(kind).mColor) : styleOf(kind).mColor);
      }
    }
  }
}

int legendEntryWidth(const DefectMarks& marks) {
  int width = 0;
  for (std::size_t kind = 0; kind < kMarkKinds; ++kind) width = std::max(width, widthOf(legendText(marks, kind), 1));
  return kSymbolWidth + width + 2 * kGap;
}

Picture drawLegend(const DefectMarks& marks, int width, int entryWidth, bool intersections, const Color& background) {
  std::vector<std::size_t> kinds;
  for (std::size_t kind = 0; kind < kMarkKinds; ++kind)
    if (intersections || kind != static_cast<std::size_t>(MarkKind::intersectingFace)) kinds.push_back(kind);
  const std::size_t columns = static_cast<std::size_t>(std::max(1, width / entryWidth));
  const std::size_t rows = (kinds.size() + columns - 1) / columns;
  Picture picture = Picture::filled(width, static_cast<int>(rows) * kLineHeight + kGap, background);
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    const std::size_t kind = kinds[i];
    const int left = static_cast<int>(i / rows) * entryWidth + kGap;
    const int top = static_cast<int>(i % rows) * kLineHeight + kGap / 2;
    const bool isFound = marks.mCounts[kind] > 0;
    if (isFound) drawSymbol(picture, kStyles[kind], left, top);
    drawText(picture, left + kSymbolWidth, top, legendText(marks, kind),
             isFound ? inkOn(background) : Color{128, 128, 128}, 1);
  }
  return picture;
}

}  // namespace tool
