#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace lidcam::app {

/// How a check of the machine went.
enum class FindingLevel : std::uint8_t {
  Ok,
  Note,   ///< nothing that keeps a camera from working: something optional is missing
  Wrong,  ///< a camera doesn't work, or not as it could
};

struct Finding {
  std::string Subject;  ///< "permission of usb:1-2:1af0:0511"
  FindingLevel Level = FindingLevel::Ok;
  std::string Text;
  std::string Remedy{};  ///< the one command that mends it; empty if nothing is wrong
};

/// What is looked at.
struct Machine {
  std::filesystem::path Root = "/";     ///< sys, dev and proc lie in it
  std::filesystem::path RuntimeFolder;  ///< of the user's session; empty: there is none
  std::filesystem::path SetFolder;      ///< of register set files for hardware
  std::function<bool(const std::filesystem::path& file)> MayOpen;  ///< for reading and writing
};

/// This machine, as the environment describes it.
[[nodiscard]] Machine ThisMachine();

/// Looks at everything that a camera needs of the machine: its own findings for each camera that is plugged in, then
/// those of the machine. Reads files only.
[[nodiscard]] std::vector<Finding> Examine(const Machine& machine);

}  // namespace lidcam::app
