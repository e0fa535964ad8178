#include "bus/faults/fault_agenda.h"

#include <algorithm>

namespace lidcam::bus {

PendingFault::PendingFault(const BusFault& fault, std::size_t index, std::uint64_t bits)
    : fault_(fault),
      begin_(fault.Place == FaultPlace::Time ? MicroframeOf(fault.At) : fault.At),
      seed_(bits ^ base::SplitMix{index}.Next()) {}

void PendingFault::CarryOut() {
  ++carriedOut_;
  if (fault_.Count != 0 && carriedOut_ >= fault_.Count) isSpent_ = true;
}

base::SplitMix PendingFault::Random() const {
  return base::SplitMix{base::SplitMix{seed_ + carriedOut_}.Next()};
}

std::vector<PendingFault> FaultsOf(const FaultScript& script, FaultPlace place) {
  std::vector<PendingFault> faults;
  for (std::size_t i = 0; i < script.Faults.size(); ++i) {
    if (script.Faults[i].Place == place) faults.emplace_back(script.Faults[i], i, script.Bits);
  }
  return faults;
}

FaultAgenda::FaultAgenda(const FaultScript& script, FaultPlace place)
    : waiting_(FaultsOf(script, place)) {
  std::stable_sort(waiting_.begin(), waiting_.end(),
                   [](const PendingFault& first, const PendingFault& second) {
                     return first.Begin() < second.Begin();
                   });
  std::reverse(waiting_.begin(), waiting_.end());
}

std::vector<PendingFault>& FaultAgenda::BegunBefore(std::uint64_t end) {
  std::erase_if(begun_, [](const PendingFault& fault) { return fault.IsSpent(); });
  while (!waiting_.empty() && waiting_.back().Begin() < end) {
    begun_.push_back(waiting_.back());
    waiting_.pop_back();
  }
  return begun_;
}

}  // namespace lidcam::bus
