#include <algorithm>
#include <array>
#include <string_view>

#include "scenarios/plays/client_scenarios.h"
#include "scenarios/plays/late_scenarios.h"
#include "scenarios/plays/scenario.h"
#include "scenarios/plays/transport_scenarios.h"

namespace lidcam::scenarios {
namespace {

constexpr RunOptions kPoints{.HasPoints = true};

constexpr std::array kScenarios{
    Scenario{"start-stop", "streams and devices end at any moment", OnTransport<StartAndStop>},
    Scenario{"pause-storm", "pause, resume and run in quick order", OnTransport<PauseStorm>},
    Scenario{"second-pin", "a second stream is opened beside the first", OnTransport<SecondPin>},
    Scenario{"power", "sleep and waking while a stream runs", OnTransport<PowerChanges>},
    Scenario{"urb-errors", "transfers that end with an error", OnTransport<UrbErrors>},
    Scenario{"submit-failures", "transfers that are refused when they are sent",
             OnTransport<SubmitFailures>},
    Scenario{"lost-completions", "transfers complete only when they are cancelled",
             OnTransport<LostCompletions>},
    Scenario{"silent-requests", "control requests get no answer", OnTransport<SilentRequests>},
    Scenario{"unplug", "the camera is unplugged at the n-th switch point",
             OnTransport<UnplugAnywhere>, true},
    Scenario{"out-of-memory", "the n-th allocation fails", OnTransport<OutOfMemory>, true},
    Scenario{"failing-IoAllocateIrp", "the n-th call fails", OnTransport<FailingCallOfName>, true},
    Scenario{"failing-IoAllocateWorkItem", "the n-th call fails", OnTransport<FailingCallOfName>,
             true},
    Scenario{"failing-IoCreateDevice", "the n-th call fails", OnTransport<FailingCallOfName>, true},
    Scenario{"failing-KeSaveFloatingPointState", "the n-th call fails",
             OnTransport<FailingCallOfName>, true},
    Scenario{"failing-ObReferenceObjectByHandle", "the n-th call fails",
             OnTransport<FailingCallOfName>, true},
    Scenario{"failing-PsCreateSystemThread", "the n-th call fails", OnTransport<FailingCallOfName>,
             true},
    Scenario{"failing-ZwCreateFile", "the n-th call fails", OnTransport<FailingCallOfName>, true},
    Scenario{"failing-ZwWriteFile", "the n-th call fails", OnTransport<FailingCallOfName>, true},
    Scenario{"mixture", "random faults under random operations", OnTransport<Mixture>},
    Scenario{"clients", "applications do anything, on a camera without faults", Clients},
    Scenario{"two-clients", "two applications compete for the one stream", TwoClients},
    Scenario{"wild-clients", "applications that write any register, too", WildClients},
    Scenario{"clients-and-power", "sleep and waking under applications", ClientsAndPower},
    Scenario{"clients-and-restarts", "the device is stopped and started under applications",
             ClientsAndRestarts},
    Scenario{"clients-and-removal", "the camera is unplugged and removed under applications",
             ClientsAndRemoval},
    Scenario{"clients-and-faults", "bus faults, sleep and removal under applications",
             ClientsAndFaults},
    Scenario{"out-of-memory-client", "the n-th allocation fails under an application",
             OutOfMemoryClient, true},
    Scenario{"lost-work-item", "a recovery gets no work item: the device can't be stopped",
             OnTransport<LostWorkItem>},
    Scenario{"kept-request", "a cancelled request never completes: the driver waits for ever",
             OnTransport<KeptRequest>},
    Scenario{"controls", "one application streams, others change controls", Controls},
    Scenario{"stopped-read",
             "a read collides with the frame path and its request hangs for ever",
             StoppedRead,
             false,
             {.HasExposure = true}},
    Scenario{"late-completion", "a processor stops in a transfer's completion",
             OnTransport<LateCompletion>, false, kPoints},
    Scenario{"late-failure", "a processor stops in the completion of a transfer that failed",
             OnTransport<LateFailure>, false, kPoints},
    Scenario{"late-tick", "a processor stops in a tick of the watchdog", OnTransport<LateTick>,
             false, kPoints},
    Scenario{"late-frame-thread", "the frame thread's processor stops",
             OnTransport<LateFrameThread>, false, kPoints},
    Scenario{"late-recovery", "a processor stops in a recovery", OnTransport<LateRecovery>, false,
             kPoints},
    Scenario{"late-failure-alone",
             "a processor stops in a failed completion, and nothing else happens",
             OnTransport<LateFailureAlone>, false, kPoints},
    Scenario{"late-frame-thread-over-pauses", "the frame thread's processor stops over two pauses",
             OnTransport<LateFrameThreadOverPauses>, false, kPoints},
    Scenario{"late-acquisition", "the device goes while a stream's preparation has stopped",
             OnTransport<LateAcquisition>, false, kPoints},
    Scenario{"at-ticks", "streams end and begin during ticks of the watchdog", OnTransport<AtTicks>,
             false, kPoints},
};

}  // namespace

std::span<const Scenario> Scenarios() {
  return kScenarios;
}

bool IsOfApplications(const Scenario& scenario) {
  constexpr std::array kPlays{
      Clients,           TwoClients,       WildClients,       ClientsAndPower, ClientsAndRestarts,
      ClientsAndRemoval, ClientsAndFaults, OutOfMemoryClient, Controls,        StoppedRead};
  return std::ranges::find(kPlays, scenario.Play) != kPlays.end();
}

const Scenario* FindScenario(std::string_view name) {
  const auto found = std::ranges::find(kScenarios, name, &Scenario::Name);
  return found != kScenarios.end() ? &*found : nullptr;
}

}  // namespace lidcam::scenarios
