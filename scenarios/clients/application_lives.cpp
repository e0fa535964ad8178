// The sequences of operations that applications perform.

#include "scenarios/clients/application.h"
#include "scenarios/clients/client_stage.h"

namespace lidcam::scenarios {
namespace {

// Of an application with an open camera, and of one with a stream.
constexpr std::string_view kOperations[] = {
    "asking for support", "listing formats",       "intersecting",
    "changing levels",    "closing or asking",     "connecting",
    "connecting",         "asking for properties", "asking for properties",
};
constexpr std::string_view kStreamOperations[] = {
    "changing the state",
    "changing the state",
    "running",
    "running",
    "running",
    "stopping",
    "using a clock",
    "looking or changing the format",
    "asking the pin",
    "cancelling or disconnecting",
    "taking frames",
    "taking frames",
    "taking frames",
    "taking frames",
};

}  // namespace

void Application::DoOneThing() {
  if (chance_.OneIn(4)) Sleep(40 * kMillisecond);
  if (stream_ != nullptr && !chance_.OneIn(3)) return DoOneThingWithStream();
  if (!camera_) return OpenCamera();
  switch (stage_.Kinds().Choose(chance_, kOperations)) {
    case 0:
      return AskSupport();
    case 1:
      return ListFormats();
    case 2:
      return Intersect();
    case 3:
      return ChangeLevel();
    case 4:
      return chance_.OneIn(3) ? CloseCamera() : AskAnything();
    case 5:
    case 6:
      if (stream_ == nullptr) return Connect();
      return AskAnything();
    default:
      return AskAnything();
  }
}

void Application::DoOneThingWithStream() {
  switch (stage_.Kinds().Choose(chance_, kStreamOperations)) {
    case 0:
    case 1:
      return ChangeState();
    case 2:
    case 3:
    case 4:
      RunStream();
      return TakeFrames(6);
    case 5:
      return StopStream();
    case 6:
      return UseClock();
    case 7:
      return chance_.OneIn(2) ? LookAtStream() : ChangeFormat();
    case 8:
      return AskPin();
    case 9:
      if (chance_.OneIn(3)) return stream_->CancelBuffers();
      return chance_.OneIn(3) ? Disconnect() : SetAnyState(KSSTATE_PAUSE);
    default:
      return TakeFrames(5);
  }
}

bool Application::HasOperation(std::uint64_t step) {
  return stage_.HasOperation(name_, step + 1, chance_);
}

void Application::DoAnything(std::uint64_t steps) {
  for (std::uint64_t i = 0; i < steps; ++i) {
    if (HasOperation(i)) DoOneThing();
  }
}

void Application::Stream(std::uint64_t steps) {
  for (std::uint64_t i = 0; i < steps; ++i) {
    if (!HasOperation(i)) continue;
    if (!camera_) {
      OpenCamera();
    } else if (stream_ == nullptr) {
      Connect();
    } else if (stream_->IsStopped()) {
      if (chance_.OneIn(3)) UseClock();
      RunStream();
      if (stream_->IsStopped()) Sleep(60 * kMillisecond);
    } else {
      TakeFrames(4);
      if (chance_.OneIn(2)) StopStream();
    }
  }
}

void Application::TurnControls(std::uint64_t steps) {
  OpenOnly();
  for (std::uint64_t i = 0; i < steps; ++i) {
    if (!HasOperation(i)) continue;
    if (chance_.OneIn(3)) Sleep(10 * kMillisecond);
    chance_.OneIn(3) ? ChangeLevel() : ChangeLight();
  }
}

void Application::TurnLight(std::uint64_t steps) {
  OpenOnly();
  for (std::uint64_t i = 0; i < steps; ++i) {
    if (!HasOperation(i)) continue;
    Sleep(15 * kMillisecond);  // the frame path gets access to the bus only in between
    ChangeLight();
  }
}

void Application::StreamOn() {
  OpenOnly();
  ConnectOnly();
  RunStream();
  while (!clients_.IsGoing() && !clients_.IsRestarted()) TakeFrame();
}

bool Application::FirstStream() {
  Connect();
  if (stream_ == nullptr) return false;
  UseClock();
  RunStream();
  TakeFrames(3);
  ChangeLevel();
  LookAtStream();
  SetAnyState(KSSTATE_PAUSE);
  RunStream();
  TakeFrames(2);
  return true;
}

void Application::SecondStream() {
  StopStream();
  ChangeFormat();
  RunStream();
  TakeFrames(2);
}

void Application::Everyday() {
  OpenCamera();
  if (!camera_) return;
  ListFormats();
  AskSupport();
  ChangeLevel();
  AskAnything();
  if (FirstStream()) SecondStream();
  End();
}

}  // namespace lidcam::scenarios
