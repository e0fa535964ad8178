// Isochronous reads over libusb: what comes, in which order, and how they end.

#include <gmock/gmock.h>
#include <libusb.h>

#include <atomic>
#include <cerrno>

#include "tests/bus/usb/usb_port_support.h"

namespace lidcam::bus {
namespace {

using namespace std::chrono_literals;
using stand_in::Look;
using stand_in::SetScript;

class UsbStream : public UsbPortTest {
 protected:
  void OpenStream() {
    bus_ = Open();
    ASSERT_EQ(bus_->SelectSetting(0, kWidestSetting), UsbStatus::Ok);
  }

  /// Reads on a thread of its own until the read is under way.
  std::thread ReadInBackground(IsochronousResult& result) {
    std::thread thread([&] { result = read_.ReadFrom(*bus_); });
    EXPECT_TRUE(Comes([] { return Look().MostInFlight == 16; }));
    return thread;
  }

  std::unique_ptr<UsbBus> bus_;
  ReadBuffer read_{32};
};

// The data of reads straight from a camera of the same seed, from a microframe on.
std::vector<std::uint8_t> DataOfCamera(std::size_t skipped, std::size_t bytes) {
  SimulatedBus camera{SimulatedBusOptions{}};
  camera.ControlTransfer({0x00, 9, 1, 0, 0}, {});
  camera.SelectSetting(0, kWidestSetting);
  if (skipped != 0) ReadBuffer{skipped}.ReadFrom(camera);
  std::vector<std::uint8_t> data;
  while (data.size() < bytes) {
    ReadBuffer read{32};
    read.ReadFrom(camera);
    const auto more = read.Data();
    data.insert(data.end(), more.begin(), more.end());
  }
  data.resize(bytes);
  return data;
}

// The setting is tried with eight packets, which are no part of a stream.
constexpr std::size_t kTriedPackets = 8;

TEST_F(UsbStream, DataAreThoseOfTheCameraByteForByte) {
  PlugCamera();
  OpenStream();
  std::vector<std::uint8_t> data;
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
    const auto more = read_.Data();
    data.insert(data.end(), more.begin(), more.end());
  }
  EXPECT_GT(data.size(), 614400U);
  EXPECT_TRUE(data == DataOfCamera(kTriedPackets, data.size()));
}

TEST_F(UsbStream, ShortReadsGoOnInTheMiddleOfATransfer) {
  PlugCamera();
  OpenStream();
  std::vector<std::uint8_t> data;
  for (int i = 0; i < 700; ++i) {
    ReadBuffer read{5};
    ASSERT_EQ(read.ReadFrom(*bus_).Status, UsbStatus::Ok);
    const auto more = read.Data();
    data.insert(data.end(), more.begin(), more.end());
  }
  EXPECT_TRUE(data == DataOfCamera(kTriedPackets, data.size()));
}

TEST_F(UsbStream, CompletionsInAnyOrderAreReadInTheOrderOfTheBus) {
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    PlugCamera();
    SetScript({.ShuffleSeed = seed});
    OpenStream();
    std::vector<std::uint8_t> data;
    for (int i = 0; i < 60; ++i) {
      ASSERT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
      const auto more = read_.Data();
      data.insert(data.end(), more.begin(), more.end());
    }
    EXPECT_TRUE(data == DataOfCamera(kTriedPackets, data.size())) << seed;
    bus_.reset();
    stand_in::Unplug(1);
  }
}

TEST_F(UsbStream, SixtyFourMillisecondsAreInFlightAndNoMoreIsAllocatedForThem) {
  PlugCamera();
  OpenStream();
  read_.ReadFrom(*bus_);
  const auto before = Look();
  for (int i = 0; i < 100; ++i) read_.ReadFrom(*bus_);
  EXPECT_EQ(Look().MostInFlight, 16U);
  EXPECT_EQ(Look().Transfers, before.Transfers);
  EXPECT_EQ(Look().DeviceMemoryEver, before.DeviceMemoryEver);
  SetScript({.HoldsIsochronous = true});
  IsochronousResult result;
  bus_->Abort(kEndpoint);
  std::thread reader([&] { result = read_.ReadFrom(*bus_); });
  EXPECT_TRUE(Comes([] { return Look().PacketsInFlight == std::size_t{64} * 8; }));
  bus_->Unplug();
  reader.join();
  SetScript({});
}

TEST_F(UsbStream, TellsWhetherPacketsHaveCome) {
  PlugCamera();
  OpenStream();
  EXPECT_FALSE(bus_->HasReceived(kEndpoint, 32));  // nothing is in flight yet
  ReadBuffer read{5};
  read.ReadFrom(*bus_);
  // What is left of the first transfer of 32, and the fifteen others.
  EXPECT_TRUE(Comes([this] { return bus_->HasReceived(kEndpoint, 27 + 15 * 32); }));
  EXPECT_FALSE(bus_->HasReceived(kEndpoint, 28 + 15 * 32));
  EXPECT_FALSE(bus_->HasReceived(kEndpoint + 1, 1));
  bus_->Abort(kEndpoint);
  EXPECT_FALSE(bus_->HasReceived(kEndpoint, 1));  // the next read starts anew
}

TEST_F(UsbStream, WithoutDeviceMemoryTheSameComes) {
  PlugCamera();
  SetScript({.HasDeviceMemory = false});
  OpenStream();
  ASSERT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
  EXPECT_TRUE(read_.Data() == DataOfCamera(kTriedPackets, read_.Data().size()));
}

TEST_F(UsbStream, AnAbortEndsTheReadInProgressAndTheNextOneStartsAnew) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true});
  IsochronousResult result;
  std::thread reader = ReadInBackground(result);
  bus_->Abort(kEndpoint);
  reader.join();
  EXPECT_EQ(result.Status, UsbStatus::Aborted);
  for (const IsochronousPacket& packet : read_.Packets) {
    EXPECT_EQ(packet.Status, UsbStatus::Aborted);
    EXPECT_EQ(packet.Length, 0U);
  }
  EXPECT_EQ(Look().PacketsInFlight, 0U);
  SetScript({});
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
}

TEST_F(UsbStream, AnAbortBetweenReadsDropsWhatIsInFlightAndEndsNoLaterRead) {
  PlugCamera();
  OpenStream();
  read_.ReadFrom(*bus_);
  EXPECT_TRUE(Comes([] { return Look().PacketsInFlight == 0; }));
  bus_->Abort(kEndpoint);
  ASSERT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
  // A ring that was read a first time, and one that begins again behind it.
  const std::size_t bytes = read_.Data().size();
  EXPECT_FALSE(read_.Data() == DataOfCamera(kTriedPackets + 32, bytes));
}

// Linux shows the packets of a cancelled transfer as whole ones.
TEST_F(UsbStream, PacketsOfACancelledTransferAreNoData) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true, .CompletesCancelledPackets = true});
  IsochronousResult result;
  std::thread reader = ReadInBackground(result);
  bus_->Abort(kEndpoint);
  reader.join();
  EXPECT_TRUE(read_.Data().empty());
  SetScript({});
}

TEST_F(UsbStream, ACancelAnsweredWithNotFoundIsWaitedForAllTheSame) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true, .CancelAnswer = LIBUSB_ERROR_NOT_FOUND});
  IsochronousResult result;
  std::thread reader = ReadInBackground(result);
  bus_->Abort(kEndpoint);
  reader.join();
  EXPECT_EQ(Look().InFlight, 0U);
  SetScript({});
}

TEST_F(UsbStream, TransfersThatNeverComeBackHoldNothingUp) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true, .LosesCancelled = true});
  IsochronousResult result;
  std::thread reader = ReadInBackground(result);
  bus_->Abort(kEndpoint);
  reader.join();
  EXPECT_EQ(result.Status, UsbStatus::Aborted);
  bus_.reset();
  // libusb may still use the device's handle.
  EXPECT_EQ(Look().OpenHandles, 1U);
}

TEST_F(UsbStream, ASilentHostControllerEndsTheReadInTime) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true});
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::TimedOut);
  SetScript({});
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
}

TEST_F(UsbStream, PullingThePlugEndsTheReadInProgress) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true});
  IsochronousResult result;
  std::thread reader = ReadInBackground(result);
  stand_in::Unplug(1);
  reader.join();
  EXPECT_EQ(result.Status, UsbStatus::Disconnected);
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Disconnected);
  EXPECT_EQ(bus_->SelectSetting(0, 0), UsbStatus::Disconnected);
  SetScript({});
}

TEST_F(UsbStream, AnUnpluggingThatHotplugDoesNotTellShowsInTheTransfers) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true});
  IsochronousResult result;
  std::thread reader = ReadInBackground(result);
  stand_in::Unplug(1, false);
  reader.join();
  EXPECT_EQ(result.Status, UsbStatus::Disconnected);
  SetScript({});
}

TEST_F(UsbStream, AStallEndsTheReadAndIsClearedByTheHost) {
  PlugCamera();
  OpenStream();
  SetScript({.TransferStatuses = {{1, LIBUSB_TRANSFER_STALL}}});
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Stalled);
  EXPECT_EQ(bus_->ControlTransfer({0x02, 1, 0, kEndpoint, 0}, {}).Status, UsbStatus::Ok);
  EXPECT_EQ(Look().Calls.back(), "clear halt 130");
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
}

TEST_F(UsbStream, AFailedTransferIsThirtyTwoFailedPacketsInAGoodRead) {
  for (const int status : {LIBUSB_TRANSFER_ERROR, LIBUSB_TRANSFER_OVERFLOW,
                           LIBUSB_TRANSFER_TIMED_OUT, LIBUSB_TRANSFER_CANCELLED}) {
    PlugCamera();
    SetScript({.TransferStatuses = {{Look().IsochronousSubmissions + 2, status}}});
    OpenStream();
    EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
    EXPECT_EQ(read_.Packets.front().Status, UsbStatus::Ok);
    EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
    for (const IsochronousPacket& packet : read_.Packets) {
      EXPECT_EQ(packet.Status, UsbStatus::Failed) << status;
      EXPECT_EQ(packet.Length, 0U);
    }
    EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
    EXPECT_EQ(read_.Packets.front().Status, UsbStatus::Ok);
    bus_.reset();
    stand_in::Unplug(1);
  }
}

TEST_F(UsbStream, ATransferThatCantBeSentAgainCostsAGapAndNoMore) {
  PlugCamera();
  SetScript({.SubmitFailures = {{20, {LIBUSB_ERROR_IO, EPROTO}}}});
  OpenStream();
  for (int i = 0; i < 40; ++i) EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
}

TEST_F(UsbStream, ARingThatIsNotWholeStreamsAndTellsWhy) {
  PlugCamera();
  SetScript({.SubmitFailures = {{5, {LIBUSB_ERROR_IO, ENOMEM}}}});
  OpenStream();
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Ok);
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_THAT(told_[0], testing::HasSubstr("usbfs_memory_mb"));
  EXPECT_THAT(told_[0], testing::HasSubstr("sudo tee"));
}

TEST_F(UsbStream, AReaderThatIsBehindIsGivenNoEmptyMicroframes) {
  PlugCamera();
  OpenStream();
  std::size_t empty = 0;
  // The free-running camera has always sent all that is in flight.
  for (int i = 0; i < 100; ++i) {
    read_.ReadFrom(*bus_);
    EXPECT_TRUE(Comes([] { return Look().PacketsInFlight == 0; }));
    empty += static_cast<std::size_t>(std::ranges::count_if(
        read_.Packets, [](const IsochronousPacket& packet) { return packet.Length == 0; }));
  }
  SimulatedBus camera{SimulatedBusOptions{}};
  camera.ControlTransfer({0x00, 9, 1, 0, 0}, {});
  camera.SelectSetting(0, kWidestSetting);
  std::size_t sent = 0;
  for (int i = 0; i < 100; ++i) {
    read_.ReadFrom(camera);
    sent += static_cast<std::size_t>(std::ranges::count_if(
        read_.Packets, [](const IsochronousPacket& packet) { return packet.Length == 0; }));
  }
  EXPECT_GT(sent, 0U);
  EXPECT_LT(empty, sent / 2) << sent;
}

TEST_F(UsbStream, WithoutASettingThatStreamsThereIsNothingToRead) {
  PlugCamera();
  bus_ = Open();
  EXPECT_EQ(read_.ReadFrom(*bus_).Status, UsbStatus::Failed);
  ASSERT_EQ(bus_->SelectSetting(0, kWidestSetting), UsbStatus::Ok);
  EXPECT_EQ(bus_->ReadIsochronous(0x81, read_.Bytes, read_.Packets).Status, UsbStatus::Failed);
  ReadBuffer small{32, 1000};
  EXPECT_EQ(small.ReadFrom(*bus_).Status, UsbStatus::Failed);
}

TEST_F(UsbStream, ASettingEndsTheReadThatIsUnderWay) {
  PlugCamera();
  OpenStream();
  SetScript({.HoldsIsochronous = true});
  IsochronousResult result;
  std::thread reader = ReadInBackground(result);
  EXPECT_EQ(bus_->SelectSetting(0, 0), UsbStatus::Ok);
  reader.join();
  EXPECT_EQ(result.Status, UsbStatus::Aborted);
  SetScript({});
}

}  // namespace
}  // namespace lidcam::bus
