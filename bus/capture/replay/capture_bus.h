#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "bus/capture/replay/capture_source.h"
#include "bus/capture/replay/control_history.h"
#include "bus/capture/replay/isochronous_packet_reader.h"
#include "bus/usb_bus.h"

namespace lidcam::bus {

/// A camera whose answers are those of a capture.
///
/// Control transfers are matched by setup packet and OUT data, register reads by the current select
/// value as well. Of several matches the next one after the last answer is used, then the first not
/// yet used, and finally the last one again: a host that repeats a request more often than the
/// recorded one gets the last recorded answer. Descriptor requests also match a recorded request of
/// another length with a sufficient answer. Reads return the recorded packets without waiting for
/// their time.
class CaptureBus final : public UsbBus {
 public:
  /// Reads all control transfers of the camera; packets are read when the stream requests them.
  ///
  /// Throws CaptureError if the file can't be read.
  explicit CaptureBus(const CaptureSource& source);

  /// UsbStatus::NotRecorded for a request that the capture doesn't contain.
  ControlResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) override;

  /// UsbStatus::NoBandwidth for a setting that was refused to the recorded host. Setting 0, which
  /// needs no bandwidth, always succeeds, as do all settings if the capture contains no selection.
  UsbStatus SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) override;

  /// A read beyond the capture's end is filled up with empty packets of UsbStatus::EndOfCapture;
  /// the next one ends with that status. UsbStatus::NotRecorded for an endpoint that is not in the
  /// capture, UsbStatus::Failed if the file has become unreadable.
  IsochronousResult ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                    std::span<IsochronousPacket> packets) override;

  void Abort(std::uint8_t endpoint) override;

  /// Recorded bus time of the next packet; it advances only with reads.
  [[nodiscard]] std::uint32_t FrameNumber() override;

  void Unplug() override;

  /// The recorded host's requests up to the first packet, in their order.
  [[nodiscard]] std::vector<SetupPacket> RequestsAheadOfStream() const;

  /// Forgets all earlier matches of requests. Before the first read of packets.
  void ForgetRequests();

 private:
  /// Control transfers with an equal key are repetitions of one request.
  struct Question {
    std::optional<std::uint16_t> Select;  ///< of register reads only
    SetupPacket Setup;
    std::vector<std::uint8_t> OutData;

    friend auto operator<=>(const Question&, const Question&) = default;
  };

  struct Answers {
    std::vector<std::size_t> All;  ///< positions in `exchanges_`, in the order of recording
    std::set<std::size_t> Unused;  ///< those not yet used as an answer
  };

  void AddExchange(const ControlExchange& exchange, std::optional<std::uint16_t>& select);
  [[nodiscard]] const ControlExchange* FindAnswer(const Question& question);
  [[nodiscard]] const ControlExchange* FindDescriptor(const SetupPacket& setup) const;
  void ReadAhead();
  void FillPacket(IsochronousPacket& packet, std::span<std::uint8_t> share);

  std::atomic<bool> unplugged_ = false;

  std::mutex controlMutex_;  ///< guards the control side
  std::vector<ControlExchange> exchanges_;
  std::size_t aheadOfStream_ = 0;  ///< number of exchanges before the first packet
  std::map<Question, Answers> answers_;
  std::set<Answers*> touched_;  ///< those used as an answer
  std::optional<std::uint16_t> select_;
  std::size_t position_ = 0;  ///< after the last match
  bool settingsRecorded_ = false;
  std::set<std::pair<std::uint16_t, std::uint16_t>> settings_;  ///< interface, alternate setting

  std::mutex streamMutex_;  ///< guards the stream side
  std::optional<std::uint8_t> endpoint_;
  bool isCutOff_ = false;  ///< the capture is incomplete at its end
  std::optional<IsochronousPacketReader> packets_;
  std::optional<IsochronousPayload> next_;  ///< read ahead, for its bus time
  UsbStatus streamStatus_ = UsbStatus::Ok;
  std::atomic<std::uint32_t> microframe_ = 0;
};

}  // namespace lidcam::bus
