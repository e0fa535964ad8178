#include "tests/bus/usb/libusb_stand_in.h"

#include <libusb.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <list>
#include <mutex>
#include <random>

struct libusb_device {
  lidcam::stand_in::Device Setup;
  bool IsGone = false;
  libusb_context* ListedBy = nullptr;
};

struct libusb_device_handle {
  libusb_device* Device = nullptr;
  libusb_context* Context = nullptr;
  std::set<int> Claimed;
  bool AutoDetaches = false;
  bool HasDetached = false;
};

struct StandInHotplugEvent {
  libusb_device* Device;
  libusb_hotplug_event Event;
};

namespace {

using lidcam::bus::UsbStatus;
using lidcam::stand_in::Record;
using lidcam::stand_in::Script;

struct Flight {
  libusb_transfer* Transfer = nullptr;
  libusb_context* Context = nullptr;
  std::uint64_t Number = 0;  ///< of isochronous submissions
  bool IsCancelled = false;
  bool IsShut = false;    ///< ends with NO_DEVICE
  bool IsServed = false;  ///< its data are there, and only the callback is missing
};

struct World {
  std::mutex Mutex;
  std::condition_variable Changed;
  Script What;
  Record Seen;
  std::list<libusb_device> Devices;  ///< also those that are gone
  std::list<Flight> Flights;
  std::mt19937 Random{1};
};

World& TheWorld() {
  static auto* const world = new World;
  return *world;
}

void Misuse(const std::string& what) {
  TheWorld().Seen.Misuse.push_back(what);
}

bool IsIsochronous(const libusb_transfer* transfer) {
  return transfer->type == LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
}

libusb_transfer_status ToTransferStatus(UsbStatus status) {
  switch (status) {
    case UsbStatus::Ok:
      return LIBUSB_TRANSFER_COMPLETED;
    case UsbStatus::Stalled:
      return LIBUSB_TRANSFER_STALL;
    case UsbStatus::Disconnected:
      return LIBUSB_TRANSFER_NO_DEVICE;
    case UsbStatus::TimedOut:
    case UsbStatus::Silent:
      return LIBUSB_TRANSFER_TIMED_OUT;
    case UsbStatus::Aborted:
      return LIBUSB_TRANSFER_CANCELLED;
    default:
      return LIBUSB_TRANSFER_ERROR;
  }
}

// Without the lock: the bus behind may take its time.
void ServeIsochronous(libusb_transfer& transfer) {
  const auto count = static_cast<std::size_t>(transfer.num_iso_packets);
  std::vector<lidcam::bus::IsochronousPacket> packets(count);
  const std::size_t size = std::size_t{transfer.iso_packet_desc[0].length} * count;
  const auto result = transfer.dev_handle->Device->Setup.Behind->ReadIsochronous(
      transfer.endpoint, {transfer.buffer, size}, packets);
  libusb_iso_packet_descriptor* const shown = &transfer.iso_packet_desc[0];
  for (std::size_t i = 0; i < count; ++i) {
    shown[i].actual_length = packets[i].Length;
    shown[i].status = ToTransferStatus(packets[i].Status);
  }
  transfer.status = ToTransferStatus(result.Status);
}

void ServeControl(libusb_transfer& transfer) {
  std::array<std::uint8_t, 8> bytes{};
  std::copy_n(transfer.buffer, bytes.size(), bytes.begin());
  const auto setup = lidcam::bus::SetupPacket::FromBytes(bytes);
  const auto result = transfer.dev_handle->Device->Setup.Behind->ControlTransfer(
      setup, {transfer.buffer + bytes.size(), setup.Length});
  transfer.actual_length = static_cast<int>(result.Transferred);
  transfer.status = ToTransferStatus(result.Status);
}

void Serve(Flight& flight) {
  libusb_transfer& transfer = *flight.Transfer;
  IsIsochronous(&transfer) ? ServeIsochronous(transfer) : ServeControl(transfer);
}

bool IsHeld(const Flight& flight) {
  const Script& script = TheWorld().What;
  if (flight.IsServed) return false;
  return IsIsochronous(flight.Transfer) ? script.HoldsIsochronous : script.HoldsControl;
}

bool IsDue(const Flight& flight, libusb_context* context) {
  if (flight.Context != context) return false;
  if (flight.IsCancelled) return !TheWorld().What.LosesCancelled;
  return flight.IsShut || flight.Transfer->dev_handle->Device->IsGone || !IsHeld(flight);
}

/// The next transfer whose callback is due. A control request doesn't wait for the isochronous transfers that
/// were sent before it.
std::list<Flight>::iterator NextEnd(libusb_context* context) {
  auto& flights = TheWorld().Flights;
  const auto control = std::ranges::find_if(flights, [&](const Flight& flight) {
    return !IsIsochronous(flight.Transfer) && IsDue(flight, context);
  });
  if (control != flights.end()) return control;
  return std::ranges::find_if(flights,
                              [&](const Flight& flight) { return IsDue(flight, context); });
}

void NoteFlights() {
  World& world = TheWorld();
  std::size_t count = 0;
  std::size_t packets = 0;
  for (const Flight& flight : world.Flights) {
    if (!IsIsochronous(flight.Transfer)) continue;
    ++count;
    packets += static_cast<std::size_t>(flight.Transfer->num_iso_packets);
  }
  world.Seen.InFlight = world.Flights.size();
  world.Seen.PacketsInFlight = packets;
  world.Seen.MostInFlight = std::max(world.Seen.MostInFlight, count);
}

}  // namespace

struct libusb_context {
  std::deque<StandInHotplugEvent> Events;
  libusb_hotplug_callback_fn Callback = nullptr;
  void* User = nullptr;
  bool IsInterrupted = false;
};

namespace {

std::vector<libusb_context*>& Contexts() {
  static auto* const contexts = new std::vector<libusb_context*>;
  return *contexts;
}

void TellAll(libusb_device* device, libusb_hotplug_event event) {
  for (libusb_context* const context : Contexts()) context->Events.push_back({device, event});
  TheWorld().Changed.notify_all();
}

// Called and left with the lock held.
void EndOne(std::list<Flight>::iterator flight, std::unique_lock<std::mutex>& lock) {
  World& world = TheWorld();
  libusb_transfer& transfer = *flight->Transfer;
  const bool isGone = flight->IsShut || transfer.dev_handle->Device->IsGone;
  const bool isServed = flight->IsServed;
  const bool isCancelled = flight->IsCancelled;
  const std::uint64_t number = flight->Number;
  Flight taken = *flight;
  if (!isCancelled && !isGone && !isServed) {
    lock.unlock();
    Serve(taken);
    lock.lock();
    // Ended all the same: what comes later finds it done.
  }
  if (isCancelled || isGone) {
    transfer.status = isGone ? LIBUSB_TRANSFER_NO_DEVICE : LIBUSB_TRANSFER_CANCELLED;
    transfer.actual_length = 0;
    libusb_iso_packet_descriptor* const shown = &transfer.iso_packet_desc[0];
    for (int i = 0; i < transfer.num_iso_packets; ++i) {
      shown[i].actual_length = world.What.CompletesCancelledPackets ? shown[i].length : 0;
      shown[i].status = LIBUSB_TRANSFER_COMPLETED;
    }
  } else if (IsIsochronous(&transfer) && world.What.TransferStatuses.contains(number)) {
    transfer.status = static_cast<libusb_transfer_status>(world.What.TransferStatuses.at(number));
  }
  world.Flights.erase(flight);
  NoteFlights();
  lock.unlock();
  transfer.callback(&transfer);
  lock.lock();
}

// A few transfers get their data in the order of the bus, and their callbacks in another.
void EndShuffled(libusb_context* context, std::unique_lock<std::mutex>& lock) {
  World& world = TheWorld();
  std::vector<std::list<Flight>::iterator> group;
  for (auto flight = world.Flights.begin(); flight != world.Flights.end(); ++flight) {
    const bool isPlain = flight->Context == context && !flight->IsCancelled &&
                         !flight->Transfer->dev_handle->Device->IsGone &&
                         IsIsochronous(flight->Transfer) && !IsHeld(*flight);
    if (isPlain && group.size() < 5) group.push_back(flight);
  }
  for (const auto& flight : group) {
    if (flight->IsServed) continue;
    Flight copy = *flight;
    lock.unlock();
    Serve(copy);
    lock.lock();
    flight->IsServed = true;
  }
  std::ranges::shuffle(group, world.Random);
  for (const auto& flight : group) EndOne(flight, lock);
}

}  // namespace

namespace lidcam::stand_in {

void Reset() {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  world.What = {};
  world.Seen = {};
  world.Devices.clear();
  world.Flights.clear();
}

void Plug(const Device& device) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  world.Devices.push_back({device});
  world.Seen.IsKernelDriverAttached |= device.HasKernelDriver;
  TellAll(&world.Devices.back(), LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
}

void Unplug(unsigned busNumber, bool isTold) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  for (libusb_device& device : world.Devices) {
    if (device.Setup.Bus != busNumber || device.IsGone) continue;
    device.IsGone = true;
    if (isTold) TellAll(&device, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
  }
  world.Changed.notify_all();
}

void Suspend(unsigned busNumber) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  for (Flight& flight : world.Flights) {
    flight.IsShut |= flight.Transfer->dev_handle->Device->Setup.Bus == busNumber;
  }
  world.Changed.notify_all();
}

void SetScript(const Script& script) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  world.What = script;
  world.Random.seed(script.ShuffleSeed);
  world.Changed.notify_all();
}

Record Look() {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  return world.Seen;
}

}  // namespace lidcam::stand_in

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** context) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  if (world.What.InitError != 0) return world.What.InitError;
  *context = new libusb_context;
  Contexts().push_back(*context);
  return 0;
}

void LIBUSB_CALL libusb_exit(libusb_context* context) {
  const std::lock_guard lock(TheWorld().Mutex);
  std::erase(Contexts(), context);
  delete context;
}

int LIBUSB_CALL libusb_has_capability(std::uint32_t) {
  return 1;
}

const char* LIBUSB_CALL libusb_strerror(int error) {
  switch (error) {
    case LIBUSB_ERROR_ACCESS:
      return "Access denied (insufficient permissions)";
    case LIBUSB_ERROR_BUSY:
      return "Resource busy";
    case LIBUSB_ERROR_NO_DEVICE:
      return "No such device (it may have been disconnected)";
    default:
      return "Other error";
  }
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  std::vector<libusb_device*> present;
  for (libusb_device& device : world.Devices) {
    if (device.IsGone) continue;
    device.ListedBy = context;
    present.push_back(&device);
  }
  *list = new libusb_device*[present.size() + 1]();
  std::ranges::copy(present, *list);
  return static_cast<ssize_t>(present.size());
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int) {
  delete[] list;
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device,
                                             libusb_device_descriptor* descriptor) {
  *descriptor = {};
  descriptor->idVendor = device->Setup.Vendor;
  descriptor->idProduct = device->Setup.Product;
  return 0;
}

std::uint8_t LIBUSB_CALL libusb_get_bus_number(libusb_device* device) {
  return static_cast<std::uint8_t>(device->Setup.Bus);
}

std::uint8_t LIBUSB_CALL libusb_get_device_address(libusb_device* device) {
  return static_cast<std::uint8_t>(device->Setup.Address);
}

int LIBUSB_CALL libusb_get_port_numbers(libusb_device* device, std::uint8_t* ports, int room) {
  const auto& all = device->Setup.Ports;
  if (static_cast<std::size_t>(room) < all.size()) return LIBUSB_ERROR_OVERFLOW;
  std::ranges::copy(all, ports);
  return static_cast<int>(all.size());
}

int LIBUSB_CALL libusb_get_device_speed(libusb_device*) {
  return LIBUSB_SPEED_HIGH;
}

int LIBUSB_CALL libusb_open(libusb_device* device, libusb_device_handle** handle) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  if (device->IsGone) return LIBUSB_ERROR_NO_DEVICE;
  if (device->Setup.OpenError != 0) return device->Setup.OpenError;
  *handle = new libusb_device_handle;
  (*handle)->Device = device;
  (*handle)->Context = device->ListedBy;
  ++world.Seen.OpenHandles;
  return 0;
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  for (const Flight& flight : world.Flights) {
    if (flight.Transfer->dev_handle == handle)
      Misuse("a handle is closed with transfers in flight");
  }
  if (!handle->Claimed.empty()) Misuse("a handle is closed with interfaces claimed");
  if (world.Seen.DeviceMemory != 0) Misuse("a handle is closed with device memory");
  --world.Seen.OpenHandles;
  delete handle;
}

int LIBUSB_CALL libusb_get_configuration(libusb_device_handle* handle, int* configuration) {
  const std::lock_guard lock(TheWorld().Mutex);
  if (handle->Device->IsGone) return LIBUSB_ERROR_NO_DEVICE;
  *configuration = 1;
  return 0;
}

int LIBUSB_CALL libusb_set_configuration(libusb_device_handle* handle, int configuration) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  if (handle->Device->IsGone) return LIBUSB_ERROR_NO_DEVICE;
  world.Seen.Calls.push_back("configuration " + std::to_string(configuration));
  return 0;
}

int LIBUSB_CALL libusb_set_auto_detach_kernel_driver(libusb_device_handle* handle, int enable) {
  handle->AutoDetaches = enable != 0;
  return 0;
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  if (handle->Device->IsGone) return LIBUSB_ERROR_NO_DEVICE;
  if (handle->Device->Setup.ClaimError != 0) return handle->Device->Setup.ClaimError;
  if (world.Seen.IsKernelDriverAttached && !handle->AutoDetaches) return LIBUSB_ERROR_BUSY;
  handle->HasDetached |= world.Seen.IsKernelDriverAttached;
  world.Seen.IsKernelDriverAttached = false;
  handle->Claimed.insert(interface);
  world.Seen.Claimed = handle->Claimed;
  return 0;
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  if (handle->Claimed.erase(interface) == 0) Misuse("an interface is released that is not claimed");
  world.Seen.Claimed = handle->Claimed;
  if (handle->HasDetached) world.Seen.IsKernelDriverAttached = true;
  return handle->Device->IsGone ? LIBUSB_ERROR_NO_DEVICE : 0;
}

int LIBUSB_CALL libusb_set_interface_alt_setting(libusb_device_handle* handle, int interface,
                                                 int setting) {
  World& world = TheWorld();
  {
    const std::lock_guard lock(world.Mutex);
    if (handle->Device->IsGone) return LIBUSB_ERROR_NO_DEVICE;
    if (!handle->Claimed.contains(interface)) return LIBUSB_ERROR_NOT_FOUND;
    world.Seen.Calls.push_back("setting " + std::to_string(setting));
    if (const auto failure = world.What.SettingFailures.find(setting);
        failure != world.What.SettingFailures.end()) {
      errno = failure->second.SystemError;
      return failure->second.Error;
    }
  }
  switch (handle->Device->Setup.Behind->SelectSetting(static_cast<std::uint8_t>(interface),
                                                      static_cast<std::uint8_t>(setting))) {
    case UsbStatus::Ok:
      return 0;
    case UsbStatus::NoBandwidth:
      errno = ENOSPC;
      return LIBUSB_ERROR_OTHER;
    case UsbStatus::Disconnected:
      return LIBUSB_ERROR_NO_DEVICE;
    default:
      return LIBUSB_ERROR_NOT_FOUND;
  }
}

int LIBUSB_CALL libusb_clear_halt(libusb_device_handle* handle, unsigned char endpoint) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  if (handle->Device->IsGone) return LIBUSB_ERROR_NO_DEVICE;
  world.Seen.Calls.push_back("clear halt " + std::to_string(endpoint));
  return 0;
}

unsigned char* LIBUSB_CALL libusb_dev_mem_alloc(libusb_device_handle*, size_t length) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  if (!world.What.HasDeviceMemory) return nullptr;
  ++world.Seen.DeviceMemory;
  ++world.Seen.DeviceMemoryEver;
  return static_cast<unsigned char*>(std::malloc(length));
}

int LIBUSB_CALL libusb_dev_mem_free(libusb_device_handle*, unsigned char* buffer, size_t length) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  for (const Flight& flight : world.Flights) {
    const unsigned char* const bytes = flight.Transfer->buffer;
    if (bytes >= buffer && bytes < buffer + length) Misuse("memory is freed that is in flight");
  }
  --world.Seen.DeviceMemory;
  std::free(buffer);
  return 0;
}

libusb_transfer* LIBUSB_CALL libusb_alloc_transfer(int packets) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  ++world.Seen.Transfers;
  const std::size_t size = sizeof(libusb_transfer) + static_cast<std::size_t>(packets + 1) *
                                                         sizeof(libusb_iso_packet_descriptor);
  return static_cast<libusb_transfer*>(std::calloc(1, size));
}

void LIBUSB_CALL libusb_free_transfer(libusb_transfer* transfer) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  for (const Flight& flight : world.Flights) {
    if (flight.Transfer == transfer) Misuse("a transfer is freed that is in flight");
  }
  --world.Seen.Transfers;
  std::free(transfer);
}

int LIBUSB_CALL libusb_submit_transfer(libusb_transfer* transfer) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  for (const Flight& flight : world.Flights) {
    if (flight.Transfer == transfer) {
      Misuse("a transfer is submitted twice");
      return LIBUSB_ERROR_BUSY;
    }
  }
  Flight flight{.Transfer = transfer, .Context = transfer->dev_handle->Context};
  if (IsIsochronous(transfer)) {
    flight.Number = world.Seen.IsochronousSubmissions++;
    if (const auto failure = world.What.SubmitFailures.find(flight.Number);
        failure != world.What.SubmitFailures.end()) {
      errno = failure->second.SystemError;
      return failure->second.Error;
    }
  } else {
    ++world.Seen.ControlSubmissions;
  }
  if (transfer->dev_handle->Device->IsGone) return LIBUSB_ERROR_NO_DEVICE;
  world.Flights.push_back(flight);
  NoteFlights();
  world.Changed.notify_all();
  return 0;
}

int LIBUSB_CALL libusb_cancel_transfer(libusb_transfer* transfer) {
  World& world = TheWorld();
  const std::lock_guard lock(world.Mutex);
  for (Flight& flight : world.Flights) {
    if (flight.Transfer != transfer) continue;
    flight.IsCancelled = true;
    world.Changed.notify_all();
    return world.What.CancelAnswer;
  }
  return LIBUSB_ERROR_NOT_FOUND;
}

void LIBUSB_CALL libusb_interrupt_event_handler(libusb_context* context) {
  const std::lock_guard lock(TheWorld().Mutex);
  context->IsInterrupted = true;
  TheWorld().Changed.notify_all();
}

int LIBUSB_CALL libusb_handle_events_timeout_completed(libusb_context* context, timeval* limit,
                                                       int*) {
  World& world = TheWorld();
  std::unique_lock lock(world.Mutex);
  const auto time = std::chrono::seconds(limit->tv_sec) + std::chrono::microseconds(limit->tv_usec);
  world.Changed.wait_for(lock, time, [&] {
    return context->IsInterrupted || !context->Events.empty() ||
           NextEnd(context) != world.Flights.end();
  });
  context->IsInterrupted = false;
  if (!context->Events.empty()) {
    const StandInHotplugEvent event = context->Events.front();
    context->Events.pop_front();
    const auto callback = context->Callback;
    void* const user = context->User;
    lock.unlock();
    if (callback != nullptr) callback(context, event.Device, event.Event, user);
    return 0;
  }
  if (world.What.ShuffleSeed != 0) EndShuffled(context, lock);
  if (const auto next = NextEnd(context); next != world.Flights.end()) EndOne(next, lock);
  return 0;
}

int LIBUSB_CALL libusb_hotplug_register_callback(libusb_context* context, int, int, int, int, int,
                                                 libusb_hotplug_callback_fn callback, void* user,
                                                 libusb_hotplug_callback_handle* handle) {
  const std::lock_guard lock(TheWorld().Mutex);
  context->Callback = callback;
  context->User = user;
  *handle = 1;
  return 0;
}

void LIBUSB_CALL libusb_hotplug_deregister_callback(libusb_context* context,
                                                    libusb_hotplug_callback_handle) {
  const std::lock_guard lock(TheWorld().Mutex);
  context->Callback = nullptr;
}

}  // extern "C"
