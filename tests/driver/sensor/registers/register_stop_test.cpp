// A bridge read that meets the frame path never returns, and uses nothing any more.

#include <gtest/gtest.h>

#include <new>

#include "driver/sensor/registers/register_access.h"
#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::test {
namespace {

constexpr ULONG kTag = 0x656D6143;

Status RefuseRequest(void*, std::uint32_t, std::uint32_t, std::uint32_t, void*, std::uint32_t*) {
  ADD_FAILURE() << "a read that meets the frame path sends something";
  return -1;
}

void SetEvent(void* event) {
  KeSetEvent(static_cast<PRKEVENT>(event), IO_NO_INCREMENT, FALSE);
}

CameraContext* MakeRecord(PRKEVENT stops) {
  void* const memory = ExAllocatePoolWithTag(NonPagedPool, sizeof(CameraContext), kTag);
  auto* const camera = new (memory) CameraContext{};
  camera->TransportContext = stops;
  camera->WriteRequest = RefuseRequest;
  camera->ReadRequest = RefuseRequest;
  camera->ThreadStops = SetEvent;
  camera->DriverRegisterBusy = 1;
  return camera;
}

void NTAPI Read(PVOID context) {
  std::uint8_t byte = 0;
  ReadBridgeRegister(*static_cast<CameraContext*>(context), 0xFF09, byte);
  ADD_FAILURE() << "a read that meets the frame path returns";
}

// The record is freed by the time that the thread spins.
TEST(RegisterStop, TellsTheTransportOnceAndTouchesTheRecordNoMore) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    KEVENT stops;
    const auto stop = [&stops] {
      KeInitializeEvent(&stops, SynchronizationEvent, FALSE);
      CameraContext* const camera = MakeRecord(&stops);
      HANDLE handle = nullptr;
      PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, Read, camera);
      ZwClose(handle);
      host::WaitForever(&stops);
      camera->DriverRegisterBusy = 0;
      ExFreePool(camera);
      EXPECT_EQ(host::WaitFor(&stops, -host::kSecond), STATUS_TIMEOUT);
    };
    // The only call that the thread makes from then on.
    EXPECT_EQ(host::ViolationOf(
                  stop, {.Seed = seed, .LongestStandstill = 5000, .HasPreemptionPoints = true}),
              "YieldProcessor: livelock: 5000 switch points at one time");
  }
}

}  // namespace
}  // namespace lidcam::test
