#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/utf8_text.h"
#include "bus/capture/replay/capture_source.h"
#include "bus/usb/usb_host.h"
#include "bus/usb/usb_sysfs.h"
#include "camera_model/device/camera_identity.h"
#include "camera_model/device/camera_options.h"
#include "library/base/command_error.h"
#include "library/camera/controls/sensor_notes.h"
#include "library/camera/source/camera_share.h"
#include "library/camera/source/plugged_camera.h"

namespace lidcam::app {
namespace {

struct ListCommand {
  bool IsJson = false;
  std::vector<std::string> Captures;
};

std::string Hexadecimal(std::uint16_t number) {
  std::array<char, 5> text{};
  std::snprintf(text.data(), text.size(), "%04x", unsigned{number});
  return text.data();
}

std::string SimulatedIdentity(const camera_model::CameraIdentity& identity) {
  return Hexadecimal(identity.VendorId) + ":" + Hexadecimal(identity.ProductId);
}

std::string ObstacleOf(const camera_model::CameraIdentity& identity,
                       camera_model::SensorModel model) {
  camera_model::CameraOptions options;
  options.VendorId = identity.VendorId;
  options.ProductId = identity.ProductId;
  options.Sensor = model;
  return StreamObstacle(options);
}

std::string SensorList(const camera_model::CameraIdentity& identity) {
  std::string list;
  for (const camera_model::SensorModel model : identity.Sensors) {
    if (!list.empty()) list += ", ";
    list += camera_model::NameOf(model);
    const std::string obstacle = ObstacleOf(identity, model);
    if (!obstacle.empty()) list += " (can't be streamed: " + obstacle + ")";
  }
  return list;
}

// What --camera stands for where it isn't given.
bool IsDefault(const camera_model::CameraIdentity& identity) {
  const camera_model::CameraOptions usual;
  return identity.VendorId == usual.VendorId && identity.ProductId == usual.ProductId;
}

nlohmann::json ToJson(const camera_model::CameraIdentity& identity) {
  nlohmann::json sensors = nlohmann::json::array();
  nlohmann::json obstacles = nlohmann::json::object();
  for (const camera_model::SensorModel model : identity.Sensors) {
    const std::string name(camera_model::NameOf(model));
    sensors.push_back(name);
    const std::string obstacle = ObstacleOf(identity, model);
    if (!obstacle.empty()) obstacles[name] = obstacle;
  }
  return {{"camera", "sim:" + SimulatedIdentity(identity)},
          {"kind", "simulated"},
          {"default", IsDefault(identity)},
          {"identity", SimulatedIdentity(identity)},
          {"sensors", sensors},
          {"cannotStream", obstacles}};
}

/// A plugged-in camera with Linux's data about it and its bus.
struct PluggedListing {
  bus::PluggedDevice Device;
  std::string Holder;          ///< empty if it is free
  std::string Sharer;          ///< "process 12 through PipeWire"; empty if it isn't shared
  std::string Obstacle;        ///< why it can't be streamed; empty if there is no known reason
  std::uint32_t Reserved = 0;  ///< bytes a microframe, by all devices of its bus
  std::string OthersOnBus;
};

std::vector<PluggedListing> ReadPlugged() {
  std::vector<PluggedListing> listings;
  for (const bus::PluggedDevice& device : PluggedCameras()) {
    const auto onBus = bus::UsbSysfs().DevicesOnBus(device.Bus);
    CameraChoice choice;
    choice.Camera = NameOf(device);
    listings.push_back({.Device = device,
                        .Holder = HolderOf(device),
                        .Sharer = SharerOf(UnitOf(choice).value_or("")),
                        .Obstacle = StreamObstacleOf(device.Vendor, device.Product),
                        .Reserved = bus::ReservedBytesOf(onBus),
                        .OthersOnBus = bus::NamesOf(onBus, device.Path)});
  }
  return listings;
}

std::uint32_t BytesLeft(const PluggedListing& listing) {
  return bus::kReservableBytes - std::min(bus::kReservableBytes, listing.Reserved);
}

nlohmann::json ToJson(const PluggedListing& listing) {
  const bus::PluggedDevice& device = listing.Device;
  return {{"camera", NameOf(device)},
          {"kind", "usb"},
          {"default", false},
          {"port", device.Path},
          {"identity", Hexadecimal(device.Vendor) + ":" + Hexadecimal(device.Product)},
          {"megabitsPerSecond", device.Megabits},
          {"node", device.Node()},
          {"heldBy", listing.Holder},
          {"sharedBy", listing.Sharer},
          {"cannotStream", listing.Obstacle},
          {"bytesPerMicroframeLeft", BytesLeft(listing)},
          {"othersOnBus", listing.OthersOnBus}};
}

void PrintPlugged(const std::vector<PluggedListing>& listings) {
  const std::string obstacle = bus::UsbHost().Obstacle();
  std::printf("Plugged in%s\n", listings.empty()
                                    ? (": none" + (obstacle.empty() ? "" : ", " + obstacle)).c_str()
                                    : " (the first is used where no camera is named):");
  for (const PluggedListing& listing : listings) {
    const bus::PluggedDevice& device = listing.Device;
    std::printf("  %s  %u Mbit/s, %s\n", NameOf(device).c_str(), device.Megabits,
                listing.Holder.empty() ? "free" : ("in use by " + listing.Holder).c_str());
    if (!listing.Sharer.empty()) std::printf("    shared by %s\n", listing.Sharer.c_str());
    if (!listing.Obstacle.empty()) {
      std::printf("    can't be streamed: %s\n", listing.Obstacle.c_str());
    }
    std::printf(
        "    bus %u has %u of %u bytes a microframe left%s\n", device.Bus, BytesLeft(listing),
        bus::kReservableBytes,
        listing.OthersOnBus.empty() ? "" : ("; also on it: " + listing.OthersOnBus).c_str());
  }
}

struct CaptureListing {
  std::string Path;
  bus::CaptureSurvey Survey;
};

std::vector<std::string> NotesOn(const CaptureListing& capture, const bus::RecordedDevice& device) {
  std::vector<std::string> notes = bus::NotesOn(capture.Survey);
  std::ranges::copy(bus::NotesOn(device), std::back_inserter(notes));
  return notes;
}

nlohmann::json ToJson(const CaptureListing& capture, const bus::RecordedDevice& device) {
  nlohmann::json row = {{"camera", "capture:" + capture.Path},
                        {"kind", "capture"},
                        {"default", false},
                        {"device", bus::ToString(device.Address)},
                        {"description", bus::Describe(device)},
                        {"notes", NotesOn(capture, device)}};
  if (device.Identity) {
    row["identity"] =
        Hexadecimal(device.Identity->Vendor) + ":" + Hexadecimal(device.Identity->Product);
  }
  return row;
}

// All are read before anything is printed.
std::vector<CaptureListing> ReadCaptures(const ListCommand& command) {
  std::vector<CaptureListing> listings;
  for (const std::string& path : command.Captures) {
    if (path.empty()) throw UsageError("capture '' names no file; - is standard input");
    listings.push_back({path, bus::SurveyCapture(path)});
  }
  return listings;
}

void PrintJson(const std::vector<CaptureListing>& captures) {
  nlohmann::json rows = nlohmann::json::array();
  for (const PluggedListing& listing : ReadPlugged()) {
    rows.push_back(ToJson(listing));
    rows.back()["default"] = rows.size() == 1;
  }
  const bool hasPlugged = !rows.empty();
  for (const camera_model::CameraIdentity& identity : camera_model::AllIdentities()) {
    rows.push_back(ToJson(identity));
    if (hasPlugged) rows.back()["default"] = false;
  }
  for (const CaptureListing& capture : captures) {
    for (const bus::RecordedDevice& device : capture.Survey.Devices) {
      rows.push_back(ToJson(capture, device));
    }
  }
  std::cout << JsonText(rows) << std::endl;
}

void PrintNotes(const std::vector<std::string>& notes) {
  for (const std::string& note : notes) std::printf("  %s\n", note.c_str());
}

void PrintTable(const std::vector<CaptureListing>& captures) {
  PrintPlugged(ReadPlugged());
  std::printf("Simulated cameras (the usual sensor first):\n");
  for (const camera_model::CameraIdentity& identity : camera_model::AllIdentities()) {
    std::printf("  sim:%s  %s%s\n", SimulatedIdentity(identity).c_str(),
                SensorList(identity).c_str(),
                IsDefault(identity) ? "  (default: what sim alone means)" : "");
  }
  for (const CaptureListing& capture : captures) {
    std::printf("Devices of capture %s:\n", capture.Path.c_str());
    for (const bus::RecordedDevice& device : capture.Survey.Devices) {
      std::printf("  %s\n", bus::Describe(device).c_str());
      PrintNotes(bus::NotesOn(device));
    }
    PrintNotes(bus::NotesOn(capture.Survey));
  }
  if (captures.empty()) {
    std::printf("Captures: name their files to list the devices in them.\n");
  }
}

void Run(const ListCommand& command) {
  try {
    const std::vector<CaptureListing> captures = ReadCaptures(command);
    command.IsJson ? PrintJson(captures) : PrintTable(captures);
  } catch (const bus::CaptureError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

void AddListCommand(CLI::App& app) {
  const auto command = std::make_shared<ListCommand>();
  CLI::App* const sub =
      app.add_subcommand("list", "cameras: plugged in, simulated, and the devices of captures");
  sub->add_option("captures", command->Captures, "capture files to look into, - for standard input")
      ->type_name("FILE");
  sub->add_flag("--json", command->IsJson, "answer in JSON");
  sub->footer(
      "Examples:\n"
      "  lidcam list\n"
      "  lidcam list bus.pcap");
  sub->callback([command] { Run(*command); });
}

}  // namespace lidcam::app
