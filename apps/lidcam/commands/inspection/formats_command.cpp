#include <array>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/output/utf8_text.h"
#include "base/time_units.h"
#include "driver/core/control/stream_modes.h"
#include "library/camera/controls/sensor_notes.h"
#include "library/camera/opened_camera.h"
#include "library/camera/source/plugged_camera.h"

namespace lidcam::app {
namespace {

struct FormatsCommand {
  CommonOptions Common;
};

/// One format as the pin offers it.
struct FormatLine {
  PictureSize Size;
  std::string Subtype;
  std::uint32_t Bytes;  ///< of a picture
  LONG SlowestBits;     ///< a second
  LONG FastestBits;
  LONGLONG ShortestInterval;        ///< 100 ns
  LONGLONG LongestInterval;         ///< 100 ns
  std::vector<LONGLONG> Intervals;  ///< 100 ns, that the camera names for the size
};

double RateOf(LONGLONG interval) {
  return interval > 0 ? static_cast<double>(base::kUnitsPerSecond) / static_cast<double>(interval)
                      : 0;
}

// A subtype that is made of a code of four letters begins with it.
std::string SubtypeText(const GUID& subtype) {
  std::string text;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const auto letter = static_cast<char>(subtype.Data1 >> shift & 0xFF);
    text += std::isprint(static_cast<unsigned char>(letter)) != 0 ? letter : '?';
  }
  return text;
}

std::vector<FormatLine> ReadFormats(const client::Camera& camera) {
  std::vector<FormatLine> lines;
  for (const KS_DATARANGE_VIDEO& range : camera.Ranges()) {
    const KS_BITMAPINFOHEADER& bitmap = range.VideoInfoHeader.bmiHeader;
    lines.push_back({
        .Size = {bitmap.biWidth, bitmap.biHeight},
        .Subtype = SubtypeText(range.DataRange.SubFormat),
        .Bytes = bitmap.biSizeImage,
        .SlowestBits = range.ConfigCaps.MinBitsPerSecond,
        .FastestBits = range.ConfigCaps.MaxBitsPerSecond,
        .ShortestInterval = range.ConfigCaps.MinFrameInterval,
        .LongestInterval = range.ConfigCaps.MaxFrameInterval,
        .Intervals = camera.FrameIntervals(bitmap.biWidth, bitmap.biHeight),
    });
  }
  return lines;
}

nlohmann::json ToJson(const FormatLine& line) {
  nlohmann::json rates = nlohmann::json::array();
  for (const LONGLONG interval : line.Intervals) rates.push_back(RateOf(interval));
  return {{"size", ToString(line.Size)},
          {"width", line.Size.Width},
          {"height", line.Size.Height},
          {"subtype", line.Subtype},
          {"bytes", line.Bytes},
          {"minimumBitsPerSecond", line.SlowestBits},
          {"maximumBitsPerSecond", line.FastestBits},
          {"minimumFramesPerSecond", RateOf(line.LongestInterval)},
          {"maximumFramesPerSecond", RateOf(line.ShortestInterval)},
          {"frameIntervals", line.Intervals},
          {"frameRates", rates}};
}

std::string RateText(double rate) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%.4g", rate);
  return text.data();
}

std::string RatesText(const std::vector<LONGLONG>& intervals) {
  std::string text;
  for (const LONGLONG interval : intervals) {
    if (!text.empty()) text += ' ';
    text += RateText(RateOf(interval));
  }
  return text.empty() ? "-" : text;
}

void PrintTable(const std::vector<FormatLine>& lines) {
  std::printf("%-8s %-7s %9s  %-19s  %-9s  %s\n", "size", "subtype", "bytes", "bits/s from to",
              "frames/s", "frame rates named");
  for (const FormatLine& line : lines) {
    const std::string bits =
        std::to_string(line.SlowestBits) + " " + std::to_string(line.FastestBits);
    const std::string rates =
        RateText(RateOf(line.LongestInterval)) + " to " + RateText(RateOf(line.ShortestInterval));
    std::printf("%-8s %-7s %9u  %-19s  %-9s  %s\n", ToString(line.Size).c_str(),
                line.Subtype.c_str(), line.Bytes, bits.c_str(), rates.c_str(),
                RatesText(line.Intervals).c_str());
  }
}

/// Properties of the camera's sensor that the formats don't show, a line each.
std::vector<std::string> NotesOn(std::int32_t sensor, const CameraChoice& choice) {
  const std::string obstacle =
      CaptureFileOf(choice.Camera) || IsPluggedIn(choice.Camera)
          ? StreamObstacle(sensor)
          : StreamObstacle(camera_model::ParseCameraOptions(choice.Camera));
  std::vector<std::string> notes;
  if (!obstacle.empty()) notes.push_back("this camera can't be streamed: " + obstacle);
  const std::string note = PictureNote(sensor, {640, 480}, RawFrameBytes(sensor, RawMode640x480));
  if (obstacle.empty() && !note.empty()) notes.push_back(note);
  return notes;
}

void Run(const FormatsCommand& command) {
  OpenHostEnvironment(command.Common.Output, SetFilesFor(command.Common.Camera));
  std::vector<FormatLine> lines;
  std::int32_t sensor = 0;
  WithOpenedCameraOf(command.Common.Camera, [&](OpenedCamera& opened) {
    lines = ReadFormats(opened.Camera());
    sensor = opened.SensorType();
  });
  const std::vector<std::string> notes = NotesOn(sensor, command.Common.Camera);
  if (!command.Common.IsJson) {
    PrintTable(lines);
    for (const std::string& note : notes) std::printf("%s\n", note.c_str());
    return;
  }
  nlohmann::json rows = nlohmann::json::array();
  for (const FormatLine& line : lines) {
    rows.push_back(ToJson(line));
    rows.back()["notes"] = notes;
  }
  std::cout << JsonText(rows) << std::endl;
}

}  // namespace

void AddFormatsCommand(CLI::App& app) {
  const auto command = std::make_shared<FormatsCommand>();
  CLI::App* const sub = app.add_subcommand("formats", "picture formats as applications see them");
  AddCameraOptions(*sub, command->Common);
  AddOutputOptions(*sub, command->Common);
  sub->footer(
      "A row for each format that the camera's pin offers: bytes are those of one\n"
      "picture, frames/s is the range of the format, and last comes what the camera names\n"
      "for pictures of the width. lidcam stream shows what is delivered.\n"
      "Examples:\n"
      "  lidcam formats\n"
      "  lidcam formats --json --camera sim:1af0:6010");
  sub->callback([command] {
    ChooseCamera(command->Common);
    Run(*command);
  });
}

}  // namespace lidcam::app
