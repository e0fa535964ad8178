#include "library/settings/host_environment.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

#include "library/base/command_error.h"
#include "library/base/notices.h"
#include "library/register_sets/set_files.h"
#include "library/settings/trace_observer.h"
#include "platform/host/nt/files/files.h"
#include "platform/host/nt/registry/registry.h"
#include "platform/host/nt/system/debug_print.h"
#include "platform/host/nt/system/status_words.h"

namespace lidcam::app {
namespace {

namespace fs = std::filesystem;

// A later choice of the stream replaces an earlier one.
void PrintTraceTo(std::FILE* stream) {
  static std::optional<TraceObserver> printer;
  printer.emplace([stream](std::string_view line) {
    std::fprintf(stream, "%.*s\n", static_cast<int>(line.size()), line.data());
  });
}

// The driver's messages carry their own line ends, or none: each gets a line of its own here.
void PrintDebugMessage(const std::string& message) {
  static const auto start = std::chrono::steady_clock::now();
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
  const bool endsLine = message.ends_with('\n');
  std::fprintf(stderr, "[%9.6f %d] %s%s", passed.count(), gettid(), message.c_str(),
               endsLine ? "" : "\n");
}

fs::path UserDataFolder() {
  if (const char* const data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data != '\0') {
    return data;
  }
  if (const char* const home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    return fs::path(home) / ".local" / "share";
  }
  throw CommandError("no folder for settings: set LIDCAM_HOME or HOME");
}

void CreateFolder(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) {
    throw CommandError("folder '" + folder.string() + "' can't be made: " + error.message());
  }
}

/// The tree with set files for simulated cameras that the user names, if any.
std::optional<fs::path> NamedRoot() {
  const char* const named = std::getenv("LIDCAM_SYSTEM_ROOT");
  if (named == nullptr || *named == '\0') return std::nullopt;
  std::error_code error;
  if (fs::is_directory(named, error)) return named;
  throw CommandError("LIDCAM_SYSTEM_ROOT '" + std::string(named) +
                     "' is no folder: name a tree with set files under system32/drivers");
}

// A tree that the user names is taken as it is.
fs::path SimulatedRoot(const fs::path& home) {
  if (const auto named = NamedRoot()) return *named;
  fs::path root = home / "simulated-root";
  if (const auto error = InstallSimulatedSets(root)) throw CommandError(*error);
  return root;
}

/// Warns of set files that the driver can't read, each once: the driver runs without them and
/// doesn't report it.
class UnreadableSets {
 public:
  /// @param isTreeNamed  the user names the tree: then a missing set file is reported, too
  explicit UnreadableSets(bool isTreeNamed) : isTreeNamed_(isTreeNamed) {}

  void Tell(const fs::path& path, NTSTATUS status) {
    const bool isMissing =
        status == STATUS_OBJECT_NAME_NOT_FOUND || status == STATUS_OBJECT_PATH_NOT_FOUND;
    if (isMissing && !isTreeNamed_) return;
    const std::lock_guard lock(mutex_);
    if (!told_.insert(path).second) return;
    TellUser("set file '" + path.string() +
             "' can't be read, the camera starts without it: " + host::StatusText(status));
  }

 private:
  const bool isTreeNamed_;
  std::mutex mutex_;
  std::set<fs::path> told_;
};

void TellUnreadableSets(bool isTreeNamed) {
  const auto sets = std::make_shared<UnreadableSets>(isTreeNamed);
  host::SetFileTroubleSink(
      [sets](const fs::path& path, NTSTATUS status) { sets->Tell(path, status); });
}

}  // namespace

fs::path HomeFolder() {
  const char* const home = std::getenv("LIDCAM_HOME");
  const fs::path folder =
      home != nullptr && *home != '\0' ? fs::path(home) : UserDataFolder() / "lidcam";
  CreateFolder(folder);
  return folder;
}

fs::path SettingsFile() {
  return HomeFolder() / "registry.reg";
}

void UseSystemRoot(SetFiles setFiles) {
  const fs::path home = HomeFolder();
  const bool isSimulated = setFiles == SetFiles::OfSimulatedCameras;
  const bool isPluggedIn = setFiles == SetFiles::OfPluggedCameras;
  host::SetSystemRoot(isSimulated   ? SimulatedRoot(home)
                      : isPluggedIn ? NamedRoot().value_or(home / "system-root")
                                    : home / "system-root");
  // A simulated camera has its own set files; a recorded one used those of its host.
  TellUnreadableSets(isPluggedIn || (isSimulated && NamedRoot().has_value()));
}

fs::path SettingsFileFor(SetFiles setFiles) {
  return setFiles == SetFiles::OfHardware ? fs::path() : SettingsFile();
}

RunSettings OpenHostEnvironment(const Verbosity& verbosity, SetFiles setFiles) {
  UseSystemRoot(setFiles);
  if (verbosity.ShowsTrace) PrintTraceTo(stderr);
  if (verbosity.ShowsDebug) host::SetDebugPrintSink(PrintDebugMessage);
  return RunSettings(SettingsFileFor(setFiles));
}

void TraceToStandardOutput() {
  PrintTraceTo(stdout);
}

}  // namespace lidcam::app
