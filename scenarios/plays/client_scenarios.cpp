#include "scenarios/plays/client_scenarios.h"

#include <functional>

#include "driver/usb/stream/usb_capture_device.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "scenarios/clients/client_stage.h"
#include "scenarios/plays/sequences.h"

namespace lidcam::scenarios {
namespace {

// Operations of an application.
std::uint64_t StepsOf(Stage& stage) {
  return stage.Kinds().Value("operations of an application", 30, 5, 80);
}

/// A started camera, with applications.
ClientStage& BeginClients(Stage& stage, const ApplicationRules& rules, const PlugOptions& options) {
  ClientStage& clients = ClientStage::On(stage, rules);
  stage.Require(clients.PlugIn(options), "nothing can be plugged in");
  clients.Start();
  clients.BeginApplications(
      stage.Kinds().Value("applications", stage.Chance().Between(1, 3), 1, 5),
      [&stage](Application& application) { application.DoAnything(StepsOf(stage)); });
  return clients;
}

// A stream that was prepared and never run stays prepared: no client can stream any more.
bool IsStreamLeftPrepared(const ClientStage& clients) {
  return clients.Usb()->UsbStream->Opened != 0;
}

void EndSoundly(ClientStage& clients) {
  clients.WaitForApplications();
  clients.Host().Begin("end");
  if (!IsStreamLeftPrepared(clients)) clients.OwnApplication().RequireFrames();
  clients.Close();
}

void TellPower(ClientStage& clients) {
  clients.PowerDown();
  clients.Host().SleepAWhile(100 * kMillisecond);
  clients.PowerUp();
}

void Trouble(ClientStage& clients, std::uint64_t times,
             void (*make)(ClientStage& clients, Random& chance)) {
  Stage& stage = clients.Host();
  const std::uint64_t troubles = stage.Kinds().Value("troubles", times, 0, 8);
  for (std::uint64_t i = 0; i < troubles; ++i) {
    if (!stage.HasOperation("device", i + 1, stage.Chance())) continue;
    stage.SleepAWhile(150 * kMillisecond);
    make(clients, stage.Chance());
  }
}

// The driver is finally informed, in one of two ways; the applications learn it from their
// requests.
void RemoveUnder(ClientStage& clients) {
  Stage& stage = clients.Host();
  Random& chance = stage.Chance();
  if (stage.Happens(chance, 3, "queries for removal")) clients.ThinkOfRemoval();
  if (stage.Happens(chance, 3, "pulled plugs")) clients.PullPlug();
  stage.SleepAWhile(50 * kMillisecond);
  if (!chance.OneIn(3)) {
    clients.SurpriseRemove();
    stage.SleepAWhile(50 * kMillisecond);
  }
  if (chance.OneIn(2)) clients.Remove();
}

}  // namespace

void Clients(Stage& stage) {
  EndSoundly(BeginClients(stage, {}, SomeCamera(stage)));
}

void TwoClients(Stage& stage) {
  ClientStage& clients = ClientStage::On(stage, {});
  stage.Require(clients.PlugIn(SomeCamera(stage)), "nothing can be plugged in");
  clients.Start();
  clients.BeginApplications(
      stage.Kinds().Value("applications", 2, 2, 4),
      [&stage](Application& application) { application.Stream(StepsOf(stage)); });
  EndSoundly(clients);
}

void WildClients(Stage& stage) {
  stage.AllowDisturbedFrames();
  ClientStage& clients = BeginClients(stage, {.WritesRegisters = true}, SomeCamera(stage));
  clients.WaitForApplications();
  clients.Close();
}

void ClientsAndPower(Stage& stage) {
  stage.AllowDisturbedFrames();
  ClientStage& clients = BeginClients(stage, {.HasTrouble = true}, SomeCamera(stage));
  Trouble(clients, stage.Chance().Between(1, 4),
          [](ClientStage& told, Random&) { TellPower(told); });
  clients.WaitForApplications();
  clients.Close();
}

// During some starts the camera refuses its first requests, and the start fails.
void ClientsAndRestarts(Stage& stage) {
  stage.AllowDisturbedFrames();
  ClientStage& clients = BeginClients(stage, {.HasTrouble = true}, SomeCamera(stage));
  Trouble(clients, stage.Chance().Between(1, 3), [](ClientStage& told, Random& chance) {
    StampedCamera& camera = told.Host().Camera();
    if (told.Host().Happens(chance, 3, "refused requests at a start"))
      camera.StallRequests(1 + static_cast<std::uint32_t>(chance.Below(4)));
    told.Restart();
    camera.StallRequests(0);
  });
  clients.WaitForApplications();
  clients.Close();
}

void ClientsAndRemoval(Stage& stage) {
  stage.AllowDisturbedFrames();
  ClientStage& clients = BeginClients(stage, {.HasTrouble = true}, SomeCamera(stage));
  if (stage.Chance().OneIn(4)) TellPower(clients);
  stage.SleepAWhile(400 * kMillisecond);
  RemoveUnder(clients);
  clients.WaitForApplications();
  clients.Close();
}

void ClientsAndFaults(Stage& stage) {
  stage.AllowDisturbedFrames();
  PlugOptions options = SomeCamera(stage);
  options.Script = stage.DrawFaults();
  ClientStage& clients = BeginClients(stage, {.HasTrouble = true}, options);
  Trouble(clients, stage.Chance().Below(4), [](ClientStage& told, Random& chance) {
    Stage& host = told.Host();
    if (host.Happens(chance, 3, "sleeps of the device")) return TellPower(told);
    if (host.Happens(chance, 2, "failing reads"))
      host.Camera().FailReads(1 + static_cast<std::uint32_t>(chance.Below(8)));
    if (host.Happens(chance, 3, "reads without an answer"))
      host.Camera().SilenceReads(1 + static_cast<std::uint32_t>(chance.Below(3)));
    if (host.Happens(chance, 6, "refused transfers")) host.Between().RefuseTransfers(1);
  });
  stage.SleepAWhile(500 * kMillisecond);
  if (stage.Chance().OneIn(3)) RemoveUnder(clients);
  clients.WaitForApplications();
  clients.Close();
}

// One application mostly streams, while others change controls.
void Controls(Stage& stage) {
  ClientStage& clients = ClientStage::On(stage, {});
  stage.Require(clients.PlugIn(SomeCamera(stage)), "nothing can be plugged in");
  clients.Start();
  clients.BeginApplications(
      1, [&stage](Application& application) { application.Stream(StepsOf(stage) / 2); });
  clients.BeginApplications(
      stage.Kinds().Value("applications", stage.Chance().Between(1, 2), 1, 4),
      [&stage](Application& application) { application.TurnControls(StepsOf(stage)); });
  EndSoundly(clients);
}

void SleepUntil(Stage& stage, const std::function<bool()>& isSo, const char* otherwise) {
  const LONGLONG end = host::CurrentWorld().Now() + 60 * kSecond;
  while (!isSo() && host::CurrentWorld().Now() < end) stage.Sleep(kMillisecond);
  stage.Require(isSo(), otherwise);
}

// Operations that take the device out of use continue without the request that has stopped; only
// the request itself is never completed.
void StoppedRead(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.Around().KeepLoopBusy();
  ClientStage& clients = ClientStage::On(stage, {.HasTrouble = true});
  stage.Require(clients.PlugIn({}), "nothing can be plugged in");
  clients.Start();
  clients.BeginApplications(1, [](Application& application) { application.StreamOn(); });
  SleepUntil(
      stage, [&stage] { return stage.Counts().Frames > 2; }, "no frames come");
  clients.BeginApplications(1, [](Application& application) { application.TurnLight(10000); });
  SleepUntil(
      stage, [&stage] { return stage.Trace().StoppedReader() != nullptr; },
      "no read has met the frame path");
  if (stage.Chance().OneIn(2)) {
    clients.SurpriseRemove();
  } else {
    clients.Restart();
    stage.Begin("stream anew");
    SleepUntil(
        stage, [&clients] { return clients.HasEnded(1); }, "the stream's application doesn't end");
    clients.OwnApplication().RequireFrames();
  }
  stage.Trace().Add("the device goes on");
  clients.WaitForApplications();
}

void OutOfMemoryClient(Stage& stage) {
  stage.AllowDisturbedFrames();
  stage.FailAllocation(stage.Key().Step != 0 ? stage.Key().Step : stage.Chance().Between(1, 2500));
  ClientStage& clients = ClientStage::On(stage, {.HasTrouble = true, .LacksMemory = true});
  if (!clients.PlugIn(SomeCamera(stage))) return;
  clients.Start();
  clients.OwnApplication().Everyday();
  stage.Begin("end");
  if (stage.Chance().OneIn(4)) TellPower(clients);
  if (stage.Chance().OneIn(2)) clients.SurpriseRemove();
  clients.Close();
  if (!stage.Chance().OneIn(8)) return;
  // The injected fault occurs only once.
  stage.EndFaults();
  ClientStage& again = ClientStage::On(stage, {});
  stage.Require(again.PlugIn(SomeCamera(stage)), "nothing can be plugged in");
  again.Start();
  again.OwnApplication().RequireFrames();
  again.Close();
}

}  // namespace lidcam::scenarios
