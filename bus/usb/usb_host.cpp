#include "bus/usb/usb_host.h"

#include <libusb.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "bus/usb/libusb_bus.h"

namespace lidcam::bus {
namespace {

constexpr long kEventRound = 200'000;  // microseconds
constexpr std::chrono::milliseconds kPauseAfterError{20};

unsigned MegabitsOf(int speed) {
  switch (speed) {
    case LIBUSB_SPEED_LOW:
      return 1;
    case LIBUSB_SPEED_FULL:
      return 12;
    case LIBUSB_SPEED_HIGH:
      return 480;
    case LIBUSB_SPEED_SUPER:
      return 5000;
    case LIBUSB_SPEED_SUPER_PLUS:
      return 10000;
    default:
      return 0;
  }
}

// As Linux names devices; a root hub, which has no port, is "usb1".
std::string PathOf(libusb_device* device, unsigned bus) {
  std::array<std::uint8_t, 8> ports{};
  const int count = libusb_get_port_numbers(device, ports.data(), static_cast<int>(ports.size()));
  if (count <= 0) return "usb" + std::to_string(bus);
  std::string path = std::to_string(bus) + "-";
  for (int i = 0; i < count; ++i) {
    if (i != 0) path += '.';
    path += std::to_string(ports[static_cast<std::size_t>(i)]);
  }
  return path;
}

PluggedDevice Describe(libusb_device* device) {
  libusb_device_descriptor descriptor{};
  libusb_get_device_descriptor(device, &descriptor);
  const unsigned bus = libusb_get_bus_number(device);
  return {.Path = PathOf(device, bus),
          .Bus = bus,
          .Address = libusb_get_device_address(device),
          .Vendor = descriptor.idVendor,
          .Product = descriptor.idProduct,
          .Megabits = MegabitsOf(libusb_get_device_speed(device))};
}

/// All devices that libusb enumerates; releases them in the destructor.
class DeviceList {
 public:
  explicit DeviceList(libusb_context* context)
      : count_(libusb_get_device_list(context, &devices_)) {}
  DeviceList(const DeviceList&) = delete;
  DeviceList& operator=(const DeviceList&) = delete;
  ~DeviceList() {
    if (count_ >= 0) libusb_free_device_list(devices_, 1);
  }

  [[nodiscard]] std::span<libusb_device* const> Devices() const {
    return {devices_, count_ > 0 ? static_cast<std::size_t>(count_) : 0};
  }

 private:
  libusb_device** devices_ = nullptr;
  ssize_t count_;
};

}  // namespace

class UsbHost::Session {
 public:
  Session() {
    error_ = libusb_init(&context_);
    if (error_ != 0) {
      context_ = nullptr;
      return;
    }
    if (libusb_has_capability(LIBUSB_CAP_HAS_HOTPLUG) != 0) Watch();
    events_ = std::thread([this] { HandleEvents(); });
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  ~Session() {
    if (context_ == nullptr) return;
    if (isWatching_) libusb_hotplug_deregister_callback(context_, watch_);
    isEnding_ = true;
    libusb_interrupt_event_handler(context_);
    events_.join();
    libusb_exit(context_);
  }

  [[nodiscard]] int Error() const { return error_; }
  [[nodiscard]] libusb_context* Context() const { return context_; }

  void Add(libusb_device* device, const std::shared_ptr<PortState>& port) {
    const std::lock_guard lock(mutex_);
    ports_.emplace(device, port);
  }

  bool WaitForChange(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    const bool isChanged = changed_.wait_for(lock, limit, [this] { return hasChanged_; });
    hasChanged_ = false;
    return isChanged;
  }

 private:
  void Watch() {
    isWatching_ =
        libusb_hotplug_register_callback(
            context_, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0,
            LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, Changed,
            this, &watch_) == 0;
  }

  static int LIBUSB_CALL Changed(libusb_context*, libusb_device* device, libusb_hotplug_event event,
                                 void* session) {
    static_cast<Session*>(session)->Note(device, event);
    return 0;
  }

  void Note(libusb_device* device, libusb_hotplug_event event) {
    const std::lock_guard lock(mutex_);
    hasChanged_ = true;
    changed_.notify_all();
    if (event != LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT) return;
    const auto [first, last] = ports_.equal_range(device);
    for (auto port = first; port != last; ++port) {
      if (const auto open = port->second.lock()) open->MarkGone();
    }
    ports_.erase(first, last);
  }

  void HandleEvents() {
    while (!isEnding_) {
      timeval limit{0, kEventRound};
      if (libusb_handle_events_timeout_completed(context_, &limit, nullptr) != 0) {
        std::this_thread::sleep_for(kPauseAfterError);
      }
    }
  }

  libusb_context* context_ = nullptr;
  int error_ = 0;
  libusb_hotplug_callback_handle watch_ = 0;
  bool isWatching_ = false;
  std::atomic<bool> isEnding_ = false;
  std::thread events_;
  std::mutex mutex_;  ///< guards what follows; never held over a call of libusb
  std::condition_variable changed_;
  bool hasChanged_ = false;
  std::multimap<libusb_device*, std::weak_ptr<PortState>> ports_;
};

UsbHost::UsbHost() : session_(std::make_shared<Session>()) {}

UsbHost::~UsbHost() = default;

std::string UsbHost::Obstacle() const {
  if (session_->Error() == 0) return {};
  return std::string("this machine's USB can't be reached: ") + libusb_strerror(session_->Error());
}

std::vector<PluggedDevice> UsbHost::Devices() const {
  std::vector<PluggedDevice> devices;
  if (session_->Context() == nullptr) return devices;
  const DeviceList list(session_->Context());
  for (libusb_device* const device : list.Devices()) devices.push_back(Describe(device));
  std::ranges::sort(devices, [](const PluggedDevice& left, const PluggedDevice& right) {
    return std::pair(left.Bus, left.Path) < std::pair(right.Bus, right.Path);
  });
  return devices;
}

std::unique_ptr<UsbBus> UsbHost::Open(const PluggedDevice& device, UsbPortOptions options) {
  if (session_->Context() == nullptr) throw UsbError(UsbObstacle::Gone, Obstacle());
  const DeviceList list(session_->Context());
  const auto found = std::ranges::find_if(
      list.Devices(), [&](libusb_device* candidate) { return Describe(candidate) == device; });
  if (found == list.Devices().end()) {
    throw UsbError(UsbObstacle::Gone, "it is not plugged in any more");
  }
  libusb_device_handle* handle = nullptr;
  const int error = libusb_open(*found, &handle);
  if (error != 0) {
    const bool isRefused = error == LIBUSB_ERROR_ACCESS;
    const bool isGone = error == LIBUSB_ERROR_NO_DEVICE;
    throw UsbError(isRefused ? UsbObstacle::NoPermission
                   : isGone  ? UsbObstacle::Gone
                             : UsbObstacle::Other,
                   std::string("it can't be opened: ") + libusb_strerror(error));
  }
  auto port = std::make_shared<PortState>();
  session_->Add(*found, port);
  return std::make_unique<LibusbBus>(handle, std::move(port), session_, std::move(options));
}

bool UsbHost::WaitForChange(std::chrono::milliseconds limit) {
  if (session_->Context() == nullptr) {
    std::this_thread::sleep_for(limit);
    return false;
  }
  return session_->WaitForChange(limit);
}

}  // namespace lidcam::bus
