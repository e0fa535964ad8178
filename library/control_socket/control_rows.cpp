#include "library/control_socket/control_rows.h"

#include <string>

namespace lidcam::app {

nlohmann::json ToJson(const std::vector<ControlLine>& lines) {
  nlohmann::json rows = nlohmann::json::array();
  for (const ControlLine& line : lines) {
    rows.push_back({{"name", std::string(line.Control->Name)},
                    {"minimum", line.Range.Minimum},
                    {"maximum", line.Range.Maximum},
                    {"step", line.Range.Step},
                    {"default", line.Range.Default},
                    {"value", line.Value},
                    {"reports", line.Reports},
                    {"hasEffect", line.HasEffect},
                    {"meaning", std::string(line.Control->Meaning)}});
  }
  return rows;
}

}  // namespace lidcam::app
