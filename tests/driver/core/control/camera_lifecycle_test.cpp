// The camera's life after creation: streaming, power, waiting and the end.

#include "driver/core/control/camera_lifecycle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "driver/core/base/camera_memory.h"
#include "platform/host/nt/system/wdm_version.h"
#include "platform/kernel.h"
#include "tests/driver/core/base/kernel_call_hooks.h"
#include "tests/driver/core/control/bring_up_world.h"
#include "tests/driver/support/trace_lines.h"

namespace lidcam::test {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CreatedCamera : public testing::Test {
 protected:
  CreatedCamera() { camera_ = world_.Create(); }

  void SetUp() override {
    ASSERT_NE(camera_, nullptr);
    world_.Space.ForgetTraffic();
  }

  BringUpWorld world_;
  CameraPointer camera_;
};

// --- streaming and power ---

TEST_F(CreatedCamera, IsMarkedStreamingWithoutTraffic) {
  EXPECT_EQ(MarkStreaming(*camera_), 0);
  EXPECT_EQ(camera_->Streaming, 1);
  EXPECT_THAT(world_.Space.Packets(), IsEmpty());
}

TEST_F(CreatedCamera, RestsWithTheLedOffWhenAStreamEnds) {
  MarkStreaming(*camera_);
  world_.Space.Bridge[0x09] = 0xB2;
  EXPECT_EQ(EndStream(*camera_), 0);
  EXPECT_EQ(camera_->Streaming, 0);
  EXPECT_THAT(world_.Space.Accesses(),
              ElementsAre("read bridge FF09 -> B2", "write bridge FF09=B3",
                          "read bridge FF09 -> B3", "write bridge FF09=A3"));
}

TEST_F(CreatedCamera, OfTypeVga0708OnlyReadsThePowerRegisterWhenAStreamEnds) {
  camera_->SensorType = SensorTypeVGA0708;
  world_.Space.Bridge[0x09] = 0xB2;
  EXPECT_EQ(EndStream(*camera_), 0);
  EXPECT_THAT(world_.Space.Accesses(),
              ElementsAre("read bridge FF09 -> B2", "read bridge FF09 -> B2"));
}

TEST_F(CreatedCamera, EndsAStreamWithSuccessThoughTheBusFails) {
  MarkStreaming(*camera_);
  world_.Space.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(EndStream(*camera_), 0);
  EXPECT_EQ(camera_->Streaming, 0);
}

TEST_F(CreatedCamera, DoesNothingWhenIdle) {
  EXPECT_EQ(StreamIdle(*camera_), 0);
  EXPECT_THAT(world_.Space.Packets(), IsEmpty());
}

TEST_F(CreatedCamera, NotesASuspendWithoutTraffic) {
  EXPECT_EQ(SuspendCamera(*camera_), 0);
  EXPECT_EQ(camera_->PowerOn, 0);
  EXPECT_THAT(world_.Space.Packets(), IsEmpty());
}

TEST_F(CreatedCamera, IsReprogrammedOnResumeWithTheModeRegisterLast) {
  SuspendCamera(*camera_);
  camera_->SetupRegisters.Present = 1;
  camera_->SetupRegisters.Count = 1;
  camera_->SetupRegisters.Entries[0] = {0x11, 0x0A, 0x12};
  camera_->BridgeMode = 0x11;
  EXPECT_EQ(ResumeCamera(*camera_), 0);
  EXPECT_EQ(camera_->PowerOn, 1);
  const std::vector<std::string>& accesses = world_.Space.Accesses();
  ASSERT_GT(accesses.size(), 3U);
  EXPECT_EQ(accesses[0], "write bridge FF0A=12");
  EXPECT_EQ(accesses[1], "write bridge FF77=14");
  EXPECT_EQ(accesses[accesses.size() - 2], "write bridge FF0C=00");
  EXPECT_EQ(accesses.back(), "write bridge FF0A=11");
  EXPECT_EQ(camera_->ClockDivider, 2);
}

TEST_F(CreatedCamera, ResumesWithSuccessThoughTheBusFails) {
  world_.Space.Failure = [](const std::string&) { return -1; };
  EXPECT_EQ(ResumeCamera(*camera_), 0);
  EXPECT_EQ(camera_->PowerOn, 1);
}

// --- trace ---

TEST_F(CreatedCamera, TracesItsStreamAndItsPower) {
  TraceLines trace;
  MarkStreaming(*camera_);
  EXPECT_THAT(trace.Take(), ElementsAre("stream on"));
  EndStream(*camera_);
  SuspendCamera(*camera_);
  EXPECT_THAT(trace.Take(), ElementsAre("stream off", "power off"));
  ResumeCamera(*camera_);
  EXPECT_EQ(trace.Take().front(), "power on");
}

TEST_F(CreatedCamera, TracesAStepAheadOfItsRegisterAccesses) {
  TraceLines trace(TraceLines::Accesses::Kept);
  EndStream(*camera_);
  std::vector<std::string> lines = trace.Take();
  ASSERT_GT(lines.size(), 2U);
  EXPECT_EQ(lines[0], "stream off");
  EXPECT_EQ(lines[1].substr(0, 4), "bus ");
  ResumeCamera(*camera_);
  lines = trace.Take();
  ASSERT_GT(lines.size(), 2U);
  EXPECT_EQ(lines[0], "power on");
  EXPECT_EQ(lines[1].substr(0, 4), "bus ");
}

// --- waiting ---

using Clock = std::chrono::steady_clock;

TEST(WaitMilliseconds, WaitsAsLongAsAsked) {
  const std::size_t before = CameraBlocks();
  const auto started = Clock::now();
  WaitMilliseconds(40);
  EXPECT_GE(Clock::now() - started, 40ms);
  EXPECT_EQ(CameraBlocks(), before);
}

TEST(WaitMilliseconds, CountsInMillisecondsAndNotInLongerUnits) {
  const auto started = Clock::now();
  WaitMilliseconds(20);
  EXPECT_LT(Clock::now() - started, 2s);
}

TEST(WaitMilliseconds, RepeatsAWaitThatReportsAnythingButItsTimeout) {
  constexpr NTSTATUS kAnswers[] = {0x00000000, 0x000000C0, 0x00000101, 0x00000102};
  const std::size_t before = CameraBlocks();
  std::vector<WaitCall> calls;
  KernelCallHooks hooks;
  hooks.OnWait = [&](const WaitCall& call) -> std::optional<NTSTATUS> {
    calls.push_back(call);
    return kAnswers[std::min(calls.size(), std::size(kAnswers)) - 1];
  };
  WaitMilliseconds(20);
  ASSERT_EQ(calls.size(), 4U);
  for (const WaitCall& call : calls) {
    EXPECT_EQ(call.Object, calls[0].Object);
    EXPECT_EQ(call.Reason, 0);
    EXPECT_EQ(call.Mode, 0);
    EXPECT_EQ(call.Alertable, 0);
    EXPECT_EQ(call.Timeout, -200000);
  }
  EXPECT_EQ(CameraBlocks(), before);
}

TEST(WaitMilliseconds, ReturnsAtOnceWithoutMemoryForItsEvent) {
  host::FailPoolAllocation(1);
  const auto started = Clock::now();
  WaitMilliseconds(20000);
  EXPECT_LT(Clock::now() - started, 10s);
  host::FailPoolAllocation(0);
}

// --- the end ---

TEST_F(CreatedCamera, GivesAllItsMemoryBack) {
  camera_->WorkBufferA = AllocateCameraMemory(100);
  camera_->WorkBufferC = AllocateCameraMemory(300);
  const std::size_t before = CameraBlocks();
  camera_.reset();
  EXPECT_EQ(before - CameraBlocks(), 4U);  // record, spare block, two buffers
}

TEST_F(CreatedCamera, SendsNothingAtItsEnd) {
  camera_.reset();
  EXPECT_THAT(world_.Space.Packets(), IsEmpty());
}

// Polls until the condition holds or the limit has passed; whether it holds.
template <typename Condition>
bool HoldsWithin(std::chrono::milliseconds limit, const Condition& condition) {
  for (auto waited = 0ms; waited < limit && !condition(); waited += 1ms) {
    std::this_thread::sleep_for(1ms);
  }
  return condition();
}

constexpr auto kPatience = 20s;
constexpr auto kTimeThatShowsAWait = 100ms;

TEST_F(CreatedCamera, WaitsForPendingWorkBeforeItFreesAnything) {
  camera_->WorkBufferB = AllocateCameraMemory(200);
  camera_->PendingWork = 2;
  const std::size_t blocks = CameraBlocks();
  std::atomic<bool> isDestroyed = false;
  std::atomic<bool> isStopping = false;
  std::atomic<bool> isHeld = false;
  CameraContext* const camera = camera_.get();
  std::thread work([&] {
    isStopping = HoldsWithin(kPatience, [&] { return camera->WorkerRunning == 0; });
    camera->PendingWork = 1;
    std::this_thread::sleep_for(kTimeThatShowsAWait);
    isHeld = !isDestroyed && CameraBlocks() >= blocks;
    camera->PendingWork = 0;
  });
  camera_.reset();
  isDestroyed = true;
  work.join();
  EXPECT_TRUE(isStopping);
  EXPECT_TRUE(isHeld);
  EXPECT_EQ(blocks - CameraBlocks(), 3U);
}

struct WorkerOutcome {
  bool IsEndedWithoutWorker;
  std::size_t BlocksFreedBefore;
};

// Destroys a camera whose worker ends once the camera has ended, or after `limit`.
WorkerOutcome DestroyWithWorker(CameraPointer camera, std::uint16_t wdmVersion,
                                std::chrono::milliseconds limit) {
  host::SetWdmVersion(wdmVersion);
  KEVENT workerEnded;
  KeInitializeEvent(&workerEnded, NotificationEvent, FALSE);
  camera->WorkerThread = &workerEnded;
  camera->WorkBufferA = AllocateCameraMemory(100);
  camera->WorkBuffersReady = 1;
  const std::size_t blocks = CameraBlocks();
  std::atomic<bool> isDestroyed = false;
  WorkerOutcome outcome{};
  std::thread worker([&] {
    HoldsWithin(kPatience, [&] { return CameraBlocks() < blocks; });
    const bool isEnded = HoldsWithin(limit, [&] { return isDestroyed.load(); });
    outcome = {isEnded, blocks - CameraBlocks()};
    KeSetEvent(&workerEnded, 0, FALSE);
  });
  camera.reset();
  isDestroyed = true;
  worker.join();
  host::SetWdmVersion(0x0130);
  return outcome;
}

TEST_F(CreatedCamera, WaitsForItsWorkerAfterItsBuffersAreFreedFromWdm110On) {
  const WorkerOutcome outcome = DestroyWithWorker(std::move(camera_), 0x0110, kTimeThatShowsAWait);
  EXPECT_FALSE(outcome.IsEndedWithoutWorker);
  EXPECT_EQ(outcome.BlocksFreedBefore, 1U);
}

TEST_F(CreatedCamera, DoesNotWaitForItsWorkerBelowWdm110) {
  for (const std::uint16_t version : {std::uint16_t{0x0105}, std::uint16_t{0x010F}}) {
    CameraPointer camera = world_.Create();
    ASSERT_NE(camera, nullptr);
    EXPECT_TRUE(DestroyWithWorker(std::move(camera), version, kPatience).IsEndedWithoutWorker)
        << version;
  }
}

// What the record holds of its buffers and its worker.
struct WorkState {
  void* BufferA = nullptr;
  void* BufferB = nullptr;
  void* BufferC = nullptr;
  int BuffersReady = 0;
  void* Worker = nullptr;
  bool operator==(const WorkState&) const = default;
};

WorkState WorkStateOf(const CameraContext& camera) {
  return {camera.WorkBufferA, camera.WorkBufferB, camera.WorkBufferC, camera.WorkBuffersReady,
          camera.WorkerThread};
}

TEST_F(CreatedCamera, ForgetsItsBuffersBeforeItWaitsForItsWorkerAndThatBeforeItsMemoryGoes) {
  KEVENT workerEnded;
  KeInitializeEvent(&workerEnded, NotificationEvent, TRUE);
  CameraContext* const camera = camera_.get();
  camera->WorkBufferA = AllocateCameraMemory(100);
  camera->WorkBufferB = AllocateCameraMemory(200);
  camera->WorkBufferC = AllocateCameraMemory(300);
  camera->WorkBuffersReady = 1;
  camera->WorkerThread = &workerEnded;
  void* const spareBlock = camera->SpareBlock;
  void* const buffers[] = {camera->WorkBufferA, camera->WorkBufferB, camera->WorkBufferC};

  std::vector<WorkState> atWait;
  std::vector<WorkState> atLastFree;
  std::vector<void*> freed;
  KernelCallHooks hooks;
  hooks.OnWait = [&](const WaitCall& call) -> std::optional<NTSTATUS> {
    EXPECT_EQ(call.Object, &workerEnded);
    EXPECT_EQ(call.Timeout, std::nullopt);
    atWait.push_back(WorkStateOf(*camera));
    return std::nullopt;
  };
  hooks.OnFree = [&](PVOID memory) {
    freed.push_back(memory);
    if (memory == spareBlock) atLastFree.push_back(WorkStateOf(*camera));
  };
  camera_.reset();
  EXPECT_THAT(atWait, ElementsAre(WorkState{.Worker = &workerEnded}));
  EXPECT_THAT(atLastFree, ElementsAre(WorkState{}));
  EXPECT_THAT(freed, ElementsAre(buffers[0], buffers[1], buffers[2], spareBlock, camera));
}

TEST_F(CreatedCamera, HasItsBuffersWhileWorkIsPending) {
  CameraContext* const camera = camera_.get();
  camera->WorkBufferA = AllocateCameraMemory(100);
  camera->WorkBufferB = AllocateCameraMemory(200);
  camera->WorkBufferC = AllocateCameraMemory(300);
  camera->WorkBuffersReady = 1;
  camera->PendingWork = 2;
  const WorkState before = WorkStateOf(*camera);
  std::vector<WorkState> atWait;
  KernelCallHooks hooks;
  hooks.OnWait = [&](const WaitCall& call) -> std::optional<NTSTATUS> {
    EXPECT_EQ(call.Timeout, -10000);
    atWait.push_back(WorkStateOf(*camera));
    camera->PendingWork = camera->PendingWork - 1;
    return STATUS_TIMEOUT;
  };
  camera_.reset();
  EXPECT_THAT(atWait, ElementsAre(before, before));
}

TEST_F(CreatedCamera, HasReadyBuffersUntilTheLastIsFreed) {
  CameraContext* const camera = camera_.get();
  camera->WorkBufferA = AllocateCameraMemory(100);
  camera->WorkBufferC = AllocateCameraMemory(300);
  camera->WorkBuffersReady = 1;
  std::vector<int> ready;
  KernelCallHooks hooks;
  hooks.OnFree = [&](PVOID memory) {
    const bool isBuffer = memory == camera->WorkBufferA || memory == camera->WorkBufferC;
    if (memory != nullptr && isBuffer) ready.push_back(camera->WorkBuffersReady);
  };
  camera_.reset();
  EXPECT_THAT(ready, ElementsAre(1, 1));
}

// --- memory ---

TEST(CameraMemory, IsNonpagedAndCarriesTheTagWdm) {
  const host::PoolUsage before = host::PoolUsageOfTag(kTagOfWdm);
  void* const memory = AllocateCameraMemory(123);
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(host::PoolUsageOfTag(kTagOfWdm).Blocks, before.Blocks + 1);
  EXPECT_EQ(host::PoolUsageOfTag(kTagOfWdm).Bytes, before.Bytes + 123);
  EXPECT_EQ(host::PoolUsageOfTag(kTagOfWdm).NonPagedBlocks, before.NonPagedBlocks + 1);
  FreeCameraMemory(memory);
  EXPECT_EQ(host::PoolUsageOfTag(kTagOfWdm).Blocks, before.Blocks);
}

TEST(CameraMemory, IsNullWhenThePoolHasNoRoom) {
  host::FailPoolAllocation(1);
  EXPECT_EQ(AllocateCameraMemory(8), nullptr);
}

TEST(CameraMemory, ZeroesABlockAndNothingBehindIt) {
  std::array<std::uint8_t, 10> block{};
  block.fill(0xFF);
  ZeroCameraMemory(block.data() + 1, 8);
  EXPECT_THAT(block, ElementsAre(0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF));
}

TEST(CameraMemory, FreesNullWithoutEffect) {
  const std::size_t before = CameraBlocks();
  FreeCameraMemory(nullptr);
  EXPECT_EQ(CameraBlocks(), before);
}

}  // namespace
}  // namespace lidcam::test
