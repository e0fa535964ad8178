#include "apps/lidcam/completion/value_candidates.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "camera_model/device/camera_identity.h"
#include "library/base/units.h"
#include "library/camera/controls/control_table.h"
#include "library/camera/source/plugged_camera.h"
#include "library/settings/stream_size.h"
#include "scenarios/plays/scenario.h"

namespace lidcam::app {
namespace {

using Candidates = std::vector<Candidate>;

Candidates Cameras(const std::string& /*typed*/) {
  Candidates cameras;
  for (const bus::PluggedDevice& device : PluggedCameras()) {
    cameras.push_back({NameOf(device), "plugged in"});
  }
  cameras.push_back({"sim", "the usual simulated camera"});
  for (const camera_model::CameraIdentity& identity : camera_model::AllIdentities()) {
    std::array<char, 16> name{};
    std::snprintf(name.data(), name.size(), "sim:%04x:%04x", unsigned{identity.VendorId},
                  unsigned{identity.ProductId});
    cameras.push_back({name.data(), "simulated"});
  }
  cameras.push_back({"capture:", "a recorded capture"});
  return cameras;
}

Candidates SizesOf(std::span<const PictureSize> sizes) {
  Candidates candidates;
  for (const PictureSize size : sizes) {
    candidates.push_back({std::to_string(size.Width) + "x" + std::to_string(size.Height)});
  }
  return candidates;
}

Candidates Sizes(const std::string& /*typed*/) {
  return SizesOf(kStreamSizes);
}

Candidates RawSizes(const std::string& /*typed*/) {
  return SizesOf(kRawSizes);
}

Candidates ControlNames(const std::string& /*typed*/) {
  Candidates names;
  for (const CameraControl& control : AllControls()) {
    names.push_back({std::string(control.Name), std::string(control.Meaning)});
  }
  return names;
}

Candidates ValuesOf(const CameraControl& control) {
  Candidates values;
  const auto add = [&](std::int32_t value, const char* note) {
    const std::string word = std::string(control.Name) + "=" + std::to_string(value);
    if (std::ranges::find(values, word, &Candidate::Word) == values.end()) {
      values.push_back({word, note});
    }
  };
  add(control.Default, "default");
  add(control.Minimum, "lowest");
  add(control.Maximum, "highest");
  return values;
}

// Names first; behind the "=" the ends of the range.
Candidates Assignments(const std::string& typed) {
  const std::string name = typed.substr(0, typed.find('='));
  Candidates candidates;
  for (const CameraControl& control : AllControls()) {
    if (control.Name != name) {
      candidates.push_back({std::string(control.Name) + "=", std::string(control.Meaning)});
      continue;
    }
    std::ranges::move(ValuesOf(control), std::back_inserter(candidates));
  }
  return candidates;
}

Candidates ScenarioNames(const std::string& /*typed*/) {
  Candidates names;
  for (const scenarios::Scenario& scenario : scenarios::Scenarios()) {
    names.push_back({std::string(scenario.Name), std::string(scenario.Purpose)});
  }
  return names;
}

Candidates MainsRates(const std::string& /*typed*/) {
  return {{"50Hz"}, {"60Hz"}};
}

/// Values by an option's name, or by the kind of its value.
struct Source {
  std::string_view Key;
  Candidates (*Values)(const std::string& typed);
};

constexpr std::array kByName{Source{"scenario", ScenarioNames}, Source{"mains", MainsRates},
                             Source{"raw-size", RawSizes}};
constexpr std::array kByType{Source{"CAMERA", Cameras}, Source{"WxH", Sizes},
                             Source{"NAME=VALUE", Assignments}, Source{"NAME", ControlNames}};
constexpr std::array kFileTypes{"FILE", "PATH", "SCRIPT|FILE|seed=N", "TEXT"};

const Source* Find(std::span<const Source> sources, std::string_view key) {
  const auto found = std::ranges::find(sources, key, &Source::Key);
  return found != sources.end() ? &*found : nullptr;
}

/// "TEXT:{bridge,sensor}" lists its values itself.
Candidates ListedIn(const std::string& type) {
  Candidates values;
  const std::size_t begin = type.find('{');
  const std::size_t end = type.find('}');
  if (begin == std::string::npos || end == std::string::npos) return values;
  std::string word;
  for (const char letter : type.substr(begin + 1, end - begin - 1) + ",") {
    if (letter != ',') {
      word += letter;
      continue;
    }
    values.push_back({std::exchange(word, {})});
  }
  return values;
}

}  // namespace

Completion ValuesOf(const std::string& option, const std::string& type, const std::string& typed) {
  Completion completion;
  const Source* source = Find(kByName, option);
  if (source == nullptr) source = Find(kByType, type);
  completion.Candidates = source != nullptr ? source->Values(typed) : ListedIn(type);
  completion.TakesFile =
      source == nullptr && std::ranges::find(kFileTypes, type) != kFileTypes.end();
  std::erase_if(completion.Candidates,
                [&](const Candidate& candidate) { return !candidate.Word.starts_with(typed); });
  return completion;
}

}  // namespace lidcam::app
