#include "camera_model/bus_adapter/simulated_bus.h"

#include <algorithm>
#include <utility>

#include "base/time_units.h"

namespace lidcam::bus {
namespace {

constexpr std::uint64_t kQueuedMicroframes = 1024;
constexpr std::chrono::microseconds kMicroframe{base::kMicrosecondsPerMicroframe};
constexpr std::uint8_t kSetInterfaceType = 0x01;
constexpr std::uint8_t kSetInterface = 11;

UsbStatus StatusOf(const camera_model::UsbDevice::IsochronousAnswer& answer) {
  if (answer.IsStalled) return UsbStatus::Stalled;
  return answer.HasBusError ? UsbStatus::Failed : UsbStatus::Ok;
}

}  // namespace

SimulatedBus::SimulatedBus(SimulatedBusOptions options)
    : options_(std::move(options)), device_(options_.Camera) {}

std::uint64_t SimulatedBus::Now() const {
  if (options_.Pace == Pacing::FreeRunning) return nextMicroframe_.load();
  return static_cast<std::uint64_t>((std::chrono::steady_clock::now() - start_) / kMicroframe);
}

ControlResult SimulatedBus::ControlTransfer(const SetupPacket& setup,
                                            std::span<std::uint8_t> data) {
  if (isUnplugged_) return {UsbStatus::Disconnected, 0};
  if (data.size() < setup.Length) return {UsbStatus::Failed, 0};
  const std::lock_guard lock{deviceMutex_};
  const bool isSetInterface =
      setup.RequestType == kSetInterfaceType && setup.Request == kSetInterface;
  if (isSetInterface) {
    const auto setting = static_cast<std::uint8_t>(setup.Value & 0xFF);
    if (device_.BytesPerMicroframe(setting) > options_.BandwidthLimit) {
      return {UsbStatus::NoBandwidth, 0};
    }
  }
  const auto transferred = device_.Control(setup, data, Now());
  if (!transferred.has_value()) return {UsbStatus::Stalled, 0};
  if (isSetInterface) nextMicroframe_ = Now();
  return {UsbStatus::Ok, *transferred};
}

UsbStatus SimulatedBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  return ControlTransfer({kSetInterfaceType, kSetInterface, alternateSetting, interface, 0}, {})
      .Status;
}

std::uint64_t SimulatedBus::BeginRead() {
  const std::lock_guard lock{waitMutex_};
  isReading_ = true;
  isAborted_ = false;
  const std::uint64_t now = Now();
  const std::uint64_t next = nextMicroframe_;
  return next + kQueuedMicroframes < now ? now : next;
}

UsbStatus SimulatedBus::WaitFor(std::uint64_t microframe) {
  std::unique_lock lock{waitMutex_};
  const auto isOver = [this] { return isAborted_ || isUnplugged_.load(); };
  if (options_.Pace == Pacing::RealTime) {
    wake_.wait_until(lock, start_ + kMicroframe * (microframe + 1), isOver);
  }
  if (isUnplugged_) return UsbStatus::Disconnected;
  return isAborted_ ? UsbStatus::Aborted : UsbStatus::Ok;
}

UsbStatus SimulatedBus::ReadSome(std::uint64_t microframe, std::size_t share, std::uint32_t offset,
                                 std::span<std::uint8_t> buffer,
                                 std::span<IsochronousPacket> packets) {
  const std::lock_guard lock{deviceMutex_};
  UsbStatus status = UsbStatus::Ok;
  for (IsochronousPacket& packet : packets) {
    const auto answer = device_.Isochronous(microframe++, buffer.subspan(offset, share));
    packet.Length = answer.Length;
    packet.Status = StatusOf(answer);
    offset += static_cast<std::uint32_t>(share);
    if (packet.Status == UsbStatus::Stalled) status = UsbStatus::Stalled;
  }
  return status;
}

IsochronousResult SimulatedBus::ReadIsochronous(std::uint8_t endpoint,
                                                std::span<std::uint8_t> buffer,
                                                std::span<IsochronousPacket> packets) {
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  for (std::size_t i = 0; i < packets.size(); ++i) {
    packets[i] = {static_cast<std::uint32_t>(i * share), 0, UsbStatus::Failed};
  }
  UsbStatus status = UsbStatus::Ok;
  {
    const std::lock_guard lock{deviceMutex_};
    const std::uint32_t needed = device_.BytesPerMicroframe();
    if (isUnplugged_) {
      status = UsbStatus::Disconnected;
    } else if (endpoint != camera_model::kIsochronousEndpoint || needed == 0 || share < needed) {
      status = UsbStatus::Failed;
    }
  }
  if (status != UsbStatus::Ok) {
    for (IsochronousPacket& packet : packets) packet.Status = status;
    return {status, static_cast<std::uint32_t>(Now())};
  }

  const std::uint64_t first = BeginRead();
  std::size_t done = 0;
  while (done < packets.size() && status == UsbStatus::Ok) {
    const std::size_t count = std::min<std::size_t>(kMicroframesPerFrame, packets.size() - done);
    status = WaitFor(first + done + count - 1);
    if (status != UsbStatus::Ok) break;
    status = ReadSome(first + done, share, static_cast<std::uint32_t>(done * share), buffer,
                      packets.subspan(done, count));
    done += count;
    TellFrameFaults();
  }
  for (std::size_t i = done; i < packets.size(); ++i) packets[i].Status = status;
  const std::lock_guard lock{waitMutex_};
  isReading_ = false;
  nextMicroframe_ = first + packets.size();
  return {status, static_cast<std::uint32_t>(first)};
}

void SimulatedBus::Abort(std::uint8_t endpoint) {
  if (endpoint != camera_model::kIsochronousEndpoint) return;
  const std::lock_guard lock{waitMutex_};
  if (!isReading_) return;
  isAborted_ = true;
  wake_.notify_all();
}

std::uint32_t SimulatedBus::FrameNumber() {
  if (isUnplugged_) return 0;
  return static_cast<std::uint32_t>(Now() / kMicroframesPerFrame);
}

void SimulatedBus::Unplug() {
  const std::lock_guard lock{waitMutex_};
  isUnplugged_ = true;
  wake_.notify_all();
}

void SimulatedBus::DisturbFrames(const FaultScript& script,
                                 std::function<void(const std::string&)> observer) {
  const std::lock_guard lock{deviceMutex_};
  device_.Stream().SetFaults(script);
  observer_ = std::move(observer);
}

FaultCounts SimulatedBus::FrameFaultCounts() {
  const std::lock_guard lock{deviceMutex_};
  return device_.Stream().Faults().Counts();
}

void SimulatedBus::TellFrameFaults() {
  std::vector<BusFault> begun;
  std::function<void(const std::string&)> observer;
  {
    const std::lock_guard lock{deviceMutex_};
    begun = device_.Stream().Faults().TakeBegun();
    if (begun.empty()) return;
    observer = observer_;
  }
  if (!observer) return;
  for (const BusFault& fault : begun) observer("bus  fault " + ToText(fault));
}

void SimulatedBus::WithCamera(const std::function<void(camera_model::UsbDevice&)>& look) {
  const std::lock_guard lock{deviceMutex_};
  look(device_);
}

std::unique_ptr<SimulatedBus> MakeSimulatedBus(const camera_model::CameraOptions& options,
                                               Pacing pace) {
  SimulatedBusOptions busOptions;
  busOptions.Camera = camera_model::ToDeviceOptions(options);
  busOptions.Pace = pace;
  return std::make_unique<SimulatedBus>(std::move(busOptions));
}

}  // namespace lidcam::bus
