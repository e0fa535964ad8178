#include "tests/driver/sensor/controls/image_controls_golden.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace lidcam::test {
namespace {

using Setter = void (*)(CameraContext& context, std::int64_t value);

template <auto field>
void Set(CameraContext& context, std::int64_t value) {
  using Value = decltype([]<typename T>(Shared<T> CameraContext::*) { return T{}; }(field));
  context.*field = static_cast<Value>(value);
}

#define LIDCAM_FIELD(name) \
  { #name, Set < &CameraContext::name> }
const std::map<std::string, Setter, std::less<>> kFields = {
    LIDCAM_FIELD(Brightness),
    LIDCAM_FIELD(Contrast),
    LIDCAM_FIELD(Saturation),
    LIDCAM_FIELD(Sharpness),
    LIDCAM_FIELD(Gamma),
    LIDCAM_FIELD(BackLight),
    LIDCAM_FIELD(ColorEnable),
    LIDCAM_FIELD(Mirror),
    LIDCAM_FIELD(Vertical),
    LIDCAM_FIELD(Flicker),
    LIDCAM_FIELD(Effect),
    LIDCAM_FIELD(LightState),
    LIDCAM_FIELD(LDMode),
    LIDCAM_FIELD(LED),
    LIDCAM_FIELD(Exposure),
    LIDCAM_FIELD(AutoExposure),
    LIDCAM_FIELD(ClockDivider),
    LIDCAM_FIELD(RawSizeMode),
    LIDCAM_FIELD(FormatTag),
    LIDCAM_FIELD(FlickerBandStep),
    LIDCAM_FIELD(ShadowFF0D),
    LIDCAM_FIELD(ShadowFF26),
    LIDCAM_FIELD(ShadowFF42),
    LIDCAM_FIELD(ShadowFF64),
    LIDCAM_FIELD(ShadowSensor0C),
    LIDCAM_FIELD(WideHigh),
    LIDCAM_FIELD(WideLow),
    LIDCAM_FIELD(RawRegisterAddress),
    LIDCAM_FIELD(RawRegisterValue),
};
#undef LIDCAM_FIELD

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream{std::string(text)};
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

std::pair<std::string, std::string> SplitAssignment(const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos) throw std::runtime_error("no '=' in \"" + text + "\"");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

std::int64_t Number(const std::string& text) {
  return std::stoll(text, nullptr, 0);
}

std::uint8_t LowByteOfAddress(const std::string& text) {
  return static_cast<std::uint8_t>(std::stoul(text, nullptr, 16) & 0xFF);
}

void Assign(RegisterSpace& camera, const Assignment& assignment) {
  const auto& [name, value] = assignment;
  if (const auto field = kFields.find(name); field != kFields.end()) {
    field->second(camera.Context(), value);
    return;
  }
  const auto byte = static_cast<std::uint8_t>(value);
  if (name.starts_with("bridge:")) {
    camera.Bridge[LowByteOfAddress(name.substr(7))] = byte;
  } else if (name.starts_with("sensor:")) {
    camera.Sensor[LowByteOfAddress(name.substr(7))] = byte;
  } else {
    throw std::runtime_error("unknown field " + name);
  }
}

}  // namespace

std::string GoldenCase::Key() const {
  std::string key = "step " + std::to_string(Step);
  for (const auto& [name, value] : Values) key += " " + name + "=" + std::to_string(value);
  return key;
}

GoldenFile::GoldenFile(const NamedSensor& sensor) : type_(sensor.Type) {
  const std::string path =
      std::string(LIDCAM_SOURCE_ROOT "/tests/driver/sensor/golden/image_controls/") +
      std::string(sensor.Name) + ".txt";
  std::ifstream file(path);
  if (!file) throw std::runtime_error("can't open " + path);
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    try {
      if (line.empty() || line.starts_with(';')) continue;
      if (line.starts_with("given ")) {
        TakeGiven(line);
      } else if (line.starts_with("list ")) {
        TakeListEntry(line);
      } else if (line.starts_with("# step ")) {
        EndSection();
        TakeHeading(line);
      } else {
        TakeTraffic(line);
      }
    } catch (const std::exception& error) {
      throw std::runtime_error(path + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  EndSection();
}

const GoldenCase& GoldenFile::Case(std::string_view key) const {
  for (const GoldenCase& golden : cases_) {
    if (golden.Key() == key) return golden;
  }
  throw std::runtime_error("no golden case \"" + std::string(key) + "\"");
}

void GoldenFile::Prepare(RegisterSpace& camera, const GoldenCase& golden) const {
  CameraContext& context = camera.Context();
  context.SensorType = type_;
  for (const Assignment& assignment : given_) Assign(camera, assignment);
  for (const Assignment& assignment : golden.Values) Assign(camera, assignment);
  for (const ListEntry& entry : lists_) {
    RegisterSetTable& table = entry.LowLight ? context.LowLightRegisters : context.NormalRegisters;
    table.Present = 1;
    table.Entries[table.Count++] = entry.Entry;
  }
}

void GoldenFile::TakeGiven(std::string_view line) {
  for (const std::string& word : Split(line.substr(6), ' ')) {
    const auto [name, value] = SplitAssignment(word);
    given_.emplace_back(name, Number(value));
  }
}

// "list normal sensor FF20=01"
void GoldenFile::TakeListEntry(std::string_view line) {
  const auto words = Split(line, ' ');
  const auto [address, value] = SplitAssignment(words.at(3));
  const std::uint8_t marker = words.at(2) == "sensor" ? 0x33 : 0x11;
  lists_.push_back({words.at(1) == "lowlight",
                    {marker, LowByteOfAddress(address),
                     static_cast<std::uint8_t>(std::stoul(value, nullptr, 16))}});
}

// "# step 8 BackLight=-1|0|2": one case for every combination.
void GoldenFile::TakeHeading(std::string_view line) {
  const auto words = Split(line, ' ');
  section_ = {{static_cast<std::uint32_t>(Number(words.at(2))), {}, {}}};
  for (std::size_t at = 3; at < words.size(); ++at) {
    const auto [name, values] = SplitAssignment(words[at]);
    std::vector<GoldenCase> longer;
    for (const GoldenCase& shorter : section_) {
      for (const std::string& value : Split(values, '|')) {
        longer.push_back(shorter);
        longer.back().Values.emplace_back(name, Number(value));
      }
    }
    section_ = longer;
  }
}

void GoldenFile::TakeTraffic(const std::string& line) {
  if (section_.empty()) throw std::runtime_error("traffic ahead of the first heading");
  if (line == "nothing") return;
  std::vector<std::string> lines = {line};
  if (line.starts_with("row ")) {
    const auto words = Split(line, ' ');
    if (line.substr(line.find(" to ")) != " to FF31..FF3F, FF81..FF8F, FF91..FF9F") {
      throw std::runtime_error("unknown gamma registers in \"" + line + "\"");
    }
    lines = GammaTraffic(words.at(1) == "ahead" ? -1 : std::stoi(words.at(1)));
  }
  for (GoldenCase& golden : section_) {
    golden.Traffic.insert(golden.Traffic.end(), lines.begin(), lines.end());
  }
}

void GoldenFile::EndSection() {
  cases_.insert(cases_.end(), section_.begin(), section_.end());
  section_.clear();
}

std::array<std::uint8_t, 15> GammaReference(int row) {
  if (row < 0) return {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 235, 0, 0, 0};
  constexpr int kInputLevels[15] = {2, 4, 8, 12, 16, 24, 32, 40, 48, 64, 80, 96, 128, 160, 192};
  std::array<std::uint8_t, 15> levels{};
  for (std::size_t at = 0; at < 15; ++at) {
    // Where the curve meets a whole number the computed power may be slightly below it.
    constexpr double kTrifle = 1e-9;
    const double level = 256.0 * std::pow(kInputLevels[at] / 256.0, row / 20.0) + kTrifle;
    levels[at] = static_cast<std::uint8_t>(std::min(level, 255.0));
  }
  if (row == 8) levels[2] = 63;
  if (row == 12) levels[2] = 31;
  if (row == 16) levels[2] = 15;
  return levels;
}

std::vector<std::string> GammaTraffic(int row) {
  const auto levels = GammaReference(row);
  std::vector<std::string> traffic;
  for (const unsigned first : {0xFF31U, 0xFF81U, 0xFF91U}) {
    for (unsigned at = 0; at < 15; ++at) {
      std::array<char, 32> line{};
      std::snprintf(line.data(), line.size(), "write bridge %04X=%02X", first + at,
                    unsigned{levels[at]});
      traffic.emplace_back(line.data());
    }
  }
  return traffic;
}

}  // namespace lidcam::test
