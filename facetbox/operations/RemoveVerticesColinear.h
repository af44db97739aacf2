#pragma once

#include <cstdint>

#include <facetbox/util/Mesh.h>

namespace util {

/// Against which corners the boundary is straight: those of the mesh as it was given, or those that stay in the end.
enum class StraightAgainst { given, kept };

/// Takes out of the faces every corner at which the boundary runs straight on, so that a chain of edges along one line
/// becomes one edge. Lines and points are not looked at.
///
/// Only a vertex that shares edges with at most two others can go; one inside a surface never does. Its corners are
/// straight when the directions to those two enclose at least 180 - `toleranceDegrees`. The angle is taken in the mesh
/// as it was given: along a gently curving chain every corner within the tolerance goes, however far the chain turns in
/// all. From 180 degrees on every corner is straight, spikes (both neighbors the same vertex) included; below, spikes
/// stay. A NaN tolerance or angle makes nothing straight.
///
/// A straight corner stays, in every face that shares one of its two edges so that no T-junction comes about,
/// - with `keepTextureMapping`, where its texture coordinates in some set are 0.001 or more off the interpolation
///   between its neighbors in the face, or an index lies beyond the set's pairs;
/// - where the face's seam set has an entry for it, or its entry in the outgoing-edge set differs from the corner's
/// before.
///
/// Vertices are visited in index order. A face that would be left with two corners is removed instead. A face that
/// visits a vertex several times loses only the first of these corners. A per-vertex normal belongs to the edge that
/// leaves its corner: where that edge is longer than the one before, the removed corner's normal replaces its
/// predecessor's. (Not so at a face's first corner: there the list of normals loses its last entry, and all others move
/// on by one corner. Intended.)
/// Afterwards unused vertices and removed faces are gone and all face normals are computed anew. Tag sets stay as they
/// are: tags are opaque to this operation.
///
/// @return number of corners removed, a removed face counting for the one corner it was removed for. If 0, the mesh is
///         untouched. O(vertices + corners); quadratic for a face with per-vertex normals, which no record brings.
///
/// Against the corners that stay, it is another rule: turns add up along the boundary, so that a smooth loop loses
/// corners but keeps its shape, and no face ever goes.
/// - A vertex can go where all corners at it lie between the same two others, and then goes from all faces. Runs of
///   such vertices are chains (BoundaryChains); ChainStraightener decides what stays of a chain, and has the measures.
///   Up to 90 degrees, no point of the old boundary is farther from the new one than half the kept edge times
///   tan(tolerance / 2); within that, a spike is none. A loop keeps three corners.
/// - Of several chains between the same ends, or a chain beside an edge, no two become one edge but where two open
///   edges meet so (findBundles); the corners at their ends are then looked at anew.
/// - Texture coordinates are compared with the interpolation between the corners that stay, in all faces of the chain.
/// - A seam entry, or a change in the outgoing-edge set, keeps the vertex in all faces. A removed corner's normal goes.
/// - A tolerance below 0 does nothing. From 180 degrees on every corner is straight, as far as faces are left.
/// - The normals of faces stay as they were; the caller computes them anew.
/// A second call changes nothing. O(vertices + corners), and for long chains about O(n log n).
std::uint64_t removeVerticesColinear(Mesh& mesh, double toleranceDegrees, bool keepTextureMapping,
                                     StraightAgainst against = StraightAgainst::given);

}  // namespace util
