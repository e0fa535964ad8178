// Whole capture files, of any bytes: listed, rewritten, searched for a camera, queried for requests
// that were not recorded, and replayed through the driver in virtual time. Each error in a file is
// reported in one line that names the file.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "apps/lidcam/stream/replay_run.h"
#include "bus/capture/files/pcap_file.h"
#include "bus/capture/replay/capture_bus.h"
#include "bus/capture/replay/capture_source.h"
#include "bus/enumeration.h"
#include "fuzz/support/app_in_virtual_time.h"
#include "fuzz/support/input.h"
#include "library/base/command_error.h"
#include "platform/host/nt/system/debug_print.h"

namespace lidcam::fuzz {
namespace {

constexpr std::uint32_t kMostPolls = 2000;

// A file in memory that readers open by its path.
class FileInMemory {
 public:
  FileInMemory() : file_(::memfd_create("capture", 0)) {
    Require(file_ >= 0);
    const char* const shared = "/dev/shm";
    const std::filesystem::path place =
        std::filesystem::is_directory(shared) ? shared : std::filesystem::temp_directory_path();
    std::string name = (place / "lidcam-XXXXXX").string();
    Require(::mkdtemp(name.data()) != nullptr);
    folder_ = name;
  }
  FileInMemory(const FileInMemory&) = delete;
  FileInMemory& operator=(const FileInMemory&) = delete;
  ~FileInMemory() {
    ::close(file_);
    std::error_code error;
    std::filesystem::remove_all(folder_, error);
  }

  void Replace(std::span<const std::uint8_t> bytes) const {
    Require(::ftruncate(file_, 0) == 0);
    Require(::pwrite(file_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  }

  [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(file_); }
  /// A path for a copy of the file.
  [[nodiscard]] std::string CopyPath() const { return (folder_ / "copy.pcap").string(); }

 private:
  const int file_;
  std::filesystem::path folder_;
};

void RequireOneLine(std::string_view text, const std::string& path, const std::string& copy) {
  Require(!text.empty() && text.find('\n') == std::string_view::npos);
  Require(text.find(path) != std::string_view::npos || text.find(copy) != std::string_view::npos);
}

void RequireLines(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    Require(!line.empty() && line.find('\n') == std::string::npos);
  }
}

void List(const std::string& path) {
  const bus::CaptureSurvey survey = bus::SurveyCapture(path);
  RequireLines(bus::NotesOn(survey));
  for (const bus::RecordedDevice& device : survey.Devices) {
    RequireLines({bus::Describe(device)});
    RequireLines(bus::NotesOn(device));
    RequireLines(bus::UnknownOf(device));
    const bus::CaptureSource source(path, device.Address);
    Require(source.Device().Address == device.Address && source.IsCutOff() == survey.IsCutOff);
  }
}

// A rewritten file must have the same contents, whether it was completed or kept after a failure.
void WriteAnew(const std::string& path, const std::string& copy, bool isCompleted) {
  std::remove(copy.c_str());
  bus::PcapReader reader(path);
  bus::PcapWriter writer(copy, reader.LinkType());
  bus::PcapPacket packet;
  while (reader.Next(packet)) writer.Write(packet.TimeMicroseconds, packet.Bytes);
  if (isCompleted) {
    writer.Close();
  } else {
    writer.KeepWhole();
    if (reader.RecordNumber() == 0) return Require(!std::filesystem::exists(copy));
  }
  bus::PcapReader first(path);
  bus::PcapReader second(copy);
  bus::PcapPacket other;
  while (first.Next(packet)) {
    Require(second.Next(other));
    Require(packet.TimeMicroseconds == other.TimeMicroseconds);
    Require(std::ranges::equal(packet.Bytes, other.Bytes));
  }
  Require(!second.Next(other) && !second.IsCutOff());
}

// A host whose requests differ from the recorded one's.
void AskOtherwise(const bus::CaptureSource& source) {
  bus::CaptureBus recorded(source);
  try {
    static_cast<void>(bus::EnumerateDevice(recorded));
  } catch (const bus::EnumerationError&) {
  }
  std::vector<std::uint8_t> buffer(8 * 128);
  std::vector<bus::IsochronousPacket> packets(8);
  constexpr std::uint8_t kEndpoints[] = {0x81, 0x82};
  constexpr std::uint8_t kSettings[] = {0, 1, 7};
  for (const std::uint8_t endpoint : kEndpoints) {
    static_cast<void>(recorded.ReadIsochronous(endpoint, buffer, packets));
    recorded.Abort(endpoint);
  }
  for (const std::uint8_t setting : kSettings) {
    static_cast<void>(recorded.SelectSetting(0, setting));
  }
  static_cast<void>(recorded.FrameNumber());
  recorded.Unplug();
  Require(recorded.ReadIsochronous(0x82, buffer, packets).Status == bus::UsbStatus::Disconnected);
  Require(recorded.SelectSetting(0, 0) == bus::UsbStatus::Disconnected);
}

void Replay(const std::string& path) {
  const bus::CaptureSource source(path);
  AskOtherwise(source);
  const app::PictureSize raw = app::EstimateRawSize(source);
  const app::StreamLimits limits{.Frames = 2, .Duration = {}, .ToleratesSilence = true};
  static_cast<void>(app::RunReplay(source, {.Delivered = {160, 120}, .Raw = raw}, limits, nullptr,
                                   {.IsQuiet = true}));
}

}  // namespace
}  // namespace lidcam::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace lidcam;
  static const fuzz::FileInMemory file;
  host::SetDebugPrintSink(nullptr);
  file.Replace({data, size});
  fuzz::InterruptAfter(fuzz::kMostPolls);
  const std::string path = file.Path();
  try {
    fuzz::List(path);
    fuzz::WriteAnew(path, file.CopyPath(), size % 2 == 0);
    fuzz::Replay(path);
  } catch (const bus::CaptureError& error) {
    fuzz::RequireOneLine(error.what(), path, file.CopyPath());
  } catch (const app::CommandError& error) {
    // Failures after the file was read need not name it: the camera in the driver has no path.
    fuzz::Require(std::string_view(error.what()).find('\n') == std::string_view::npos);
  }
  return 0;
}
