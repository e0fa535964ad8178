#include "viewer/live/recordings.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace lidcam::viewer {
namespace {

std::string TimeText() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &local);
  return text.data();
}

}  // namespace

Recordings::Recordings(std::vector<std::string> forms, MakePictureWriter make)
    : forms_(std::move(forms)), make_(std::move(make)) {}

Recordings::~Recordings() {
  std::error_code ignored;
  if (!folder_.empty()) std::filesystem::remove_all(folder_, ignored);
}

// Not in memory, as /tmp may be: a film of an hour has gigabytes.
void Recordings::MakeFolder() {
  const char* const chosen = std::getenv("TMPDIR");
  std::string name = (chosen != nullptr && *chosen != '\0' ? std::string(chosen) : "/var/tmp") +
                     "/lidcam-view-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("folder '" + name +
                             "' for recordings can't be made: " + std::strerror(errno));
  }
  folder_ = name;
}

Recordings::Started Recordings::Start(const std::string& form, const std::string& unit) {
  if (std::ranges::find(forms_, form) == forms_.end()) {
    throw std::runtime_error("this lidcam records no '" + form + "'");
  }
  if (folder_.empty()) MakeFolder();
  const std::uint64_t id = ++newest_;
  const File file{
      .Path = folder_ / (std::to_string(id) + "." + form),
      .Name = "lidcam-" + (unit.empty() ? "recording" : unit) + "-" + TimeText() + "." + form};
  entries_[id] = {.Stored = file};
  return {.Id = id, .Recording = std::make_shared<PictureRecording>(make_, file.Path.string())};
}

void Recordings::Publish(std::uint64_t id) {
  entries_.at(id).IsComplete = true;
  const auto complete =
      std::ranges::count_if(entries_, [](const auto& entry) { return entry.second.IsComplete; });
  if (static_cast<std::size_t>(complete) <= kMostFiles) return;
  const auto oldest =
      std::ranges::find_if(entries_, [](const auto& entry) { return entry.second.IsComplete; });
  Discard(oldest->first);
}

void Recordings::Discard(std::uint64_t id) {
  const auto found = entries_.find(id);
  if (found == entries_.end()) return;
  std::error_code ignored;
  std::filesystem::remove(found->second.Stored.Path, ignored);
  entries_.erase(found);
}

std::optional<Recordings::File> Recordings::Find(std::uint64_t id) const {
  const auto found = entries_.find(id);
  if (found == entries_.end() || !found->second.IsComplete) return std::nullopt;
  return found->second.Stored;
}

}  // namespace lidcam::viewer
