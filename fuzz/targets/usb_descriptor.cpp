// A device with hostile descriptors under the whole driver: wrong types and lengths, wrong totals,
// missing interfaces and endpoints, descriptors that change between reads, refused requests. For
// any descriptors, the driver starts or refuses, a client may try to stream, and nothing is left
// once the device has been removed.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "bus/enumeration.h"
#include "bus/passing_bus.h"
#include "fuzz/support/input.h"
#include "fuzz/support/step_limit.h"
#include "platform/host/client/client_error.h"
#include "platform/host/client/stream.h"
#include "platform/host/nt/simulation/simulated_scheduler.h"
#include "platform/host/nt/system/debug_print.h"
#include "scenarios/camera/stamped_camera.h"
#include "testbed/installed_driver.h"
#include "testbed/installed_testbed.h"

namespace lidcam::fuzz {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kDescriptorIn = 0x80;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kSetConfiguration = 9;

constexpr bus::UsbStatus kRefusals[] = {bus::UsbStatus::Stalled,    bus::UsbStatus::TimedOut,
                                        bus::UsbStatus::Aborted,    bus::UsbStatus::NotRecorded,
                                        bus::UsbStatus::Silent,     bus::UsbStatus::Failed,
                                        bus::UsbStatus::NoBandwidth};

// The simulated camera with other descriptors.
class HostileDevice final : public bus::PassingBus {
 public:
  HostileDevice(bus::UsbBus& camera, Input& input) : PassingBus(camera), input_(input) {}

  bus::ControlResult ControlTransfer(const bus::SetupPacket& setup,
                                     std::span<std::uint8_t> data) override {
    const bool isDescriptor = setup.RequestType == kDescriptorIn && setup.Request == kGetDescriptor;
    if (isDescriptor) return Describe(setup, data);
    const bool isChoice = setup.RequestType == 0 && setup.Request == kSetConfiguration;
    if (isChoice) {
      if (input_.OneIn(8)) return {AnyRefusal(), 0};
      // The camera has only its own configuration, whatever number the descriptor gave it.
      return PassingBus::ControlTransfer(
          {0, kSetConfiguration, setup.Value != 0 ? kUsual : kNone, 0, 0}, {});
    }
    return PassingBus::ControlTransfer(setup, data);
  }

  bus::UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t setting) override {
    if (input_.OneIn(16)) return AnyRefusal();
    const bus::UsbStatus status = PassingBus::SelectSetting(interface, setting);
    return status == bus::UsbStatus::Stalled && input_.OneIn(2) ? bus::UsbStatus::Ok : status;
  }

 private:
  static constexpr std::uint16_t kUsual = 1;
  static constexpr std::uint16_t kNone = 0;

  bus::UsbStatus AnyRefusal() { return kRefusals[input_.UpTo(std::size(kRefusals) - 1)]; }

  bus::ControlResult Describe(const bus::SetupPacket& setup, std::span<std::uint8_t> data) {
    Bytes answer(UINT16_MAX);
    bus::SetupPacket whole = setup;
    whole.Length = UINT16_MAX;
    answer.resize(PassingBus::ControlTransfer(whole, answer).Transferred);
    const bool isDevice = setup.Value >> 8 == 1;
    Bytes& last = isDevice ? lastDevice_ : lastConfiguration_;
    switch (input_.Take<std::uint8_t>() % 9) {
      case 1:
        input_.Change(answer.data(), answer.size());
        break;
      case 2:
        answer.resize(input_.UpTo(1200));
        break;
      case 3:
        answer.resize(input_.UpTo(600));
        input_.TakeInto(answer.data(), answer.size());
        break;
      case 4:
        return {AnyRefusal(), input_.UpTo(setup.Length)};
      case 5:
        answer = AnyConfiguration();
        break;
      case 6:
        answer = AnyConfiguration();
        input_.Change(answer.data(), answer.size());
        break;
      case 7:
        if (answer.size() >= 4) input_.TakeInto(answer.data() + 2, 2);
        break;
      case 8:  // unchanged
        if (!last.empty()) answer = last;
        break;
      default:
        break;
    }
    last = answer;
    const std::size_t sent = std::min<std::size_t>(answer.size(), setup.Length);
    std::copy_n(answer.begin(), sent, data.begin());
    return {bus::UsbStatus::Ok, static_cast<std::uint32_t>(sent)};
  }

  // A configuration of the usual form with any parts. Its head may contradict them.
  Bytes AnyConfiguration() {
    Bytes bytes{9, 2, 0, 0, 0, 1, 0, 0x80, 250};
    const std::uint32_t interfaces = input_.UpTo(4);
    for (std::uint32_t i = 0; i < interfaces; ++i) {
      const std::uint32_t settings = 1 + input_.UpTo(7);
      for (std::uint32_t setting = 0; setting < settings; ++setting) AddSetting(bytes, i, setting);
    }
    bytes[4] = static_cast<std::uint8_t>(input_.OneIn(8) ? input_.UpTo(255) : interfaces);
    const std::size_t total = input_.OneIn(8) ? input_.UpTo(UINT16_MAX) : bytes.size();
    bytes[2] = static_cast<std::uint8_t>(total & 0xFF);
    bytes[3] = static_cast<std::uint8_t>(total >> 8 & 0xFF);
    return bytes;
  }

  void AddSetting(Bytes& bytes, std::uint32_t interface, std::uint32_t setting) {
    const std::uint32_t endpoints = input_.UpTo(4);
    const auto told = static_cast<std::uint8_t>(input_.OneIn(16) ? input_.UpTo(255) : endpoints);
    bytes.insert(bytes.end(), {9, 4, static_cast<std::uint8_t>(interface),
                               static_cast<std::uint8_t>(setting), told, 0xFF, 0, 0, 0});
    for (std::uint32_t i = 0; i < endpoints; ++i) {
      Bytes endpoint{7, 5, static_cast<std::uint8_t>(0x81 + i), 1, 0, 2, 1};
      if (input_.OneIn(4)) input_.TakeInto(endpoint.data() + 2, 5);
      if (input_.OneIn(16)) endpoint[0] = input_.Take<std::uint8_t>();
      bytes.insert(bytes.end(), endpoint.begin(), endpoint.end());
    }
  }

  Input& input_;
  Bytes lastDevice_;
  Bytes lastConfiguration_;
};

// The tools' enumeration, which refuses a device with one line.
void Enumerate(bus::UsbBus& bus) {
  try {
    const bus::UsbDeviceInfo info = bus::EnumerateDevice(bus);
    Require(info.AlternateSettings.size() <= info.Configuration.size() / 9);
  } catch (const bus::EnumerationError& error) {
    Require(std::string_view(error.what()).find('\n') == std::string_view::npos);
  }
}

void Sleep(LONGLONG milliseconds) {
  LARGE_INTEGER time{};
  time.QuadPart = -milliseconds * 10'000;
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

// The device may have no pipe for a stream: the driver then returns an error.
void TryToStream(PDEVICE_OBJECT device) {
  try {
    const client::Camera camera = client::Camera::Open(device);
    client::Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    Sleep(150);
    stream.Stop();
  } catch (const client::ClientError&) {
  }
}

void Run(Input& input) {
  static const bool hasDriver = (testbed::InstallDriverOfEnvironment(), true);
  static_cast<void>(hasDriver);
  StepLimit limit;
  const auto chosen = input.Take<std::uint8_t>();
  host::SimulatedScheduler world(limit.WorldOptions(chosen));
  limit.BeginInput();
  {
    scenarios::StampedCamera stamped({.BandwidthLimit = 5120});
    HostileDevice device(stamped, input);
    if ((chosen & 1U) != 0) Enumerate(device);
    testbed::InstalledTestbed camera(device, {});
    const bool isUp = camera.Start() == STATUS_SUCCESS;
    if (isUp) TryToStream(camera.TopDevice());
    // The platform restarts a started device when it changes resources.
    if (isUp && (chosen & 2U) != 0 && camera.Start() == STATUS_SUCCESS) {
      TryToStream(camera.TopDevice());
    }
    camera.Close();
  }
  world.Finish();
}

}  // namespace
}  // namespace lidcam::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lidcam::host::SetDebugPrintSink(nullptr);
  lidcam::fuzz::Input input(data, size);
  lidcam::fuzz::Run(input);
  return 0;
}
