#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>

namespace lidcam::host {
struct Thread;
}

namespace lidcam::scenarios {

/// The canonical trace of one run: its hash, and the facts that the checks and users need. It
/// receives the driver's trace during its lifetime; one at a time, in a simulation, where threads
/// take turns.
class TraceRecord {
 public:
  /// @param keepsAll  keeps all lines instead of the last hundred
  /// @param hasDriverLines  the driver's own lines are part of the text and of the hash
  explicit TraceRecord(bool keepsAll, bool hasDriverLines = true);
  TraceRecord(const TraceRecord&) = delete;
  TraceRecord& operator=(const TraceRecord&) = delete;
  ~TraceRecord();

  /// Calls `look` with each line, on the thread whose line it is; null ends that.
  void Watch(std::function<void(std::string_view line)> look) { look_ = std::move(look); }

  /// Adds a line of the driver.
  void AddOfDriver(std::string_view line);
  /// Adds a line of the simulation itself.
  void Add(std::string_view line);

  [[nodiscard]] std::uint64_t Hash() const { return hash_; }
  [[nodiscard]] std::string Text() const;

  /// A thread has begun a loop without an end. So does a read that coincides with the frame path; the driver of an
  /// image has no trace that shows it.
  void NoteStoppedReader(const host::Thread& thread);

  /// Recoveries ended so far.
  [[nodiscard]] std::uint64_t RecoveriesEnded() const { return recoveries_; }
  /// A recovery could not be scheduled because no work item could be allocated: from then on none
  /// can.
  [[nodiscard]] bool HasLostWorkItem() const { return hasLostWorkItem_; }
  /// The thread whose read coincided with the frame path and never continues; null if none.
  [[nodiscard]] const host::Thread* StoppedReader() const { return stoppedReader_; }
  /// It was a recovery's: the stream is silent, and each change of it hangs, and so does the device's removal.
  [[nodiscard]] bool HasStoppedRecovery() const { return hasStoppedRecovery_; }
  /// A second recovery was scheduled before the first had ended.
  [[nodiscard]] bool HasTwoRecoveries() const { return hasTwoRecoveries_; }
  /// The USB stack, or a driver between, has refused a transfer.
  [[nodiscard]] bool HasFailedSend() const { return hasFailedSend_; }
  /// The latest drain timed out, or its abort failed.
  [[nodiscard]] bool HasFailedDrain() const { return hasFailedDrain_; }

 private:
  void Look(std::string_view line);
  void LookForRecoveries(std::string_view line);
  void NoteStoppedReader();

  const bool keepsAll_;
  const bool hasDriverLines_;
  std::uint64_t hash_;
  std::deque<std::string> lines_;
  std::function<void(std::string_view line)> look_;
  std::uint64_t recoveries_ = 0;
  bool isRecovering_ = false;
  bool hasTwoRecoveries_ = false;
  bool hasFailedSend_ = false;
  bool hasLostWorkItem_ = false;
  bool hasFailedDrain_ = false;
  const host::Thread* stoppedReader_ = nullptr;
  bool hasStoppedRecovery_ = false;
};

}  // namespace lidcam::scenarios
