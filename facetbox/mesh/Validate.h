#pragma once

#include <string>

#include <facetbox/util/Mesh.h>

namespace util {

/// What a mesh breaks of what holds between operations, or "": vertex and normal indices in range, no cleared record
/// left, pools of one length and records apart in them, runs and vertex lists parallel, hole groups complete and in
/// range, the connectivity cache not outdated. Derives the connectivity, so that the next call notices whether a change
/// discards it. O(n log n) in the corners.
std::string findMeshProblem(const Mesh& mesh);

/// Ends the process with a message where findMeshProblem() finds something; `step` says after what. Does nothing unless
/// the library is built with FACETBOX_VALIDATE, as the dev and sanitizer presets do.
void assertValid(const Mesh& mesh, const char* step);

}  // namespace util
