#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/host/ks/device/streaming_device.h"
#include "platform/host/ks/formats/data_format.h"
#include "platform/host/ks/pin/pin_block.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/platform/nt/io/irp_support.h"

namespace lidcam::host {

inline constexpr GUID kSubFormat = GuidOf(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
inline constexpr ULONG kSmallestFrame = 64;
inline constexpr ULONG kHeaderSize = 112;

inline KSDATAFORMAT FormatOf(const GUID& subFormat, ULONG size = sizeof(KSDATAFORMAT)) {
  KSDATAFORMAT format{};
  format.FormatSize = size;
  format.MajorFormat = KSDATAFORMAT_TYPE_VIDEO;
  format.SubFormat = subFormat;
  format.Specifier = KSDATAFORMAT_SPECIFIER_NONE;
  return format;
}

/// The calls of a driver's pin entries, and their results.
struct FakePinDriver {
  using Step = std::pair<KSSTATE, KSSTATE>;  // to, from

  std::vector<Step> Steps;
  std::function<NTSTATUS(KSSTATE to, KSSTATE from)> OnStep;
  std::vector<std::pair<const KSDATARANGE*, const KSDATAFORMAT*>> Formats;  // range, old format
  std::function<NTSTATUS(PKSPIN, const KSDATARANGE*)> OnFormat;
  std::function<NTSTATUS(PKSPIN)> OnCreate;
  std::function<NTSTATUS(PKSPIN)> OnProcess;
  int Resets = 0;
  int Closes = 0;
};

inline FakePinDriver* g_pinDriver = nullptr;

inline constexpr KSPIN_DISPATCH kFakeDispatch = {
    .Create = [](PKSPIN pin, PIRP) NTAPI -> NTSTATUS {
      pin->StreamHeaderSize = kHeaderSize;
      return g_pinDriver->OnCreate ? g_pinDriver->OnCreate(pin) : STATUS_SUCCESS;
    },
    .Close = [](PKSPIN, PIRP) NTAPI -> NTSTATUS {
      ++g_pinDriver->Closes;
      return STATUS_SUCCESS;
    },
    .Process = [](PKSPIN pin) NTAPI -> NTSTATUS {
      return g_pinDriver->OnProcess ? g_pinDriver->OnProcess(pin) : STATUS_PENDING;
    },
    .Reset = [](PKSPIN) NTAPI { ++g_pinDriver->Resets; },
    .SetDataFormat = [](PKSPIN pin, PKSDATAFORMAT oldFormat, PKSMULTIPLE_ITEM,
                        const KSDATARANGE* range, const KSATTRIBUTE_LIST*) NTAPI -> NTSTATUS {
      g_pinDriver->Formats.emplace_back(range, oldFormat);
      return g_pinDriver->OnFormat ? g_pinDriver->OnFormat(pin, range) : STATUS_SUCCESS;
    },
    .SetDeviceState = [](PKSPIN, KSSTATE to, KSSTATE from) NTAPI -> NTSTATUS {
      g_pinDriver->Steps.emplace_back(to, from);
      return g_pinDriver->OnStep ? g_pinDriver->OnStep(to, from) : STATUS_SUCCESS;
    },
    .Connect = nullptr,
    .Disconnect = nullptr,
    .Clock = nullptr,
    .Allocator = nullptr,
};

/// One request of an application. Its memory must outlive the request.
struct PinRequest {
  PinRequest() : Packet(1) {}
  PinRequest(const PinRequest&) = delete;
  PinRequest& operator=(const PinRequest&) = delete;
  ~PinRequest() { Packet.Free(); }

  [[nodiscard]] bool IsDone() const { return Packet.Completions != 0; }
  [[nodiscard]] NTSTATUS Status() const { return Packet->IoStatus.Status; }
  [[nodiscard]] ULONG_PTR Information() const { return Packet->IoStatus.Information; }

  Request Packet;
  alignas(8) std::array<UCHAR, 512> Input{};
  alignas(8) std::array<UCHAR, 2048> Output{};
};

/// A request's output as a value.
template <typename Value>
Value ValueOf(const PinRequest& request, std::size_t offset = 0) {
  Value value{};
  std::memcpy(&value, request.Output.data() + offset, sizeof(value));
  return value;
}

/// An output buffer of some length, and the expected status of a request with it.
struct Room {
  ULONG Length;
  NTSTATUS Status;
  ULONG Information;
};

/// A filter with one kind of pin, and file objects for the pin, a clock and the filter itself.
class PinWorld {
 public:
  PinWorld() {
    g_pinDriver = &Driver;
    InitializeDriverObject(driverObject_);
    IoCreateDevice(&driverObject_, 0, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &physical_);
    physical_->Flags &= ~DO_DEVICE_INITIALIZING;
    Device = std::make_unique<StreamingDevice>(&driverObject_, physical_);
    Filter.Head = {KsObjectKind::Filter, Device.get()};
    InitializeClassMutex(Filter.Control);
    InitializeListHead(&Filter.PinFactories);
    Filter.References = 1;
    FilterFile.FsContext = &Filter.Head;
    FillDescriptor();
    ULONG id = 99;
    KsFilterCreatePinFactory(&Filter.Filter, &Descriptor, &id);
    EXPECT_EQ(id, 0U);
    Connect.Interface.Set = KSINTERFACESETID_Standard;
    Connect.Medium.Set = KSMEDIUMSETID_Standard;
    Connect.Priority = {3, 4};
    Format = FormatOf(kSubFormat);
  }
  PinWorld(const PinWorld&) = delete;
  PinWorld& operator=(const PinWorld&) = delete;
  ~PinWorld() noexcept(false) {
    if (std::uncaught_exceptions() != 0) return;
    if (PinFile.FsContext != nullptr) Close();
    while (IsListEmpty(&Filter.PinFactories) == FALSE) {
      ExFreePool(CONTAINING_RECORD(RemoveHeadList(&Filter.PinFactories), PinFactoryBlock, Link));
    }
    EXPECT_EQ(Filter.References, 1);
    Device.reset();
    IoDeleteDevice(physical_);
  }

  /// Opens the pin with Connect and Format, of which `bytes` are passed.
  NTSTATUS Create(ULONG bytes = sizeof(KSPIN_CONNECT) + sizeof(KSDATAFORMAT)) {
    alignas(8) std::array<UCHAR, sizeof(KSPIN_CONNECT) + sizeof(KSDATAFORMAT)> both{};
    std::memcpy(both.data(), &Connect, sizeof(Connect));
    std::memcpy(both.data() + sizeof(Connect), &Format, sizeof(Format));
    return Do(PinFile, [&](PIRP irp) {
      FailPoolAllocation(FailingAllocation);
      return CreatePin(Filter, irp, *reinterpret_cast<KSPIN_CONNECT*>(both.data()), bytes);
    });
  }

  void Close() {
    CleanUpPin(Head());
    EXPECT_EQ(Do(PinFile,
                 [&](PIRP irp) {
                   ClosePin(Head(), irp);
                   return STATUS_SUCCESS;
                 }),
              STATUS_SUCCESS);
  }

  NTSTATUS OpenClock() {
    return Do(ClockFile, [this](PIRP irp) { return CreateClock(Head(), irp); });
  }

  [[nodiscard]] ObjectHead& Head() const { return *static_cast<ObjectHead*>(PinFile.FsContext); }
  [[nodiscard]] PinBlock& Pin() const { return PinOf(Head()); }

  /// Runs `action` on a packet with a file; `action` returns the packet's status.
  NTSTATUS Do(FILE_OBJECT& file, const std::function<NTSTATUS(PIRP)>& action) {
    PinRequest request;
    action_ = [&action](PIRP irp) { return host::Complete(irp, action(irp)); };
    return Send(request, file);
  }

  /// A control request to the pin, to its clock or to the filter.
  NTSTATUS Control(PinRequest& request, FILE_OBJECT& file, ULONG code, ULONG inputLength,
                   ULONG outputLength) {
    auto& location = *IoGetNextIrpStackLocation(request.Packet.Irp());
    location.Parameters.DeviceIoControl.IoControlCode = code;
    location.Parameters.DeviceIoControl.Type3InputBuffer = request.Input.data();
    location.Parameters.DeviceIoControl.InputBufferLength = inputLength;
    location.Parameters.DeviceIoControl.OutputBufferLength = outputLength;
    request.Packet->UserBuffer = request.Output.data();
    action_ = [](PIRP irp) {
      PVOID const context = IoGetCurrentIrpStackLocation(irp)->FileObject->FsContext;
      ObjectHead& head = *static_cast<ObjectHead*>(context);
      if (head.Kind == KsObjectKind::Pin) return DispatchPinControl(head, irp);
      if (head.Kind == KsObjectKind::Clock) return DispatchClockControl(head, irp);
      const KSAUTOMATION_TABLE table{.PropertySetsCount = 1,
                                     .PropertyItemSize = sizeof(KSPROPERTY_ITEM),
                                     .PropertySets = &kPinPropertySet,
                                     .MethodSetsCount = 0,
                                     .MethodItemSize = 0,
                                     .MethodSets = nullptr,
                                     .EventSetsCount = 0,
                                     .EventItemSize = 0,
                                     .EventSets = nullptr};
      const KSAUTOMATION_TABLE* const tables[] = {&table};
      return CompleteRequest(irp, AnswerProperty(irp, tables, 1));
    };
    return Send(request, file);
  }

  /// A property of a set. The value is the request's output buffer, for get and set.
  NTSTATUS Property(PinRequest& request, FILE_OBJECT& file, const GUID& set, ULONG id, ULONG flags,
                    ULONG outputLength, ULONG inputLength = sizeof(KSPROPERTY)) {
    KSPROPERTY property{};
    property.Set = set;
    property.Id = id;
    property.Flags = flags;
    std::memcpy(request.Input.data(), &property, sizeof(property));
    return Control(request, file, IOCTL_KS_PROPERTY, inputLength, outputLength);
  }

  NTSTATUS SetState(KSSTATE state) { return SetStateNumber(static_cast<ULONG>(state)); }

  NTSTATUS SetStateNumber(ULONG state) {
    PinRequest request;
    std::memcpy(request.Output.data(), &state, sizeof(state));
    return Property(request, PinFile, KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE,
                    KSPROPERTY_TYPE_SET, sizeof(state));
  }

  /// Sends `count` frames in one request; their buffers begin at frame `first` of Buffers.
  NTSTATUS Read(PinRequest& request, ULONG count, ULONG first = 0) {
    for (ULONG i = 0; i < count; ++i) HeaderOf(request, i) = Header(first + i);
    return Control(request, PinFile, IOCTL_KS_READ_STREAM, 0, count * kHeaderSize);
  }

  KSSTREAM_HEADER Header(ULONG buffer) {
    KSSTREAM_HEADER header{};
    header.Size = kHeaderSize;
    header.FrameExtent = kSmallestFrame;
    header.Data = Buffers[buffer].data();
    return header;
  }

  static KSSTREAM_HEADER& HeaderOf(PinRequest& request, ULONG index) {
    return *reinterpret_cast<KSSTREAM_HEADER*>(request.Output.data() + index * kHeaderSize);
  }

  FakePinDriver Driver;
  std::uint32_t FailingAllocation = 0;  ///< of those that Create() makes, from 1
  std::unique_ptr<StreamingDevice> Device;
  FilterBlock Filter{};
  KSPIN_DESCRIPTOR_EX Descriptor{};
  KSALLOCATOR_FRAMING_EX Framing{};
  KSDATARANGE Ranges[2] = {FormatOf(kSubFormat), FormatOf(GUID_NULL)};
  PKSDATARANGE RangeList[3] = {&Ranges[0], nullptr, &Ranges[1]};
  KSPIN_CONNECT Connect{};
  KSDATAFORMAT Format{};
  FILE_OBJECT PinFile{};
  FILE_OBJECT ClockFile{};
  FILE_OBJECT FilterFile{};
  std::array<std::array<UCHAR, kSmallestFrame>, 16> Buffers{};

 private:
  NTSTATUS Send(PinRequest& request, FILE_OBJECT& file) {
    IoGetNextIrpStackLocation(request.Packet.Irp())->FileObject = &file;
    return request.Packet.Send(device_.Device());
  }

  void FillDescriptor() {
    static constexpr GUID kName = GuidOf(STATIC_PINNAME_VIDEO_CAPTURE);
    interface_.Set = KSINTERFACESETID_Standard;
    medium_.Set = KSMEDIUMSETID_Standard;
    Framing.CountItems = 1;
    Framing.FramingItem[0].FramingRange.Range = {kSmallestFrame, kSmallestFrame, 0};
    Descriptor.Dispatch = &kFakeDispatch;
    Descriptor.PinDescriptor.InterfacesCount = 1;
    Descriptor.PinDescriptor.Interfaces = &interface_;
    Descriptor.PinDescriptor.MediumsCount = 1;
    Descriptor.PinDescriptor.Mediums = &medium_;
    Descriptor.PinDescriptor.DataRangesCount = 3;
    Descriptor.PinDescriptor.DataRanges = RangeList;
    Descriptor.PinDescriptor.DataFlow = KSPIN_DATAFLOW_OUT;
    Descriptor.PinDescriptor.Communication = KSPIN_COMMUNICATION_BOTH;
    Descriptor.PinDescriptor.Category = &kName;
    Descriptor.PinDescriptor.Name = &kName;
    Descriptor.Flags = 0x50011;
    Descriptor.InstancesPossible = 1;
    Descriptor.InstancesNecessary = 1;
    Descriptor.AllocatorFraming = &Framing;
  }

  DRIVER_OBJECT driverObject_{};
  PDEVICE_OBJECT physical_ = nullptr;
  KSPIN_INTERFACE interface_{};
  KSPIN_MEDIUM medium_{};
  std::function<NTSTATUS(PIRP)> action_;
  TestDriver device_{[this](PDEVICE_OBJECT, PIRP irp) {
    const auto action = action_;  // another thread may send the next request
    return action(irp);
  }};
};

/// Runs `test` with the pin opened, and checks that no memory is left.
inline void WithPin(const std::function<void(PinWorld&)>& test, std::uint64_t seeds = 1) {
  UnderManySeeds(
      [&test] {
        const std::size_t before = PoolUsageOfAll().Blocks;
        {
          PinWorld world;
          ASSERT_EQ(world.Create(), STATUS_SUCCESS);
          test(world);
        }
        EXPECT_EQ(PoolUsageOfAll().Blocks, before);
      },
      seeds);
}

/// The same without opening the pin.
inline void WithFilter(const std::function<void(PinWorld&)>& test) {
  Simulate({}, [&test] {
    const std::size_t before = PoolUsageOfAll().Blocks;
    {
      PinWorld world;
      test(world);
    }
    EXPECT_EQ(PoolUsageOfAll().Blocks, before);
  });
}

}  // namespace lidcam::host
