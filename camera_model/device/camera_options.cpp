#include "camera_model/device/camera_options.h"

#include <charconv>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "camera_model/device/camera_identity.h"

namespace lidcam::camera_model {
namespace {

constexpr std::string_view kForm =
    "sim[:vid:pid[,sensor=NAME][,config=long|short][,seed=N][,scene=FILE][,mains=50Hz|60Hz]"
    "[,light=LIGHT@TIME;...]]";

[[noreturn]] void Refuse(std::string_view text, const std::string& reason) {
  throw std::invalid_argument("camera \"" + std::string(text) + "\": " + reason);
}

std::string Quoted(std::string_view text) {
  return '"' + std::string(text) + '"';
}

std::string NameOf(const CameraIdentity& identity) {
  char text[16];
  std::snprintf(text, sizeof text, "%04x:%04x", unsigned{identity.VendorId},
                unsigned{identity.ProductId});
  return text;
}

std::string KnownIdentities() {
  std::string list;
  for (const CameraIdentity& identity : AllIdentities()) {
    list += (list.empty() ? "" : ", ") + NameOf(identity);
  }
  return list;
}

std::string NamesOf(std::span<const SensorModel> sensors) {
  std::string list;
  for (const SensorModel sensor : sensors) {
    if (!list.empty()) list += ", ";
    list += camera_model::NameOf(sensor);
  }
  return list;
}

template <typename Number>
std::optional<Number> ParseNumber(std::string_view text, int base) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Removes and returns the part of `text` before the separator.
std::string_view TakePart(std::string_view& text, char separator) {
  const std::size_t at = text.find(separator);
  const std::string_view part = text.substr(0, at);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
  return part;
}

const CameraIdentity& ParseIdentity(std::string_view whole, std::string_view part) {
  std::string_view rest = part;
  const auto vendor = ParseNumber<std::uint16_t>(TakePart(rest, ':'), 16);
  const auto product = ParseNumber<std::uint16_t>(rest, 16);
  const CameraIdentity* identity =
      vendor.has_value() && product.has_value() ? FindIdentity(*vendor, *product) : nullptr;
  if (identity == nullptr) {
    Refuse(whole, "no simulated camera is " + Quoted(part) + "; known are " + KnownIdentities());
  }
  return *identity;
}

LightSchedule ParseLight(std::string_view whole, std::string_view value) {
  try {
    return ParseLightSchedule(value);
  } catch (const std::invalid_argument& error) {
    Refuse(whole, error.what());
  }
}

void ParseOption(std::string_view whole, std::string_view option, const CameraIdentity& identity,
                 CameraOptions& options) {
  std::string_view value = option;
  const std::string_view name = TakePart(value, '=');
  if (name == "sensor") {
    const auto sensor = SensorModelByName(value);
    if (!sensor.has_value() || !identity.MayHave(*sensor)) {
      Refuse(whole, NameOf(identity) + " has no sensor " + Quoted(value) + "; it may have " +
                        NamesOf(identity.Sensors));
    }
    options.Sensor = *sensor;
  } else if (name == "config") {
    if (value != "long" && value != "short") {
      Refuse(whole, "config is " + Quoted(value) + "; it may be long or short");
    }
    options.Configuration = value == "long" ? ConfigurationKind::Long : ConfigurationKind::Short;
  } else if (name == "seed") {
    const auto seed = ParseNumber<std::uint64_t>(value, 10);
    if (!seed.has_value()) {
      Refuse(whole, "seed is " + Quoted(value) + "; it may be a number from 0 to " +
                        std::to_string(UINT64_MAX));
    }
    options.Seed = *seed;
  } else if (name == "scene") {
    if (value.empty()) Refuse(whole, "scene names no file; it may be a PNG, JPEG or Y4M file");
    options.SceneFile = value;
  } else if (name == "mains") {
    if (value != "50Hz" && value != "60Hz") {
      Refuse(whole, "mains is " + Quoted(value) + "; it may be 50Hz or 60Hz");
    }
    options.MainsRate = value == "50Hz" ? 100 : 120;
  } else if (name == "light") {
    options.Light = ParseLight(whole, value);
  } else {
    Refuse(whole, "there is no option " + Quoted(name) +
                      "; there are sensor=NAME, config=long|short, seed=N, scene=FILE, "
                      "mains=50Hz|60Hz and light=300lx@0s;5lx@4s");
  }
}

}  // namespace

CameraOptions ParseCameraOptions(std::string_view text) {
  std::string_view rest = text;
  std::string_view head = TakePart(rest, ',');
  const bool hasDanglingComma = text.ends_with(',');
  const std::string_view kind = TakePart(head, ':');
  const bool hasIdentity = text.starts_with("sim:");
  if (kind != "sim") Refuse(text, "a simulated camera is written " + std::string(kForm));

  CameraOptions options;
  const CameraIdentity& identity =
      hasIdentity ? ParseIdentity(text, head) : *FindIdentity(options.VendorId, options.ProductId);
  options.VendorId = identity.VendorId;
  options.ProductId = identity.ProductId;
  options.Sensor = identity.Sensors.front();
  while (!rest.empty()) ParseOption(text, TakePart(rest, ','), identity, options);
  if (hasDanglingComma) Refuse(text, "nothing stands after the last comma");
  return options;
}

UsbDeviceOptions ToDeviceOptions(const CameraOptions& options) {
  UsbDeviceOptions device;
  device.VendorId = options.VendorId;
  device.ProductId = options.ProductId;
  device.Sensor = options.Sensor;
  device.Configuration = options.Configuration;
  device.Seed = options.Seed;
  device.Light.MainsRate = options.MainsRate;
  device.Light.Schedule = options.Light;
  if (!options.SceneFile.empty()) device.View = OpenSceneFile(options.SceneFile);
  return device;
}

}  // namespace lidcam::camera_model
