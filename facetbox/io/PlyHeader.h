#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace facetbox {

enum class PlyEncoding { kAscii, kLittleEndian, kBigEndian };
enum class PlyType : std::uint8_t { kInt8, kUint8, kInt16, kUint16, kInt32, kUint32, kFloat32, kFloat64 };

std::size_t sizeOf(PlyType type);

/// What a property is read as. Those before the lists are columns of numbers, in this order.
enum class PlyRole : std::uint8_t { kX, kY, kZ, kU, kV, kRed, kGreen, kBlue, kAlpha, kIndices, kTexCoords, kIgnored };

/// Which number of a type is the full color. 0: colors are not of this type.
double fullColorOf(PlyType type);

struct PlyProperty {
  std::string_view mName;
  PlyType mType;  ///< of the values in a list too
  bool mIsList = false;
  PlyType mCountType = PlyType::kUint8;
  PlyRole mRole = PlyRole::kIgnored;
};

enum class PlyKind : std::uint8_t { kVertex, kFace, kOther };

struct PlyElement {
  std::string_view mName;
  PlyKind mKind;
  std::uint64_t mCount;
  std::size_t mLine;  ///< where the header declares it
  std::vector<PlyProperty> mProperties;

  bool has(PlyRole role) const;
};

/// What a PLY file declares. The names point into the text.
struct PlyHeader {
  PlyEncoding mEncoding;
  std::vector<PlyElement> mElements;  ///< one vertex and one face element among them, each with what a mesh needs
  std::size_t mBytes;                 ///< the data begins here
  std::size_t mLines;
  std::uint64_t mVertexCount;
  std::size_t mTextures = 0;  ///< named in comments 'TextureFile NAME'
};

/// @param text  the whole file
/// @param name  name of the file in messages
/// @throws ReadError "name:line: what is wrong"
PlyHeader parsePlyHeader(std::string_view text, const std::string& name);

}  // namespace facetbox
