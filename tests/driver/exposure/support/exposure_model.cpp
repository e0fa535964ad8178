#include "tests/driver/exposure/support/exposure_model.h"

#include <algorithm>

#include "tests/driver/exposure/support/operating_points.h"

namespace lidcam::test {

// A row of the state table. Ranges are inclusive.
struct ExposureModel::Edge {
  std::uint32_t From;
  std::uint32_t To;
  int MinLuma, MaxLuma;
  int MinExposure, MaxExposure;
  int Frames;  // consecutive ones that it takes
  bool UsesBrightCount;
  enum { TrialWrites, NormalWrites, LowLightWrites } Writes;
  bool LedOn;
  bool Commits;
  bool ClearsSettle;
  std::uint32_t Mode;
  bool RestartsWhenGivenUp;
  bool SaysWhenGivenUp;
  const char* Message;
};

const ExposureModel::Edge ExposureModel::kEdges[6] = {
    {0, 3, 0, 48, 7, 255, 11, false, Edge::TrialWrites, true, true, true, 2, true, false,
     " ******** From Normal to Dummy ****************\n"},
    {1, 3, 64, 255, 0, 19, 6, false, Edge::TrialWrites, false, true, true, 2, false, true,
     " ******** From LowLight to Dummy ****************\n"},
    {3, 1, 0, 21, 19, 255, 11, false, Edge::LowLightWrites, true, true, true, 1, true, false,
     " ******** From Dummy to LowLight ****************\n"},
    {3, 0, 81, 255, 0, 8, 6, true, Edge::NormalWrites, false, true, true, 0, false, true,
     " ******** From Dummy to Normal ****************\n"},
    {2, 0, 0, 255, 0, 4, 1, false, Edge::NormalWrites, false, false, false, 0, false, false,
     "******** Initial state ********\n"},
    {2, 1, 0, 255, 5, 255, 1, false, Edge::LowLightWrites, true, false, false, 1, false, false,
     "******** Initial state ********\n"},
};

namespace {

constexpr ModelWrite kTrial[] = {
    {true, 0x09, 0x25},  {true, 0x06, 0xF6},  {false, 0x0F, 0x80},
    {false, 0x13, 0x80}, {false, 0x14, 0xB8}, {false, 0x78, 0xC0},
    {false, 0x79, 0xC0}, {false, 0x43, 0xC2}, {false, 0x7C, 0x10},
};

int StepOf(int luma) {
  if (luma < 26) return 24;
  if (luma < 36) return 16;
  if (luma < 51) return 8;
  if (luma < 71) return 4;
  if (luma < 80) return 1;
  if (luma < 97) return 0;
  if (luma < 110) return -1;
  if (luma < 126) return -4;
  if (luma < 138) return -8;
  return luma < 152 ? -16 : -24;
}

}  // namespace

bool ExposureModel::Request(ModelCamera& camera, bool isRead, std::uint32_t index,
                            std::uint32_t value) {
  const auto number = static_cast<int>(requests_.size());
  requests_.push_back({isRead, index, value, camera.AppBusy, camera.DriverBusy, camera.State,
                       camera.TransitionCount, camera.BrightCount, camera.Settle, Shared.Mode,
                       Shared.AeMode, Shared.LastWritten, camera.CommitCount});
  if (number == disturbance_.ApplicationArrivesAt) camera.AppBusy = 1;
  return number != disturbance_.FailsAt;
}

// A select and a transfer. A failed select is not noticed.
bool ExposureModel::Pair(ModelCamera& camera, bool isRead, std::uint32_t select,
                         std::uint8_t number, std::uint32_t value) {
  Request(camera, false, 0xFFFF, select);
  return Request(camera, isRead, 0xFF00U + number, value);
}

void ExposureModel::FrameWrite(ModelCamera& camera, bool isSensor, std::uint8_t number,
                               std::uint8_t value) {
  if (camera.AppBusy != 0) {
    ++Refusals;
    return;
  }
  camera.DriverBusy = 1;
  const bool written = Pair(camera, false, isSensor ? 2 : 0, number, value);
  if (written && !isSensor && number == 0x68) camera.BandStep = value;
  camera.DriverBusy = 0;
}

bool ExposureModel::Step(std::uint8_t luma) {
  if (Shared.HoldOff != 0) {
    Shared.HoldOff = static_cast<std::uint16_t>(Shared.HoldOff - 1);
    return false;
  }
  const int step = StepOf(luma);
  if (step == 0) return false;
  Shared.Ratio = luma < 10 ? 9012 : 90112U / luma;
  const int top = Shared.AeMode == 0 ? 54 : Shared.AeMode == 2 ? 76 : 80;
  if (step > 0 && Shared.Index == top) return false;
  if (step < 0 && Shared.Index == 0) return false;
  Shared.Index = std::max(0, std::min(top, Shared.Index + step));
  Shared.HoldOff = 5;
  const OperatingPoint& row = kOperatingPoints.at(static_cast<std::size_t>(Shared.Index));
  Shared.Exposure = row.Exposure;
  Shared.CoarseGain = row.CoarseGain;
  Shared.FineGain = row.FineGain;
  ++Steps;
  return true;
}

void ExposureModel::WriteRow(ModelCamera& camera) {
  camera.DriverBusy = 1;
  const std::uint32_t lines = camera.BandStep * Shared.Exposure;
  Shared.AppliedLines = lines;
  FrameWrite(camera, true, 0x60, Shared.CoarseGain);
  FrameWrite(camera, true, 0x5D, Shared.FineGain);
  FrameWrite(camera, true, 0x04, static_cast<std::uint8_t>(lines % 256));
  FrameWrite(camera, true, 0x03, static_cast<std::uint8_t>(lines / 256 % 16));
  camera.DriverBusy = 0;
  Shared.LastWritten = static_cast<std::uint8_t>(Shared.Exposure % 256);
}

void ExposureModel::Move(ModelCamera& camera, const Edge& edge) {
  camera.State = edge.To;
  camera.DriverBusy = 1;
  if (edge.Writes == Edge::TrialWrites) {
    for (const ModelWrite& write : kTrial) {
      FrameWrite(camera, write.IsSensor, write.Register, write.Value);
    }
  } else {
    const bool normal = edge.Writes == Edge::NormalWrites;
    for (const ModelWrite& write : normal ? NormalList : LowLightList) {
      std::uint8_t value = write.Value;
      const bool isBridge = !write.IsSensor;
      if (normal && isBridge && write.Register == 0x43 && camera.Sharpness != 0) {
        value = camera.Sharpness;
      }
      if (normal && isBridge && (write.Register == 0x78 || write.Register == 0x79)) {
        value = camera.Saturation;
      }
      FrameWrite(camera, write.IsSensor, write.Register, value);
    }
  }
  if (camera.Led == 4) {
    if (camera.AppBusy != 0) {
      ++Refusals;
    } else {
      camera.DriverBusy = 1;
      Pair(camera, true, 1, 0x09, 1);
      camera.DriverBusy = 0;
    }
  }
  if (edge.Commits) FrameWrite(camera, true, 0x2F, 0x83);
  camera.DriverBusy = 0;
  (edge.UsesBrightCount ? camera.BrightCount : camera.TransitionCount) = 0;
  Shared.Mode = edge.Mode;
  if (edge.ClearsSettle) camera.Settle = 0;
}

bool ExposureModel::TryEdge(ModelCamera& camera, int number) {
  const Edge& edge = kEdges[number];
  std::int32_t& count = edge.UsesBrightCount ? camera.BrightCount : camera.TransitionCount;
  const bool isInitial = edge.From == 2;
  if (!isInitial && count < edge.Frames) return false;
  messages_.emplace_back(edge.Message);
  if (camera.AppBusy == 0) {
    Move(camera, edge);
    ++Made.at(static_cast<std::size_t>(number));
    return true;
  }
  ++GivenUp.at(static_cast<std::size_t>(number));
  if (edge.SaysWhenGivenUp) messages_.emplace_back(" The app is modifying regs, do NOTHING!\n");
  if (edge.RestartsWhenGivenUp) count = 0;
  return true;
}

void ExposureModel::CountEdges(ModelCamera& camera, std::uint32_t state, int exposure, int luma) {
  const auto holds = [&](const Edge& edge) {
    return luma >= edge.MinLuma && luma <= edge.MaxLuma && exposure >= edge.MinExposure &&
           exposure <= edge.MaxExposure;
  };
  for (const Edge& edge : kEdges) {
    if (edge.From != state) continue;
    std::int32_t& count = edge.UsesBrightCount ? camera.BrightCount : camera.TransitionCount;
    count = holds(edge) ? count + 1 : 0;
  }
}

std::uint32_t ExposureModel::Light(ModelCamera& camera, std::uint8_t exposure, std::uint8_t luma) {
  if (camera.LDMode == 1 || camera.SensorType != 9) return Shared.Mode;
  if (camera.State < 2) {
    CountEdges(camera, camera.State, exposure, luma);
    TryEdge(camera, camera.State == 0 ? 0 : 1);
  }
  if (camera.State == 3) {
    CountEdges(camera, 3, exposure, luma);
    if (!TryEdge(camera, 2)) TryEdge(camera, 3);
  } else if (camera.State == 2) {
    TryEdge(camera, exposure < 5 ? 4 : 5);
  }
  return Shared.Mode;
}

void ExposureModel::Commit(ModelCamera& camera) {
  if (camera.CommitExposure != Shared.Exposure) {
    camera.CommitExposure = Shared.Exposure;
    camera.CommitCount = 0;
    return;
  }
  const int due = Shared.Exposure < 8 ? 45 : 25;
  if (camera.CommitCount == 2 || camera.CommitCount >= due) {
    camera.AppBusy = 1;
    Pair(camera, false, 2, 0x2F, 0x83);
    camera.AppBusy = 0;
    camera.CommitCount = 4;
    ++Commits;
  } else {
    camera.CommitCount = static_cast<std::uint16_t>(camera.CommitCount + 1);
  }
}

void ExposureModel::Frame(ModelCamera& camera, std::uint8_t level, std::uint8_t luma,
                          const ModelDisturbance& disturbance) {
  requests_.clear();
  messages_.clear();
  disturbance_ = disturbance;
  const bool loop = camera.SensorType == 9 && camera.AutoExposure == 1 && camera.Flicker != 0;
  if (loop && Step(luma)) WriteRow(camera);
  const std::uint8_t shown = loop ? static_cast<std::uint8_t>(Shared.Exposure % 256) : level;
  const std::uint32_t mode = Light(camera, shown, luma);
  if (loop) Shared.AeMode = mode;
  if (camera.SensorType == 9) Commit(camera);
}

void ExposureModel::StartStream(ModelCamera& camera) const {
  if (camera.SensorType == 1 || camera.SensorType == 9) {
    camera.LimitCeiling = 60;
    camera.LimitHigh = 30;
    camera.LimitLow = camera.LongConfig != 0 ? 7 : 6;
  } else if (camera.SensorType == 7 || camera.SensorType == 8) {
    camera.LimitCeiling = 100;
    camera.LimitHigh = 20;
    camera.LimitLow = 0;
  }
  camera.TransitionCount = 0;
  camera.BrightCount = 0;
  camera.State = 2;
}

}  // namespace lidcam::test
