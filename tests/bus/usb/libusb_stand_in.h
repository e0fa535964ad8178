#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bus/usb_bus.h"

/// The functions of libusb that bus/usb calls, over buses of ours: linked ahead of the library, it takes its
/// place. What a test asks of it, it does at the moment that the event thread comes by.
namespace lidcam::stand_in {

struct Device {
  unsigned Bus = 1;
  std::vector<std::uint8_t> Ports{2};
  unsigned Address = 4;
  std::uint16_t Vendor = 0x1AF0;
  std::uint16_t Product = 0x0511;
  std::shared_ptr<bus::UsbBus> Behind{};
  int OpenError = 0;
  int ClaimError = 0;
  bool HasKernelDriver = false;
};

struct Failure {
  int Error = 0;
  int SystemError = 0;
};

/// What libusb is to do other than as it should.
struct Script {
  int InitError = 0;
  bool HasDeviceMemory = true;
  bool HoldsIsochronous = false;  ///< transfers stay in flight
  bool HoldsControl = false;
  bool LosesCancelled = false;    ///< a cancelled transfer never comes back
  int CancelAnswer = 0;           ///< LIBUSB_ERROR_NOT_FOUND comes with a callback all the same
  std::uint32_t ShuffleSeed = 0;  ///< not 0: transfers complete in another order
  bool CompletesCancelledPackets =
      false;  ///< as Linux does: packets of a cancelled transfer look whole
  std::map<int, Failure> SettingFailures{};           ///< by alternate setting
  std::map<std::uint64_t, Failure> SubmitFailures{};  ///< by isochronous submission, from 0
  std::map<std::uint64_t, int> TransferStatuses{};    ///< by isochronous submission
};

/// What was asked of libusb so far.
struct Record {
  std::uint64_t IsochronousSubmissions = 0;
  std::uint64_t ControlSubmissions = 0;
  std::size_t InFlight = 0;
  std::size_t MostInFlight = 0;     ///< isochronous
  std::size_t PacketsInFlight = 0;  ///< isochronous
  std::size_t OpenHandles = 0;
  std::size_t DeviceMemory = 0;  ///< allocations that are out
  std::uint64_t DeviceMemoryEver = 0;
  std::size_t Transfers = 0;  ///< allocated
  std::set<int> Claimed{};
  bool IsKernelDriverAttached = false;
  std::vector<std::string> Calls{};   ///< claims, settings, configurations, halts
  std::vector<std::string> Misuse{};  ///< what libusb's manual forbids
};

/// Takes everything back to an empty machine.
void Reset();
void Plug(const Device& device);
/// All devices on the port: transfers end with NO_DEVICE, and hotplug tells.
/// @param isTold  false: libusb notices nothing but the transfers' ends
void Unplug(unsigned busNumber, bool isTold = true);
/// As a machine does that falls asleep and wakes: what is in flight ends as if the devices were gone.
void Suspend(unsigned busNumber);
void SetScript(const Script& script);
[[nodiscard]] Record Look();

}  // namespace lidcam::stand_in
