// Any bytes as a register set file: neither the camera's loader and appliers nor the tools for set
// files may access memory outside of theirs.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "driver/sensor/modes/setup_registers.h"
#include "driver/sensor/register_sets/register_set_file.h"
#include "driver/sensor/register_sets/register_set_list.h"
#include "fuzz/support/input.h"
#include "library/register_sets/set_checker.h"
#include "library/register_sets/set_compiler.h"
#include "library/register_sets/set_disassembler.h"
#include "platform/host/nt/files/files.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/objects/handles.h"
#include "tests/driver/support/record_bytes.h"

namespace {

using lidcam::fuzz::Require;

using namespace lidcam;

constexpr std::size_t kLongestFile = 65536;

Status AcceptWrite(void*, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t*) {
  return 0;
}

Status AcceptRead(void*, std::uint32_t, std::uint32_t, std::uint32_t, void* buffer,
                  std::uint32_t*) {
  *static_cast<std::uint8_t*>(buffer) = 0;
  return 0;
}

// A file in memory; the set files of the system folder are links to it.
class SetFileInMemory {
 public:
  SetFileInMemory() : file_(::memfd_create("set", 0)) {
    std::string name = (std::filesystem::temp_directory_path() / "lidcam-XXXXXX").string();
    root_ = ::mkdtemp(name.data());
    const std::filesystem::path drivers = root_ / "system32" / "drivers";
    std::filesystem::create_directories(drivers);
    std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(file_), drivers / "S001.set");
    host::SetSystemRoot(root_);
  }
  SetFileInMemory(const SetFileInMemory&) = delete;
  SetFileInMemory& operator=(const SetFileInMemory&) = delete;
  ~SetFileInMemory() {
    std::error_code error;
    std::filesystem::remove_all(root_, error);
    ::close(file_);
  }

  void Replace(std::span<const std::uint8_t> bytes) const {
    Require(::ftruncate(file_, 0) == 0);
    const ssize_t written = ::pwrite(file_, bytes.data(), bytes.size(), 0);
    Require(written == static_cast<ssize_t>(bytes.size()));
  }

 private:
  const int file_;
  std::filesystem::path root_;
};

// The load writes into the three tables only, within the record.
void LoadOverCanaries() {
  const auto context = std::make_unique<CameraContext>();
  test::FillRecord(*context, 0x5A);
  context->SensorType = SensorTypeVGA0708;
  const std::vector<std::uint8_t> before = test::BytesAroundTables(*context);
  LoadRegisterSets(*context);
  Require(test::BytesAroundTables(*context) == before);
}

void LoadAndApply() {
  const auto context = std::make_unique<CameraContext>();
  context->WriteRequest = AcceptWrite;
  context->ReadRequest = AcceptRead;
  context->SensorType = SensorTypeVGA0708;
  context->Gamma = 11;
  context->ClockDivider = 1;
  LoadRegisterSets(*context);
  ApplySetupRegisters(*context);
  for (const RegisterPath path : {RegisterPath::Frame, RegisterPath::Application}) {
    ApplyRegisterSet(*context, RegisterList::Normal, path);
    ApplyRegisterSet(*context, RegisterList::LowLight, path);
  }
  Require(host::PoolUsageOfAll().Blocks == 0);
  Require(host::OpenHandleCount() == 0);
}

bool HasFault(const std::vector<app::SetFinding>& findings) {
  for (const app::SetFinding& finding : findings) {
    if (finding.Kind == app::SetFinding::Weight::Fault) return true;
  }
  return false;
}

// The compiler stays within its memory for any source. A file that the tools show without errors is
// compiled back to itself, unless it replaces its own sections.
void ShowAndCheck(std::span<const std::uint8_t> file) {
  const std::vector<app::SetFinding> findings = app::CheckRegisterSet(file);
  for (const app::SetFinding& finding : findings) {
    Require(finding.Offset <= file.size());
    Require(!app::FindingText("S001.set", finding).empty());
  }
  const app::CompiledSet again = app::CompileRegisterSet(app::DisassembleRegisterSet(file));
  if (again.Errors.empty() && !HasFault(findings)) {
    Require(std::equal(file.begin(), file.end(), again.Bytes.begin(), again.Bytes.end()));
  }
  const app::CompiledSet source =
      app::CompileRegisterSet({reinterpret_cast<const char*>(file.data()), file.size()});
  for (const app::SourceError& error : source.Errors) {
    Require(!app::ErrorText("S001.txt", error).empty());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLongestFile) return -1;
  static const SetFileInMemory setFile;
  setFile.Replace({data, size});
  LoadOverCanaries();
  LoadAndApply();
  ShowAndCheck({data, size});
  return 0;
}
