#include "testbed/mutex_departures.h"

#include <algorithm>
#include <array>

#include "platform/host/ks/device/device_block.h"

namespace lidcam::testbed {
namespace {

using host::ClassCall;
using host::ClassRule;

constexpr std::array kRequired{
    MutexDeparture{ClassRule::DeviceMutexOnce, ClassCall::Start,
                   "filter descriptor, records and stream state are handed over under the device's "
                   "mutex, whoever starts the hardware"},
    MutexDeparture{ClassRule::DeviceMutexOnce, ClassCall::PostStart,
                   "on old platforms the hardware starts here, with the same steps"},
    MutexDeparture{
        ClassRule::DeviceMutexOnce, ClassCall::SetPower,
        "a stream that runs is paused as by its pin: under the device's mutex, against a "
        "recovery"},
    MutexDeparture{ClassRule::ControlMutexOnce, ClassCall::FilterCreate,
                   "the pin's kind is added under the filter's control mutex"},
    MutexDeparture{ClassRule::DeviceBeforeControl, ClassCall::PinRequest,
                   "a pin's state starts and stops the stream, which the device's mutex guards "
                   "against a recovery"},
    MutexDeparture{ClassRule::DeviceBeforeControl, ClassCall::PinClose,
                   "a pin that is closed while it runs is stopped, as by its state"},
};

}  // namespace

std::span<const MutexDeparture> RequiredDepartures() {
  return kRequired;
}

std::vector<SeenDeparture> DeparturesSeen(PDEVICE_OBJECT functionalDevice) {
  host::DeviceBlock& device = host::BlockOf(functionalDevice);
  std::vector<SeenDeparture> seen;
  for (ULONG rule = 0; rule < static_cast<ULONG>(ClassRule::Count); ++rule) {
    for (ULONG call = 0; call < static_cast<ULONG>(ClassCall::Count); ++call) {
      const SeenDeparture departure{static_cast<ClassRule>(rule), static_cast<ClassCall>(call)};
      if (DeparturesOf(device, departure.Rule, departure.Call) != 0) seen.push_back(departure);
    }
  }
  return seen;
}

bool IsRequired(const SeenDeparture& departure) {
  return std::ranges::any_of(kRequired, [&departure](const MutexDeparture& required) {
    return required.Rule == departure.Rule && required.Call == departure.Call;
  });
}

}  // namespace lidcam::testbed
