#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include <tools/CleanReport.h>
#include <tools/Cleaner.h>

namespace tool {

/// Prints what each step has changed, in the order of the steps.
/// @param name  of the model, for messages
/// @throws RunError where nothing is left, after the line that tells so
void printResults(const CleanedModel& cleaned, const std::string& name, CleanReport& report);

/// The same and more, in full.
nlohmann::ordered_json jsonOf(const CleanedModel& cleaned);

}  // namespace tool
