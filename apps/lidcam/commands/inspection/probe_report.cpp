#include "apps/lidcam/commands/inspection/probe_report.h"

#include <sys/utsname.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <span>

#include "apps/lidcam/stream/stream_run.h"
#include "bus/usb/usb_sysfs.h"
#include "driver/sensor/registers/register_access.h"
#include "library/base/command_error.h"
#include "library/camera/bring_up/camera_identity.h"
#include "library/camera/bring_up/started_camera.h"
#include "library/camera/opened_camera.h"
#include "library/camera/source/plugged_camera.h"
#include "library/settings/trace_observer.h"

namespace lidcam::app {
namespace {

constexpr std::size_t kPacketsOfARead = 32;
constexpr int kReadsOfASetting = 63;  // a quarter of a second

[[gnu::format(printf, 1, 2)]] std::string Format(const char* form, ...) {
  std::array<char, 400> text{};
  std::va_list values;
  va_start(values, form);
  std::vsnprintf(text.data(), text.size(), form, values);
  va_end(values);
  return text.data();
}

std::string HexadecimalRows(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i % 16 == 0) text += Format("%s  %04zx ", i == 0 ? "" : "\n", i);
    text += Format(" %02x", unsigned{bytes[i]});
  }
  return text;
}

/// Statistics of a setting's packets.
struct PacketCounts {
  std::uint64_t Reads = 0;
  std::uint64_t Microframes = 0;
  std::uint64_t Empty = 0;
  std::uint64_t Failed = 0;
  std::uint64_t Bytes = 0;
  std::uint64_t FrameStarts = 0;
  std::uint32_t Longest = 0;
};

void Count(const std::vector<bus::IsochronousPacket>& packets,
           const std::vector<std::uint8_t>& bytes, PacketCounts& counts) {
  ++counts.Reads;
  for (const bus::IsochronousPacket& packet : packets) {
    ++counts.Microframes;
    counts.Empty += packet.Length == 0 ? 1U : 0U;
    counts.Failed += packet.Status == bus::UsbStatus::Ok ? 0U : 1U;
    counts.Bytes += packet.Length;
    counts.Longest = std::max(counts.Longest, packet.Length);
    const bool isStart =
        packet.Length >= 2 && bytes[packet.Offset] == 0xFF && bytes[packet.Offset + 1] == 0xD8;
    counts.FrameStarts += isStart ? 1U : 0U;
  }
}

std::string RegisterTable(CameraContext& camera, bool isSensor) {
  std::string text;
  for (unsigned number = 0; number < 0xFF; ++number) {
    if (number % 16 == 0) text += Format("%s  FF%02X ", number == 0 ? "" : "\n", number);
    const auto address = static_cast<RegisterAddress>(0xFF00U + number);
    std::uint8_t value = 0;
    const Status status = isSensor ? ReadSensorRegister(camera, address, value)
                                   : ReadBridgeRegister(camera, address, value);
    text += status == 0 ? Format(" %02X", unsigned{value}) : std::string(" ??");
  }
  return text;
}

}  // namespace

void ProbeReport::AddTitle(const std::string& title) {
  text_ += (text_.empty() ? "" : "\n") + title + "\n";
}

void ProbeReport::AddLine(const std::string& line) {
  text_ += line + "\n";
}

void ProbeReport::AddFailure(const std::string& what, const std::string& why) {
  failures_.push_back(what + ": " + why);
  AddLine("  FAILED: " + why);
}

void ProbeReport::AddMachine() {
  AddTitle("Camera");
  AddLine("  " + choice_.Camera);
  utsname system{};
  if (uname(&system) == 0) {
    AddLine(std::string("  ") + system.sysname + " " + system.release + " " + system.machine);
  }
  if (!IsPluggedIn(choice_.Camera)) return;
  const bus::PluggedDevice device = FindPluggedCamera(choice_.Camera);
  AddLine(Format("  bus %u, device %u, %u Mbit/s", device.Bus, device.Address, device.Megabits));
  const auto onBus = bus::UsbSysfs().DevicesOnBus(device.Bus);
  AddLine(Format("  bytes a microframe that the bus's devices reserve: %u of %u",
                 bus::ReservedBytesOf(onBus), bus::kReservableBytes));
  const std::string others = bus::NamesOf(onBus, device.Path);
  AddLine("  also on this bus: " + (others.empty() ? "nothing that Linux lists" : others));
}

void ProbeReport::AddDescriptors() {
  AddTitle("Descriptors");
  try {
    device_ = bus::EnumerateDevice(bus_);
  } catch (const bus::EnumerationError& error) {
    AddFailure("descriptors", error.what());
    return;
  }
  AddLine("  device");
  AddLine(HexadecimalRows(device_.DeviceDescriptor));
  AddLine("  configuration");
  AddLine(HexadecimalRows(device_.Configuration));
  for (const bus::AlternateSetting& setting : device_.AlternateSettings) {
    AddLine(Format("  interface %u setting %u: endpoint %02x, %u bytes a microframe",
                   unsigned{setting.Interface}, unsigned{setting.Setting},
                   unsigned{setting.IsochronousEndpoint}, setting.BytesPerMicroframe));
  }
}

void ProbeReport::AddRegisters() {
  AddTitle("Bring-up and registers");
  std::string trace;
  try {
    std::optional<TraceObserver> observer(std::in_place, [&trace](std::string_view line) {
      trace.append("  ").append(line).append("\n");
    });
    RunInTimeOf(choice_, [&] {
      WithStartedCamera(bus_, [&](CameraContext& camera) {
        observer.reset();
        AddLine("  sensor " + std::string(SensorName(camera.SensorType)));
        AddLine("  bridge");
        AddLine(RegisterTable(camera, false));
        AddLine("  sensor");
        AddLine(RegisterTable(camera, true));
      });
    });
  } catch (const CommandError& error) {
    AddFailure("bring-up", error.what());
  }
  AddLine("  accesses of the bring-up, with those that identify the sensor");
  text_ += trace;
}

void ProbeReport::AddSetting(const bus::AlternateSetting& setting) {
  const std::string name = Format("setting %u", unsigned{setting.Setting});
  const bus::UsbStatus selected = bus_.SelectSetting(setting.Interface, setting.Setting);
  if (selected != bus::UsbStatus::Ok) {
    AddLine("  " + name + ": refused, " + std::string(bus::ToString(selected)));
    if (selected != bus::UsbStatus::NoBandwidth) failures_.push_back(name + ": refused");
    return;
  }
  std::vector<std::uint8_t> bytes(kPacketsOfARead * setting.BytesPerMicroframe);
  std::vector<bus::IsochronousPacket> packets(kPacketsOfARead);
  PacketCounts counts;
  bus::UsbStatus status = bus::UsbStatus::Ok;
  for (int i = 0; i < kReadsOfASetting && status == bus::UsbStatus::Ok; ++i) {
    status = bus_.ReadIsochronous(setting.IsochronousEndpoint, bytes, packets).Status;
    Count(packets, bytes, counts);
  }
  const double seconds = static_cast<double>(counts.Microframes) / 8000;
  AddLine(
      Format("  %s, %4u bytes: %6.0f packets a second with data of %6.0f, %9.0f bytes a second, "
             "longest %u, "
             "%llu frame starts, %llu failed",
             name.c_str(), setting.BytesPerMicroframe,
             static_cast<double>(counts.Microframes - counts.Empty) / seconds,
             static_cast<double>(counts.Microframes) / seconds,
             static_cast<double>(counts.Bytes) / seconds, counts.Longest,
             static_cast<unsigned long long>(counts.FrameStarts),
             static_cast<unsigned long long>(counts.Failed)));
  if (status != bus::UsbStatus::Ok) AddFailure(name, std::string(bus::ToString(status)));
}

void ProbeReport::AddSettings() {
  AddTitle("Alternate settings, a quarter of a second each");
  for (const bus::AlternateSetting& setting : device_.AlternateSettings) {
    if (setting.BytesPerMicroframe != 0) AddSetting(setting);
  }
  bus_.SelectSetting(0, 0);
}

void ProbeReport::AddStreams() {
  AddTitle("A second of frames at each size");
  for (const PictureSize size : kStreamSizes) {
    const std::string name = ToString(size);
    const StreamLimits limits{.Duration = std::chrono::seconds(1)};
    try {
      StreamResult result;
      RunInTimeOf(choice_, [&] {
        result = RunStream(bus_, {.Delivered = size}, limits, {}, nullptr, {.IsQuiet = true});
      });
      AddLine("  " + name + " (raw " + ToString(result.RawSize) + "): " + ToText(result.Counts) +
              Format("; %llu bytes", static_cast<unsigned long long>(result.Counts.BusBytes)));
      if (result.Counts.Delivered() == 0) AddFailure(name, "no whole frame came");
      for (const std::string& trouble : result.Troubles) AddFailure(name, trouble);
    } catch (const CommandError& error) {
      AddLine("  " + name);
      AddFailure(name, error.what());
    }
  }
}

}  // namespace lidcam::app
