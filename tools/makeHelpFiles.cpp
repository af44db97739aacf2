// Writes facetbox.1 and the completions for bash and zsh into a folder. Part of the build, not of what is installed.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <facetbox/version.h>
#include <tools/commands/CommandLine.h>
#include <tools/commands/HelpFiles.h>

namespace {

void write(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw std::runtime_error(path.string() + ": cannot be written");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 2) throw std::runtime_error("usage: facetbox_help_files FOLDER");
    const std::filesystem::path folder = argv[1];
    tool::Action action;
    const auto app = tool::makeCommandLine(action);
    write(folder / "facetbox.1", tool::manPage(*app, facetbox::version()));
    write(folder / "facetbox.bash", tool::bashCompletion(*app));
    write(folder / "_facetbox", tool::zshCompletion(*app));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
