#include "base/folder_entries.h"

#include <algorithm>
#include <system_error>

namespace lidcam::base {

std::vector<std::filesystem::path> EntriesOf(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> entries;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    entries.push_back(entry->path());
  }
  std::ranges::sort(entries);
  return entries;
}

}  // namespace lidcam::base
