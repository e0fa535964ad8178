#include "library/control_socket/control_rows.h"

#include <string>
#include <string_view>

namespace lidcam::app {
namespace {

// None of the controls has a physical unit: all count the levels or choices of a register.
const char* UnitOf(const ControlLine& line) {
  if (line.Range.Minimum == 0 && line.Range.Maximum == 1) return "switch";
  const std::string_view name = line.Control->Name;
  return name == "Flicker" || name == "Effect" || name == "LED" ? "choice" : "level";
}

}  // namespace

nlohmann::json ToJson(const std::vector<ControlLine>& lines) {
  nlohmann::json rows = nlohmann::json::array();
  for (const ControlLine& line : lines) {
    rows.push_back({{"name", std::string(line.Control->Name)},
                    {"minimum", line.Range.Minimum},
                    {"maximum", line.Range.Maximum},
                    {"step", line.Range.Step},
                    {"default", line.Range.Default},
                    {"value", line.Value},
                    {"unit", UnitOf(line)},
                    {"reports", line.Reports},
                    {"hasEffect", line.HasEffect},
                    {"meaning", std::string(line.Control->Meaning)}});
  }
  return rows;
}

}  // namespace lidcam::app
