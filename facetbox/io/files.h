#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include <facetbox/io/FileError.h>
#include <facetbox/util/Export.h>

namespace facetbox {

/// The bytes of a file, or of what a pipe brings until its end. Read, not mapped: a file that shrinks meanwhile must
/// not end the process.
/// @throws ReadError where it cannot be read or is empty
FACETBOX_EXPORT std::string readFile(const std::filesystem::path& path);

/// Writes a file, which appears under its name when it is complete; until then, what stood there stays. Its mode is
/// that of the file it replaces, and a symbolic link stays one. Pipes, devices and /dev/stdout are written directly.
/// @throws WriteError
FACETBOX_EXPORT void writeFile(const std::filesystem::path& path, std::string_view bytes);

/// Whether a file can be written under that name, as far as that can be known before.
/// @throws WriteError
FACETBOX_EXPORT void checkWritable(const std::filesystem::path& path);

/// Whether the path stands for something else than a file that could be replaced: a pipe, a device, /dev/stdout.
FACETBOX_EXPORT bool isSpecialFile(const std::filesystem::path& path);

/// Removes the unfinished files of all running calls that write. For a handler of signals that end the process: it is
/// safe in one, and nothing may be written afterwards.
FACETBOX_EXPORT void removeUnfinishedFiles() noexcept;

}  // namespace facetbox
