#pragma once

#include <string>
#include <vector>

#include <facetbox/clean.h>

/// What must hold of a clean-up whatever the model, by plain formulas that call nothing of what they judge. Each fault
/// begins with the name of the property that does not hold.
namespace support {

double diagonalOf(const facetbox::PolyMesh& mesh);

/// Edges that one face alone uses; the rim of a hole is an edge.
std::size_t countOpenEdges(const facetbox::PolyMesh& mesh);

/// How far a corner is from the plane of its face at most.
double unevennessOf(const facetbox::PolyMesh& mesh);

/// Of all faces, holes taken off.
double areaOf(const facetbox::PolyMesh& mesh);

/// Of the solid that the faces bound, holes taken off whatever their winding.
double volumeOf(const facetbox::PolyMesh& mesh);

/// Whether each edge is used as often in one direction as in the other: the volume is one then.
bool isBalanced(const facetbox::PolyMesh& mesh);

/// What a single step may not do: open edges, change area or volume by more than its value accounts for, bend merged
/// faces or let their outlines cross themselves.
std::vector<std::string> faultsOfStep(const facetbox::PolyMesh& before, const facetbox::Cleaned& after);

/// What any number of steps may not do: move the surface by more than `reach`, lose or make up maps, labels or texture
/// coordinates, leave the box.
std::vector<std::string> faultsOfChain(const facetbox::PolyMesh& before, const facetbox::Cleaned& after, double reach);

/// Flat faces must be covered by their triangles, each once.
std::vector<std::string> faultsOfTriangles(const facetbox::PolyMesh& mesh);

}  // namespace support
