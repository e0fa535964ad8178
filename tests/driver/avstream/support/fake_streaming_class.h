#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::test {

/// An object bag that frees what it has when it goes.
class FakeBag {
 public:
  FakeBag() = default;
  FakeBag(const FakeBag&) = delete;
  FakeBag& operator=(const FakeBag&) = delete;
  ~FakeBag() { Empty(); }

  void Add(PVOID item, PFNKSFREE free) { items_.emplace_back(item, free); }
  /// Frees everything, the latest first.
  void Empty();
  [[nodiscard]] bool Has(const void* item) const;
  [[nodiscard]] std::size_t Count() const { return items_.size(); }

 private:
  std::vector<std::pair<PVOID, PFNKSFREE>> items_;
};

/// A clock that returns the given times, the last one for ever.
class FakeClock final : public IKsReferenceClock {
 public:
  std::deque<LONGLONG> Times{0};
  int Reads = 0;
  std::function<void()> OnRead;  ///< runs ahead of each reading
  LONG References = 0;
  LONG MostReferences = 0;
  std::function<void()> OnRelease;  ///< runs during every release

  NTSTATUS NTAPI QueryInterface(const GUID&, PVOID*) override { return STATUS_NOT_SUPPORTED; }
  ULONG NTAPI AddRef() override;
  ULONG NTAPI Release() override;
  LONGLONG NTAPI GetTime() override { return 0; }
  LONGLONG NTAPI GetPhysicalTime() override { return 0; }
  LONGLONG NTAPI GetCorrelatedTime(LONGLONG* systemTime) override;
  LONGLONG NTAPI GetCorrelatedPhysicalTime(LONGLONG*) override { return 0; }
  NTSTATUS NTAPI GetResolution(PKSRESOLUTION) override { return STATUS_NOT_SUPPORTED; }
  NTSTATUS NTAPI GetState(KSSTATE*) override { return STATUS_NOT_SUPPORTED; }
};

/// An application's frame: a header of an exact length, and a buffer of one.
class FakeFrame {
 public:
  static constexpr ULONG kWholeHeader = 128;
  static constexpr std::uint8_t kFresh = 0xEE;

  explicit FakeFrame(ULONG extent, ULONG headerSize = kWholeHeader);
  FakeFrame(const FakeFrame&) = delete;
  FakeFrame& operator=(const FakeFrame&) = delete;

  [[nodiscard]] KSSTREAM_HEADER& Header() { return *static_cast<KSSTREAM_HEADER*>(header()); }
  [[nodiscard]] KS_FRAME_INFO Info() const;
  [[nodiscard]] const std::vector<std::uint8_t>& Picture() const { return picture_; }
  [[nodiscard]] bool IsUntouched() const;

  KSSTREAM_POINTER Pointer{};
  bool IsLocked = false;
  bool IsEjected = false;

 private:
  void* header() { return headerBytes_.data(); }

  std::vector<std::uint8_t> headerBytes_;
  std::vector<std::uint8_t> picture_;
};

/// A test double of the streaming class, with every call recorded and every result selectable. One
/// at a time; all Ks functions of the test's program are linked to it.
class FakeStreamingClass {
 public:
  FakeStreamingClass();
  FakeStreamingClass(const FakeStreamingClass&) = delete;
  FakeStreamingClass& operator=(const FakeStreamingClass&) = delete;
  ~FakeStreamingClass();

  static FakeStreamingClass& The();

  void Note(std::string call) { Calls.push_back(std::move(call)); }

  std::vector<std::string> Calls;
  FakeBag DeviceBag;
  KSDEVICE Device{};
  bool HasDevice = true;  ///< KsGetDevice() finds it

  int FailBagAt = 0;   ///< the n-th addition to a bag from now on fails, once
  int FailEditAt = 0;  ///< the n-th _KsEdit()
  NTSTATUS Failure = STATUS_UNEXPECTED_IO_ERROR;
  NTSTATUS DriverStatus = STATUS_SUCCESS;
  NTSTATUS FactoryStatus = STATUS_SUCCESS;
  NTSTATUS PinFactoryStatus = STATUS_SUCCESS;

  const KSDEVICE_DESCRIPTOR* DeviceDescriptor = nullptr;
  const KSFILTER_DESCRIPTOR* FilterDescriptor = nullptr;
  KSPIN_DESCRIPTOR_EX PinDescriptor{};
  PKSFILTER RequestFilter = nullptr;
  PKSPIN RequestPin = nullptr;
  FakeClock* Clock = nullptr;      ///< assigned to the pin
  std::deque<FakeFrame*> Frames;   ///< queued
  std::function<void()> OnEdge;    ///< runs when the pin requests a buffer
  std::function<void()> OnUnlock;  ///< runs when the pin gives one back
  int DeviceMutex = 0;
  int ControlMutex = 0;
};

}  // namespace lidcam::test
