#pragma once

// A driver of the streaming class whose entries are lambdas, on a device whose requests are scripted,
// and files opened on it.

#include <gmock/gmock.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/kernel.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {

inline constexpr ULONG kTestTag = 0x20747354;  // "Tst "

/// The entries that the class calls; one that isn't set succeeds. Log records the calls.
struct DriverScript {
  std::vector<std::string> Log;
  std::function<NTSTATUS(PKSDEVICE)> Add;
  std::function<NTSTATUS(PKSDEVICE)> Start;
  std::function<NTSTATUS(PKSDEVICE)> PostStart;
  std::function<void(PKSDEVICE)> Remove;
  std::function<void(PKSDEVICE)> SurpriseRemoval;
  std::function<void(PKSDEVICE)> SetPower;
  std::function<NTSTATUS(PKSFILTER, PIRP)> FilterCreate;
  std::function<NTSTATUS(PIRP, PKSIDENTIFIER, PVOID)> Property;
  std::function<NTSTATUS(PIRP, PVOID)> AddEvent;

  NTSTATUS Below = STATUS_SUCCESS;  ///< of the device below
  bool IsBelowSlow = false;         ///< completes a millisecond later, from another thread
};

inline DriverScript* g_script = nullptr;

/// A descriptor with all entries, or with none but Add.
extern const KSDEVICE_DESCRIPTOR kFullDevice;
extern const KSDEVICE_DESCRIPTOR kBareDevice;

/// Two categories, a create and a close entry, and the properties of property_requests_test.cpp.
extern const KSFILTER_DESCRIPTOR kTestFilter;
/// The name of a file of that filter, if its factory has no other name.
inline constexpr char16_t kTestFilterName[] = u"\\{33333333-0002-ABCD-0405-060708090A0B}";
extern const GUID kTestSet;       ///< of properties
extern const GUID kTestEventSet;  ///< of events

struct Reply {
  NTSTATUS Status;
  ULONG_PTR Information;
  bool operator==(const Reply&) const = default;
};
inline void PrintTo(const Reply& reply, std::ostream* out) {
  *out << std::hex << "0x" << static_cast<ULONG>(reply.Status) << std::dec << ", "
       << reply.Information << " bytes";
}

/// Sends a request down a stack and waits for its completion; `fill` writes the first location.
Reply SendRequest(PDEVICE_OBJECT top, const std::function<void(PIRP, IO_STACK_LOCATION&)>& fill);

class ClassWorld {
 public:
  /// Initialises the driver; the device is added by Add().
  explicit ClassWorld(const KSDEVICE_DESCRIPTOR& descriptor = kFullDevice);
  ClassWorld(const ClassWorld&) = delete;
  ClassWorld& operator=(const ClassWorld&) = delete;
  ~ClassWorld() noexcept(false);

  NTSTATUS Add() { return Driver.DriverExtension->AddDevice(&Driver, Physical); }
  /// Adds the device and starts it with a filter factory.
  void Start();
  Reply PlugAndPlay(UCHAR minor, DEVICE_CAPABILITIES* capabilities = nullptr);
  Reply SetPower(DEVICE_POWER_STATE state);
  Reply Power(UCHAR minor, POWER_STATE_TYPE type, int state);
  Reply Remove() { return PlugAndPlay(IRP_MN_REMOVE_DEVICE); }
  PDEVICE_OBJECT Top() const;
  std::vector<std::string> TakeLog() { return std::exchange(Script.Log, {}); }

  DriverScript Script;
  DRIVER_OBJECT Bus{};
  DRIVER_OBJECT Driver{};
  PDEVICE_OBJECT Physical = nullptr;
  PKSDEVICE Device = nullptr;  ///< as of the last Add entry
};

/// A file of an application.
class TestFile {
 public:
  explicit TestFile(PDEVICE_OBJECT device) : device_(device) {}
  TestFile(const TestFile&) = delete;
  TestFile& operator=(const TestFile&) = delete;

  NTSTATUS Open(std::u16string name, TestFile* related = nullptr);
  NTSTATUS OpenBytes(const std::u16string& kind, const std::vector<UCHAR>& behind,
                     TestFile& related);
  void Close();
  Reply Control(ULONG code, PVOID input, ULONG inputLength, PVOID output, ULONG outputLength);
  Reply Property(const GUID& set, ULONG id, ULONG flags, PVOID output, ULONG outputLength,
                 ULONG inputLength = sizeof(KSPROPERTY));

  FILE_OBJECT Object{};

 private:
  PDEVICE_OBJECT device_;
  std::u16string name_;
};

inline std::u16string PinName() {
  return u"{146F1A80-4791-11D0-A5D6-28DB04C10000}\\";
}

}  // namespace lidcam::host
