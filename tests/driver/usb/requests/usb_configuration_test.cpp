#include "driver/usb/requests/usb_configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "driver/core/base/camera_memory.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/system/debug_print.h"
#include "platform/host/nt/verifier/kernel_faults.h"
#include "tests/driver/support/statuses.h"
#include "tests/driver/usb/support/camera_faults.h"
#include "tests/driver/usb/support/transport_world.h"

namespace lidcam::test {
namespace {

using testing::ElementsAre;

std::function<std::optional<Verdict>(URB&)> RefuseSettingsAbove(unsigned highest) {
  return [highest](URB& urb) -> std::optional<Verdict> {
    if (urb.UrbHeader.Function != 1) return std::nullopt;
    const unsigned setting = urb.UrbSelectInterface.Interface.AlternateSetting;
    if (setting <= highest) return std::nullopt;
    // Each refusal has a status of its own.
    return Verdict{kIoError + static_cast<NTSTATUS>(setting), USBD_STATUS_NO_BANDWIDTH};
  };
}

std::function<std::optional<Verdict>(URB&)> Fail(USHORT function, Verdict verdict) {
  return [=](URB& urb) -> std::optional<Verdict> {
    if (urb.UrbHeader.Function != function) return std::nullopt;
    return verdict;
  };
}

NTSTATUS SetFormat(TransportWorld& world) {
  KS_VIDEOINFOHEADER info = VideoInfo(640, 480);
  return world.Device().SetStreamFormat(&info);
}

TEST(UsbConfiguration, OnlyAConfigurationOf193BytesIsTheLongOne) {
  struct Row {
    unsigned Settings;
    std::size_t Extra;
    std::uint32_t IsLong;
  };
  // The last one is 449 bytes long: the same low byte.
  for (const Row& row :
       {Row{8, 0, 1}, Row{4, 0, 0}, Row{8, 1, 0}, Row{7, 22, 0}, Row{7, 23, 1}, Row{8, 256, 0}}) {
    InWorld([&](TransportWorld& world) {
      world.Stack.Configuration = ConfigurationBytes(row.Settings);
      auto& bytes = world.Stack.Configuration;
      // Unknown descriptors fill up to the length.
      for (std::size_t i = 0; i < row.Extra; ++i) {
        const std::size_t length = std::min<std::size_t>(row.Extra, 128);
        bytes.push_back(i % length == 0 ? static_cast<std::uint8_t>(length) : 0x40);
      }
      bytes[2] = static_cast<std::uint8_t>(bytes.size());
      bytes[3] = static_cast<std::uint8_t>(bytes.size() >> 8);
      EXPECT_EQ(world.Start(), STATUS_SUCCESS);
      EXPECT_EQ(world.Record().LongConfigDescriptor, row.IsLong) << bytes.size();
      EXPECT_EQ(world.Record().TransferCount, row.IsLong != 0 ? 7U : 3U);
      EXPECT_EQ(world.Record().ResetGuard, -1);
    });
  }
}

TEST(UsbConfiguration, AConfigurationOfMoreThan521BytesIsReadInTwoPasses) {
  InWorld([](TransportWorld& world) {
    world.Stack.Configuration = ConfigurationBytes(24);
    ASSERT_EQ(world.Stack.Configuration.size(), 561U);
    EXPECT_EQ(world.Start(), STATUS_SUCCESS);
    const auto& lines = world.Log.Lines();
    EXPECT_THAT(lines, testing::Contains("urb get descriptor type=2 length=521"));
    EXPECT_THAT(lines, testing::Contains("urb get descriptor type=2 length=561"));
  });
}

TEST(UsbConfiguration, AConfigurationOf521BytesIsReadInOnePass) {
  InWorld([](TransportWorld& world) {
    std::vector<std::uint8_t>& bytes = world.Stack.Configuration;
    bytes.resize(521, 2);
    bytes[2] = 521 & 0xFF;
    bytes[3] = 521 >> 8;
    EXPECT_EQ(world.Start(), STATUS_SUCCESS);
    const auto& lines = world.Log.Lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "urb get descriptor type=2 length=521"), 1);
    EXPECT_EQ(world.Record().LongConfigDescriptor, 0U);
  });
}

// The reply's length counts whatever its status: the longer read follows a failed one too.
TEST(UsbConfiguration, AFailedRequestWhoseReplyTellsOfMoreThan521BytesIsRepeatedAllTheSame) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    std::vector<ULONG> asked;
    world.Stack.Configuration = ConfigurationBytes(24);
    world.Stack.Decide = [&](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 0x0B) return std::nullopt;
      _URB_CONTROL_DESCRIPTOR_REQUEST& request = urb.UrbControlDescriptorRequest;
      asked.push_back(request.TransferBufferLength);
      if (asked.size() > 1) return std::nullopt;
      auto* const bytes = static_cast<std::uint8_t*>(request.TransferBuffer);
      bytes[2] = 561 & 0xFF;
      bytes[3] = 561 >> 8;
      request.TransferBufferLength = 4;
      return Verdict{kIoError};
    };
    FreeCameraMemory(std::exchange(world.Record().InterfaceInformation, nullptr));
    PipeRecord* const ownedByTheBag = std::exchange(world.Record().PipeTable, nullptr);
    EXPECT_EQ(ReadConfiguration(world.Record()), STATUS_SUCCESS);
    EXPECT_THAT(asked, ElementsAre(521U, 561U));
    EXPECT_NE(world.Record().InterfaceInformation, nullptr);
    FreeCameraMemory(std::exchange(world.Record().PipeTable, ownedByTheBag));
  });
}

TEST(UsbConfiguration, AReplyOf0BytesEndsTheReadWithItsStatusWhateverLengthItTells) {
  for (const NTSTATUS status : {STATUS_SUCCESS, kIoError}) {
    InWorld([status](TransportWorld& world) {
      ASSERT_EQ(world.Start(), STATUS_SUCCESS);
      std::vector<ULONG> asked;
      world.Stack.Decide = [&asked, status](URB& urb) -> std::optional<Verdict> {
        if (urb.UrbHeader.Function != 0x0B) return std::nullopt;
        _URB_CONTROL_DESCRIPTOR_REQUEST& request = urb.UrbControlDescriptorRequest;
        asked.push_back(request.TransferBufferLength);
        auto* const bytes = static_cast<std::uint8_t*>(request.TransferBuffer);
        bytes[2] = 561 & 0xFF;
        bytes[3] = 561 >> 8;
        request.TransferBufferLength = 0;
        return Verdict{status};
      };
      EXPECT_EQ(ReadConfiguration(world.Record()), status);
      EXPECT_THAT(asked, ElementsAre(521U));
    });
  }
}

// The length counts even if the request failed.
TEST(UsbConfiguration, AFailedConfigurationRequestStillTellsWhetherItIsTheLongOne) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      static_cast<std::uint8_t*>(urb.UrbControlDescriptorRequest.TransferBuffer)[2] = 192;
      return Verdict{kIoError};
    };
    EXPECT_EQ(ReadConfiguration(world.Record()), kIoError);
    EXPECT_EQ(world.Record().LongConfigDescriptor, 0U);
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      static_cast<std::uint8_t*>(urb.UrbControlDescriptorRequest.TransferBuffer)[2] = 193;
      return Verdict{kIoError};
    };
    EXPECT_EQ(ReadConfiguration(world.Record()), kIoError);
    EXPECT_EQ(world.Record().LongConfigDescriptor, 1U);
  });
}

TEST(UsbConfiguration, NoMemoryForAnyDescriptorIsNoMemory) {
  // Request, buffer, larger buffer; the third allocation is the IRP's.
  for (const std::uint32_t nth : {1U, 2U, 4U}) {
    InWorld([nth](TransportWorld& world) {
      ASSERT_EQ(world.Start(), STATUS_SUCCESS);
      world.Stack.Configuration = ConfigurationBytes(24);
      host::FailPoolAllocation(nth);
      EXPECT_EQ(ReadConfiguration(world.Record()), kNoMemory);
      host::FailPoolAllocation(0);
    });
  }
}

TEST(UsbConfiguration, ItKeepsHandleInterfaceAndPipes) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const UsbDeviceRecord& record = world.Record();
    EXPECT_EQ(record.ConfigurationHandle, &world.Stack);
    ASSERT_NE(record.InterfaceInformation, nullptr);
    EXPECT_EQ(record.InterfaceInformation->NumberOfPipes, 2U);
    ASSERT_NE(record.PipeTable, nullptr);
    EXPECT_EQ(record.PipeTable[0].PipeType, 3);
    EXPECT_EQ(record.PipeTable[0].DirectionIn, 1);
    EXPECT_EQ(record.PipeTable[0].MaximumPacketSize, 8);
    EXPECT_EQ(record.PipeTable[1].PipeType, 1);
    EXPECT_EQ(record.PipeTable[1].MaximumPacketSize, 0);
    EXPECT_NE(IsListEmpty(&record.PipeTable[1].ActiveList), FALSE);
    EXPECT_NE(IsListEmpty(&record.PipeTable[1].PendingList), FALSE);
    EXPECT_EQ(record.DeviceDescriptor[8], 0xF0);
    EXPECT_EQ(record.DeviceDescriptor[9], 0x1A);
  });
}

TEST(UsbConfiguration, EachInterfaceIsTakenInTheFirstSettingThatIsDescribed) {
  InWorld([](TransportWorld& world) {
    std::vector<std::uint8_t>& bytes = world.Stack.Configuration;
    bytes = {9, 2, 0, 0, 2, 1, 0, 0x80, 250};
    bytes.insert(bytes.end(), {9, 4, 0, 3, 2, 0xFF, 0xFF, 0xFF, 0});
    bytes.insert(bytes.end(), {7, 5, 0x81, 3, 8, 0, 1});
    bytes.insert(bytes.end(), {7, 5, 0x82, 1, 0, 2, 1});
    bytes.insert(bytes.end(), {9, 4, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0});
    bytes.insert(bytes.end(), {9, 4, 1, 5, 0, 14, 7, 6, 0});
    bytes[2] = static_cast<std::uint8_t>(bytes.size());
    struct Entry {
      int Number;
      int Setting;
      bool operator==(const Entry&) const = default;
    };
    std::vector<Entry> selected;
    world.Stack.Decide = [&selected](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function != 0) return std::nullopt;
      const auto* const begin = reinterpret_cast<const std::uint8_t*>(&urb);
      const auto* at = reinterpret_cast<const std::uint8_t*>(&urb.UrbSelectConfiguration.Interface);
      while (at < begin + urb.UrbHeader.Length) {
        const auto& entry = *reinterpret_cast<const USBD_INTERFACE_INFORMATION*>(at);
        selected.push_back({entry.InterfaceNumber, entry.AlternateSetting});
        at += entry.Length;
      }
      return std::nullopt;
    };
    EXPECT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(selected, (std::vector<Entry>{{0, 3}, {1, 5}}));
    EXPECT_EQ(world.Record().InterfaceInformation->NumberOfPipes, 2U);
  });
}

TEST(UsbConfiguration, WithoutInterfacesTheListHasOnlyItsEnd) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    std::vector<std::uint8_t> bytes{9, 2, 9, 0, 0, 1, 0, 0x80, 250};
    FreeCameraMemory(std::exchange(world.Record().InterfaceInformation, nullptr));
    void* const configuration = bytes.data();
    EXPECT_EQ(SelectConfiguration(world.Record(),
                                  static_cast<PUSB_CONFIGURATION_DESCRIPTOR>(configuration)),
              STATUS_SUCCESS);
    EXPECT_EQ(world.Record().InterfaceInformation, nullptr);
    EXPECT_EQ(world.Acquire(), kNoMemory);
  });
}

TEST(UsbConfiguration, AFailedDescriptorRequestGivesItsStatus) {
  for (const UCHAR type : {UCHAR{1}, UCHAR{2}}) {
    InWorld([&](TransportWorld& world) {
      world.Stack.Decide = [&](URB& urb) -> std::optional<Verdict> {
        const bool isMeant = urb.UrbHeader.Function == 0x0B &&
                             urb.UrbControlDescriptorRequest.DescriptorType == type;
        return isMeant ? std::optional(Verdict{kIoError}) : std::nullopt;
      };
      EXPECT_EQ(world.Start(), kIoError);
      EXPECT_EQ(world.Record().LongConfigDescriptor, 0U);
      EXPECT_EQ(world.Record().ResetGuard, 0);
      EXPECT_EQ(world.Record().Connected, 0);
      EXPECT_EQ(world.Record().DeviceOpen, 0);
    });
  }
}

TEST(UsbConfiguration, ASelectConfigurationThatFailsInAnyWayIsNoMemory) {
  for (const Verdict verdict : {Verdict{kIoError}, Verdict{0, USBD_STATUS_NO_BANDWIDTH}}) {
    InWorld([&](TransportWorld& world) {
      world.Stack.Decide = Fail(0, verdict);
      EXPECT_EQ(world.Start(), kNoMemory);
    });
  }
}

TEST(UsbConfiguration, TheWalkTakesTheWidestSettingThatIsNotRefused) {
  for (unsigned highest = 1; highest <= 7; ++highest) {
    InWorld([&](TransportWorld& world) {
      ASSERT_EQ(world.Start(), STATUS_SUCCESS);
      world.Stack.Decide = RefuseSettingsAbove(highest);
      const host::DebugPrintCapture prints;
      EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
      EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, highest);
      EXPECT_EQ(world.Stack.SettingsAsked.size(), 8U - highest);
      EXPECT_EQ(world.Stack.SettingsAsked.front(), 7U);
      EXPECT_EQ(world.Record().InterfaceInformation->Pipes[1].MaximumPacketSize,
                world.Stack.PacketSizes[static_cast<std::uint8_t>(highest)]);
      EXPECT_THAT(prints.Messages(), ElementsAre("AlternateSetting = 0x000" +
                                                 std::to_string(highest) + " has been selected\n"));
    });
  }
}

TEST(UsbConfiguration, TheShortConfigurationStartsItsWalkAt3) {
  InWorld([](TransportWorld& world) {
    world.Stack.Configuration = ConfigurationBytes(4);
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(3U));
  });
}

TEST(UsbConfiguration, WithAllSettingsRefused0IsNotTriedAndTheStatusOf1Comes) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = RefuseSettingsAbove(0);
    EXPECT_EQ(world.Acquire(), kIoError + 1);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U, 6U, 5U, 4U, 3U, 2U, 1U));
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 0U);
    EXPECT_EQ(world.Record().InterfaceInformation->AlternateSetting, 1);
    EXPECT_EQ(world.Stream().Opened, 0);
  });
}

TEST(UsbConfiguration, TheWantedSettingThatIsInForceSendsNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U));
  });
}

TEST(UsbConfiguration, ASettingsPacketSizeDoesNotReachThePipeTable) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const PipeRecord* const table = world.Record().PipeTable;
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().InterfaceInformation->Pipes[1].MaximumPacketSize, 5120);
    EXPECT_EQ(world.Record().PipeTable, table);
    EXPECT_EQ(table[0].MaximumPacketSize, 8);
    EXPECT_EQ(table[1].MaximumPacketSize, 0);
  });
}

// The stack may have written into the URB before it failed.
std::function<std::optional<Verdict>(URB&)> WriteAndAnswer(Verdict verdict) {
  return [verdict](URB& urb) -> std::optional<Verdict> {
    if (urb.UrbHeader.Function != 1) return std::nullopt;
    urb.UrbSelectInterface.Interface.Pipes[0].MaximumPacketSize = 777;
    return verdict;
  };
}

TEST(UsbConfiguration, AStatusInTheUrbAloneLeavesTheInterfaceAsItWas) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = WriteAndAnswer({0, USBD_STATUS_NO_BANDWIDTH});
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().InterfaceInformation->Pipes[0].MaximumPacketSize, 8);
    EXPECT_EQ(world.Record().InterfaceInformation->Pipes[1].MaximumPacketSize, 0);
    // A pipe without packets: no transfer can be made.
    EXPECT_EQ(world.Acquire(), kNoMemory);
  });
}

TEST(UsbConfiguration, ARefusedSettingLeavesTheInterfaceAsItWas) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Stack.Decide = WriteAndAnswer({kIoError, 0});
    EXPECT_EQ(SetFormat(world), kIoError);
    EXPECT_EQ(world.Record().InterfaceInformation->Pipes[0].MaximumPacketSize, 8);
  });
}

TEST(UsbConfiguration, ASelectedInterfaceHasNoMorePipesThanItsMemoryHolds) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    const USHORT length = world.Record().InterfaceInformation->Length;
    world.Stack.Decide = [](URB& urb) -> std::optional<Verdict> {
      if (urb.UrbHeader.Function == 1) {
        urb.UrbSelectInterface.Interface.Length = 0xFFFF;
        urb.UrbSelectInterface.Interface.NumberOfPipes = 3;
      }
      return std::nullopt;
    };
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_EQ(world.Record().InterfaceInformation->Length, length);
    EXPECT_EQ(world.Record().InterfaceInformation->NumberOfPipes, 2U);
  });
}

TEST(UsbConfiguration, WithoutARawBufferSizeTheFormatFailsAlthoughTheSelectionWorked) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    CameraFaults faults;
    faults.NoRawBuffer = true;
    EXPECT_EQ(SetFormat(world), kNoMemory);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U));
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 7U);
    EXPECT_EQ(SetFormat(world), kNoMemory);
    faults.NoRawBuffer = false;
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U));
    // Nor does a refusal show then.
    faults.NoRawBuffer = true;
    world.Stream().StreamFormat.AlternateSetting = 0;
    world.Stack.Decide = RefuseSettingsAbove(0);
    EXPECT_EQ(SetFormat(world), kNoMemory);
  });
}

TEST(UsbConfiguration, AnInterfaceThatCouldNotBeCopiedFailsTheFormatAndIsNotRead) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    FreeCameraMemory(std::exchange(world.Record().InterfaceInformation, nullptr));
    EXPECT_EQ(SetFormat(world), kNoMemory);
    EXPECT_TRUE(world.Stack.SettingsAsked.empty());
    EXPECT_EQ(world.Acquire(), kNoMemory);
  });
}

TEST(UsbConfiguration, TheUpwardWalkStartsAtItsLimitAndSendsNothing) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    world.Record().SearchDownward = 0;
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_TRUE(world.Stack.SettingsAsked.empty());
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 0U);
    // With room above the requested setting it would try others, and the last refusal is returned
    // as lack of memory.
    world.Record().AlternateSettingLimit = 9;
    world.Stack.Decide = RefuseSettingsAbove(0);
    EXPECT_EQ(SetFormat(world), kNoMemory);
    EXPECT_THAT(world.Stack.SettingsAsked, ElementsAre(7U, 8U));
    world.Stack.Decide = nullptr;
    EXPECT_EQ(SetFormat(world), STATUS_SUCCESS);
    EXPECT_EQ(world.Stream().StreamFormat.AlternateSetting, 7U);
  });
}

TEST(UsbConfiguration, TheFormatIsTakenOverFieldByField) {
  InWorld([](TransportWorld& world) {
    ASSERT_EQ(world.Start(), STATUS_SUCCESS);
    KS_VIDEOINFOHEADER info = VideoInfo(352, 288);
    info.AvgTimePerFrame = 666666;
    EXPECT_EQ(world.Device().SetStreamFormat(&info), STATUS_SUCCESS);
    const FormatRequest& format = world.Stream().StreamFormat;
    EXPECT_EQ(format.Width, 352);
    EXPECT_EQ(format.Height, 288);
    EXPECT_EQ(format.BitCount, 16U);
    EXPECT_EQ(format.Compression, 0x32595559U);
    EXPECT_EQ(format.ImageSize, 202752U);
    EXPECT_EQ(format.Spare, 0U);
    EXPECT_EQ(format.AvgTimePerFrame, 666666);
    EXPECT_EQ(world.Stream().Assembly.RawBufferSize, 921666U);
  });
}

TEST(UsbConfiguration, CapabilitiesAreStoredAndAnUnknownFormatListFallsBack) {
  struct Row {
    CameraCapabilities Told;
    std::int32_t List;
    std::int32_t Count;
    std::uint32_t Speed;
  };
  const Row rows[] = {
      {{1, 2, 7, 1, 7, 0, 5}, 0, 5, 2},           {{3, 0, 3, 0, 3, 1, 1}, 1, 1, 1},
      {{1, 1, 3, 1, 3, 2, 5}, 0, 17, 1},          {{1, 1, 3, 1, 3, 0, 0}, 0, 17, 1},
      {{1, 1, 3, 1, 3, 0xFFFFFFFF, 5}, 0, 17, 1}, {{1, 1, 3, 1, 3, 1, 0x80000000}, 0, 17, 1},
  };
  for (const Row& row : rows) {
    UsbDeviceRecord record{};
    StoreCapabilities(record, row.Told);
    EXPECT_EQ(record.DeviceClass, row.Told.DeviceClass);
    EXPECT_EQ(record.SpeedClass, row.Speed);
    EXPECT_EQ(record.AlternateSettingLimit, row.Told.AlternateSettingLimit);
    EXPECT_EQ(record.SearchDownward, row.Told.SearchDownward);
    EXPECT_EQ(record.TransferCount, row.Told.TransferCount);
    EXPECT_EQ(record.FormatListIndex, row.List);
    EXPECT_EQ(record.FormatCount, row.Count);
  }
}

}  // namespace
}  // namespace lidcam::test
