#include <tools/commands/HelpFiles.h>

#include <algorithm>
#include <sstream>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <tools/DefectLists.h>
#include <tools/commands/Options.h>

namespace tool {
namespace {

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

// Those that help shows.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return !option->get_group().empty(); });
}

bool isPositional(const CLI::Option& option) { return !option.nonpositional(); }
bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }
bool isRepeatable(const CLI::Option& option) { return option.get_items_expected_max() > 1; }

// "-o", "--output"
std::vector<std::string> namesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

bool endsAs(const std::string& text, std::initializer_list<std::string_view> ends) {
  return std::any_of(ends.begin(), ends.end(), [&](std::string_view end) { return text.ends_with(end); });
}

// Values are told by what they are called in the help.
bool takesFile(const CLI::Option& option) {
  if (isPositional(option)) return true;
  const std::string type = option.get_type_name();
  return endsAs(type, {"OUT", "OTHER", "MODEL", "FILE", "DIR", "FOLDER", ".png", ".json"});
}

// The words that an option takes, or of which it takes several with commas between.
struct Words {
  std::vector<std::string> mWords;
  bool mIsList = false;
};

Words wordsOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  Words words;
  if (type == kDefectKindList) {
    for (std::size_t kind = 0; kind < kDefectKinds; ++kind)
      words.mWords.emplace_back(namesOf(static_cast<DefectKind>(kind)).mOption);
    words.mIsList = true;
    return words;
  }
  std::istringstream parts(type);
  const auto isOfWord = [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; };
  for (std::string part; std::getline(parts, part, '|');)
    if (!isPositional(option) && std::all_of(part.begin(), part.end(), isOfWord)) words.mWords.push_back(part);
  return words;
}

std::string replaced(const std::string& text, const std::string& characters, const std::string& before) {
  std::string result;
  for (const char character : text) {
    if (characters.find(character) != std::string::npos) result += before;
    result += character;
  }
  return result;
}

std::string joined(const std::vector<std::string>& parts, const std::string& between) {
  return fmt::format("{}", fmt::join(parts, between));
}

// --- man ---

// Text that the formatter takes as it is.
std::string roff(const std::string& text) {
  std::string result;
  for (const char character : text) {
    if (character == '\\')
      result += "\\e";
    else if (character == '-')
      result += "\\-";
    else
      result += character;
  }
  if (!result.empty() && (result[0] == '.' || result[0] == '\'')) result.insert(0, "\\&");
  return result;
}

// Paragraphs are filled anew, but for those that are set in columns.
std::string roffParagraphs(const std::string& text) {
  std::istringstream lines(text);
  std::vector<std::vector<std::string>> paragraphs(1);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty())
      paragraphs.emplace_back();
    else
      paragraphs.back().push_back(line);
  }
  std::string page;
  for (const std::vector<std::string>& paragraph : paragraphs) {
    if (paragraph.empty()) continue;
    const bool isTable = std::any_of(paragraph.begin(), paragraph.end(),
                                     [](const std::string& line) { return line.find("  ") != std::string::npos; });
    page += isTable ? ".PP\n.nf\n" : ".PP\n";
    for (const std::string& line : paragraph) page += roff(line) + "\n";
    if (isTable) page += ".fi\n";
  }
  return page;
}

std::string roffOption(const CLI::Option& option) {
  if (isPositional(option))
    return fmt::format(".TP\n\\fI{}\\fR\n{}\n", roff(option.get_name(true)), roff(option.get_description()));
  std::vector<std::string> names;
  for (const std::string& name : namesOf(option)) names.push_back("\\fB" + roff(name) + "\\fR");
  const std::string value = takesValue(option) ? " \\fI" + roff(option.get_type_name()) + "\\fR" : "";
  return fmt::format(".TP\n{}{}\n{}\n", joined(names, ", "), value, roff(option.get_description()));
}

std::string roffSynopsis(const CLI::App& command) {
  std::string line = fmt::format("\\fBfacetbox {}\\fR", roff(command.get_name()));
  for (const CLI::Option* option : optionsOf(command)) {
    const std::string more = isRepeatable(*option) ? " ..." : "";
    if (isPositional(*option)) {
      const std::string name = "\\fI" + roff(option->get_name(true)) + "\\fR" + more;
      line += option->get_required() ? " " + name : " [" + name + "]";
    } else if (option->get_required()) {
      line += fmt::format(" \\fB{}\\fR \\fI{}\\fR", roff(namesOf(*option).front()), roff(option->get_type_name()));
    }
  }
  return line + " [\\fIoptions\\fR]\n";
}

std::string roffCommand(const CLI::App& command) {
  std::string page = fmt::format(".SS facetbox {}\n{}.\n", roff(command.get_name()), roff(command.get_description()));
  std::vector<std::string> groups;
  for (const CLI::Option* option : optionsOf(command))
    if (std::find(groups.begin(), groups.end(), option->get_group()) == groups.end())
      groups.push_back(option->get_group());
  for (const std::string& group : groups) {
    if (group != "Options" && group != "Positionals") page += fmt::format(".PP\n\\fB{}:\\fR\n", roff(group));
    for (const CLI::Option* option : optionsOf(command))
      if (option->get_group() == group) page += roffOption(*option);
  }
  return page + roffParagraphs(command.get_footer());
}

// --- bash ---

// Within single quotes.
std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (const char character : text) result += character == '\'' ? "'\\''" : std::string(1, character);
  return result + "'";
}

// The names of all options that `isWanted`.
template <typename Wanted>
std::vector<std::string> namesWhere(const CLI::App& app, Wanted isWanted) {
  std::vector<std::string> names;
  for (const CLI::Option* option : optionsOf(app))
    if (!isPositional(*option) && isWanted(*option))
      for (const std::string& name : namesOf(*option)) names.push_back(name);
  return names;
}

// What follows an option that takes words.
std::string bashWords(const CLI::App& command) {
  std::string cases;
  for (const CLI::Option* option : optionsOf(command)) {
    const Words words = wordsOf(*option);
    if (words.mWords.empty()) continue;
    cases += fmt::format("        {}) {}{} ;;\n", joined(namesOf(*option), "|"),
                         words.mIsList ? "list=1 words=" : "words=", shellQuoted(joined(words.mWords, " ")));
  }
  return cases.empty() ? "" : "      case $previous in\n" + cases + "      esac\n";
}

// --- zsh ---

std::string zshText(const std::string& text) { return replaced(text, "[]:\\", "\\"); }

std::string zshOption(const CLI::Option& option) {
  const Words words = wordsOf(option);
  const std::string all = joined(words.mWords, " ");
  const std::string action = takesFile(option)      ? "_files"
                             : words.mWords.empty() ? " "
                             : words.mIsList        ? "_values -s , kind " + all
                                                    : "(" + all + ")";
  if (isPositional(option))
    return shellQuoted(fmt::format("{}:{}:_files", isRepeatable(option) ? "*" : "", zshText(option.get_name(true))));
  std::string entries;
  for (const std::string& name : namesOf(option)) {
    // Every option may come again: steps do.
    std::string entry = fmt::format("*{}[{}]", name, zshText(option.get_description()));
    if (takesValue(option)) entry += fmt::format(":{}:{}", zshText(option.get_type_name()), action);
    entries += (entries.empty() ? "" : " ") + shellQuoted(entry);
  }
  return entries;
}

std::string zshArguments(const CLI::App& app, const std::string& indent) {
  std::string lines;
  for (const CLI::Option* option : optionsOf(app)) lines += " \\\n" + indent + zshOption(*option);
  return lines;
}

}  // namespace

std::string manPage(const CLI::App& app, const std::string& version) {
  std::string page = fmt::format(
      ".TH FACETBOX 1 \"\" \"facetbox {0}\" \"User Commands\"\n.nh\n.ad l\n.SH NAME\nfacetbox \\- {1}\n.SH SYNOPSIS\n",
      roff(version), roff(app.get_description()));
  for (const CLI::App* command : commandsOf(app)) page += roffSynopsis(*command) + ".br\n";
  page += ".SH OPTIONS\n";
  for (const CLI::Option* option : optionsOf(app)) page += roffOption(*option);
  page += roffParagraphs(app.get_footer()) + ".SH COMMANDS\n";
  for (const CLI::App* command : commandsOf(app)) page += roffCommand(*command);
  return page;
}

std::string bashCompletion(const CLI::App& app) {
  std::vector<std::string> words = namesWhere(app, [](const CLI::Option&) { return true; });
  std::string cases;
  for (const CLI::App* command : commandsOf(app)) {
    words.push_back(command->get_name());
    const auto isValue = [](const CLI::Option& option) { return takesValue(option) && !takesFile(option); };
    cases += fmt::format("    {})\n      options={}\n      values={}\n{}      ;;\n", command->get_name(),
                         shellQuoted(joined(namesWhere(*command, [](const CLI::Option&) { return true; }), " ")),
                         shellQuoted(" " + joined(namesWhere(*command, isValue), " ") + " "), bashWords(*command));
  }
  return fmt::format(R"(# Completion of `facetbox` in bash. Made from its help.
_facetbox() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} command= options= values= word words= list=
  COMPREPLY=()
  # --name=value comes as three words.
  if [ "$current" = = ]; then
    current=
  elif [ "$previous" = = ]; then
    previous=${{COMP_WORDS[COMP_CWORD - 2]}}
  fi
  for word in "${{COMP_WORDS[@]:1:COMP_CWORD - 1}}"; do
    case $word in
      -*) ;;
      *) command=$word; break ;;
    esac
  done
  case $command in
    '') mapfile -t COMPREPLY < <(compgen -W {} -- "$current"); return ;;
{}    *) return ;;
  esac
  if [ "$words" ]; then
    compopt +o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -W "$words" -P "${{list:+${{current%"${{current##*,}}"}}}}" -- "${{current##*,}}")
    return
  fi
  # A value that is no word and no file: nothing to offer.
  case $values in
    *" $previous "*) return ;;
  esac
  case $current in
    -*) mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current") ;;
    *) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
  esac
}}
complete -o filenames -F _facetbox facetbox
)",
                     shellQuoted(joined(words, " ")), cases);
}

std::string zshCompletion(const CLI::App& app) {
  std::string commands, cases;
  for (const CLI::App* command : commandsOf(app)) {
    commands +=
        fmt::format("        {}\n", shellQuoted(command->get_name() + ":" + zshText(command->get_description())));
    cases += fmt::format("        {})\n          _arguments{}\n          ;;\n", command->get_name(),
                         zshArguments(*command, "            "));
  }
  return fmt::format(R"(#compdef facetbox
# Completion of `facetbox` in zsh. Made from its help.
_facetbox() {{
  local context state line
  local -a commands
  typeset -A opt_args
  _arguments -C{} \
    '1:command:->command' \
    '*::argument:->argument'
  case $state in
    command)
      commands=(
{}      )
      _describe command commands
      ;;
    argument)
      case $words[1] in
{}      esac
      ;;
  esac
}}
_facetbox "$@"
)",
                     zshArguments(app, "    "), commands, cases);
}

}  // namespace tool
