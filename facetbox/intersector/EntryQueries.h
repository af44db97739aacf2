#pragma once

#include <facetbox/base/Buffer.h>
#include <facetbox/intersector/Entry.h>
#include <facetbox/intersector/IntersectionRaster.h>
#include <facetbox/intersector/NearestSearch.h>
#include <facetbox/math/Vec3.h>

namespace util {

// The questions of the Intersector about one object. What each says is documented there.

/// Room that is kept from query to query, for one thread at a time.
struct QueryScratch {
  Buffer<RasterCell> mCells;  ///< per vertex
  Buffer<double> mProjected;  ///< x, y, z per vertex
};

/// Whether vertices and edges show on set cells only.
bool showsOnRaster(const Entry& entry, const IntersectionRaster& raster, QueryScratch& scratch);

/// Whether the box, where there is one, touches the view volume. First stage of the next and of findNearest().
bool boxOverlapsVolume(const Entry& entry, const double view[16], QueryScratch& scratch);
bool overlapsVolume(const Entry& entry, const double view[16], QueryScratch& scratch);
bool liesInVolume(const Entry& entry, const double view[16]);

/// The nearest point in the view volume. Null where there is none, else part of `search`.
const NearestHit* findNearest(const Entry& entry, NearestSearch& search, QueryScratch& scratch);

/// Makes the instances' ray transforms where they are missing.
/// @param t       untouched without a hit, like the normal
/// @param normal  may be null
bool intersectsRay(Entry& entry, const double origin[3], const double direction[3], double* t, double* normal);

}  // namespace util
