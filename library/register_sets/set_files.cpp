#include "library/register_sets/set_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "base/file_replacement.h"
#include "library/register_sets/set_compiler.h"

namespace lidcam::app {
namespace {

std::string Reason(const std::filesystem::path& path, int error) {
  return path.string() + ": " + std::strerror(error);
}

// An open file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  [[nodiscard]] int Number() const { return number_; }

 private:
  const int number_;
};

std::optional<std::string> Replace(const std::filesystem::path& path,
                                   std::span<const std::uint8_t> bytes) {
  const int error = base::ReplaceFile(path.string(), bytes);
  if (error == 0) return std::nullopt;
  return Reason(path, error);
}

}  // namespace

std::optional<std::vector<std::uint8_t>> ReadSetFile(const std::filesystem::path& path,
                                                     std::string& error) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::vector<std::uint8_t> bytes;
  std::uint8_t block[4096];
  ssize_t length = file.Number() < 0 ? -1 : 1;
  while (length > 0 && bytes.size() <= kLongestSetFile) {
    length = ::read(file.Number(), block, sizeof(block));
    if (length > 0) bytes.insert(bytes.end(), block, block + length);
  }
  if (length > 0) errno = EFBIG;
  if (length == 0) return bytes;
  error = Reason(path, errno);
  return std::nullopt;
}

std::vector<std::string> CompileRegisterSetFile(const std::filesystem::path& source,
                                                const std::filesystem::path& target) {
  std::string error;
  const auto text = ReadSetFile(source, error);
  if (!text) return {error};
  const CompiledSet set =
      CompileRegisterSet({reinterpret_cast<const char*>(text->data()), text->size()});
  std::vector<std::string> errors;
  for (const SourceError& found : set.Errors) errors.push_back(ErrorText(source.string(), found));
  if (!errors.empty()) return errors;
  if (const auto failed = Replace(target, set.Bytes)) errors.push_back(*failed);
  return errors;
}

std::optional<std::string> InstallSimulatedSets(const std::filesystem::path& systemRoot) {
  const std::filesystem::path drivers = systemRoot / "system32" / "drivers";
  std::error_code error;
  std::filesystem::create_directories(drivers, error);
  if (error) return drivers.string() + ": " + error.message();
  for (const SimulatedSet& set : SimulatedSets()) {
    const std::string name(set.Name);
    const CompiledSet compiled = CompileRegisterSet(set.Source);
    if (!compiled.Errors.empty()) return ErrorText(name + ".txt", compiled.Errors.front());
    const std::filesystem::path file = drivers / (name + ".set");
    std::string unread;
    if (ReadSetFile(file, unread) == compiled.Bytes) continue;
    if (auto failed = Replace(file, compiled.Bytes)) return failed;
  }
  return std::nullopt;
}

}  // namespace lidcam::app
