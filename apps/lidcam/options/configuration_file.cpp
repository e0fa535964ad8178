#include "apps/lidcam/options/configuration_file.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <istream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

using Words = std::vector<std::string>;

std::string DefaultFile() {
  const char* const folder = std::getenv("XDG_CONFIG_HOME");
  if (folder != nullptr && *folder != '\0') {
    return (std::filesystem::path(folder) / "lidcam/config").string();
  }
  const char* const home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') return {};
  return (std::filesystem::path(home) / ".config/lidcam/config").string();
}

std::string EnvironmentName(const std::string& option) {
  std::string name = "LIDCAM_" + option;
  std::ranges::transform(name, name.begin(), [](unsigned char letter) {
    return letter == '-' ? '_' : static_cast<char>(std::toupper(letter));
  });
  return name;
}

void NameEnvironment(CLI::App& command) {
  for (CLI::Option* const option : command.get_options()) {
    if (option->get_lnames().empty() || !option->get_envname().empty()) continue;
    if (!option->get_configurable()) continue;
    option->envname(EnvironmentName(option->get_lnames().front()));
  }
  for (CLI::App* const sub : command.get_subcommands({})) NameEnvironment(*sub);
}

/// The command that the words name, from the top; null if there is none.
const CLI::App* Find(const CLI::App& app, const Words& words) {
  const CLI::App* command = &app;
  for (const std::string& word : words) {
    const std::vector<const CLI::App*> named =
        command->get_subcommands([&](const CLI::App* sub) { return sub->get_name() == word; });
    if (named.empty()) return nullptr;
    command = named.front();
  }
  return command;
}

const CLI::Option* OptionOf(const CLI::App& command, const std::string& name) {
  return command.get_option_no_throw("--" + name);
}

bool AnyHas(const CLI::App& command, const std::string& name) {
  if (OptionOf(command, name) != nullptr) return true;
  const std::vector<const CLI::App*> subs =
      command.get_subcommands([](const CLI::App*) { return true; });
  return std::ranges::any_of(subs, [&](const CLI::App* sub) { return AnyHas(*sub, name); });
}

/// The words of the command line that name the command.
Words RunningCommand(const CLI::App& app) {
  Words words;
  const CLI::App* command = &app;
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    words.push_back(command->get_name());
  }
  return words;
}

std::string SectionText(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ".") + word;
  return text;
}

/// Passes on what a file says for the command that runs, and the environment doesn't.
class UsualOptions : public CLI::ConfigTOML {
 public:
  explicit UsualOptions(const CLI::App& app) : app_(app) {}

  [[nodiscard]] std::vector<CLI::ConfigItem> from_config(std::istream& input) const override {
    std::vector<CLI::ConfigItem> lines = CLI::ConfigTOML::from_config(input);
    // Section marks, which would name further commands.
    std::erase_if(lines, [](const auto& item) { return item.name == "++" || item.name == "--"; });
    for (const CLI::ConfigItem& item : lines) Check(item);
    const Words running = RunningCommand(app_);
    std::vector<CLI::ConfigItem> own;
    // What a command's own section says takes the place of what holds for all.
    for (const bool isSection : {true, false}) {
      for (CLI::ConfigItem item : lines) {
        if (item.parents != (isSection ? running : Words{}) || IsIn(own, item.name)) continue;
        const CLI::Option* const option = OptionOf(*Find(app_, running), item.name);
        if (option == nullptr || std::getenv(option->get_envname().c_str()) != nullptr) continue;
        item.parents = running;
        own.push_back(std::move(item));
      }
    }
    return own;
  }

 private:
  static bool IsIn(const std::vector<CLI::ConfigItem>& items, const std::string& name) {
    return std::ranges::find(items, name, &CLI::ConfigItem::name) != items.end();
  }

  void Check(const CLI::ConfigItem& item) const {
    const std::string file = app_.get_config_ptr()->as<std::string>();
    const CLI::App* const command = Find(app_, item.parents);
    if (command == nullptr) {
      throw UsageError("configuration '" + file + "': there is no command [" +
                       SectionText(item.parents) + "]");
    }
    const bool isKnown = item.parents.empty() ? AnyHas(*command, item.name)
                                              : OptionOf(*command, item.name) != nullptr;
    if (isKnown) return;
    throw UsageError("configuration '" + file +
                     "': " + (item.parents.empty() ? "no command" : SectionText(item.parents)) +
                     " has an option --" + item.name);
  }

  const CLI::App& app_;
};

}  // namespace

void AddConfigurationFile(CLI::App& app) {
  // The text of --help is the same for all users: it doesn't have the user's folder.
  app.set_config("--config", DefaultFile(),
                 "file with one's usual options, a line 'size = \"320x240\"' each, below [command] "
                 "for one command alone; if not given, lidcam/config in $XDG_CONFIG_HOME or "
                 "~/.config; LIDCAM_SIZE in the environment goes before it, and the command line "
                 "before both")
      ->option_text("FILE");
  app.config_formatter(std::make_shared<UsualOptions>(app));
  for (CLI::App* const command : app.get_subcommands({})) NameEnvironment(*command);
}

}  // namespace lidcam::app
