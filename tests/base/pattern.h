#pragma once

#include <regex.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace lidcam::test {

/// What a text has of a pattern.
struct PatternMatch {
  std::string Text;   ///< all of it
  std::string Group;  ///< the first group's; empty without one
};

/// All matches of a POSIX extended regular expression, which may have GNU's \w and \s, in their order. std::regex
/// takes a compiler two seconds for each program that names it.
inline std::vector<PatternMatch> MatchesOf(const std::string& text, const std::string& pattern) {
  regex_t compiled;
  if (regcomp(&compiled, pattern.c_str(), REG_EXTENDED) != 0) {
    throw std::invalid_argument("'" + pattern + "' is no pattern");
  }
  const auto cut = [&](const regmatch_t& part) {
    if (part.rm_so < 0) return std::string();
    return text.substr(static_cast<std::size_t>(part.rm_so),
                       static_cast<std::size_t>(part.rm_eo - part.rm_so));
  };
  std::vector<PatternMatch> matches;
  regmatch_t parts[2] = {{0, static_cast<regoff_t>(text.size())}, {-1, -1}};
  const auto end = parts[0].rm_eo;
  while (regexec(&compiled, text.c_str(), 2, parts, REG_STARTEND) == 0) {
    matches.push_back({cut(parts[0]), cut(parts[1])});
    const bool isEmpty = parts[0].rm_so == parts[0].rm_eo;
    parts[0] = {parts[0].rm_eo + (isEmpty ? 1 : 0), end};
    if (parts[0].rm_so > end) break;
  }
  regfree(&compiled);
  return matches;
}

}  // namespace lidcam::test
