#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "bus/capture/recording/recording_bus.h"
#include "bus/enumeration.h"
#include "tests/bus/capture/capture_support.h"

namespace lidcam::bus::test {
namespace {

/// Decodes our files by an independent implementation of the same formats.
class Wireshark : public testing::Test {
 protected:
  void SetUp() override {
    if (!RunCommand("command -v tshark").Succeeded) GTEST_SKIP() << "no tshark here";
  }

  [[nodiscard]] std::string Decode(const std::string& arguments) const {
    const CommandResult result =
        RunCommand("tshark -r " + path_ + " " + arguments + " 2>/dev/null");
    EXPECT_TRUE(result.Succeeded) << arguments;
    return result.Output;
  }

  void RecordTraffic() {
    ScriptedBus camera;
    SayDescriptors(camera, 0x1AF0, 0x0511);
    camera.Say({0xC0, 0xA1, 1, 0xFF0B, 1}, {UsbStatus::Ok, Hex("76")});
    camera.Packets = {{Hex("FF D8 01 02"), UsbStatus::Ok},
                      {{}, UsbStatus::Failed},
                      {Hex("03 04 05"), UsbStatus::Ok}};
    RecordingBus bus{camera, path_};
    static_cast<void>(EnumerateDevice(bus));
    ReadRegister(bus, 3, 0x0B);
    WriteRegister(bus, 2, 0x12, 0x80);
    bus.SelectSetting(0, 1);
    Bytes buffer(24);
    std::array<IsochronousPacket, 3> packets{};
    bus.ReadIsochronous(0x82, buffer, packets);
    bus.SelectSetting(0, 0);
    bus.Finish();
  }

  TemporaryFolder folder_;
  const std::string path_ = folder_.Path("traffic.pcap");
};

TEST_F(Wireshark, FindsNothingMalformedInARecording) {
  RecordTraffic();
  EXPECT_EQ(Decode("-Y _ws.malformed"), "");
  EXPECT_EQ(Decode("-Y _ws.expert"), "");
  // 10 control transfers and one read, two records each.
  EXPECT_EQ(Decode("-T fields -e frame.number | wc -l"), "22\n");
}

TEST_F(Wireshark, SeesTheSetupPacketsThatWereSent) {
  RecordTraffic();
  EXPECT_EQ(Decode("-Y usb.bmRequestType -T fields -E separator=/s -e usb.bmRequestType -e "
                   "usb.setup.bRequest -e usb.setup.wIndex -e usb.setup.wLength"),
            "0x80 6  18\n"
            "0x80 6  9\n"
            "0x80 6  55\n"
            "0x00 9 0 0\n"
            "0x40 160 65535 0\n"
            "0xc0 161 65291 1\n"
            "0x40 160 65535 0\n"
            "0x40 160 65298 0\n"
            "0x01 11  0\n"
            "0x01 11  0\n");
}

TEST_F(Wireshark, SeesTheIdentityInTheDescriptor) {
  RecordTraffic();
  EXPECT_EQ(Decode("-Y usb.idVendor -T fields -E separator=/s -e usb.idVendor -e usb.idProduct"),
            "0x1af0 0x0511\n");
}

TEST_F(Wireshark, PairsEachCompletionWithItsSubmission) {
  RecordTraffic();
  EXPECT_EQ(Decode("-Y \"usb.urb_type == 'C' && !usb.request_in\""), "");
}

// The number of packets is in the header twice, and shown for both.
TEST_F(Wireshark, SeesThePacketsOfARead) {
  RecordTraffic();
  EXPECT_EQ(Decode("-Y \"usb.transfer_type == 0\" -T fields -E separator=/s -e usb.urb_len -e "
                   "usb.data_len -e usb.iso.numdesc -e usb.iso.error_count -e usb.iso.iso_off -e "
                   "usb.iso.iso_status"),
            "24 48 3,3 0 0,8,16 -18,-18,-18\n"
            "7 67 3,3 1 0,8,16 0,-71,0\n");
  EXPECT_EQ(Decode("-Y \"usb.transfer_type == 0 && usb.urb_type == 'C'\" -T fields -E separator=/s "
                   "-e usb.iso.iso_len -e usb.iso.data"),
            "4,0,3 ffd80102,030405\n");
}

TEST_F(Wireshark, ReadsUsbpcapRecordsAsWeTypeThem) {
  PcapImage image{249};
  image.Add(
      Hex("1C 00  10 20 30 40 50 60 70 80  00 00 00 00  17 00  00  02 00  07 00  80  02  08 00 00 "
          "00  00"
          "C0 A1 01 00 0B FF 01 00"));
  image.Add(
      Hex("1C 00  10 20 30 40 50 60 70 80  00 00 00 00  17 00  01  02 00  07 00  80  02  01 00 00 "
          "00  03"
          "73"));
  image.Add(Hex(
      "3F 00  11 20 30 40 50 60 70 80  00 00 00 00  0A 00  01  02 00  07 00  82  00  0B 00 00 00"
      "E8 03 00 00  02 00 00 00  01 00 00 00"
      "00 00 00 00  04 00 00 00  00 00 00 00"
      "08 00 00 00  03 00 00 00  09 00 00 C0"
      "FF D8 01 02 00 00 00 00 03 04 05"));
  WriteFile(path_, image.Image());
  EXPECT_EQ(Decode("-Y _ws.malformed"), "");
  EXPECT_EQ(Decode("-Y usb.bmRequestType -T fields -E separator=/s -e usb.bus_id -e "
                   "usb.device_address -e usb.setup.bRequest -e usb.setup.wIndex"),
            "2 7 161 65291\n");
  EXPECT_EQ(Decode("-Y usb.win32.iso_frame -T fields -E separator=/s -e usb.win32.iso_frame -e "
                   "usb.win32.iso_num_packets -e usb.win32.iso_offset -e usb.win32.iso_data_len -e "
                   "usb.iso.data"),
            "1000 2 0x00000000,0x00000008 0x00000004,0x00000003 ffd80102,030405\n");
}

}  // namespace
}  // namespace lidcam::bus::test
