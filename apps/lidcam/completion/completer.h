#pragma once

#include <CLI/CLI.hpp>
#include <span>
#include <string>
#include <vector>

namespace lidcam::app {

/// A word that may stand at the end of an incomplete command line.
struct Candidate {
  std::string Word;
  std::string Note{};  ///< for shells that show one; a single line, may be empty

  friend bool operator==(const Candidate&, const Candidate&) = default;
};

struct Completion {
  std::vector<Candidate> Candidates;
  bool TakesFile = false;  ///< names of files, too, which the shell completes itself
};

/// Determines what may stand in place of the last of `words`, from the commands and options of `app`.
///
/// @param words  those behind the program's name up to the one that is being typed, which may be empty; an
///               option's value may follow it in the same word, behind "="
/// @return only candidates that begin with what has been typed
[[nodiscard]] Completion CompletionOf(const CLI::App& app, std::span<const std::string> words);

/// The completion as the shells' scripts read it: a line each, "WORD<tab>NOTE", and ":files" for names of files.
[[nodiscard]] std::string ToText(const Completion& completion);

}  // namespace lidcam::app
