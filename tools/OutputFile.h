#pragma once

#include <string>
#include <string_view>

namespace tool {

/// Detects early that writeFile() would fail: `path` is a directory, or its folder is missing or not writable.
/// @throws RunError
void checkWritable(const std::string& path);

/// Whether writeFile() writes to `path` directly: a device, a pipe, or standard output by its name.
bool isSpecialFile(const std::string& path);

/// Writes `text` to `path` completely or not at all: into a temporary file in the same folder, which then replaces it.
/// The temporary file is removed if writing fails or a signal ends the process (hang-up, interrupt, termination).
/// Special files are written directly. Symbolic links stay; an existing file keeps its mode.
/// @throws RunError
void writeFile(const std::string& path, std::string_view text);

}  // namespace tool
