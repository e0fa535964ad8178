#include "bus/usb/isochronous_ring.h"

#include <algorithm>
#include <cerrno>
#include <new>

namespace lidcam::bus {
namespace {

// A transfer takes 4 ms, independent of the device: after so long without one the host controller
// is dead, not just the machine busy.
constexpr std::chrono::seconds kLongestSilence{3};

constexpr std::chrono::seconds kLongestTrial{1};

// Limit of unread transfers: a reader that keeps up with the clock has one or two.
constexpr std::uint32_t kLargestBacklog = 4;

// One frame: enough for the host controller to reserve bandwidth, and as short as an ordinary
// transfer can be.
constexpr std::uint32_t kTrialPackets = 8;

struct DeviceMemory {
  libusb_device_handle* Device;
  std::size_t Size;
  void operator()(std::uint8_t* bytes) const { libusb_dev_mem_free(Device, bytes, Size); }
};

// Memory allocated through the device saves the kernel a copy; not every kernel supports it.
std::shared_ptr<std::uint8_t> AllocateBuffers(libusb_device_handle* device, std::size_t size) {
  if (std::uint8_t* const bytes = libusb_dev_mem_alloc(device, size)) {
    return {bytes, DeviceMemory{device, size}};
  }
  return {new std::uint8_t[size], std::default_delete<std::uint8_t[]>()};
}

UsbStatus StatusOf(SubmitFailure failure) {
  switch (failure) {
    case SubmitFailure::None:
      return UsbStatus::Ok;
    case SubmitFailure::Gone:
      return UsbStatus::Disconnected;
    case SubmitFailure::NoBandwidth:
    case SubmitFailure::NoMemory:
    case SubmitFailure::Unclear:
      return UsbStatus::NoBandwidth;
    case SubmitFailure::Failed:
      break;
  }
  return UsbStatus::Failed;
}

}  // namespace

SubmitFailure FailureOf(int error, int systemError) {
  switch (error) {
    case LIBUSB_SUCCESS:
      return SubmitFailure::None;
    case LIBUSB_ERROR_NO_DEVICE:
      return SubmitFailure::Gone;
    case LIBUSB_ERROR_NO_MEM:
      return SubmitFailure::NoMemory;
    case LIBUSB_ERROR_IO:
      if (systemError == ENOSPC) return SubmitFailure::NoBandwidth;
      if (systemError == ENOMEM) return SubmitFailure::NoMemory;
      return SubmitFailure::Unclear;
    default:
      return SubmitFailure::Failed;
  }
}

IsochronousRing::IsochronousRing(libusb_device_handle* device, std::shared_ptr<PortState> port,
                                 FrameClock& clock, std::uint8_t endpoint, std::uint32_t packetSize)
    : device_(device),
      port_(std::move(port)),
      clock_(clock),
      endpoint_(endpoint),
      packetSize_(packetSize) {
  MakeTransfers();
}

IsochronousRing::~IsochronousRing() {
  Stop();
}

void IsochronousRing::MakeTransfers() {
  const std::size_t share = std::size_t{packetSize_} * kPackets;
  memory_ = AllocateBuffers(device_, share * kTransfers);
  for (std::size_t i = 0; i < transfers_.size(); ++i) {
    transfers_[i] = std::make_shared<PendingTransfer>(port_, int{kPackets}, memory_);
    libusb_transfer& transfer = transfers_[i]->Transfer();
    transfer.dev_handle = device_;
    transfer.endpoint = endpoint_;
    transfer.type = LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
    transfer.timeout = 0;
    transfer.buffer = memory_.get() + i * share;
    transfer.length = static_cast<int>(share);
    transfer.num_iso_packets = int{kPackets};
    libusb_set_iso_packet_lengths(&transfer, packetSize_);
  }
}

void IsochronousRing::Stop() {
  const std::size_t lost = TakeBack(*port_, transfers_);
  lost_ += lost;
  isRunning_ = false;
  isOpen_ = false;
  // A transfer that libusb keeps shares this memory, so all transfers get a new block.
  if (lost != 0) MakeTransfers();
}

SubmitFailure IsochronousRing::Try() {
  libusb_transfer& transfer = transfers_.front()->Transfer();
  transfer.num_iso_packets = int{kTrialPackets};
  transfer.length = static_cast<int>(packetSize_ * kTrialPackets);
  errno = 0;
  const int error = transfers_.front()->Submit();
  const SubmitFailure failure = FailureOf(error, errno);
  if (failure == SubmitFailure::None) {
    std::unique_lock lock(port_->Mutex);
    port_->Changed.wait_for(lock, kLongestTrial,
                            [&] { return transfers_.front()->IsDone() || port_->IsGone; });
  }
  transfer.num_iso_packets = int{kPackets};
  transfer.length = static_cast<int>(packetSize_ * kPackets);
  Stop();
  return failure;
}

UsbStatus IsochronousRing::Start() {
  Stop();
  active_ = 0;
  for (const auto& transfer : transfers_) {
    errno = 0;
    const int error = transfer->Submit();
    lastFailure_ = FailureOf(error, errno);
    if (error != 0) break;
    ++active_;
  }
  if (lastFailure_ == SubmitFailure::Gone || active_ == 0) {
    const UsbStatus status = StatusOf(lastFailure_);
    Stop();
    return status;
  }
  current_ = 0;
  packet_ = 0;
  isRunning_ = true;
  const std::lock_guard lock(port_->Mutex);
  clock_.Restart(PendingTransfer::Clock::now());
  return UsbStatus::Ok;
}

UsbStatus IsochronousRing::Await() {
  std::unique_lock lock(port_->Mutex);
  const auto isOver = [&] { return port_->IsGone || port_->IsAborted || Current().IsDone(); };
  // A transfer that could not be resubmitted never completes.
  if (!isOver() && !Current().IsInFlight()) return UsbStatus::Failed;
  port_->Changed.wait_for(lock, kLongestSilence, isOver);
  if (port_->IsGone) return UsbStatus::Disconnected;
  if (port_->IsAborted) return UsbStatus::Aborted;
  return Current().IsDone() ? UsbStatus::Ok : UsbStatus::TimedOut;
}

bool IsochronousRing::IsBehind() const {
  const std::lock_guard lock(port_->Mutex);
  return std::ranges::count_if(transfers_, [](const auto& transfer) {
           return transfer->IsDone();
         }) > std::ptrdiff_t{kLargestBacklog};
}

bool IsochronousRing::HasReceived(std::size_t packets) const {
  if (!isRunning_) return false;
  const std::lock_guard lock(port_->Mutex);
  if (port_->IsStale) return false;
  std::size_t received = 0;
  for (std::uint32_t i = 0; i < active_ && transfers_[(current_ + i) % active_]->IsDone(); ++i) {
    received += kPackets;
  }
  return received >= packet_ + packets;
}

UsbStatus IsochronousRing::Open() {
  const UsbStatus status = Await();
  if (status != UsbStatus::Ok) return status;
  isBehind_ = IsBehind();
  {
    const std::lock_guard lock(port_->Mutex);
    microframe_ = clock_.Reap(kPackets, Current().DoneAt());
  }
  packet_ = 0;
  isOpen_ = true;
  switch (Current().Transfer().status) {
    case LIBUSB_TRANSFER_COMPLETED:
      isTransferFailed_ = false;
      return UsbStatus::Ok;
    case LIBUSB_TRANSFER_NO_DEVICE:
      return UsbStatus::Disconnected;
    case LIBUSB_TRANSFER_STALL:
      return UsbStatus::Stalled;
    default:
      // Also a transfer that this code did not cancel: its packets report success.
      isTransferFailed_ = true;
      return UsbStatus::Ok;
  }
}

void IsochronousRing::CopyPacket(std::span<std::uint8_t> share, IsochronousPacket& packet,
                                 base::AdjacentCopies& copies) {
  const libusb_transfer& transfer = Current().Transfer();
  const libusb_iso_packet_descriptor& shown = (&transfer.iso_packet_desc[0])[packet_];
  if (isTransferFailed_) {
    packet.Length = 0;
    packet.Status = UsbStatus::Failed;
    return;
  }
  const std::size_t length =
      std::min({std::size_t{shown.actual_length}, std::size_t{packetSize_}, share.size()});
  copies.Add(share.data(), {transfer.buffer + std::size_t{packet_} * packetSize_, length});
  packet.Length = static_cast<std::uint32_t>(length);
  packet.Status = shown.status == LIBUSB_TRANSFER_COMPLETED ? UsbStatus::Ok : UsbStatus::Failed;
}

// Resubmits a transfer that has been read. If that fails, reads end when the ring reaches this
// transfer again.
void IsochronousRing::Advance(base::AdjacentCopies& copies) {
  if (++packet_ < kPackets) return;
  copies.Finish();
  isOpen_ = false;
  {
    const std::lock_guard lock(port_->Mutex);
    Current().Forget();
  }
  errno = 0;
  const int error = Current().Submit();
  if (error != 0) lastFailure_ = FailureOf(error, errno);
  current_ = (current_ + 1) % active_;
}

IsochronousResult IsochronousRing::Read(std::span<std::uint8_t> buffer,
                                        std::span<IsochronousPacket> packets) {
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  std::uint64_t skippable = std::uint64_t{kPackets} * kTransfers;
  std::uint64_t first = 0;
  std::size_t count = 0;
  base::AdjacentCopies copies;
  bool isRestarted = !isRunning_;
  UsbStatus status = isRunning_ ? UsbStatus::Ok : Start();
  while (status == UsbStatus::Ok && count < packets.size()) {
    if (!isOpen_) {
      status = Open();
      // The reason for which a resubmission failed may be gone.
      if (status == UsbStatus::Failed && !isRestarted) {
        isRestarted = true;
        status = Start();
        continue;
      }
      if (status != UsbStatus::Ok) break;
    }
    CopyPacket(buffer.subspan(count * share, share), packets[count], copies);
    const bool isEmpty = packets[count].Length == 0 && packets[count].Status == UsbStatus::Ok;
    if (isBehind_ && isEmpty && skippable != 0) {
      --skippable;
    } else {
      if (count == 0) first = microframe_ + packet_;
      ++count;
    }
    Advance(copies);
  }
  for (std::size_t i = count; i < packets.size(); ++i) {
    packets[i].Length = 0;
    packets[i].Status = status;
  }
  copies.Finish();
  if (status != UsbStatus::Ok) Stop();
  if (count == 0) {
    const std::lock_guard lock(port_->Mutex);
    first = clock_.Now(PendingTransfer::Clock::now());
  }
  return {status, static_cast<std::uint32_t>(first)};
}

}  // namespace lidcam::bus
