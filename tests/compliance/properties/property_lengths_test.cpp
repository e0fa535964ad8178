// Requests whose blocks have unusual lengths.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Block;
using client::Camera;

class PropertyLengths : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(PropertyLengths);

struct Answer {
  NTSTATUS Status;
  ULONG_PTR Information;
  bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& answer, std::ostream* out) {
  *out << std::hex << static_cast<ULONG>(answer.Status) << std::dec << " with "
       << answer.Information;
}

/// Reads the frame rates of a width with a block of a length.
Answer FrameRates(const Camera& camera, std::int32_t width, std::size_t bytes, Block& value) {
  KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S asked{};
  asked.Dimensions = {width, 480};
  Block request(std::as_bytes(std::span(&asked, 1)).first(40));
  value = Block(bytes);
  ULONG_PTR information = 0;
  const NTSTATUS status =
      camera.Properties().Ask(kVideoControl, 2, KSPROPERTY_TYPE_GET, request, value, information);
  return {status, information};
}

TEST_P(PropertyLengths, OfFrameRatesAreToldCheckedAndKept) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    struct Row {
      std::int32_t Width;
      std::size_t Bytes;
      Answer Expected;
    };
    const Row rows[] = {
        {639, 0, {STATUS_BUFFER_OVERFLOW, 64}},   {639, 63, {STATUS_BUFFER_TOO_SMALL, 64}},
        {639, 8, {STATUS_BUFFER_TOO_SMALL, 64}},  {639, 64, {STATUS_SUCCESS, 64}},
        {639, 100, {STATUS_SUCCESS, 64}},         {640, 0, {STATUS_BUFFER_OVERFLOW, 40}},
        {640, 39, {STATUS_BUFFER_TOO_SMALL, 40}}, {640, 40, {STATUS_SUCCESS, 40}},
    };
    Block value;
    for (const Row& row : rows) {
      SCOPED_TRACE(std::to_string(row.Width) + " with " + std::to_string(row.Bytes));
      EXPECT_EQ(FrameRates(camera, row.Width, row.Bytes, value), row.Expected);
    }
  });
}

TEST_P(PropertyLengths, OfAListOfFrameRatesLeaveItsHeadOut) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Block value;
    KSMULTIPLE_ITEM head{};
    FrameRates(camera, 352, 64, value);
    std::memcpy(&head, value.Data(), sizeof(head));
    EXPECT_EQ(head.Size, 56U);
    EXPECT_EQ(head.Count, 7U);
    FrameRates(camera, 640, 40, value);
    std::memcpy(&head, value.Data(), sizeof(head));
    EXPECT_EQ(head.Size, 32U);
    EXPECT_EQ(head.Count, 4U);
    EXPECT_THAT(camera.FrameIntervals(176, 144),
                ::testing::ElementsAre(1000000, 833333, 666666, 555555, 500000, 400000, 333333));
    EXPECT_THAT(camera.FrameIntervals(640, 480),
                ::testing::ElementsAre(1666666, 1000000, 833333, 666666));
  });
}

TEST_P(PropertyLengths, OfTheActualFrameRateAreToldAndChecked) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const auto ask = [&](std::size_t bytes, Block& value) {
      Block request(56);
      value = Block(bytes);
      ULONG_PTR information = 0;
      const NTSTATUS status = camera.Properties().Ask(kVideoControl, 1, KSPROPERTY_TYPE_GET,
                                                      request, value, information);
      return Answer{status, information};
    };
    Block value;
    EXPECT_EQ(ask(0, value), (Answer{STATUS_BUFFER_OVERFLOW, 56}));
    EXPECT_EQ(ask(55, value).Status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(ask(56, value), (Answer{STATUS_SUCCESS, 56}));
  });
}

TEST_P(PropertyLengths, OfLevelsBelowTheirBlockAreRefused) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    const auto ask = [&](const GUID& set, ULONG id, ULONG flags, std::size_t request,
                         std::size_t bytes) {
      Block head(request);
      Block value(bytes);
      ULONG_PTR information = 0;
      const NTSTATUS status = camera.Properties().Ask(set, id, flags, head, value, information);
      return Answer{status, information};
    };
    EXPECT_EQ(ask(kVideoAmplifier, 0, KSPROPERTY_TYPE_GET, 40, 0),
              (Answer{STATUS_BUFFER_OVERFLOW, 40}));
    EXPECT_EQ(ask(kVideoAmplifier, 0, KSPROPERTY_TYPE_GET, 40, 39).Status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(ask(kVideoAmplifier, 0, KSPROPERTY_TYPE_SET, 40, 39).Status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(ask(kVideoAmplifier, 0, KSPROPERTY_TYPE_GET, 39, 40).Status,
              STATUS_INVALID_BUFFER_SIZE);
    EXPECT_EQ(ask(kVideoAmplifier, 0, KSPROPERTY_TYPE_GET, 40, 40), (Answer{STATUS_SUCCESS, 40}));
    EXPECT_EQ(ask(kPrivate, 14, KSPROPERTY_TYPE_GET, 52, 51).Status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(ask(kPrivate, 14, KSPROPERTY_TYPE_GET, 52, 52), (Answer{STATUS_SUCCESS, 52}));
  });
}

// The register's address is far beyond the part of the block that contains the answer.
TEST_P(PropertyLengths, OfARegisterReadAreAHundredAndThirtyTwo) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Block request(52);
    Block value(132);
    const ULONG address = 0xFF77;  // brightness of the bridge
    std::memcpy(value.Data() + 128, &address, sizeof(address));
    ULONG_PTR information = 0;
    EXPECT_EQ(
        camera.Properties().Ask(kPrivate, 16, KSPROPERTY_TYPE_GET, request, value, information),
        STATUS_SUCCESS);
    LONG told = -1;
    std::memcpy(&told, value.Data() + 24, sizeof(told));
    EXPECT_GE(told, 0);
    EXPECT_LE(told, 255);
    Block tooShort(52);
    EXPECT_EQ(
        camera.Properties().Ask(kPrivate, 16, KSPROPERTY_TYPE_GET, request, tooShort, information),
        STATUS_BUFFER_TOO_SMALL);
  });
}

TEST_P(PropertyLengths, OfVideoModesAreThirtyTwoAndTellNothing) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    EXPECT_EQ(camera.VideoControlCaps(), 0U);
    EXPECT_EQ(camera.VideoMode(), 0);
    camera.SetVideoMode(4 | 8);
    EXPECT_EQ(camera.VideoMode(), 0);
  });
}

}  // namespace
}  // namespace lidcam::compliance
