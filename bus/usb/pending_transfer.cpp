#include "bus/usb/pending_transfer.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace lidcam::bus {
namespace {

constexpr std::chrono::seconds kLongestCancel{1};

// A callback may come at any time, so these transfers are never freed.
void KeepForEver(std::shared_ptr<PendingTransfer> transfer) {
  static std::mutex mutex;
  static auto* const kept = new std::vector<std::shared_ptr<PendingTransfer>>;
  const std::lock_guard lock(mutex);
  kept->push_back(std::move(transfer));
}

libusb_transfer* Allocate(int packets) {
  libusb_transfer* const transfer = libusb_alloc_transfer(packets);
  if (transfer == nullptr) throw std::bad_alloc();
  return transfer;
}

}  // namespace

void PortState::MarkGone() {
  const std::lock_guard lock(Mutex);
  IsGone = true;
  Changed.notify_all();
}

PendingTransfer::PendingTransfer(std::shared_ptr<PortState> port, int packets,
                                 std::shared_ptr<void> memory)
    : port_(std::move(port)), memory_(std::move(memory)), transfer_(Allocate(packets)) {
  transfer_->user_data = this;
  transfer_->callback = Completed;
}

PendingTransfer::~PendingTransfer() {
  libusb_free_transfer(transfer_);
}

int PendingTransfer::Submit() {
  {
    const std::lock_guard lock(port_->Mutex);
    state_ = State::InFlight;
  }
  const int error = libusb_submit_transfer(transfer_);
  if (error != 0) {
    const std::lock_guard lock(port_->Mutex);
    state_ = State::Idle;
  }
  return error;
}

void LIBUSB_CALL PendingTransfer::Completed(libusb_transfer* transfer) {
  auto& self = *static_cast<PendingTransfer*>(transfer->user_data);
  const std::shared_ptr<PortState> port = self.port_;
  const Clock::time_point now = Clock::now();
  // With the mutex free again the transfer may be gone.
  const std::lock_guard lock(port->Mutex);
  self.state_ = State::Done;
  self.doneAt_ = now;
  port->Changed.notify_all();
}

// The result of libusb's cancel doesn't matter: only the callback ends a transfer.
std::size_t TakeBack(PortState& port, std::span<std::shared_ptr<PendingTransfer>> transfers) {
  for (const auto& transfer : transfers) {
    bool isInFlight = false;
    {
      const std::lock_guard lock(port.Mutex);
      isInFlight = transfer != nullptr && transfer->IsInFlight();
    }
    if (isInFlight) libusb_cancel_transfer(&transfer->Transfer());
  }
  const auto isOut = [](const std::shared_ptr<PendingTransfer>& transfer) {
    return transfer != nullptr && transfer->IsInFlight();
  };
  std::unique_lock lock(port.Mutex);
  port.Changed.wait_for(lock, kLongestCancel,
                        [&] { return std::ranges::none_of(transfers, isOut); });
  std::size_t kept = 0;
  for (std::shared_ptr<PendingTransfer>& transfer : transfers) {
    if (transfer == nullptr) continue;
    if (isOut(transfer)) {
      KeepForEver(std::exchange(transfer, nullptr));
      ++kept;
    } else {
      transfer->Forget();
    }
  }
  return kept;
}

}  // namespace lidcam::bus
