#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace lidcam::test {

/// What all cameras of the model share.
struct ModelShared {
  std::uint16_t HoldOff = 0;
  std::int32_t Index = 0;
  std::uint32_t Exposure = 0;
  std::uint8_t CoarseGain = 0;
  std::uint8_t FineGain = 0;
  std::uint32_t Ratio = 0;
  std::uint32_t AppliedLines = 0;
  std::uint8_t LastWritten = 0;
  std::uint32_t AeMode = 0;
  std::uint32_t Mode = 0;

  friend bool operator==(const ModelShared&, const ModelShared&) = default;
};

/// What frames change of one camera, and the controls that they look at.
struct ModelCamera {
  std::int32_t SensorType = 9;
  std::uint32_t AutoExposure = 1;
  std::int32_t Flicker = 1;
  std::int32_t LDMode = 0;
  std::int32_t Led = 0;
  std::uint32_t LongConfig = 0;
  std::uint8_t BandStep = 0;
  std::uint8_t Sharpness = 0;
  std::uint8_t Saturation = 0;
  std::uint32_t AppBusy = 0;
  std::uint32_t DriverBusy = 0;
  std::uint32_t State = 2;
  std::int32_t TransitionCount = 0;
  std::int32_t BrightCount = 0;
  std::uint32_t LimitLow = 0;
  std::uint32_t LimitHigh = 0;
  std::uint32_t LimitCeiling = 0;
  std::uint32_t Settle = 0;
  std::uint16_t CommitCount = 0;
  std::uint32_t CommitExposure = 0;

  friend bool operator==(const ModelCamera&, const ModelCamera&) = default;
};

/// One vendor request and how the camera stood when it was made.
struct ModelRequest {
  bool IsRead;
  std::uint32_t Index;
  std::uint32_t Value;
  std::uint32_t AppBusy;
  std::uint32_t DriverBusy;
  std::uint32_t State;
  std::int32_t TransitionCount;
  std::int32_t BrightCount;
  std::uint32_t Settle;
  std::uint32_t Mode;
  std::uint32_t AeMode;
  std::uint8_t LastWritten;
  std::uint16_t CommitCount;

  friend bool operator==(const ModelRequest&, const ModelRequest&) = default;
};

/// One write of a register list of the model.
struct ModelWrite {
  bool IsSensor;
  std::uint8_t Register;
  std::uint8_t Value;
};

/// Faults on the bus in one frame, by the number of the request in it; 0 is the first and -1 none.
struct ModelDisturbance {
  int ApplicationArrivesAt = -1;  ///< the application sets its flag at this request
  int FailsAt = -1;               ///< this request fails
};

/// Exposure and light control again, written in another form than the driver's: steps by ranges of
/// luminance, transitions by ranges of both numbers, and a bus that records its requests.
class ExposureModel {
 public:
  ModelShared Shared;
  std::vector<ModelWrite> NormalList;
  std::vector<ModelWrite> LowLightList;

  void Frame(ModelCamera& camera, std::uint8_t level, std::uint8_t luma,
             const ModelDisturbance& disturbance);
  void StartStream(ModelCamera& camera) const;
  void CreateCamera() { Shared.Index = 30; }

  /// Of the last frame.
  [[nodiscard]] const std::vector<ModelRequest>& Requests() const { return requests_; }
  [[nodiscard]] const std::vector<std::string>& Messages() const { return messages_; }

  /// Transitions made since the beginning, and given up, by row of the state table: Normal to
  /// Dummy, LowLight to Dummy, Dummy to LowLight, Dummy to Normal, Initial to Normal and LowLight.
  std::array<int, 6> Made{};
  std::array<int, 6> GivenUp{};
  int Steps = 0;
  int Commits = 0;
  int Refusals = 0;

 private:
  struct Edge;
  static const Edge kEdges[6];

  bool Step(std::uint8_t luma);
  void WriteRow(ModelCamera& camera);
  std::uint32_t Light(ModelCamera& camera, std::uint8_t exposure, std::uint8_t luma);
  void CountEdges(ModelCamera& camera, std::uint32_t state, int exposure, int luma);
  bool TryEdge(ModelCamera& camera, int number);
  void Move(ModelCamera& camera, const Edge& edge);
  void Commit(ModelCamera& camera);

  void FrameWrite(ModelCamera& camera, bool isSensor, std::uint8_t number, std::uint8_t value);
  bool Pair(ModelCamera& camera, bool isRead, std::uint32_t select, std::uint8_t number,
            std::uint32_t value);
  bool Request(ModelCamera& camera, bool isRead, std::uint32_t index, std::uint32_t value);

  ModelDisturbance disturbance_;
  std::vector<ModelRequest> requests_;
  std::vector<std::string> messages_;
};

}  // namespace lidcam::test
