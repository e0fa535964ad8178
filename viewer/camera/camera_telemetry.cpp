#include "viewer/camera/camera_telemetry.h"

#include <charconv>
#include <ctime>
#include <utility>

namespace lidcam::viewer {
namespace {

std::uint64_t NumberBehind(std::string_view line, std::string_view name) {
  const std::size_t at = line.find(name);
  std::uint64_t number = 0;
  if (at == std::string_view::npos) return number;
  std::from_chars(line.data() + at + name.size(), line.data() + line.size(), number);
  return number;
}

// Lines of the trace that say how a stream fails and recovers.
constexpr std::string_view kEventBeginnings[] = {
    "iso halted", "watchdog ", "recovery ", "drain ", "device gone", "bus  fault ", "bulk halted",
};

bool IsEvent(std::string_view line) {
  for (const std::string_view beginning : kEventBeginnings) {
    if (line.starts_with(beginning)) return true;
  }
  return false;
}

}  // namespace

double MonotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void CameraTelemetry::NoteRegister(RegisterChip chip, std::uint16_t address, std::uint8_t value) {
  const RegisterValue seen{
      .Chip = chip, .Address = address, .Value = value, .Time = MonotonicSeconds()};
  const std::lock_guard lock(mutex_);
  registers_[{chip, address}] = seen;
  changed_[{chip, address}] = seen;
}

void CameraTelemetry::NotePackets(std::uint64_t packets, std::uint64_t bytes,
                                  std::uint64_t errors) {
  const std::lock_guard lock(mutex_);
  counts_.Packets += packets;
  counts_.Bytes += bytes;
  counts_.Errors += errors;
}

void CameraTelemetry::NoteEvent(const std::string& text) {
  const std::lock_guard lock(mutex_);
  AddEvent(text);
}

void CameraTelemetry::NoteLoop(const LoopStep& step) {
  const std::lock_guard lock(mutex_);
  if (loop_.size() == kMostSteps) loop_.pop_front();
  loop_.push_back(step);
}

void CameraTelemetry::NoteLine(std::string_view line) {
  const std::lock_guard lock(mutex_);
  if (line.starts_with("frame ") || line.starts_with("pin frame ")) CountFrame(line);
  if (IsEvent(line)) AddEvent(std::string(line));
  if (!keepsLines_) return;
  if (lines_.Lines.size() < kMostLines) {
    lines_.Lines.emplace_back(line);
  } else {
    ++lines_.Skipped;
  }
}

// A stream's first frame start ends no frame, and the trace has an end of 0 bytes. While the driver changes registers
// it drops the frame in progress and the one after it.
void CameraTelemetry::CountFrame(std::string_view line) {
  if (line.starts_with("frame end ")) {
    const std::uint64_t bytes = NumberBehind(line, " bytes=");
    const std::uint64_t expected = NumberBehind(line, " expected=");
    if (bytes == 0) return;
    isSettling_ = line.ends_with(" settling");
    if (isSettling_) {
      Discard("registers were changing");
    } else if (line.ends_with(" good")) {
      ++counts_.Good;
    } else if (bytes < expected) {
      ++counts_.Short;
      ++counts_.Reasons["fewer bytes than a frame has"];
    } else {
      ++counts_.Long;
      ++counts_.Reasons["more bytes than a frame has"];
    }
  } else if (line == "frame discarded") {
    Discard(isSettling_ ? "registers were changing" : "the frame before had a wrong size");
    isSettling_ = false;
  } else if (line.starts_with("frame busy")) {
    Discard("the driver was busy with the frame before");
  } else if (line == "pin frame no buffer") {
    Discard("no application had a buffer for it");
  } else if (line.starts_with("frame too large")) {
    Discard("it did not fit its buffer");
  }
}

void CameraTelemetry::Discard(const char* reason) {
  ++counts_.Discarded;
  ++counts_.Reasons[reason];
}

void CameraTelemetry::AddEvent(std::string text) {
  if (events_.size() == kMostEvents) events_.pop_front();
  events_.push_back({.Time = MonotonicSeconds(), .Text = std::move(text)});
}

std::vector<RegisterValue> CameraTelemetry::TakeRegisters() {
  const std::lock_guard lock(mutex_);
  std::vector<RegisterValue> values;
  for (const auto& [key, value] : changed_) values.push_back(value);
  changed_.clear();
  return values;
}

std::vector<RegisterValue> CameraTelemetry::AllRegisters() const {
  const std::lock_guard lock(mutex_);
  std::vector<RegisterValue> values;
  for (const auto& [key, value] : registers_) values.push_back(value);
  return values;
}

BusCounts CameraTelemetry::TakeCounts() {
  const std::lock_guard lock(mutex_);
  return std::exchange(counts_, {});
}

std::vector<RecoveryEvent> CameraTelemetry::TakeEvents() {
  const std::lock_guard lock(mutex_);
  std::vector<RecoveryEvent> events(events_.begin(), events_.end());
  events_.clear();
  return events;
}

std::vector<LoopStep> CameraTelemetry::TakeLoop() {
  const std::lock_guard lock(mutex_);
  std::vector<LoopStep> steps(loop_.begin(), loop_.end());
  loop_.clear();
  return steps;
}

TraceLines CameraTelemetry::TakeLines() {
  const std::lock_guard lock(mutex_);
  return std::exchange(lines_, {});
}

void CameraTelemetry::KeepLines(bool isWanted) {
  const std::lock_guard lock(mutex_);
  keepsLines_ = isWanted;
  if (!isWanted) lines_ = {};
}

}  // namespace lidcam::viewer
