#include "bus/usb/libusb_bus.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace lidcam::bus {
namespace {

// The largest control request of usbfs, bytes.
constexpr std::size_t kLargestDataStage = 4096;

// How late libusb's own time limit may be.
constexpr std::chrono::milliseconds kControlGrace{500};

constexpr std::uint8_t kStandardDeviceOut = 0x00;
constexpr std::uint8_t kStandardInterfaceOut = 0x01;
constexpr std::uint8_t kStandardEndpointOut = 0x02;
constexpr std::uint8_t kClearFeature = 1;
constexpr std::uint8_t kSetConfiguration = 9;
constexpr std::uint8_t kSetInterface = 11;

constexpr const char* kMemoryRemedy =
    "the kernel's memory for USB programs is used up (usbfs_memory_mb): "
    "echo 64 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb";

UsbStatus StatusOf(libusb_transfer_status status) {
  switch (status) {
    case LIBUSB_TRANSFER_COMPLETED:
      return UsbStatus::Ok;
    case LIBUSB_TRANSFER_STALL:
      return UsbStatus::Stalled;
    case LIBUSB_TRANSFER_NO_DEVICE:
      return UsbStatus::Disconnected;
    case LIBUSB_TRANSFER_TIMED_OUT:
    case LIBUSB_TRANSFER_CANCELLED:
      return UsbStatus::TimedOut;
    default:  // babble and other errors on the wire
      return UsbStatus::Failed;
  }
}

UsbStatus StatusOfError(int error) {
  switch (error) {
    case LIBUSB_SUCCESS:
      return UsbStatus::Ok;
    case LIBUSB_ERROR_NO_DEVICE:
      return UsbStatus::Disconnected;
    case LIBUSB_ERROR_PIPE:
    case LIBUSB_ERROR_NOT_FOUND:
      return UsbStatus::Stalled;
    case LIBUSB_ERROR_TIMEOUT:
      return UsbStatus::TimedOut;
    default:
      return UsbStatus::Failed;
  }
}

// libusb maps all errors of usb_set_interface() to one: errno distinguishes them.
UsbStatus StatusOfSetting(int error, int systemError) {
  if (error != LIBUSB_ERROR_OTHER) return StatusOfError(error);
  switch (systemError) {
    case EPIPE:
      return UsbStatus::Stalled;
    case ETIMEDOUT:
      return UsbStatus::TimedOut;
    case EPROTO:
    case EILSEQ:
    case EIO:
      return UsbStatus::Failed;
    default:
      return UsbStatus::NoBandwidth;
  }
}

UsbObstacle ObstacleOf(int error) {
  switch (error) {
    case LIBUSB_ERROR_ACCESS:
      return UsbObstacle::NoPermission;
    case LIBUSB_ERROR_BUSY:
      return UsbObstacle::Busy;
    case LIBUSB_ERROR_NO_DEVICE:
      return UsbObstacle::Gone;
    default:
      return UsbObstacle::Other;
  }
}

}  // namespace

LibusbBus::LibusbBus(libusb_device_handle* device, std::shared_ptr<PortState> port,
                     std::shared_ptr<void> session, UsbPortOptions options)
    : device_(device),
      port_(std::move(port)),
      session_(std::move(session)),
      options_(std::move(options)),
      clock_(PendingTransfer::Clock::now(),
             IsochronousRing::kTransfers * IsochronousRing::kPackets) {
  try {
    Claim();
    LoadSettings();
  } catch (...) {
    Close();
    throw;
  }
}

LibusbBus::~LibusbBus() {
  port_->MarkGone();
  EndReading();
  Close();
}

void LibusbBus::Close() {
  ring_.reset();
  ReleaseInterfaces();
  if (!hasLost_) libusb_close(device_);
}

void LibusbBus::Claim() {
  // A system that can't detach kernel drivers has none on the interface.
  libusb_set_auto_detach_kernel_driver(device_, 1);
  int configuration = 0;
  if (libusb_get_configuration(device_, &configuration) == 0 && configuration == 0) {
    libusb_set_configuration(device_, 1);
  }
  ClaimInterface(0);
}

void LibusbBus::ClaimInterface(int interface) {
  const int error = libusb_claim_interface(device_, interface);
  if (error != 0) {
    throw UsbError(ObstacleOf(error), "interface " + std::to_string(interface) +
                                          " can't be claimed: " + libusb_strerror(error));
  }
  claimed_.push_back(interface);
}

void LibusbBus::ReleaseInterfaces() {
  for (const int interface : claimed_) libusb_release_interface(device_, interface);
  claimed_.clear();
}

void LibusbBus::LoadSettings() {
  constexpr std::uint8_t kDeviceIn = 0x80;
  constexpr std::uint8_t kGetDescriptor = 6;
  constexpr std::uint16_t kConfiguration = 2 << 8;
  constexpr std::uint16_t kHead = 9;
  std::vector<std::uint8_t> bytes(kHead);
  ControlResult result =
      ControlTransfer({kDeviceIn, kGetDescriptor, kConfiguration, 0, kHead}, bytes);
  if (result.Status == UsbStatus::Ok && result.Transferred == kHead) {
    const auto total = static_cast<std::uint16_t>(bytes[2] | bytes[3] << 8);
    bytes.resize(std::max(total, kHead));
    result = ControlTransfer({kDeviceIn, kGetDescriptor, kConfiguration, 0, total}, bytes);
    bytes.resize(std::min<std::size_t>(result.Transferred, bytes.size()));
  }
  if (result.Status != UsbStatus::Ok) {
    throw UsbError(
        result.Status == UsbStatus::Disconnected ? UsbObstacle::Gone : UsbObstacle::Other,
        "its configuration descriptor can't be read: " + std::string(ToString(result.Status)));
  }
  try {
    settings_ = ParseConfiguration(bytes);
  } catch (const EnumerationError& error) {
    throw UsbError(UsbObstacle::Other, error.what());
  }
  for (const AlternateSetting& setting : settings_) {
    if (!std::ranges::count(claimed_, int{setting.Interface})) ClaimInterface(setting.Interface);
  }
}

bool LibusbBus::IsGone() const {
  const std::lock_guard lock(port_->Mutex);
  return port_->IsGone;
}

UsbStatus LibusbBus::NoteStatus(UsbStatus status) {
  if (status == UsbStatus::Disconnected) port_->MarkGone();
  return status;
}

void LibusbBus::Tell(UsbNotice notice, const std::string& line) const {
  if (options_.Tell) options_.Tell(notice, line);
}

ControlResult LibusbBus::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) {
  if (IsGone()) return {UsbStatus::Disconnected, 0};
  if (data.size() < setup.Length) return {UsbStatus::Failed, 0};
  // Requests that change the host's own state go through the host, or device and host would
  // disagree.
  if (setup.RequestType == kStandardDeviceOut && setup.Request == kSetConfiguration) {
    return {NoteStatus(SelectConfiguration(setup.Value)), 0};
  }
  if (setup.RequestType == kStandardInterfaceOut && setup.Request == kSetInterface) {
    return {SelectSetting(static_cast<std::uint8_t>(setup.Index),
                          static_cast<std::uint8_t>(setup.Value)),
            0};
  }
  if (setup.RequestType == kStandardEndpointOut && setup.Request == kClearFeature &&
      setup.Value == 0) {
    return {NoteStatus(ClearHalt(static_cast<std::uint8_t>(setup.Index))), 0};
  }
  if (setup.Length > kLargestDataStage) return {UsbStatus::Failed, 0};
  return Send(setup, data);
}

// The host configures the device before any program sees it, and other programs rely on that: the
// current configuration is not selected again, only its settings; configuration 0 is never
// selected.
UsbStatus LibusbBus::SelectConfiguration(int configuration) {
  EndReading();
  int present = 0;
  const int error = libusb_get_configuration(device_, &present);
  if (error != 0) return StatusOfError(error);
  if (configuration != 0 && configuration != present) {
    ReleaseInterfaces();
    const int refused = libusb_set_configuration(device_, configuration);
    try {
      ClaimInterface(0);
    } catch (const UsbError&) {
      return UsbStatus::Failed;
    }
    return StatusOfError(refused);
  }
  for (const int interface : claimed_) {
    const UsbStatus status = SetInterface(interface, 0);
    if (status != UsbStatus::Ok) return status;
  }
  return UsbStatus::Ok;
}

UsbStatus LibusbBus::ClearHalt(std::uint8_t endpoint) {
  return StatusOfError(libusb_clear_halt(device_, endpoint));
}

ControlResult LibusbBus::Send(const SetupPacket& setup, std::span<std::uint8_t> data) {
  // A transfer that libusb keeps also keeps its buffer.
  if (control_ == nullptr) {
    const auto memory =
        std::make_shared<std::vector<std::uint8_t>>(LIBUSB_CONTROL_SETUP_SIZE + kLargestDataStage);
    control_ = std::make_shared<PendingTransfer>(port_, 0, memory);
    libusb_transfer& fresh = control_->Transfer();
    fresh.dev_handle = device_;
    fresh.endpoint = 0;
    fresh.type = LIBUSB_TRANSFER_TYPE_CONTROL;
    fresh.timeout = static_cast<unsigned>(options_.ControlLimit.count());
    fresh.buffer = memory->data();
  }
  libusb_transfer& transfer = control_->Transfer();
  transfer.length = static_cast<int>(LIBUSB_CONTROL_SETUP_SIZE + setup.Length);
  const auto bytes = setup.ToBytes();
  std::copy(bytes.begin(), bytes.end(), transfer.buffer);
  std::uint8_t* const stage = transfer.buffer + LIBUSB_CONTROL_SETUP_SIZE;
  if (!setup.IsDeviceToHost()) std::copy_n(data.begin(), setup.Length, stage);
  const int error = control_->Submit();
  if (error != 0) return {NoteStatus(StatusOfError(error)), 0};
  const UsbStatus status = AwaitControl();
  if (status != UsbStatus::Ok) return {NoteStatus(status), 0};
  const auto count =
      static_cast<std::uint32_t>(std::clamp<int>(transfer.actual_length, 0, int{setup.Length}));
  if (setup.IsDeviceToHost()) std::copy_n(stage, count, data.begin());
  return {UsbStatus::Ok, count};
}

UsbStatus LibusbBus::AwaitControl() {
  bool isDone = false;
  bool isGone = false;
  {
    std::unique_lock lock(port_->Mutex);
    port_->Changed.wait_for(lock, options_.ControlLimit + kControlGrace,
                            [&] { return port_->IsGone || control_->IsDone(); });
    isDone = control_->IsDone();
    isGone = port_->IsGone;
    if (isDone) control_->Forget();
  }
  if (isDone) return isGone ? UsbStatus::Disconnected : StatusOf(control_->Transfer().status);
  if (TakeBack(*port_, {&control_, 1}) != 0) hasLost_ = true;
  return isGone ? UsbStatus::Disconnected : UsbStatus::TimedOut;
}

const AlternateSetting* LibusbBus::FindSetting(int interface, int setting) const {
  const auto found = std::ranges::find_if(settings_, [&](const AlternateSetting& candidate) {
    return candidate.Interface == interface && candidate.Setting == setting;
  });
  return found == settings_.end() ? nullptr : &*found;
}

UsbStatus LibusbBus::SetInterface(int interface, int setting) {
  errno = 0;
  const int error = libusb_set_interface_alt_setting(device_, interface, setting);
  return error == 0 ? UsbStatus::Ok : StatusOfSetting(error, errno);
}

// Older host controllers reserve bandwidth only when a transfer is submitted.
UsbStatus LibusbBus::Reserve(const AlternateSetting& setting) {
  try {
    ring_ = std::make_unique<IsochronousRing>(device_, port_, clock_, setting.IsochronousEndpoint,
                                              setting.BytesPerMicroframe);
  } catch (const std::bad_alloc&) {
    return UsbStatus::Failed;
  }
  const SubmitFailure failure = ring_->Try();
  if (ring_->HasLost()) hasLost_ = true;
  if (failure == SubmitFailure::None) return UsbStatus::Ok;
  ring_.reset();
  if (failure == SubmitFailure::Gone) return UsbStatus::Disconnected;
  SetInterface(setting.Interface, 0);
  TellRefusal(setting, failure);
  return failure == SubmitFailure::Failed ? UsbStatus::Failed : UsbStatus::NoBandwidth;
}

UsbStatus LibusbBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  if (IsGone()) return UsbStatus::Disconnected;
  EndReading();
  const AlternateSetting* const setting = FindSetting(interface, alternateSetting);
  const bool isStreaming = setting != nullptr && setting->BytesPerMicroframe != 0;
  UsbStatus status = SetInterface(interface, alternateSetting);
  if (status == UsbStatus::NoBandwidth && isStreaming) {
    TellRefusal(*setting, SubmitFailure::NoBandwidth);
  }
  if (status == UsbStatus::Ok && isStreaming) {
    const std::lock_guard lock(readMutex_);
    status = Reserve(*setting);
  }
  if (status == UsbStatus::Ok && isStreaming && std::exchange(isNarrowed_, false)) {
    Tell(UsbNotice::HasRoom, "alternate setting " + std::to_string(alternateSetting) + " with " +
                                 std::to_string(setting->BytesPerMicroframe) +
                                 " bytes a microframe has room");
  }
  return NoteStatus(status);
}

void LibusbBus::TellRefusal(const AlternateSetting& setting, SubmitFailure failure) {
  if (failure == SubmitFailure::NoMemory) {
    if (!std::exchange(isMemoryTold_, true)) Tell(UsbNotice::NoMemory, kMemoryRemedy);
    return;
  }
  // A walk down the settings may be refused several times: the user gets one line.
  if (std::exchange(isNarrowed_, true)) return;
  std::string line =
      "the bus has no room for alternate setting " + std::to_string(setting.Setting) + " with " +
      std::to_string(setting.BytesPerMicroframe) + " bytes a microframe: a narrower one is tried";
  if (failure == SubmitFailure::Unclear) line += std::string(". Or ") + kMemoryRemedy;
  Tell(UsbNotice::NoRoom, line);
}

void LibusbBus::EndReading() {
  {
    const std::lock_guard lock(port_->Mutex);
    if (port_->IsReading) port_->IsAborted = true;
    port_->Changed.notify_all();
  }
  const std::lock_guard lock(readMutex_);
  if (ring_ == nullptr) return;
  ring_->Stop();
  if (ring_->HasLost()) hasLost_ = true;
  ring_.reset();
}

IsochronousResult LibusbBus::ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                             std::span<IsochronousPacket> packets) {
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  for (std::size_t i = 0; i < packets.size(); ++i) {
    packets[i] = {static_cast<std::uint32_t>(i * share), 0, UsbStatus::Failed};
  }
  const std::lock_guard reading(readMutex_);
  UsbStatus status = UsbStatus::Ok;
  bool isStale = false;
  {
    const std::lock_guard lock(port_->Mutex);
    isStale = std::exchange(port_->IsStale, false);
    const bool isReady = ring_ != nullptr && endpoint == ring_->Endpoint() &&
                         share >= ring_->PacketSize() && !packets.empty();
    if (port_->IsGone) {
      status = UsbStatus::Disconnected;
    } else if (!isReady) {
      status = UsbStatus::Failed;
    } else {
      port_->IsReading = true;
      port_->IsAborted = false;
    }
  }
  if (status != UsbStatus::Ok) {
    for (IsochronousPacket& packet : packets) packet.Status = status;
    return {status, FrameNumber() * kMicroframesPerFrame};
  }
  if (isStale) ring_->Stop();
  const IsochronousResult result = ring_->Read(buffer, packets);
  {
    const std::lock_guard lock(port_->Mutex);
    port_->IsReading = false;
    port_->IsAborted = false;
  }
  if (ring_->HasLost()) hasLost_ = true;
  if (ring_->LastFailure() == SubmitFailure::NoMemory && !std::exchange(isMemoryTold_, true)) {
    Tell(UsbNotice::NoMemory, kMemoryRemedy);
  }
  NoteStatus(result.Status);
  return result;
}

bool LibusbBus::HasReceived(std::uint8_t endpoint, std::size_t packets) {
  const std::lock_guard reading(readMutex_);
  return ring_ != nullptr && endpoint == ring_->Endpoint() && ring_->HasReceived(packets);
}

void LibusbBus::Abort(std::uint8_t endpoint) {
  static_cast<void>(endpoint);  // only one endpoint is read
  const std::lock_guard lock(port_->Mutex);
  port_->IsStale = true;
  if (!port_->IsReading) return;
  port_->IsAborted = true;
  port_->Changed.notify_all();
}

std::uint32_t LibusbBus::FrameNumber() {
  const std::lock_guard lock(port_->Mutex);
  return static_cast<std::uint32_t>(clock_.Now(PendingTransfer::Clock::now()) /
                                    kMicroframesPerFrame);
}

void LibusbBus::Unplug() {
  port_->MarkGone();
}

}  // namespace lidcam::bus
