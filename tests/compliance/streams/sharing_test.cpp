// Several applications, one camera.

#include <gtest/gtest.h>

#include "tests/compliance/support/compliance_world.h"
#include "tests/compliance/support/frame_rules.h"
#include "tests/compliance/support/property_table.h"

namespace lidcam::compliance {
namespace {

using client::Camera;
using client::Stream;

class TwoApplications : public EveryCamera {};
LIDCAM_ON_EVERY_CAMERA(TwoApplications);

TEST_P(TwoApplications, ShareTheStreamOneBehindTheOther) {
  Run([](Host& host) {
    const Camera first = host.Open();
    const Camera second = host.Open();
    Stream one(first, first.FormatOf(160, 120));
    Stream other(second, second.FormatOf(320, 240));
    for (int round = 0; round < 2; ++round) {
      SCOPED_TRACE(round);
      one.Run();
      EXPECT_EQ(TakeFrames(one, 2), STATUS_SUCCESS);
      EXPECT_EQ(other.SetState(KSSTATE_ACQUIRE), static_cast<NTSTATUS>(0xC0000043));
      EXPECT_EQ(other.SetState(KSSTATE_RUN), static_cast<NTSTATUS>(0xC0000043));
      EXPECT_EQ(other.State(), KSSTATE_STOP);
      EXPECT_EQ(TakeFrames(one, 2), STATUS_SUCCESS);
      one.Pause();
      EXPECT_EQ(other.SetState(KSSTATE_ACQUIRE), static_cast<NTSTATUS>(0xC0000043));
      one.Stop();
      other.Run();
      EXPECT_EQ(TakeFrames(other, 2), STATUS_SUCCESS);
      EXPECT_EQ(one.SetState(KSSTATE_ACQUIRE), static_cast<NTSTATUS>(0xC0000043));
      other.Stop();
    }
  });
}

TEST_P(TwoApplications, FindTheStreamFreeWhenTheOtherOneHasClosed) {
  Run([](Host& host) {
    const Camera second = host.Open();
    Stream other(second, second.FormatOf(320, 240));
    {
      const Camera first = host.Open();
      Stream one(first, first.FormatOf(160, 120));
      one.Run();
      EXPECT_EQ(TakeFrames(one, 2), STATUS_SUCCESS);
      EXPECT_EQ(other.SetState(KSSTATE_ACQUIRE), STATUS_SHARING_VIOLATION);
    }
    FrameRules rules(153600, 333333, false);
    other.Run();
    EXPECT_EQ(TakeFrames(other, 3, rules), STATUS_SUCCESS);
  });
}

TEST_P(TwoApplications, ReadAllPropertiesWhileOneOfThemStreams) {
  Run([](Host& host) {
    const Camera first = host.Open();
    const Camera second = host.Open();
    Stream stream(first, first.FormatOf(160, 120));
    stream.Run();
    for (const PropertyRow& row : PropertyRows()) {
      SCOPED_TRACE(row.Name);
      EXPECT_EQ(TakeFrames(stream, 1), STATUS_SUCCESS);
      EXPECT_EQ(first.GetLevel(*row.Set, row.Id), second.GetLevel(*row.Set, row.Id));
      EXPECT_EQ(second.GetLevel(*row.Set, row.Id).Value, row.First);
    }
  });
}

}  // namespace
}  // namespace lidcam::compliance
