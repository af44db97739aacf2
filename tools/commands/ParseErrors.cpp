#include <tools/commands/ParseErrors.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

namespace tool {
namespace {

// Letters to insert, delete or replace.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

/// "; did you mean ...?", or nothing if no name is near.
std::string suggestion(const std::string& typed, const std::vector<std::string>& names) {
  const std::string* nearest = nullptr;
  std::size_t least = 2 + typed.size() / 4;
  for (const std::string& name : names) {
    std::size_t own = distance(typed, name);
    // The start of a long name, with a letter missing perhaps.
    for (const std::size_t length : {typed.size(), typed.size() + 1})
      if (typed.size() > 4) own = std::min(own, distance(typed, std::string_view(name).substr(0, length)) + 1);
    if (own >= least) continue;
    nearest = &name;
    least = own;
  }
  return nearest ? fmt::format("; did you mean {}?", *nearest) : "";
}

class Explainer {
 public:
  Explainer(const CLI::ParseError& error, const CLI::App& app) : mText(error.what()), mApp(app) {
    const auto chosen = app.get_subcommands();
    mCommand = chosen.empty() ? &app : chosen.front();
    mCalled = chosen.empty() ? "facetbox" : "facetbox " + mCommand->get_name();
  }

  std::string sentence(const CLI::ParseError& error) const {
    // What nobody knows explains best what is missing.
    const std::vector<std::string> rest = mApp.remaining(true);
    const bool isAboutRest =
        dynamic_cast<const CLI::RequiredError*>(&error) || dynamic_cast<const CLI::ExtrasError*>(&error);
    if (isAboutRest && !rest.empty()) {
      const auto option = std::ranges::find_if(rest, [](const std::string& text) { return text.starts_with('-'); });
      return withHelp(unknown(option == rest.end() ? rest.front() : *option));
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error)) return withHelp(missing());
    if (dynamic_cast<const CLI::ExcludesError*>(&error))
      return withHelp(related(" excludes ", "{} and {} cannot be given together"));
    if (dynamic_cast<const CLI::RequiresError*>(&error)) return withHelp(related(" requires ", "{} needs {}"));
    return withHelp(wrongValue());
  }

 private:
  std::string withHelp(const std::string& text) const {
    return fmt::format("{}{} See {} --help", text, text.ends_with('?') ? "" : ".", mCalled);
  }

  std::string unknown(const std::string& argument) const {
    std::vector<std::string> names;
    if (argument.starts_with('-')) {
      for (const CLI::Option* option : mCommand->get_options())
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
      const std::string name = argument.substr(0, argument.find('='));
      return fmt::format("{}: {} has no such option{}", name, mCalled, suggestion(name, names));
    }
    if (mCommand != &mApp) return fmt::format("{}: {} takes no further argument", argument, mCalled);
    for (const CLI::App* command : mApp.get_subcommands({})) names.push_back(command->get_name());
    return fmt::format("{}: there is no such command{}", argument, suggestion(argument, names));
  }

  std::string missing() const {
    if (mCommand == &mApp) return "no command is given";
    return fmt::format("{}: {} is missing", mCalled, mText.substr(0, mText.find(' ')));
  }

  std::string related(const std::string& word, const char* sentence) const {
    const std::size_t at = mText.find(word);
    if (at == std::string::npos) return mText;
    return fmt::format(fmt::runtime(sentence), mText.substr(0, at), mText.substr(at + word.size()));
  }

  // The option that is named first: its value is wrong, missing, or there are several.
  std::string wrongValue() const {
    const CLI::Option* option = nullptr;
    std::size_t first = std::string::npos;
    for (const CLI::Option* each : mCommand->get_options()) {
      const std::string name = each->get_name();
      const std::size_t at = name.empty() ? std::string::npos : mText.find(name);
      const bool isLonger = option && at == first && name.size() > option->get_name().size();
      if (at >= first && !isLonger) continue;
      option = each;
      first = at;
    }
    if (!option) return mText;
    const std::string name = option->get_name(), type = option->get_type_name();
    const std::vector<std::string>& values = option->results();
    if (option->get_expected_max() == 0) return fmt::format("{} takes no value", name);
    if (values.empty() || values.front().empty()) return fmt::format("{}: {} is missing behind it", name, type);
    if (values.size() > 1) return fmt::format("{}: is given {} times, but can be only once", name, values.size());
    if (type.find('|') != std::string::npos) return fmt::format("{}: '{}' is not {}", name, values.front(), type);
    return fmt::format("{}: '{}' does not fit. It takes: {}", name, values.front(), option->get_description());
  }

  const std::string mText;
  const CLI::App& mApp;
  const CLI::App* mCommand;
  std::string mCalled;
};

}  // namespace

std::string sentenceOf(const CLI::ParseError& error, const CLI::App& app) {
  return Explainer(error, app).sentence(error);
}

}  // namespace tool
