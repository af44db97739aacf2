#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <tools/commands/CommandLine.h>
#include <tools/commands/HelpFiles.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

struct App {
  Action mAction;
  std::unique_ptr<CLI::App> mApp = makeCommandLine(mAction);
};

// The part of a text from `begin` up to the next `end` after it.
std::string partOf(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin);
  if (from == std::string::npos) return "";
  return text.substr(from, text.find(end, from + begin.size()) - from);
}

std::string withoutHyphenEscapes(std::string text) {
  for (std::size_t at; (at = text.find("\\-")) != std::string::npos;) text.erase(at, 1);
  return text;
}

bool hasTool(const std::string& name) { return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0; }

// What a shell command prints.
std::string outputOf(const std::string& command, const std::string& words) {
  const TestFolder folder;
  const std::string script = folder.write("script", words);
  const int status =
      std::system((command + " " + quoted(script) + " >" + quoted(folder.path("out")) + " 2>&1").c_str());
  return readText(folder.path("out")) + (status == 0 ? "" : "!status!");
}

TEST(HelpFiles, everyOptionOfEveryCommandIsInEach) {
  const App app;
  const std::string man = withoutHyphenEscapes(manPage(*app.mApp, "1.2.3"));
  const std::string bash = bashCompletion(*app.mApp), zsh = zshCompletion(*app.mApp);
  std::size_t count = 0;
  for (const CLI::App* command : app.mApp->get_subcommands([](const CLI::App*) { return true; })) {
    const std::string name = command->get_name();
    const std::string inMan = partOf(man, ".SS facetbox " + name + "\n", ".SS "),
                      inBash = partOf(bash, "    " + name + ")\n", ";;"),
                      inZsh = partOf(zsh, "        " + name + ")\n", ";;");
    EXPECT_THAT(inMan, HasSubstr(command->get_description()));
    EXPECT_THAT(zsh, HasSubstr("'" + name + ":"));
    for (const CLI::Option* option : command->get_options()) {
      SCOPED_TRACE(name + " " + option->get_name());
      if (option->get_positional()) {
        EXPECT_THAT(inMan, HasSubstr(".TP\n\\fI" + option->get_name(true) + "\\fR\n"));
        EXPECT_THAT(inZsh, HasSubstr(":" + option->get_name(true) + ":_files'"));
        continue;
      }
      EXPECT_THAT(inMan, HasSubstr(option->get_description() + "\n"));
      for (const std::string& longName : option->get_lnames()) {
        ++count;
        EXPECT_THAT(inMan, HasSubstr("\\fB--" + longName + "\\fR"));
        EXPECT_TRUE(inBash.find("--" + longName + " ") != std::string::npos ||
                    inBash.find("--" + longName + "'") != std::string::npos);
        EXPECT_THAT(inZsh, HasSubstr("--" + longName + "["));
      }
    }
  }
  EXPECT_GT(count, 40u);
  EXPECT_THAT(zsh, HasSubstr(":(object face material normal)'"));
  EXPECT_THAT(zsh, HasSubstr(":_values -s , kind short-faces "));
}

TEST(HelpFiles, thePageIsGoodForItsFormatter) {
  const App app;
  const std::string man = manPage(*app.mApp, "1.2.3");
  EXPECT_THAT(man, StartsWith(".TH FACETBOX 1 "));
  if (!hasTool("groff")) GTEST_SKIP() << "no groff";
  const std::string page = outputOf("groff -man -Tascii -ww -rLL=100n", man);
  EXPECT_THAT(page, Not(HasSubstr("warning")));
  EXPECT_THAT(page, Not(HasSubstr("!status!")));
  EXPECT_THAT(page, HasSubstr("--merge-vertices"));
}

// Bash as it completes words: sets what it is told, then prints what it would offer.
std::string completed(const std::vector<std::string>& words, const std::string& folder = ".") {
  const App app;
  std::string script = bashCompletion(*app.mApp) + "cd " + quoted(folder) + "\nCOMP_WORDS=(";
  for (const std::string& word : words) script += quoted(word) + " ";
  script += ")\nCOMP_CWORD=" + std::to_string(words.size() - 1) + "\n_facetbox\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n";
  return outputOf("bash", script);
}

TEST(HelpFiles, bashCompletesCommandsOptionsAndFiles) {
  if (!hasTool("bash")) GTEST_SKIP() << "no bash";
  const TestFolder folder;
  folder.write("my house.obj", "");
  folder.write("tree.ply", "");
  EXPECT_EQ(completed({"facetbox", "cl"}), "clean\n");
  EXPECT_EQ(completed({"facetbox", "--v"}), "--version\n");
  EXPECT_THAT(completed({"facetbox", ""}), HasSubstr("\nrender\n"));
  EXPECT_EQ(completed({"facetbox", "clean", "--remove-z"}), "--remove-zero-area\n--remove-zero-edges\n");
  EXPECT_EQ(completed({"facetbox", "render", "x.obj", "--comp"}), "--compare\n");
  EXPECT_EQ(completed({"facetbox", "render", "my"}, folder.path("")), "my house.obj\n");
  EXPECT_EQ(completed({"facetbox", "clean", "x.obj", "-o", "t"}, folder.path("")), "tree.ply\n");
  // A length is expected.
  EXPECT_EQ(completed({"facetbox", "clean", "--all", "t"}, folder.path("")), "\n");
  EXPECT_EQ(completed({"facetbox", "nonsense", "--"}), "\n");
  EXPECT_EQ(completed({"facetbox", "convert", "x", "y", "--to", "g"}), "gltf\nglb\n");
  EXPECT_EQ(completed({"facetbox", "convert", "--from", "=", "st"}), "stl\n");
  EXPECT_EQ(completed({"facetbox", "query", "--by", "="}), "object\nface\nmaterial\n");
  EXPECT_EQ(completed({"facetbox", "render", "--show", ""}), "defects\n");
  EXPECT_EQ(completed({"facetbox", "render", "--background", ""}), "white\nblack\n");
  EXPECT_EQ(completed({"facetbox", "check", "--allow", "open-edges,unused"}), "open-edges,unused-vertices\n");
}

TEST(HelpFiles, zshReadsTheCompletion) {
  if (!hasTool("zsh")) GTEST_SKIP() << "no zsh";
  const App app;
  EXPECT_EQ(outputOf("zsh -n", zshCompletion(*app.mApp)), "");
}

}  // namespace
}  // namespace tool
