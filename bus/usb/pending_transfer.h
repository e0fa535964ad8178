#pragma once

#include <libusb.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>

namespace lidcam::bus {

/// State shared by the transfers of one device and the threads that wait for them. The mutex is
/// never held over a call of libusb.
struct PortState {
  std::mutex Mutex;
  std::condition_variable Changed;  ///< a transfer has completed, or one of the flags has been set
  bool IsGone = false;              ///< unplugged, or closed
  bool IsReading = false;
  bool IsAborted = false;  ///< the read in progress is to end
  bool IsStale = false;    ///< the transfers in flight belong to a stream that has ended

  void MarkGone();
};

/// One libusb transfer that is resubmitted again and again. Its completion only sets a flag; all
/// work is done by the thread that waits for it.
class PendingTransfer {
 public:
  using Clock = std::chrono::steady_clock;

  /// @param memory  what the transfer's buffer lies in
  /// Throws std::bad_alloc.
  PendingTransfer(std::shared_ptr<PortState> port, int packets, std::shared_ptr<void> memory);
  PendingTransfer(const PendingTransfer&) = delete;
  PendingTransfer& operator=(const PendingTransfer&) = delete;
  /// Not while it is in flight.
  ~PendingTransfer();

  /// To fill in and to read while it is not in flight; user data and callback stay.
  [[nodiscard]] libusb_transfer& Transfer() { return *transfer_; }

  /// Submits it. Not with the port's mutex held.
  /// @return 0 or a libusb error; in flight only with 0
  int Submit();

  // Under the port's mutex.
  [[nodiscard]] bool IsInFlight() const { return state_ == State::InFlight; }
  [[nodiscard]] bool IsDone() const { return state_ == State::Done; }
  [[nodiscard]] Clock::time_point DoneAt() const { return doneAt_; }
  /// Its result has been used.
  void Forget() { state_ = State::Idle; }

 private:
  enum class State { Idle, InFlight, Done };

  static void LIBUSB_CALL Completed(libusb_transfer* transfer);

  const std::shared_ptr<PortState> port_;
  const std::shared_ptr<void> memory_;
  libusb_transfer* const transfer_;
  State state_ = State::Idle;
  Clock::time_point doneAt_{};
};

/// Cancels those of the transfers that are in flight and waits until each has completed, for 1 s at
/// most. libusb may still use the others: they are kept until the program ends.
///
/// @return how many are kept so; their places are empty
std::size_t TakeBack(PortState& port, std::span<std::shared_ptr<PendingTransfer>> transfers);

}  // namespace lidcam::bus
