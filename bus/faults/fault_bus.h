#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "bus/faults/fault_agenda.h"
#include "bus/faults/fault_counts.h"
#include "bus/faults/fault_script.h"
#include "bus/faults/timed_faults.h"
#include "bus/passing_bus.h"

namespace lidcam::bus {

struct FaultBusOptions {
  FaultScript Script{};
  /// Waits for a number of microseconds in the bus's time. Needed for late answers; empty: they are
  /// not delayed.
  std::function<void(std::uint64_t microseconds)> Sleep{};
  /// Receives one line for each request that a fault affects and for each fault of the stream when
  /// it begins, such as "bus  fault control 12 stall". Called on the thread of the request,
  /// possibly on two concurrently, and may wait.
  std::function<void(const std::string& line)> Observer{};
};

/// Passes all calls on to another bus and injects the faults of a script, except for the faults of
/// frames, which only a camera can inject.
///
/// Equal scripts over equal traffic give equal faults: requests are counted, the stream's time is
/// the bus's own, and flipped bits follow from the script. A request that the other bus refuses
/// keeps its status. Threads as for the other bus.
class FaultBus final : public PassingBus {
 public:
  /// @param bus  outlives this one
  FaultBus(UsbBus& bus, FaultBusOptions options);

  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override;
  UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override;
  void Unplug() override;

  /// The faults injected so far.
  [[nodiscard]] FaultCounts Counts() const;

 private:
  /// The faults of one request.
  struct Plan {
    std::uint64_t Number = 0;          ///< of the request or the setting
    UsbStatus Status = UsbStatus::Ok;  ///< other than Ok: the device never sees the request
    bool IsUnplugged = false;
    std::uint64_t Delay = 0;               ///< microseconds
    std::vector<PendingFault> OfAnswer{};  ///< faults of the answer's bytes
    std::vector<BusFault> CarriedOut{};
  };

  [[nodiscard]] Plan PlanControl();
  [[nodiscard]] Plan PlanSetting(std::uint8_t alternateSetting);
  void Add(Plan& plan, PendingFault& pending);
  /// Unplugs the device and waits as planned; the status if the device is gone.
  UsbStatus Begin(const Plan& plan);
  void DisturbAnswer(const Plan& plan, ControlResult& result, std::span<std::uint8_t> data,
                     std::span<const std::uint8_t> before);
  void UnplugWhenDue();
  void PullPlug(std::uint64_t microframe);
  void Note(const BusFault& fault);
  void Tell(const BusFault& fault) const;
  void Wait(std::uint64_t microseconds) const;

  const std::function<void(std::uint64_t)> sleep_;
  const std::function<void(const std::string&)> observer_;

  mutable std::mutex mutex_;  ///< guards everything below; never held over another call
  std::uint64_t controlRequests_ = 0;
  FaultAgenda control_;
  std::vector<PendingFault> settings_;
  TimedFaults timed_;
  bool isUnplugged_ = false;
  FaultCounts counts_;
};

}  // namespace lidcam::bus
