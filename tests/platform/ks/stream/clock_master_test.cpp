// A pin and its clock opened as by applications: by name, with the clock given to the pin by
// handle.

#include "platform/host/nt/io/device_file.h"

#include <gtest/gtest.h>
#include "tests/platform/ks/class_world.h"
#include "tests/platform/ks/pin/pin_support.h"

namespace lidcam::host {
namespace {

constexpr char16_t kClockName[] = u"{53172480-4791-11D0-A5D6-28DB04C10000}\\";

using FilePointer = std::unique_ptr<DeviceFile>;

// A started device whose filters have the kind of pin that PinWorld describes.
struct OpenedCamera {
  OpenedCamera() {
    g_pinDriver = &Kind.Driver;
    Class.Script.FilterCreate = [this](PKSFILTER filter, PIRP) {
      return KsFilterCreatePinFactory(filter, &Kind.Descriptor, nullptr);
    };
    Class.Start();
    EXPECT_EQ(DeviceFile::Open(Class.Top(), u"", nullptr, Filter), STATUS_SUCCESS);
    std::u16string name = PinName();
    const std::size_t start = name.size();
    name.resize(start + (sizeof(KSPIN_CONNECT) + sizeof(KSDATAFORMAT)) / sizeof(char16_t));
    std::memcpy(&name[start], &Kind.Connect, sizeof(KSPIN_CONNECT));
    std::memcpy(&name[start + sizeof(KSPIN_CONNECT) / sizeof(char16_t)], &Kind.Format,
                sizeof(KSDATAFORMAT));
    EXPECT_EQ(DeviceFile::Open(Class.Top(), name, Filter.get(), Pin), STATUS_SUCCESS);
  }
  OpenedCamera(const OpenedCamera&) = delete;
  OpenedCamera& operator=(const OpenedCamera&) = delete;

  FilePointer OpenClock() {
    FilePointer clock;
    EXPECT_EQ(DeviceFile::Open(Class.Top(), kClockName, Pin.get(), clock), STATUS_SUCCESS);
    return clock;
  }

  NTSTATUS SetMasterClock(HANDLE handle) {
    return Property(KSPROPSETID_Stream, KSPROPERTY_STREAM_MASTERCLOCK, &handle, sizeof(handle));
  }

  NTSTATUS SetState(KSSTATE state) {
    return Property(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE, &state, sizeof(state));
  }

  NTSTATUS Property(const GUID& set, ULONG id, PVOID value, ULONG bytes) const {
    KSPROPERTY property{};
    property.Set = set;
    property.Id = id;
    property.Flags = KSPROPERTY_TYPE_SET;
    ULONG_PTR information = 0;
    return Pin->Control(IOCTL_KS_PROPERTY, {&property, sizeof(property), value, bytes},
                        information);
  }

  PinWorld Kind;
  ClassWorld Class;
  FilePointer Filter;
  FilePointer Pin;
};

void WithCamera(const std::function<void(OpenedCamera&)>& test) {
  UnderManySeeds(
      [&test] {
        OpenedCamera camera;
        test(camera);
        camera.Pin.reset();
        camera.Filter.reset();
        EXPECT_EQ(OpenFileCount(), 0U);
      },
      5);
}

TEST(MasterClock, IsGivenToThePinByHandleAndOutlivesItsFile) {
  WithCamera([](OpenedCamera& camera) {
    FilePointer clock = camera.OpenClock();
    EXPECT_EQ(camera.SetMasterClock(clock->Handle()), STATUS_SUCCESS);
    clock.reset();
    LONGLONG time = -1;
    camera.Kind.Driver.OnProcess = [&time](PKSPIN pin) {
      PIKSREFERENCECLOCK reference = nullptr;
      EXPECT_EQ(KsPinGetReferenceClockInterface(pin, &reference), STATUS_SUCCESS);
      time = reference->GetTime();
      reference->Release();
      KsStreamPointerUnlock(KsPinGetLeadingEdgeStreamPointer(pin, KSSTREAM_POINTER_STATE_LOCKED),
                            TRUE);
      return STATUS_PENDING;
    };
    PKSPIN pin = nullptr;
    camera.Kind.Driver.OnFormat = [&pin](PKSPIN asked, const KSDATARANGE*) {
      pin = asked;
      return STATUS_SUCCESS;
    };
    EXPECT_EQ(camera.Property(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_DATAFORMAT,
                              &camera.Kind.Format, sizeof(KSDATAFORMAT)),
              STATUS_SUCCESS);
    ASSERT_NE(pin, nullptr);
    EXPECT_EQ(camera.SetState(KSSTATE_RUN), STATUS_SUCCESS);
    alignas(8) std::array<UCHAR, kHeaderSize> memory{};
    const KSSTREAM_HEADER header = camera.Kind.Header(0);
    std::memcpy(memory.data(), &header, sizeof(header));
    const auto reading =
        camera.Pin->BeginControl(IOCTL_KS_READ_STREAM, {nullptr, 0, memory.data(), kHeaderSize});
    Sleep(4 * kMillisecond);
    KsPinAttemptProcessing(pin, TRUE);
    EXPECT_TRUE(reading->Wait());
    EXPECT_EQ(reading->Status(), STATUS_SUCCESS);
    EXPECT_EQ(time, 40'000);
  });
}

TEST(MasterClock, IsAClockOfTheSameDeviceOrNone) {
  WithCamera([](OpenedCamera& camera) {
    EXPECT_EQ(camera.SetMasterClock(camera.Filter->Handle()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(camera.SetMasterClock(camera.Pin->Handle()), STATUS_INVALID_PARAMETER);
    const FilePointer clock = camera.OpenClock();
    EXPECT_EQ(camera.SetMasterClock(clock->Handle()), STATUS_SUCCESS);
    EXPECT_EQ(camera.SetMasterClock(clock->Handle()), STATUS_SUCCESS);
    EXPECT_EQ(camera.SetMasterClock(nullptr), STATUS_SUCCESS);
    EXPECT_EQ(camera.SetState(KSSTATE_ACQUIRE), STATUS_SUCCESS);
    EXPECT_EQ(camera.SetMasterClock(clock->Handle()), STATUS_INVALID_DEVICE_STATE);
  });
}

TEST(MasterClock, FileClosedWithFramesOutGivesThemBack) {
  WithCamera([](OpenedCamera& camera) {
    alignas(8) std::array<UCHAR, kHeaderSize> memory{};
    const KSSTREAM_HEADER header = camera.Kind.Header(0);
    std::memcpy(memory.data(), &header, sizeof(header));
    camera.SetState(KSSTATE_RUN);
    const auto reading =
        camera.Pin->BeginControl(IOCTL_KS_READ_STREAM, {nullptr, 0, memory.data(), kHeaderSize});
    camera.Filter.reset();  // before its pin, as an application may
    camera.Pin.reset();
    EXPECT_TRUE(reading->Wait());
    EXPECT_EQ(reading->Status(), STATUS_CANCELLED);
  });
}

}  // namespace
}  // namespace lidcam::host
