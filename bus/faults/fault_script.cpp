#include "bus/faults/fault_script.h"

#include <algorithm>
#include <array>

namespace lidcam::bus {
namespace {

constexpr std::array kForms{
    FaultForm{FaultPlace::Control, FaultKind::Stall},
    FaultForm{FaultPlace::Control, FaultKind::Fail},
    FaultForm{FaultPlace::Control, FaultKind::Silent},
    FaultForm{FaultPlace::Control, FaultKind::Late, FaultAmount::Time},
    FaultForm{FaultPlace::Control, FaultKind::Short, FaultAmount::Bytes},
    FaultForm{FaultPlace::Control, FaultKind::Corrupt},
    FaultForm{FaultPlace::Control, FaultKind::Unplug, FaultAmount::None, false},

    FaultForm{FaultPlace::Setting, FaultKind::Refuse},
    FaultForm{FaultPlace::Setting, FaultKind::Stall},
    FaultForm{FaultPlace::Setting, FaultKind::Fail},
    FaultForm{FaultPlace::Setting, FaultKind::Silent},
    FaultForm{FaultPlace::Setting, FaultKind::Late, FaultAmount::Time},
    FaultForm{FaultPlace::Setting, FaultKind::Unplug, FaultAmount::None, false},

    FaultForm{FaultPlace::Time, FaultKind::Lose},
    FaultForm{FaultPlace::Time, FaultKind::Short},
    FaultForm{FaultPlace::Time, FaultKind::Oversize},
    FaultForm{FaultPlace::Time, FaultKind::Corrupt},
    FaultForm{FaultPlace::Time, FaultKind::Marker},
    FaultForm{FaultPlace::Time, FaultKind::FalseStart},
    FaultForm{FaultPlace::Time, FaultKind::Error},
    FaultForm{FaultPlace::Time, FaultKind::Fail},
    FaultForm{FaultPlace::Time, FaultKind::Silent},
    FaultForm{FaultPlace::Time, FaultKind::Silence, FaultAmount::Time, false},
    FaultForm{FaultPlace::Time, FaultKind::Unplug, FaultAmount::None, false},

    FaultForm{FaultPlace::Frame, FaultKind::Lose},
    FaultForm{FaultPlace::Frame, FaultKind::Short},
    FaultForm{FaultPlace::Frame, FaultKind::Oversize},
    FaultForm{FaultPlace::Frame, FaultKind::Corrupt},
    FaultForm{FaultPlace::Frame, FaultKind::Marker},
    FaultForm{FaultPlace::Frame, FaultKind::FalseStart},
    FaultForm{FaultPlace::Frame, FaultKind::Error},
    FaultForm{FaultPlace::Frame, FaultKind::Pause, FaultAmount::Time, false},
    FaultForm{FaultPlace::Frame, FaultKind::Silence, FaultAmount::Time, false},
    FaultForm{FaultPlace::Frame, FaultKind::Stall, FaultAmount::None, false},
};

std::string TimeText(std::uint64_t microseconds) {
  if (microseconds % 1'000'000 == 0) return std::to_string(microseconds / 1'000'000) + "s";
  if (microseconds % 1'000 == 0) return std::to_string(microseconds / 1'000) + "ms";
  return std::to_string(microseconds) + "us";
}

std::string AtText(const BusFault& fault) {
  switch (fault.Place) {
    case FaultPlace::Control:
    case FaultPlace::Setting:
      break;
    case FaultPlace::Time:
      return TimeText(fault.At);
    case FaultPlace::Frame:
      return std::to_string(FrameOf(fault.At)) + " packet " + std::to_string(PacketOf(fault.At));
  }
  return std::to_string(fault.At);
}

FaultAmount AmountOf(const BusFault& fault) {
  const auto form = std::find_if(kForms.begin(), kForms.end(), [&fault](const FaultForm& row) {
    return row.Place == fault.Place && row.Kind == fault.Kind;
  });
  return form == kForms.end() ? FaultAmount::None : form->Amount;
}

}  // namespace

std::span<const FaultForm> FaultForms() {
  return kForms;
}

std::string_view WordOf(FaultPlace place) {
  constexpr std::array<std::string_view, kFaultPlaceCount> kWords{"control", "setting", "at",
                                                                  "frame"};
  return kWords[static_cast<std::size_t>(place)];
}

std::string_view WordOf(FaultKind kind) {
  constexpr std::array<std::string_view, kFaultKindCount> kWords{
      "stall",    "fail",   "silent",      "late",  "short",   "corrupt", "refuse", "lose",
      "oversize", "marker", "false-start", "error", "silence", "unplug",  "pause"};
  return kWords[static_cast<std::size_t>(kind)];
}

std::string ToText(const BusFault& fault) {
  std::string text{WordOf(fault.Place)};
  text += " " + AtText(fault);
  text += " ";
  text += WordOf(fault.Kind);
  const FaultAmount amount = AmountOf(fault);
  if (amount == FaultAmount::Time) text += " " + TimeText(fault.Amount);
  if (amount == FaultAmount::Bytes) text += " " + std::to_string(fault.Amount);
  if (fault.Count != UsualCount(fault.Place)) text += " " + std::to_string(fault.Count);
  return text;
}

std::string ToText(const FaultScript& script) {
  std::string text;
  if (script.Bits != 0) text += "bits " + std::to_string(script.Bits) + "\n";
  for (const BusFault& fault : script.Faults) text += ToText(fault) + "\n";
  return text;
}

}  // namespace lidcam::bus
