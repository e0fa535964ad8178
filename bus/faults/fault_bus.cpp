#include "bus/faults/fault_bus.h"

#include <algorithm>
#include <utility>

#include "bus/faults/packet_disturbance.h"

namespace lidcam::bus {
namespace {

UsbStatus StatusOf(FaultKind kind) {
  switch (kind) {
    case FaultKind::Stall:
      return UsbStatus::Stalled;
    case FaultKind::Fail:
      return UsbStatus::Failed;
    case FaultKind::Silent:
      return UsbStatus::Silent;
    case FaultKind::Refuse:
      return UsbStatus::NoBandwidth;
    default:
      return UsbStatus::Ok;
  }
}

BusFault MetAt(const BusFault& fault, std::uint64_t number) {
  return {fault.Place, fault.Kind, number, fault.Amount, UsualCount(fault.Place)};
}

}  // namespace

FaultBus::FaultBus(UsbBus& bus, FaultBusOptions options)
    : PassingBus(bus),
      sleep_(std::move(options.Sleep)),
      observer_(std::move(options.Observer)),
      control_(options.Script, FaultPlace::Control),
      settings_(FaultsOf(options.Script, FaultPlace::Setting)),
      timed_(options.Script) {}

ControlResult FaultBus::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) {
  UnplugWhenDue();
  const Plan plan = PlanControl();
  if (const UsbStatus status = Begin(plan); status != UsbStatus::Ok) {
    Wait(plan.Delay);
    return {status, 0};
  }
  if (plan.OfAnswer.empty() || !setup.IsDeviceToHost()) {
    const ControlResult result = PassingBus::ControlTransfer(setup, data);
    Wait(plan.Delay);
    return result;
  }
  const std::vector<std::uint8_t> before(data.begin(), data.end());
  ControlResult result = PassingBus::ControlTransfer(setup, data);
  if (result.Status == UsbStatus::Ok) DisturbAnswer(plan, result, data, before);
  Wait(plan.Delay);
  return result;
}

UsbStatus FaultBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  UnplugWhenDue();
  const Plan plan = PlanSetting(alternateSetting);
  UsbStatus status = Begin(plan);
  if (status == UsbStatus::Ok) status = PassingBus::SelectSetting(interface, alternateSetting);
  Wait(plan.Delay);
  return status;
}

IsochronousResult FaultBus::ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                            std::span<IsochronousPacket> packets) {
  UnplugWhenDue();
  IsochronousResult result = PassingBus::ReadIsochronous(endpoint, buffer, packets);
  if (result.Status != UsbStatus::Ok) return result;
  std::vector<BusFault> begun;
  {
    const std::lock_guard lock{mutex_};
    result.Status = timed_.Disturb(result.StartMicroframe, buffer, packets, counts_, begun);
  }
  for (const BusFault& fault : begun) Tell(fault);
  if (result.Status == UsbStatus::Disconnected) PullPlug(timed_.UnplugTime().value_or(0));
  return result;
}

void FaultBus::Unplug() {
  {
    const std::lock_guard lock{mutex_};
    isUnplugged_ = true;
  }
  PassingBus::Unplug();
}

FaultCounts FaultBus::Counts() const {
  const std::lock_guard lock{mutex_};
  return counts_;
}

FaultBus::Plan FaultBus::PlanControl() {
  const std::lock_guard lock{mutex_};
  const std::uint64_t number = ++controlRequests_;
  Plan plan{.Number = number};
  if (isUnplugged_) return plan;
  for (PendingFault& pending : control_.BegunBefore(number + 1)) Add(plan, pending);
  return plan;
}

FaultBus::Plan FaultBus::PlanSetting(std::uint8_t alternateSetting) {
  const std::lock_guard lock{mutex_};
  Plan plan{.Number = alternateSetting};
  if (isUnplugged_) return plan;
  for (PendingFault& pending : settings_) {
    if (pending.Fault().At == alternateSetting && !pending.IsSpent()) Add(plan, pending);
  }
  return plan;
}

void FaultBus::Add(Plan& plan, PendingFault& pending) {
  const BusFault& fault = pending.Fault();
  switch (fault.Kind) {
    case FaultKind::Short:
    case FaultKind::Corrupt:
      plan.OfAnswer.push_back(pending);
      break;
    case FaultKind::Late:
      plan.Delay += fault.Amount;
      plan.CarriedOut.push_back(MetAt(fault, plan.Number));
      break;
    case FaultKind::Unplug:
      isUnplugged_ = true;
      plan.IsUnplugged = true;
      plan.CarriedOut.push_back(MetAt(fault, plan.Number));
      break;
    default:
      if (plan.Status == UsbStatus::Ok) {
        plan.Status = StatusOf(fault.Kind);
        plan.CarriedOut.push_back(MetAt(fault, plan.Number));
      }
      break;
  }
  pending.CarryOut();
}

UsbStatus FaultBus::Begin(const Plan& plan) {
  for (const BusFault& fault : plan.CarriedOut) Note(fault);
  if (!plan.IsUnplugged) return plan.Status;
  PassingBus::Unplug();
  return UsbStatus::Disconnected;
}

// The host's buffer beyond a short answer is left unchanged.
void FaultBus::DisturbAnswer(const Plan& plan, ControlResult& result, std::span<std::uint8_t> data,
                             std::span<const std::uint8_t> before) {
  for (const PendingFault& pending : plan.OfAnswer) {
    const BusFault& fault = pending.Fault();
    const std::size_t length = std::min<std::size_t>(result.Transferred, data.size());
    if (fault.Kind == FaultKind::Corrupt) {
      if (length == 0) continue;
      FlipBits(data.first(length), pending.Random());
    } else {
      if (fault.Amount >= length) continue;
      const auto rest = before.subspan(fault.Amount, length - fault.Amount);
      std::copy(rest.begin(), rest.end(), data.begin() + static_cast<std::ptrdiff_t>(fault.Amount));
      result.Transferred = static_cast<std::uint32_t>(fault.Amount);
    }
    Note(MetAt(fault, plan.Number));
  }
}

// Between reads the bus gives its time in whole frames only; a read that contains the time is cut
// exactly.
void FaultBus::UnplugWhenDue() {
  const std::optional<std::uint64_t> time = timed_.UnplugTime();
  if (!time) return;
  if (std::uint64_t{FrameNumber()} * kMicroframesPerFrame >= *time) PullPlug(*time);
}

void FaultBus::PullPlug(std::uint64_t microframe) {
  {
    const std::lock_guard lock{mutex_};
    if (std::exchange(isUnplugged_, true)) return;
  }
  Note({FaultPlace::Time, FaultKind::Unplug, microframe * kMicrosecondsPerMicroframe, 0, 1});
  PassingBus::Unplug();
}

void FaultBus::Note(const BusFault& fault) {
  {
    const std::lock_guard lock{mutex_};
    counts_.Add(fault.Place, fault.Kind);
  }
  Tell(fault);
}

void FaultBus::Tell(const BusFault& fault) const {
  if (observer_) observer_("bus  fault " + ToText(fault));
}

void FaultBus::Wait(std::uint64_t microseconds) const {
  if (microseconds != 0 && sleep_) sleep_(microseconds);
}

}  // namespace lidcam::bus
