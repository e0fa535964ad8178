#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

#include "platform/host/client/camera.h"
#include "scenarios/clients/checked_stream.h"
#include "scenarios/run/random.h"
#include "scenarios/stage/stage.h"

namespace lidcam::scenarios {

class ClientStage;

/// What the applications of a run may do, and the faults they must expect.
struct ApplicationRules {
  bool WritesRegisters = false;  ///< any register of the camera: its frames are unpredictable then
  bool HasTrouble = false;       ///< plug and play, power or the bus may interfere
  bool LacksMemory = false;      ///< an allocation fails
};

/// One application: its thread opens the camera, sends it requests and streams from it, in random
/// order. Each status is compared with those that are allowed at that time.
class Application {
 public:
  /// @param number  from 1; identifies the application in the run
  Application(ClientStage& clients, std::uint64_t number);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Performs `steps` random operations.
  void DoAnything(std::uint64_t steps);
  /// Mostly opens the stream and streams.
  void Stream(std::uint64_t steps);
  /// Changes the picture controls and the light, one after the other.
  void TurnControls(std::uint64_t steps);
  /// Changes the light again and again.
  void TurnLight(std::uint64_t steps);
  /// Streams until the camera is removed or restarted.
  void StreamOn();
  /// A fixed sequence of ordinary operations, which ends at the first failure.
  void Everyday();
  /// Opens the camera and streams, which must work.
  void RequireFrames();
  /// Closes all that is open.
  void End();

  [[nodiscard]] const Activity& Doing() const { return doing_; }

 private:
  template <typename Operation>
  NTSTATUS Do(const char* name, Operation operation);
  template <typename Operation>
  void DoAllowing(const char* name, std::initializer_list<NTSTATUS> allowed, Operation operation);
  void Require(bool holds, const std::string& what);
  void RequireAlways(bool holds, const std::string& what);
  bool IsSound() const;
  void RequireRefusalOfGone(NTSTATUS status);
  bool IsOutOfOrder(NTSTATUS status) const;

  bool HasOperation(std::uint64_t step);
  void Sleep(LONGLONG longest);
  void RequireSuccess(NTSTATUS status);
  void OpenOnly();
  void ConnectOnly();
  void OpenCamera();
  void CloseCamera();
  void Connect();
  void Disconnect();
  void DoOneThing();
  void DoOneThingWithStream();
  void ChangeState();
  void SetAnyState(KSSTATE state);
  void RunStream();
  void StopStream();
  void TakeFrames(std::uint64_t most);
  void TakeFrame();
  void ChangeFormat();
  void UseClock();
  void AskAnything();
  void AskPin();
  void Ask(const client::PropertyClient& properties);
  void AskSupport();
  void ChangeLevel();
  void ChangeLight();
  void ListFormats();
  void Intersect();
  void LookAtStream();
  std::optional<client::VideoFormat> AnyFormat();
  client::VideoFormat Mutated(const client::VideoFormat& format);
  bool FirstStream();
  void SecondStream();

  ClientStage& clients_;
  Stage& stage_;
  const std::string name_;
  Random chance_;
  Activity doing_;
  bool wasGone_ = false;     ///< when the step began
  bool wasRemoved_ = false;  ///< when the step began
  std::optional<client::Camera> camera_;
  std::unique_ptr<CheckedStream> stream_;
};

}  // namespace lidcam::scenarios
