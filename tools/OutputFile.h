#pragma once

#include <string>
#include <string_view>

namespace tool {

/// Refuses early what writeFile() could not write: a directory, a folder that is not there or not writable.
/// @throws RunError
void checkWritable(const std::string& path);

/// Whether `path` is written as it stands: a device, a pipe, or standard output by its name.
bool isSpecialFile(const std::string& path);

/// Writes `text` to `path`, whole or not at all: into a temporary file beside it, which then takes its place.
/// The temporary file goes when writing fails and when the process is ended by a signal that it can see (hang-up,
/// interrupt, termination). Special files are written directly. Symbolic links stay; an existing file keeps its mode.
/// @throws RunError
void writeFile(const std::string& path, std::string_view text);

}  // namespace tool
