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

/// What the applications of a run may do, and what may happen to them.
struct ApplicationRules {
  bool WritesRegisters = false;  ///< any register of the camera: nobody knows what it sends then
  bool HasTrouble = false;       ///< plug and play, power or the bus may get in between
  bool LacksMemory = false;      ///< an allocation fails
};

/// One application: its thread opens the camera, asks it, streams from it, and does all that in no
/// order. Each answer is compared with those that may come at that time.
class Application {
 public:
  /// @param number  from 1; tells the applications of a run apart
  Application(ClientStage& clients, std::uint64_t number);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Does so many things, whatever the seed says.
  void DoAnything(std::uint64_t steps);
  /// Looks for the stream and streams, mostly.
  void Stream(std::uint64_t steps);
  /// Turns the picture controls and the light, one after the other.
  void TurnControls(std::uint64_t steps);
  /// Turns the light again and again.
  void TurnLight(std::uint64_t steps);
  /// Streams until the camera goes or is started anew.
  void StreamOn();
  /// A good day, the same on all days: gives up where something fails.
  void Everyday();
  /// Opens the camera and streams, which must work.
  void RequireFrames();
  /// Closes whatever is open.
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
  bool IsOutOfOrder(NTSTATUS status) const;

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
