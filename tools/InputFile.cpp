#include <tools/InputFile.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {

std::string readFile(const std::string& path) {
  const auto fail = [&](int error) {
    throw InputError(fmt::format("{}: cannot be read: {}", path, systemErrorText(error)));
  };
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) fail(errno);
  std::string text;
  std::error_code ignored;
  const auto size = std::filesystem::file_size(path, ignored);
  if (!ignored) text.reserve(size + 1);
  std::array<char, 1 << 16> block;
  while (const std::size_t got = std::fread(block.data(), 1, block.size(), file.get())) text.append(block.data(), got);
  if (std::ferror(file.get())) fail(errno);
  if (text.empty()) throw InputError(fmt::format("{}: is empty; there is nothing to read", path));
  return text;
}

}  // namespace tool
