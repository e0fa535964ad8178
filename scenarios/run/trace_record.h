#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace lidcam::host {
struct Thread;
}

namespace lidcam::scenarios {

/// The canonical trace of one run: its hash, and what of it a reader and the checks want. While it
/// lives the driver's trace goes here; one at a time, in a simulation, where threads take turns.
class TraceRecord {
 public:
  /// @param keepsAll  all lines are kept, and not the last hundred
  explicit TraceRecord(bool keepsAll);
  TraceRecord(const TraceRecord&) = delete;
  TraceRecord& operator=(const TraceRecord&) = delete;
  ~TraceRecord();

  /// Adds a line of the simulation's own.
  void Add(std::string_view line);

  [[nodiscard]] std::uint64_t Hash() const { return hash_; }
  [[nodiscard]] std::string Text() const;

  /// Recoveries that came to an end so far.
  [[nodiscard]] std::uint64_t RecoveriesEnded() const { return recoveries_; }
  /// A recovery could not be scheduled for want of a work item: from then on none can.
  [[nodiscard]] bool HasLostWorkItem() const { return hasLostWorkItem_; }
  /// The thread whose read met the frame path and stops for good; null if there is none.
  [[nodiscard]] const host::Thread* StoppedReader() const { return stoppedReader_; }
  /// The latest drain ran into its limit, or its abort failed.
  [[nodiscard]] bool HasFailedDrain() const { return hasFailedDrain_; }

 private:
  void Look(std::string_view line);
  void NoteStoppedReader();

  const bool keepsAll_;
  std::uint64_t hash_;
  std::deque<std::string> lines_;
  std::uint64_t recoveries_ = 0;
  bool hasLostWorkItem_ = false;
  bool hasFailedDrain_ = false;
  const host::Thread* stoppedReader_ = nullptr;
};

}  // namespace lidcam::scenarios
