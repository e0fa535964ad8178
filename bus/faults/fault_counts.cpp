#include "bus/faults/fault_counts.h"

#include <string_view>

namespace lidcam::bus {
namespace {

constexpr std::array<std::string_view, kFaultPlaceCount> kHeadings{"control", "setting", "stream",
                                                                   "frame"};

}  // namespace

std::string ToText(const FaultCounts& counts) {
  std::string text;
  std::string_view heading;
  for (const FaultForm& form : FaultForms()) {
    const std::uint64_t count = counts.Of(form.Place, form.Kind);
    if (count == 0) continue;
    const std::string_view its = kHeadings[static_cast<std::size_t>(form.Place)];
    if (its == heading) {
      text += ", ";
    } else {
      if (!text.empty()) text += "; ";
      text += its;
      text += ": ";
      heading = its;
    }
    text += std::to_string(count) + " ";
    text += WordOf(form.Kind);
  }
  return text.empty() ? "none" : text;
}

}  // namespace lidcam::bus
