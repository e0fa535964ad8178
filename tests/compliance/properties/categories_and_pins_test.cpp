// The camera's categories and pins, without a stream.

#include <gtest/gtest.h>

#include <cstring>

#include "platform/host/client/client_error.h"
#include "tests/compliance/support/compliance_world.h"

namespace lidcam::compliance {
namespace {

using client::Block;
using client::Camera;
using client::Stream;

constexpr GUID kVideoCategory = {
    0x6994AD05, 0x93EF, 0x11D0, {0xA3, 0xCC, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
constexpr GUID kCaptureCategory = {
    0x65E8773D, 0x8F56, 0x11D0, {0xA3, 0xB9, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
constexpr GUID kCapturePins = {
    0xFB6C4281, 0x0353, 0x11D1, {0x90, 0x5F, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA}};
constexpr GUID kStillEvents = {
    0xDB47DE20, 0xF628, 0x11D1, {0xBA, 0x41, 0x00, 0xA0, 0xC9, 0x0D, 0x2B, 0x05}};

class Filter : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(Filter);

TEST_P(Filter, IsAVideoAndACaptureDevice) {
  Run([](Host& host) {
    const std::vector<GUID> categories = host.Open().Categories();
    ASSERT_EQ(categories.size(), 2U);
    EXPECT_TRUE(IsSame(categories[0], kVideoCategory));
    EXPECT_TRUE(IsSame(categories[1], kCaptureCategory));
  });
}

TEST_P(Filter, HasNoNodesAndNoConnections) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (const ULONG id : {KSPROPERTY_TOPOLOGY_NODES, KSPROPERTY_TOPOLOGY_CONNECTIONS}) {
      SCOPED_TRACE(id);
      const Block list = camera.Properties().GetSized(KSPROPSETID_Topology, id);
      KSMULTIPLE_ITEM head{};
      ASSERT_EQ(list.Size(), sizeof(head));
      std::memcpy(&head, list.Data(), sizeof(head));
      EXPECT_EQ(head.Size, 8U);
      EXPECT_EQ(head.Count, 0U);
    }
  });
}

template <typename Value>
Value OfPin(const Camera& camera, ULONG id) {
  KSP_PIN request{};
  Block block(std::as_bytes(std::span(&request, 1)));
  Block value(sizeof(Value));
  ULONG_PTR information = 0;
  EXPECT_EQ(
      camera.Properties().Ask(KSPROPSETID_Pin, id, KSPROPERTY_TYPE_GET, block, value, information),
      STATUS_SUCCESS);
  EXPECT_EQ(information, sizeof(Value));
  Value told{};
  std::memcpy(&told, value.Data(), sizeof(told));
  return told;
}

TEST_P(Filter, HasOnePinForCapturedVideoThatStreamsOut) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    EXPECT_EQ(camera.PinCount(), 1U);
    EXPECT_EQ(OfPin<ULONG>(camera, KSPROPERTY_PIN_DATAFLOW), 2U);
    EXPECT_EQ(OfPin<ULONG>(camera, KSPROPERTY_PIN_COMMUNICATION), 3U);
    EXPECT_TRUE(IsSame(OfPin<GUID>(camera, KSPROPERTY_PIN_CATEGORY), kCapturePins));
  });
}

TEST_P(Filter, HasRoomForOneConnection) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    auto count = OfPin<KSPIN_CINSTANCES>(camera, KSPROPERTY_PIN_CINSTANCES);
    EXPECT_EQ(count.PossibleCount, 1U);
    EXPECT_EQ(count.CurrentCount, 0U);
    const Stream stream(camera, camera.FormatOf(640, 480));
    count = OfPin<KSPIN_CINSTANCES>(camera, KSPROPERTY_PIN_CINSTANCES);
    EXPECT_EQ(count.CurrentCount, 1U);
    EXPECT_NE(StatusOf([&] { Stream another(camera, camera.FormatOf(640, 480)); }), STATUS_SUCCESS);
  });
}

TEST_P(Filter, HasNoSecondPin) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    EXPECT_NE(StatusOf([&] { static_cast<void>(camera.Ranges(1)); }), STATUS_SUCCESS);
    EXPECT_NE(StatusOf([&] { Stream stream(camera, camera.FormatOf(640, 480), {.Pin = 1}); }),
              STATUS_SUCCESS);
  });
}

TEST_P(Filter, OpensByNoNameByItsOwnAndByNoOther) {
  Run([](Host& host) {
    const PDEVICE_OBJECT device = host.Installed().TopDevice();
    EXPECT_EQ(Camera::Open(device, u"").PinCount(), 1U);
    EXPECT_EQ(Camera::Open(device, u"\\{86D5B265-6B04-4838-ADAE-9718707A7BDC}").PinCount(), 1U);
    for (const char16_t* name : {u"\\camera", u"\\GLOBAL"}) {
      EXPECT_NE(StatusOf([&] { static_cast<void>(Camera::Open(device, name)); }), STATUS_SUCCESS);
    }
  });
}

class Pin : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(Pin);

TEST_P(Pin, WantsFiveBuffersOfThePicturesSize) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    for (const auto& [width, height, bytes] : {std::tuple{640, 480, 614400U},
                                               {352, 288, 202752U},
                                               {320, 240, 153600U},
                                               {176, 144, 50688U},
                                               {160, 120, 38400U}}) {
      SCOPED_TRACE(width);
      const Stream stream(camera, camera.FormatOf(width, height));
      const KSALLOCATOR_FRAMING_EX framing = stream.Framing();
      EXPECT_EQ(framing.CountItems, 1U);
      EXPECT_EQ(framing.PinFlags, 0U);
      EXPECT_EQ(framing.OutputCompression.RatioNumerator, 1U);
      EXPECT_EQ(framing.OutputCompression.RatioDenominator, 1U);
      EXPECT_EQ(framing.OutputCompression.RatioConstantMargin, 0U);
      const KS_FRAMING_ITEM& item = framing.FramingItem[0];
      EXPECT_EQ(item.Flags, 0x80000002U);
      EXPECT_EQ(item.Frames, 5U);
      EXPECT_EQ(item.FramingRange.Range.MinFrameSize, bytes);
      EXPECT_EQ(item.FramingRange.Range.MaxFrameSize, bytes);
      EXPECT_EQ(item.FramingRange.Range.Stepping, 0U);
      EXPECT_EQ(item.PhysicalRange.MinFrameSize, bytes);
      EXPECT_EQ(item.PhysicalRange.MaxFrameSize, bytes);
      EXPECT_EQ(item.PhysicalRange.Stepping, 0U);
    }
  });
}

TEST_P(Pin, RefusesItsEvent) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const Stream stream(camera, camera.FormatOf(160, 120));
    KSEVENT event{};
    event.Set = kStillEvents;
    event.Id = 0;
    event.Flags = KSEVENT_TYPE_ENABLE;
    KSEVENTDATA data{};
    ULONG_PTR information = 0;
    EXPECT_EQ(stream.File().Control(IOCTL_KS_ENABLE_EVENT,
                                    {.Input = &event,
                                     .InputBytes = sizeof(event),
                                     .Output = &data,
                                     .OutputBytes = sizeof(data)},
                                    information),
              STATUS_NOT_SUPPORTED);
  });
}

TEST_P(Pin, RefusesABufferTooSmallForAPictureOrWithoutRoomForTheFrameInfo) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const Stream stream(camera, camera.FormatOf(160, 120));
    struct {
      KSSTREAM_HEADER Header;
      KS_FRAME_INFO Info;
    } frame{};
    std::vector<std::byte> data(38400);
    const auto read = [&](ULONG size, ULONG extent, PVOID bytes) {
      frame.Header.Size = size;
      frame.Header.FrameExtent = extent;
      frame.Header.Data = bytes;
      ULONG_PTR information = 0;
      return stream.File().Control(IOCTL_KS_READ_STREAM,
                                   {.Output = &frame, .OutputBytes = sizeof(frame)}, information);
    };
    EXPECT_EQ(read(sizeof(frame), 38399, data.data()), STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(read(sizeof(KSSTREAM_HEADER), 38400, data.data()), STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(read(sizeof(frame), 38400, nullptr), STATUS_INVALID_PARAMETER);
  });
}

}  // namespace
}  // namespace lidcam::compliance
