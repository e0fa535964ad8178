#include <gtest/gtest.h>

#include "tests/compliance/support/compliance_world.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

#include "bus/capture/recording/recording_bus.h"
#include "bus/capture/replay/capture_bus.h"
#include "bus/enumeration.h"
#include "bus/faults/fault_bus.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "platform/host/client/client_error.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/registry/registry.h"
#include "testbed/installed_driver.h"
#include "testbed/worlds.h"
#include "tests/driver/support/shared_exposure.h"

namespace lidcam::compliance {
namespace {

// Packets lost, cut, corrupted and failed, within the first second and a half of streaming, and
// late answers: faults that a stream must survive. No request fails, so that none may be refused.
constexpr const char* kMildFaults =
    "control 30 late 2ms 4; control 200 late 5ms; at 150ms lose 2; at 300ms error; "
    "at 450ms corrupt 2; at 600ms short; at 800ms marker; at 1s silence 40ms; at 1200ms oversize";

/// With LIDCAM_DRIVER, all cameras of the suite have the driver of that image; with LIDCAM_GUARD_PAGES, its blocks of
/// the pool end at pages that are not accessible.
class DriverOfSuite : public ::testing::Environment {
 public:
  void SetUp() override {
    testbed::InstallDriverOfEnvironment();
    host::SetPoolGuardPages(std::getenv("LIDCAM_GUARD_PAGES") != nullptr);
  }
};

const ::testing::Environment* const g_driverOfSuite =
    ::testing::AddGlobalTestEnvironment(new DriverOfSuite);

/// An empty registry for one scenario.
class FreshRegistry {
 public:
  FreshRegistry() { host::OpenRegistry({}); }
  FreshRegistry(const FreshRegistry&) = delete;
  FreshRegistry& operator=(const FreshRegistry&) = delete;
  ~FreshRegistry() { host::CloseRegistry(); }
};

class TemporaryFile {
 public:
  TemporaryFile() {
    std::string name = (std::filesystem::temp_directory_path() / "lidcam-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = name;
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() { std::filesystem::remove_all(folder_); }

  [[nodiscard]] std::string Path() const { return (folder_ / "bus.pcap").string(); }

 private:
  std::filesystem::path folder_;
};

std::unique_ptr<bus::SimulatedBus> Simulated(const ScenarioOptions& options) {
  return bus::MakeSimulatedBus(options.Camera, bus::Pacing::FreeRunning);
}

void SleepMicroseconds(std::uint64_t microseconds) {
  Sleep(static_cast<LONGLONG>(microseconds) * 10);
}

void RunDisturbed(const Scenario& scenario, const ScenarioOptions& options) {
  const auto camera = Simulated(options);
  bus::FaultBus disturbed(
      *camera, {.Script = bus::ParseFaultScript(kMildFaults), .Sleep = SleepMicroseconds});
  RunOver(disturbed, scenario, options.Seed);
}

void RunRecorded(const Scenario& scenario, const ScenarioOptions& options) {
  const TemporaryFile file;
  host::SimulationOutcome recorded;
  {
    const auto camera = Simulated(options);
    bus::RecordingBus recording(*camera, file.Path());
    static_cast<void>(bus::EnumerateDevice(recording));
    recorded = RunOver(recording, scenario, options.Seed);
    recording.Finish();
  }
  bus::CaptureBus replay{bus::CaptureSource(file.Path())};
  EXPECT_EQ(RunOver(replay, scenario, options.Seed), recorded)
      << "the replay differs from the recording";
}

}  // namespace

std::string NameOf(CameraKind kind) {
  switch (kind) {
    case CameraKind::Simulated:
      return "Simulated";
    case CameraKind::Recorded:
      return "Recorded";
    case CameraKind::Disturbed:
      return "Disturbed";
  }
  return {};
}

void Host::PlugIn() {
  installed_ = std::make_unique<testbed::InstalledTestbed>(
      bus_, testbed::InstalledTestbedOptions{.DriverKey = host::ImagingDriverKey(0)});
  const NTSTATUS status = installed_->Start();
  if (!NT_SUCCESS(status)) {
    Close();
    throw std::runtime_error("the camera doesn't start");
  }
}

void Host::Replug() {
  Close();
  PlugIn();
}

void Host::Close() {
  installed_->Close();
  installed_.reset();
  EXPECT_EQ(host::OpenFileCount(), 0U);
  EXPECT_EQ(host::OpenHandleCount(), 0U);
}

void RunOn(CameraKind kind, const Scenario& scenario, const ScenarioOptions& options) {
  switch (kind) {
    case CameraKind::Simulated:
      RunOver(*Simulated(options), scenario, options.Seed);
      break;
    case CameraKind::Recorded:
      RunRecorded(scenario, options);
      break;
    case CameraKind::Disturbed:
      RunDisturbed(scenario, options);
      break;
  }
}

host::SimulationOutcome RunOver(bus::UsbBus& bus, const Scenario& scenario, std::uint64_t seed) {
  const FreshRegistry registry;
  test::ResetSharedExposure();
  const std::size_t blocks = host::PoolUsageOfAll().Blocks;
  const host::SimulationOutcome outcome = testbed::RunInVirtualTime({.Seed = seed}, [&] {
    Host host(bus);
    testbed::RunThenEnd([&] { scenario(host); }, [&] { host.Close(); });
  });
  EXPECT_EQ(host::PoolUsageOfAll().Blocks, blocks);
  return outcome;
}

void Sleep(LONGLONG time) {
  LARGE_INTEGER interval{};
  interval.QuadPart = -time;
  KeDelayExecutionThread(KernelMode, FALSE, &interval);
}

std::vector<std::size_t> BlocksTakenBy(const std::function<void()>& action) {
  constexpr std::uint32_t kDriversTag = 0x206D6457;  // 'Wdm '
  std::vector<std::size_t> sizes;
  const host::PoolObserver observer([&sizes](const host::PoolEvent& event) {
    const bool isTaken = event.What == host::PoolEvent::Kind::Allocated;
    if (isTaken && event.Tag == kDriversTag) sizes.push_back(event.Size);
  });
  action();
  return sizes;
}

NTSTATUS StatusOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const client::ClientError& error) {
    return error.Status();
  }
  return STATUS_SUCCESS;
}

}  // namespace lidcam::compliance
