#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/io/Model.h>

namespace tool {

/// Per vertex the number of its group: those that a weld makes one vertex where no face can prevent it. Groups are
/// numbered through.
std::vector<std::uint32_t> weldGroups(const std::vector<double>& points, double tolerance);

/// How many vertices a weld of all objects together takes away, of those that a weld of each object leaves. A vertex
/// that objects share in the file is one.
/// @param tolerances  of each object; the largest is that for all together
std::size_t weldsAcrossObjects(const facetbox::Model& model, const std::vector<double>& tolerances);

}  // namespace tool
