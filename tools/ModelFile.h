#pragma once

#include <optional>
#include <string>
#include <vector>

#include <facetbox/io/Format.h>
#include <facetbox/io/Model.h>

namespace tool {

class Progress;

/// The name of a model that stands for standard input or output.
inline constexpr const char* kStandardStream = "-";

/// How messages call a model that is read: its file, or standard input.
std::string shownInput(const std::string& name);

/// How messages call a model that is written: its file, or standard output.
std::string shownOutput(const std::string& name);

/// Reads a model, for which the time counts; "-" is standard input, which needs a format.
/// @throws InputError, facetbox::ReadError
facetbox::Model readInput(const std::string& name, std::optional<facetbox::Format> from, Progress& progress);

/// Likewise, and says on standard error what is skipped.
facetbox::Model readAndSay(const std::string& name, std::optional<facetbox::Format> from, Progress& progress);

/// Writes a model; "-" is standard output, which needs a format and gets the model at once, when it is complete.
/// Devices and pipes get OBJ if not told otherwise.
/// @return what the format cannot carry
/// @throws facetbox::WriteError
std::vector<facetbox::Note> writeOutput(const facetbox::Model& model, const std::string& name,
                                        std::optional<facetbox::Format> to);

/// Writes a file of any kind; "-" is standard output. @throws RunError, facetbox::WriteError
void writeBytes(const std::string& name, const std::string& bytes);

/// Whether standard output may be taken by what is written.
bool isStream(const std::string& name);

/// What can be known before about reading each of the models. @throws InputError
void checkInputs(const std::vector<std::string>& names, std::optional<facetbox::Format> from);

/// What can be known before about writing. @throws InputError, facetbox::WriteError
void checkOutput(const std::string& name, std::optional<facetbox::Format> to);

/// The format that a model is written in. @throws InputError
facetbox::Format outputFormat(const std::string& name, std::optional<facetbox::Format> to);

/// Such as "12 x normals, 3 x lines and 2 other things"; the most frequent ones first.
std::string listed(std::vector<facetbox::Note> notes);

}  // namespace tool
