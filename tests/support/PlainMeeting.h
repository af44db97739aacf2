#pragma once

#include <facetbox/triangles/TriangleMeeting.h>

namespace support {

/// What meetElsewhere() says, from its definition in fractions: every extreme point of the intersection is a basic
/// solution of the equations that state that a point has weights in both triangles.
bool plainMeetElsewhere(const util::NumberedTriangle& a, const util::NumberedTriangle& b);

}  // namespace support
