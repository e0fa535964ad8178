#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bus/capture/files/pcap_file.h"
#include "bus/capture/records/usb_record.h"
#include "bus/passing_bus.h"

namespace lidcam::bus {

struct RecordingOptions {
  DeviceAddress Address{1, 2};  ///< the camera's address in the recording
  /// Time stamps in microseconds since 1970. Empty: bus time from `StartMicroseconds` on, so that
  /// equal traffic gives equal files.
  std::function<std::int64_t()> Clock;
  std::int64_t StartMicroseconds = 0;  ///< time of bus frame 0 without a clock
};

/// Passes all calls on to another bus and writes a usbmon capture of them.
///
/// A recording that a replay can identify begins with EnumerateDevice() through this bus. A write
/// error stops the recording; the traffic continues, and Failure() and Finish() report the error.
class RecordingBus final : public PassingBus {
 public:
  /// @param bus  outlives the recording
  /// Throws CaptureError if the file can't be created.
  RecordingBus(UsbBus& bus, const std::string& path, RecordingOptions options = {});
  /// Leaves no recording under the path unless Finish() was called.
  ~RecordingBus() override;

  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override;
  UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;
  IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override;

  /// Ends the recording and gives the file its name. Later requests are passed on, but not
  /// recorded.
  ///
  /// Throws CaptureError if part of it could not be written; the complete records are kept.
  void Finish();

  /// Why the recording has stopped; empty while it continues. Any thread.
  [[nodiscard]] std::string Failure();

 private:
  /// The part of an isochronous read that fits into one record.
  struct Piece {
    std::uint64_t Id;
    std::size_t FirstPacket;
    std::size_t PacketCount;
  };

  [[nodiscard]] std::int64_t TimeAt(std::uint64_t microframe) const;
  [[nodiscard]] UsbRecord NewRecord(RecordEvent event, TransferType type, std::uint8_t endpoint);
  std::uint64_t SubmitControl(const SetupPacket& setup, std::span<const std::uint8_t> data);
  void CompleteControl(std::uint64_t id, const SetupPacket& setup, const ControlResult& result,
                       std::span<const std::uint8_t> data);
  std::vector<Piece> SubmitIsochronous(std::uint8_t endpoint, std::size_t packetCount,
                                       std::size_t share);
  void CompleteIsochronous(std::uint8_t endpoint, const std::vector<Piece>& pieces,
                           const IsochronousResult& result, std::span<const std::uint8_t> buffer,
                           std::span<const IsochronousPacket> packets);
  void Write(UsbRecord& record, std::int64_t time);

  const RecordingOptions options_;
  std::mutex mutex_;  ///< guards everything below
  std::unique_ptr<PcapWriter> writer_;
  std::string failure_;
  std::uint64_t nextId_ = 1;
  std::int64_t lastTime_ = 0;
  std::vector<std::uint8_t> encoded_;
};

}  // namespace lidcam::bus
