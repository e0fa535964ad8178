#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::app {

/// Bytes of the largest file that is read as a register set or its source.
inline constexpr std::size_t kLongestSetFile = std::size_t{1} << 20;

/// Reads a whole file.
/// @param error  set to "NAME: reason" where the file can't be read, or is longer than kLongestSetFile
/// @return nothing in that case
[[nodiscard]] std::optional<std::vector<std::uint8_t>> ReadSetFile(
    const std::filesystem::path& path, std::string& error);

/// Compiles a source into a set file.
/// @return what is wrong, a line each ("S001.txt:12: reason"); empty on success. With errors the
///         target stays as it was.
[[nodiscard]] std::vector<std::string> CompileRegisterSetFile(const std::filesystem::path& source,
                                                              const std::filesystem::path& target);

/// A source of the simulated cameras that is built into the program.
struct SimulatedSet {
  std::string_view Name;  ///< of the source, without the ending: "S001"
  std::string_view Source;
};

/// S000 to S007, in that order.
[[nodiscard]] std::span<const SimulatedSet> SimulatedSets();

/// Writes S000.set to S007.set to system32/drivers of the folder that "\SystemRoot" maps to, where
/// the driver of a simulated camera looks for them. Makes the folders; replaces files that differ.
/// @return "NAME: reason", or nothing on success
[[nodiscard]] std::optional<std::string> InstallSimulatedSets(
    const std::filesystem::path& systemRoot);

}  // namespace lidcam::app
