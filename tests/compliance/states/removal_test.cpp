// Removal of the camera, in every state of a stream.

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "platform/host/nt/io/plug_and_play.h"
#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

enum class Way {
  Orderly,
  Surprise,
  Unnoticed,  ///< unplugged; plug and play detects it later
};

constexpr std::pair<Way, const char*> kWays[] = {
    {Way::Orderly, "InOrder"}, {Way::Surprise, "BySurprise"}, {Way::Unnoticed, "Unnoticed"}};
constexpr std::pair<KSSTATE, const char*> kStates[] = {{KSSTATE_STOP, "Stopped"},
                                                       {KSSTATE_ACQUIRE, "Acquired"},
                                                       {KSSTATE_PAUSE, "Paused"},
                                                       {KSSTATE_RUN, "Running"}};

void TakeAway(Host& host, Way way) {
  switch (way) {
    case Way::Orderly:
      EXPECT_EQ(host::QueryRemoveDevice(host.Installed().TopDevice()), STATUS_SUCCESS);
      EXPECT_EQ(host.Installed().Remove(), STATUS_SUCCESS);
      break;
    case Way::Surprise:
      EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
      break;
    case Way::Unnoticed:
      host.Installed().PullPlug();
      Sleep(500 * kMillisecond);
      EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
      break;
  }
}

/// A read request of an application in addition to those of the stream.
class OwnRead {
 public:
  explicit OwnRead(const Stream& stream) : data_(38400) {
    frame_.Header.Size = sizeof(frame_);
    frame_.Header.FrameExtent = 38400;
    frame_.Header.Data = data_.data();
    request_ = stream.File().BeginControl(IOCTL_KS_READ_STREAM,
                                          {.Output = &frame_, .OutputBytes = sizeof(frame_)});
  }

  /// @return STATUS_TIMEOUT while it is pending
  [[nodiscard]] NTSTATUS Status() {
    LARGE_INTEGER now{};
    return request_->Wait(&now) ? request_->Status() : STATUS_TIMEOUT;
  }

 private:
  struct {
    KSSTREAM_HEADER Header;
    KS_FRAME_INFO Info;
  } frame_{};
  std::vector<std::byte> data_;
  std::unique_ptr<host::DeviceRequest> request_;
};

void BringTo(Stream& stream, KSSTATE state) {
  if (state == KSSTATE_RUN) {
    stream.Run();
    EXPECT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
  } else {
    EXPECT_EQ(stream.SetState(state), STATUS_SUCCESS);
  }
}

void ExpectAllIsRefused(const Camera& camera, Stream& stream, Way way) {
  const NTSTATUS gone = way == Way::Orderly ? STATUS_DELETE_PENDING : STATUS_UNSUCCESSFUL;
  for (const PropertyRow& row : PropertyRows()) {
    EXPECT_EQ(StatusOf([&] { static_cast<void>(camera.GetLevel(*row.Set, row.Id)); }), gone);
    EXPECT_EQ(StatusOf([&] { camera.SetLevel(*row.Set, row.Id, {row.First, 2}); }), gone);
  }
  EXPECT_EQ(OwnRead(stream).Status(),
            way == Way::Orderly ? STATUS_DELETE_PENDING : STATUS_DEVICE_NOT_CONNECTED);
}

class Removed
    : public ::testing::TestWithParam<
          std::tuple<CameraKind, std::pair<Way, const char*>, std::pair<KSSTATE, const char*>>> {};

TEST_P(Removed, HandsBuffersBackRefusesEverythingAndLetsFilesBeClosed) {
  const auto& [kind, way, state] = GetParam();
  RunOn(kind, [way = way.first, state = state.first](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    BringTo(stream, state);
    std::vector<std::unique_ptr<OwnRead>> reads;
    for (int i = 0; i < 3; ++i) reads.push_back(std::make_unique<OwnRead>(stream));
    for (const auto& read : reads) EXPECT_EQ(read->Status(), STATUS_TIMEOUT);
    TakeAway(host, way);
    for (const auto& read : reads) {
      const NTSTATUS status = read->Status();
      const bool isFilled = status == STATUS_SUCCESS && state == KSSTATE_RUN;
      EXPECT_TRUE(isFilled || status == STATUS_CANCELLED) << std::hex << status;
    }
    if (state == KSSTATE_RUN) {
      EXPECT_EQ(DrainFrames(stream, kSecond), STATUS_CANCELLED);
    }
    ExpectAllIsRefused(camera, stream, way);
    EXPECT_NE(StatusOf([&] { static_cast<void>(host.Open()); }), STATUS_SUCCESS);
    EXPECT_NE(StatusOf([&] { Stream another(camera, camera.FormatOf(160, 120)); }), STATUS_SUCCESS);
  });
}

INSTANTIATE_TEST_SUITE_P(, Removed,
                         ::testing::Combine(::testing::Values(CameraKind::Simulated,
                                                              CameraKind::Recorded,
                                                              CameraKind::Disturbed),
                                            ::testing::ValuesIn(kWays),
                                            ::testing::ValuesIn(kStates)),
                         [](const auto& test) {
                           return NameOf(std::get<0>(test.param)) + std::get<1>(test.param).second +
                                  std::get<2>(test.param).second;
                         });

class Removal : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(Removal);

TEST_P(Removal, BySurpriseRefusesToOpenAsADeletionToCome) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
    EXPECT_EQ(StatusOf([&] { static_cast<void>(host.Open()); }), STATUS_DELETE_PENDING);
    EXPECT_EQ(StatusOf([&] { static_cast<void>(camera.GetLevel(kVideoAmplifier, 0)); }),
              STATUS_UNSUCCESSFUL);
    EXPECT_EQ(host.Installed().Remove(), STATUS_SUCCESS);
    EXPECT_EQ(StatusOf([&] { static_cast<void>(camera.PinCount()); }), STATUS_DELETE_PENDING);
  });
}

TEST_P(Removal, BySurpriseRefusesToAcquireTheStream) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
    EXPECT_FALSE(NT_SUCCESS(stream.SetState(KSSTATE_ACQUIRE)));
    EXPECT_EQ(stream.State(), KSSTATE_STOP);
  });
}

TEST_P(Removal, BySurpriseLetsAStreamBeStopped) {
  for (const KSSTATE state : {KSSTATE_ACQUIRE, KSSTATE_PAUSE, KSSTATE_RUN}) {
    SCOPED_TRACE(state);
    Run([state](Host& host) {
      const Camera camera = host.Open();
      Stream stream(camera, camera.FormatOf(160, 120));
      BringTo(stream, state);
      EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
      static_cast<void>(stream.SetState(KSSTATE_STOP));
      EXPECT_EQ(stream.State(), KSSTATE_STOP);
    });
  }
}

TEST_P(Removal, OfAPulledCameraEndsFramesBeforeAnybodyIsTold) {
  Run([](Host& host) {
    const Camera camera = host.Open();
    Stream stream(camera, camera.FormatOf(160, 120));
    stream.Run();
    ASSERT_EQ(TakeFrames(stream, 2), STATUS_SUCCESS);
    host.Installed().PullPlug();
    EXPECT_EQ(DrainFrames(stream, kSecond), STATUS_TIMEOUT);
    EXPECT_GT(stream.Queued(), 0U);
    EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
    EXPECT_EQ(DrainFrames(stream, kSecond), STATUS_CANCELLED);
  });
}

TEST_P(Removal, InOrderAndPluggingInAnewStreamsAsBefore) {
  Run([](Host& host) {
    for (int round = 0; round < 3; ++round) {
      SCOPED_TRACE(round);
      {
        const Camera camera = host.Open();
        Stream stream(camera, camera.FormatOf(160, 120));
        stream.UseClock();
        FrameRules rules(38400, 333333, true);
        stream.Run();
        EXPECT_EQ(TakeFrames(stream, 3, rules), STATUS_SUCCESS);
      }
      host.Replug();
    }
  });
}

TEST_P(Removal, UnderTwoApplicationsEndsBoth) {
  Run([](Host& host) {
    const Camera first = host.Open();
    const Camera second = host.Open();
    Stream one(first, first.FormatOf(160, 120));
    Stream other(second, second.FormatOf(160, 120));
    one.Run();
    ASSERT_EQ(TakeFrames(one, 2), STATUS_SUCCESS);
    OwnRead waiting(other);
    EXPECT_EQ(waiting.Status(), STATUS_TIMEOUT);
    EXPECT_EQ(host.Installed().SurpriseRemove(), STATUS_SUCCESS);
    EXPECT_EQ(waiting.Status(), STATUS_CANCELLED);
    EXPECT_EQ(DrainFrames(one, kSecond), STATUS_CANCELLED);
    EXPECT_EQ(host.Installed().Remove(), STATUS_SUCCESS);
  });
}

TEST_P(Removal, IsAllowedAtAnyTimeAndTold) {
  Run([](Host& host) {
    DEVICE_CAPABILITIES capabilities{};
    EXPECT_EQ(host::QueryCapabilities(host.Installed().TopDevice(), capabilities), STATUS_SUCCESS);
    EXPECT_TRUE(capabilities.Removable);
    EXPECT_TRUE(capabilities.SurpriseRemovalOK);
  });
}

}  // namespace
}  // namespace lidcam::compliance
