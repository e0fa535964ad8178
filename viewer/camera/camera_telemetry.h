#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace lidcam::viewer {

/// Seconds of CLOCK_MONOTONIC.
[[nodiscard]] double MonotonicSeconds();

enum class RegisterChip : std::uint8_t { Bridge, Sensor };

/// A register's value as it went over the bus last.
struct RegisterValue {
  RegisterChip Chip = RegisterChip::Bridge;
  std::uint16_t Address = 0;
  std::uint8_t Value = 0;
  double Time = 0;  ///< seconds of CLOCK_MONOTONIC
};

/// What a camera's bus carried, and what its driver made of it, in some time.
struct BusCounts {
  std::uint64_t Packets = 0;  ///< with data
  std::uint64_t Bytes = 0;
  std::uint64_t Errors = 0;  ///< packets and reads with an error status
  std::uint64_t Good = 0;    ///< frames of the right size
  std::uint64_t Short = 0;
  std::uint64_t Long = 0;
  std::uint64_t Discarded = 0;
  std::map<std::string, std::uint64_t>
      Reasons{};  ///< of those that are not good or were not delivered
};

/// The exposure loop behind a frame.
struct LoopStep {
  double Time = 0;              ///< seconds of CLOCK_MONOTONIC
  std::uint32_t Luminance = 0;  ///< as the camera reported it, 0 to 255
  std::uint32_t Exposure = 0;   ///< flicker periods
  std::uint32_t Lines = 0;
  std::uint32_t CoarseGain = 0;
  std::uint32_t FineGain = 0;
  std::uint32_t Light = 0;  ///< a lidcam::LightState
  bool HasWritten = false;  ///< the driver has written an operating point to the sensor
};

/// Something that happened to the stream.
struct RecoveryEvent {
  double Time = 0;
  std::string Text;
};

/// Lines of the driver's trace.
struct TraceLines {
  std::vector<std::string> Lines;
  std::uint64_t Skipped = 0;  ///< that came faster than they are told
};

/// Collects what happens on a camera's bus and in its driver, until it is taken. Any thread; never waits long.
class CameraTelemetry {
 public:
  // On the threads of the driver.

  void NoteRegister(RegisterChip chip, std::uint16_t address, std::uint8_t value);
  void NotePackets(std::uint64_t packets, std::uint64_t bytes, std::uint64_t errors);
  void NoteEvent(const std::string& text);
  void NoteLoop(const LoopStep& step);
  /// A line of the driver's trace.
  void NoteLine(std::string_view line);

  // On the pages' thread.

  /// Those that were accessed since the last call.
  [[nodiscard]] std::vector<RegisterValue> TakeRegisters();
  /// All that are known.
  [[nodiscard]] std::vector<RegisterValue> AllRegisters() const;
  [[nodiscard]] BusCounts TakeCounts();
  [[nodiscard]] std::vector<RecoveryEvent> TakeEvents();
  [[nodiscard]] std::vector<LoopStep> TakeLoop();
  [[nodiscard]] TraceLines TakeLines();
  /// Whether lines are kept to be taken.
  void KeepLines(bool isWanted);

  static constexpr std::size_t kMostLines = 400;
  static constexpr std::size_t kMostEvents = 100;
  static constexpr std::size_t kMostSteps = 100;

 private:
  void CountFrame(std::string_view line);
  void Discard(const char* reason);
  void AddEvent(std::string text);

  using RegisterKey = std::pair<RegisterChip, std::uint16_t>;

  mutable std::mutex mutex_;
  std::map<RegisterKey, RegisterValue> registers_;
  std::map<RegisterKey, RegisterValue> changed_;
  BusCounts counts_;
  std::deque<RecoveryEvent> events_;
  std::deque<LoopStep> loop_;
  bool keepsLines_ = false;
  TraceLines lines_;
  bool isSettling_ = false;
};

}  // namespace lidcam::viewer
