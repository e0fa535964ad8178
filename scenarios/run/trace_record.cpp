#include "scenarios/run/trace_record.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "base/fnv_hash.h"
#include "driver/core/base/camera_trace.h"
#include "platform/host/nt/scheduling/thread.h"
#include "scenarios/run/recovery_thread.h"

namespace lidcam::scenarios {
namespace {

constexpr std::size_t kLinesKept = 100;

constinit TraceRecord* g_record = nullptr;

[[gnu::format(printf, 2, 0)]] void Take(const CameraContext*, const char* format,
                                        std::va_list arguments) {
  std::array<char, 240> line{};
  std::vsnprintf(line.data(), line.size(), format, arguments);
  if (g_record != nullptr) g_record->AddOfDriver(line.data());
}

}  // namespace

TraceRecord::TraceRecord(bool keepsAll, bool hasDriverLines)
    : keepsAll_(keepsAll), hasDriverLines_(hasDriverLines), hash_(base::kFnvOffset) {
  g_record = this;
  SetCameraTraceSink(Take);
}

TraceRecord::~TraceRecord() {
  SetCameraTraceSink(nullptr);
  g_record = nullptr;
}

void TraceRecord::AddOfDriver(std::string_view line) {
  Look(line);
  if (hasDriverLines_) Add(line);
}

void TraceRecord::Add(std::string_view line) {
  hash_ = base::FnvHash(base::FnvHash(hash_, line), '\n');
  if (keepsAll_ || lines_.size() < kLinesKept) {
    lines_.emplace_back(line);
  } else {
    // With the memory of the line that goes.
    std::string last = std::move(lines_.front());
    lines_.pop_front();
    lines_.push_back(std::move(last.assign(line)));
  }
  if (look_) look_(line);
}

void TraceRecord::Look(std::string_view line) {
  LookForRecoveries(line);
  if (line.starts_with("iso halted") && line.find(" send ") != std::string_view::npos) {
    hasFailedSend_ = true;
  }
  if (line == "recovery has no work item") hasLostWorkItem_ = true;
  if (line.starts_with("drain abort")) hasFailedDrain_ = !line.ends_with("=00000000");
  if (line == "drain ends status=00000102") hasFailedDrain_ = true;
  if (line.starts_with("bus  read") && line.ends_with("stops for good")) NoteStoppedReader();
}

// One that is scheduled while the device goes ends without a line, and the device's next start has a record of its
// own.
void TraceRecord::LookForRecoveries(std::string_view line) {
  if (line.starts_with("recovery ends")) {
    ++recoveries_;
    isRecovering_ = false;
  } else if (line == "recovery scheduled") {
    hasTwoRecoveries_ = hasTwoRecoveries_ || isRecovering_;
    isRecovering_ = true;
  } else if (line.starts_with("device gone")) {
    isRecovering_ = false;
  }
}

// The line is the thread's last one: it spins from here on and need not be run.
void TraceRecord::NoteStoppedReader() {
  host::Thread& self = host::CurrentThread();
  self.SpinsForGood = true;
  NoteStoppedReader(self);
}

void TraceRecord::NoteStoppedReader(const host::Thread& thread) {
  stoppedReader_ = &thread;
  hasStoppedRecovery_ = hasStoppedRecovery_ || IsOfRecovery(thread);
}

std::string TraceRecord::Text() const {
  std::string text;
  for (const std::string& line : lines_) text += line + "\n";
  return text;
}

}  // namespace lidcam::scenarios
