// Streams in real time from a camera on a bus with faults, for any duration, and reports whether
// memory use stayed constant and every stream recovered.

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "bus/faults/fault_bus.h"
#include "bus/faults/random_faults.h"
#include "camera_model/bus_adapter/simulated_bus.h"
#include "driver/core/base/camera_trace.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "scenarios/run/random.h"
#include "testbed/transport_testbed.h"

namespace lidcam::scenarios {
namespace {

using testbed::kMillisecond;
using testbed::kSecond;
using testbed::TransportTestbed;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kCameraTag = 0x206D6457;  // "Wdm "
constexpr std::chrono::seconds kRound{20};
constexpr LONGLONG kPatience = 3 * kSecond;

std::atomic<std::uint64_t> g_recoveries = 0;

void CountRecoveries(const CameraContext*, const char* format, std::va_list) {
  if (std::strncmp(format, "recovery ends", 13) == 0) ++g_recoveries;
}

struct SoakCounts {
  std::uint64_t Rounds = 0;
  std::uint64_t Frames = 0;
  std::uint64_t BadFrames = 0;
  std::uint64_t BusFaults = 0;
  std::uint64_t ByItself = 0;   ///< silences that ended by themselves
  std::uint64_t ByPause = 0;    ///< ... by a pause and a resume
  std::uint64_t ByAcquire = 0;  ///< ... by a release and a new acquire
  std::uint64_t ByPlug = 0;     ///< ... by plugging the camera in again
  std::uint64_t Lost = 0;       ///< streams that did not recover
  std::uint64_t FailedStarts = 0;
};

std::uint64_t ResidentKilobytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmRSS:")) return std::stoull(line.substr(6));
  }
  return 0;
}

void SleepInRealTime(std::uint64_t microseconds) {
  LARGE_INTEGER time{};
  time.QuadPart = -static_cast<LONGLONG>(microseconds) * 10;
  KeDelayExecutionThread(KernelMode, FALSE, &time);
}

class Soak {
 public:
  Soak(std::uint64_t seed, Clock::time_point end) : random_(seed), end_(end) {}

  /// Plugs one camera in, streams, and removes it.
  void PlayRound();

  SoakCounts Counts;

 private:
  bool IsOver() const { return Clock::now() >= end_; }
  bool Begin(TransportTestbed& camera);
  void Watch(TransportTestbed& camera, Clock::time_point until);
  bool FramesCome(TransportTestbed& camera);
  bool Mend(TransportTestbed& camera);
  void Count(TransportTestbed& camera);

  Random random_;
  const Clock::time_point end_;
};

bool Soak::Begin(TransportTestbed& camera) {
  if (camera.Start() != STATUS_SUCCESS) return false;
  return camera.Acquire({}) == STATUS_SUCCESS && camera.Run() == STATUS_SUCCESS;
}

bool Soak::FramesCome(TransportTestbed& camera) {
  return camera.WaitForFrames(camera.Counts().Delivered() + 3, kPatience);
}

void Soak::Count(TransportTestbed& camera) {
  const testbed::FrameCounts counts = camera.Counts();
  Counts.Frames += counts.Good;
  Counts.BadFrames += counts.Bad;
}

// A user's remedies for a picture that has stopped, the mildest first.
bool Soak::Mend(TransportTestbed& camera) {
  camera.Pause();
  if (camera.Resume() == STATUS_SUCCESS && FramesCome(camera)) {
    ++Counts.ByPause;
    return true;
  }
  camera.Pause();
  camera.Release();
  Count(camera);
  if (camera.Acquire({}) == STATUS_SUCCESS && camera.Run() == STATUS_SUCCESS &&
      FramesCome(camera)) {
    ++Counts.ByAcquire;
    return true;
  }
  return false;
}

void Soak::Watch(TransportTestbed& camera, Clock::time_point until) {
  while (Clock::now() < until && !IsOver()) {
    if (FramesCome(camera)) continue;
    if (FramesCome(camera)) {
      ++Counts.ByItself;
    } else if (camera.End() != testbed::BusEnd::None || !Mend(camera)) {
      return;
    }
  }
}

void Soak::PlayRound() {
  ++Counts.Rounds;
  constexpr std::uint32_t kRoom[] = {512, 1024, 3072};
  bus::SimulatedBusOptions options;
  options.Pace = bus::Pacing::RealTime;
  options.BandwidthLimit = random_.OneOf(kRoom);
  bus::SimulatedBus quietBus(options);
  bus::FaultBus bus(quietBus, {.Script = bus::RandomFaults(random_.Next(), kRound,
                                                           bus::RandomFaultMix::Everything),
                               .Sleep = SleepInRealTime,
                               .Observer = {}});
  {
    TransportTestbed camera(bus, {});
    if (Begin(camera)) {
      Watch(camera, Clock::now() + kRound);
    } else {
      ++Counts.FailedStarts;
    }
    Count(camera);
    camera.Close();
  }
  Counts.BusFaults += bus.Counts().Total();
  // Plugged in again, on a bus without faults, every camera streams.
  bus::SimulatedBus goodBus(options);
  TransportTestbed camera(goodBus, {});
  ++(Begin(camera) && FramesCome(camera) ? Counts.ByPlug : Counts.Lost);
  camera.Close();
}

struct Memory {
  host::PoolUsage All = host::PoolUsageOfAll();
  host::PoolUsage Camera = host::PoolUsageOfTag(kCameraTag);
  std::size_t Requests = host::IrpUsageOfWorld().Known;
  std::uint64_t Resident = ResidentKilobytes();
};

void Print(const char* when, const Memory& memory) {
  std::printf("%-6s pool %zu blocks %zu bytes, tag 'Wdm ' %zu blocks, requests %zu, RSS %llu KB\n",
              when, memory.All.Blocks, memory.All.Bytes, memory.Camera.Blocks, memory.Requests,
              static_cast<unsigned long long>(memory.Resident));
}

int Run(std::chrono::seconds time, std::uint64_t seed) {
  SetCameraTraceSink(CountRecoveries);
  const Clock::time_point begin = Clock::now();
  Soak soak(seed, begin + time);
  // The first round makes the allocations that are made only once.
  soak.PlayRound();
  const Memory before;
  Print("start", before);
  std::fflush(stdout);
  while (Clock::now() < begin + time) soak.PlayRound();
  const Memory after;
  Print("end", after);
  const SoakCounts& counts = soak.Counts;
  std::printf(
      "%.0f s, %llu rounds (%llu not started), %llu bus faults, %llu recoveries, %llu frames, "
      "%llu of a wrong size\n",
      std::chrono::duration<double>(Clock::now() - begin).count(),
      static_cast<unsigned long long>(counts.Rounds),
      static_cast<unsigned long long>(counts.FailedStarts),
      static_cast<unsigned long long>(counts.BusFaults),
      static_cast<unsigned long long>(g_recoveries.load()),
      static_cast<unsigned long long>(counts.Frames),
      static_cast<unsigned long long>(counts.BadFrames));
  std::printf(
      "silences ended: %llu by themselves, %llu by a pause, %llu by a new acquire; after each "
      "round plugged in again: %llu stream, %llu don't\n",
      static_cast<unsigned long long>(counts.ByItself),
      static_cast<unsigned long long>(counts.ByPause),
      static_cast<unsigned long long>(counts.ByAcquire),
      static_cast<unsigned long long>(counts.ByPlug), static_cast<unsigned long long>(counts.Lost));
  const bool keepsMemory = after.All.Blocks == before.All.Blocks &&
                           after.All.Bytes == before.All.Bytes && after.Requests == before.Requests;
  const bool isGood = keepsMemory && counts.Lost == 0 && counts.Frames != 0;
  std::printf("%s\n", isGood ? "every stream came back, and no memory was lost"
                             : "FAILED: memory or a stream was lost");
  return isGood ? 0 : 1;
}

std::uint64_t NumberOr(const char* text, std::uint64_t otherwise) {
  std::uint64_t number = 0;
  const auto end = std::from_chars(text, text + std::strlen(text), number);
  return end.ec == std::errc{} && number != 0 ? number : otherwise;
}

}  // namespace
}  // namespace lidcam::scenarios

int main(int argc, char** argv) {
  using lidcam::scenarios::NumberOr;
  const auto time = std::chrono::seconds(argc > 1 ? NumberOr(argv[1], 3600) : 3600);
  return lidcam::scenarios::Run(time, argc > 2 ? NumberOr(argv[2], 1) : 1);
}
