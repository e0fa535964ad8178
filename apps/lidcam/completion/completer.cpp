#include "apps/lidcam/completion/completer.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>

#include "apps/lidcam/completion/value_candidates.h"

namespace lidcam::app {
namespace {

bool IsFlag(const CLI::Option& option) {
  return option.get_items_expected_max() == 0;
}

bool TakesSeveral(const CLI::Option& option) {
  return option.get_expected_max() > 1;
}

/// The name under which an option's values are looked up: its long name, or the argument's name.
std::string KeyOf(const CLI::Option& option) {
  if (!option.get_lnames().empty()) return option.get_lnames().front();
  return option.get_name(true);
}

bool IsNamed(const CLI::Option& option, const std::string& word) {
  const std::string name = word.substr(std::min(word.find_first_not_of('-'), word.size()));
  const auto& names = word.starts_with("--") ? option.get_lnames() : option.get_snames();
  return std::ranges::find(names, name) != names.end();
}

const CLI::Option* FindOption(const CLI::App& command, const std::string& word) {
  const std::string name = word.substr(0, word.find('='));
  for (const CLI::Option* const option : command.get_options()) {
    if (IsNamed(*option, name)) return option;
  }
  return nullptr;
}

const CLI::App* FindCommand(const CLI::App& command, const std::string& word) {
  const auto named = command.get_subcommands(
      [&](const CLI::App* candidate) { return candidate->get_name() == word; });
  return named.empty() ? nullptr : named.front();
}

std::string FirstLineOf(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

bool IsOption(const std::string& word) {
  return word.size() > 1 && word.starts_with('-');
}

/// Where the last word stands, by the words before it.
class Position {
 public:
  explicit Position(const CLI::App& app) : command_(&app) {}

  void Pass(const std::string& word) {
    if (IsOption(word)) return PassOption(word);
    if (valued_ != nullptr) {
      if (!TakesSeveral(*valued_)) valued_ = nullptr;
      return;
    }
    if (const CLI::App* const command = FindCommand(*command_, word)) {
      command_ = command;
      arguments_ = 0;
      return;
    }
    ++arguments_;
  }

  [[nodiscard]] Completion At(const std::string& typed) const {
    if (IsOption(typed) && typed.find('=') != std::string::npos) return AssignedValues(typed);
    if (typed.starts_with('-')) return Options(typed);
    if (valued_ != nullptr) return ValuesOf(KeyOf(*valued_), valued_->get_type_name(), typed);
    return CommandsAndArguments(typed);
  }

 private:
  void PassOption(const std::string& word) {
    const CLI::Option* const option = FindOption(*command_, word);
    const bool hasValue = word.find('=') != std::string::npos;
    valued_ = option != nullptr && !hasValue && !IsFlag(*option) ? option : nullptr;
  }

  [[nodiscard]] Completion AssignedValues(const std::string& typed) const {
    const CLI::Option* const option = FindOption(*command_, typed);
    if (option == nullptr || IsFlag(*option)) return {};
    const std::size_t begin = typed.find('=') + 1;
    Completion values = ValuesOf(KeyOf(*option), option->get_type_name(), typed.substr(begin));
    for (Candidate& candidate : values.Candidates) {
      candidate.Word.insert(0, typed.substr(0, begin));
    }
    return values;
  }

  [[nodiscard]] Completion Options(const std::string& typed) const {
    Completion options;
    for (const CLI::Option* const option : command_->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        const std::string word = "--" + name;
        if (!word.starts_with(typed)) continue;
        options.Candidates.push_back({word, FirstLineOf(option->get_description())});
      }
    }
    return options;
  }

  [[nodiscard]] Completion CommandsAndArguments(const std::string& typed) const {
    Completion completion = Argument(typed);
    for (const CLI::App* const command :
         command_->get_subcommands([](const CLI::App*) { return true; })) {
      if (!command->get_name().starts_with(typed)) continue;
      completion.Candidates.push_back(
          {command->get_name(), FirstLineOf(command->get_description())});
    }
    return completion;
  }

  /// Values of the argument that the last word is, in the order of the command's arguments.
  [[nodiscard]] Completion Argument(const std::string& typed) const {
    std::size_t index = 0;
    for (const CLI::Option* const option : command_->get_options()) {
      if (!option->get_positional()) continue;
      if (index == arguments_ || TakesSeveral(*option)) {
        return ValuesOf(KeyOf(*option), option->get_type_name(), typed);
      }
      ++index;
    }
    return {};
  }

  const CLI::App* command_;
  const CLI::Option* valued_ = nullptr;  ///< an option whose value is still to come
  std::size_t arguments_ = 0;            ///< those of the command without a name, so far
};

}  // namespace

Completion CompletionOf(const CLI::App& app, std::span<const std::string> words) {
  Position position(app);
  if (words.empty()) return position.At("");
  for (const std::string& word : words.first(words.size() - 1)) position.Pass(word);
  return position.At(words.back());
}

std::string ToText(const Completion& completion) {
  std::string text;
  for (const Candidate& candidate : completion.Candidates) {
    text += candidate.Word;
    if (!candidate.Note.empty()) text += "\t" + candidate.Note;
    text += "\n";
  }
  if (completion.TakesFile) text += ":files\n";
  return text;
}

}  // namespace lidcam::app
