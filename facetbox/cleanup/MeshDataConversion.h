#pragma once

#include <memory>
#include <string>

#include <facetbox/cleanup/Cleanup.h>
#include <facetbox/util/Mesh.h>

namespace util {

/// The working mesh for a record, with its hole groups checked; null when the record has no vertex.
///
/// A texture run's name is read as Latin-1 and becomes a material. Throws as described at Cleanup.
/// @param log  receives a text when faces were dropped
std::unique_ptr<Mesh> meshDataToMesh(const Cleanup::MeshData& data, std::string& log);

/// A new record for a mesh, to be released with Cleanup::freeMeshData; null when the mesh has no vertex or no face.
///
/// Texture names are written as UTF-8. Hole groups, texture indices and run starts are copied as they stand.
/// @param log  becomes mLog when it is not empty
/// @throws std::length_error where an array would have more than 2^31 - 1 entries
const Cleanup::MeshData* meshToMeshData(const Mesh& mesh, const std::string& log);

}  // namespace util
