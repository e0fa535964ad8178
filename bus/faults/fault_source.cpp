#include "bus/faults/fault_source.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <system_error>

#include "bus/faults/random_faults.h"

namespace lidcam::bus {
namespace {

constexpr std::string_view kSeedWord = "seed=";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kLongestScript = 16U << 20;

struct MixName {
  std::string_view Word;
  RandomFaultMix Mix;
};
constexpr MixName kMixNames[] = {{"packets", RandomFaultMix::Packets},
                                 {"requests", RandomFaultMix::Requests},
                                 {"everything", RandomFaultMix::Everything}};

std::optional<RandomFaultMix> MixOf(std::string_view word) {
  for (const MixName& name : kMixNames) {
    if (name.Word == word) return name.Mix;
  }
  return std::nullopt;
}

FaultScript FromSeed(const std::string& argument, std::chrono::microseconds duration) {
  const std::string_view rest = std::string_view(argument).substr(kSeedWord.size());
  const std::size_t comma = std::min(rest.find(','), rest.size());
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + comma, seed);
  const auto mix = comma == rest.size() ? RandomFaultMix::Requests : MixOf(rest.substr(comma + 1));
  if (error != std::errc{} || end != rest.data() + comma || !mix) {
    throw FaultScriptError("faults '" + argument +
                               "': a seed is seed=N with N from 0 to 18446744073709551615, and "
                               "',packets', ',requests' or ',everything' may follow",
                           0);
  }
  return RandomFaults(seed, duration, *mix);
}

FaultScript FromFile(const std::string& path) {
  std::ifstream file{path, std::ios::binary};
  std::string text(kLongestScript + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.is_open() || file.bad()) throw FaultScriptError(path + ": can't be read", 0);
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > kLongestScript) {
    throw FaultScriptError(path + ": longer than a fault script may be (16 MiB)", 0);
  }
  // Some editors put a byte order mark ahead of the text.
  if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
  return ParseFaultScript(text, path);
}

bool IsFile(const std::string& argument) {
  std::error_code error;
  const auto status = std::filesystem::status(argument, error);
  return !error && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

}  // namespace

FaultScript LoadFaults(const std::string& argument, std::chrono::microseconds duration) {
  if (argument.starts_with(kSeedWord)) return FromSeed(argument, duration);
  if (IsFile(argument)) return FromFile(argument);
  // One word is no script; a file name was intended.
  if (!argument.empty() && argument.find_first_of(" \t\n;#") == std::string::npos) {
    throw FaultScriptError("faults '" + argument +
                               "': there is no such file; right would be a file, seed=N, or a "
                               "script such as 'at 2s lose 5; control 12 stall'",
                           0);
  }
  return ParseFaultScript(argument);
}

}  // namespace lidcam::bus
