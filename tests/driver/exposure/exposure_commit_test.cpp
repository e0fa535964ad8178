// The commits of a standing exposure.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "driver/exposure/auto_exposure.h"
#include "driver/exposure/frame_exposure_control.h"
#include "tests/driver/exposure/support/exposure_bench.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Nothing but commits reaches the bus: frames on target, the light machine held.
class StillCamera : public ExposureBench {
 public:
  explicit StillCamera(std::uint32_t exposure) {
    Context().LDMode = 1;
    AeOutput.Exposure = exposure;
  }

  // Numbers of the frames, from 1, that commit.
  std::vector<int> CommitsOf(int frames) {
    std::vector<int> commits;
    for (int frame = 1; frame <= frames; ++frame) {
      ForgetTraffic();
      Deliver(88);
      if (Accesses().empty()) continue;
      EXPECT_THAT(Accesses(), ElementsAre("write sensor FF2F=83"));
      commits.push_back(frame);
    }
    return commits;
  }

  int Count() { return static_cast<std::uint16_t>(Context().CommitCount); }
};

TEST(ExposureCommit, StandingExposure4CommitsSoonAndThenEvery42Frames) {
  StillCamera camera(4);
  EXPECT_THAT(camera.CommitsOf(200), ElementsAre(4, 46, 88, 130, 172));
}

TEST(ExposureCommit, StandingExposure8CommitsSoonAndThenEvery22Frames) {
  StillCamera camera(8);
  EXPECT_THAT(camera.CommitsOf(200), ElementsAre(4, 26, 48, 70, 92, 114, 136, 158, 180));
}

TEST(ExposureCommit, Exposure7IsNotYetLongAnd20Is) {
  EXPECT_THAT(StillCamera(7).CommitsOf(100), ElementsAre(4, 46, 88));
  EXPECT_THAT(StillCamera(20).CommitsOf(100), ElementsAre(4, 26, 48, 70, 92));
}

// Before the first step the exposure is 0, like the record's copy: nothing has changed.
TEST(ExposureCommit, Exposure0OfANewCameraStandsFromItsFirstFrame) {
  EXPECT_THAT(StillCamera(0).CommitsOf(100), ElementsAre(3, 45, 87));
}

TEST(ExposureCommit, CountRunsTo2CommitsGoesOnAt4AndCommitsAt45) {
  StillCamera camera(4);
  camera.Deliver(88);
  EXPECT_EQ(camera.Count(), 0);
  EXPECT_EQ(camera.Context().CommitExposure, 4U);
  for (const int count : {1, 2, 4, 5}) {
    camera.Deliver(88);
    EXPECT_EQ(camera.Count(), count);
  }
  camera.Deliver(88, 0, 40);
  EXPECT_EQ(camera.Count(), 45);
  EXPECT_EQ(camera.Accesses().size(), 1U);
  camera.Deliver(88);
  EXPECT_EQ(camera.Count(), 4);
  EXPECT_EQ(camera.Accesses().size(), 2U);
}

struct DueRow {
  int Count;
  std::uint32_t Exposure;
  bool Due;
};

TEST(ExposureCommit, IsDueAtCount2AndFrom45AndFrom25OfALongExposure) {
  constexpr DueRow kRows[] = {
      {0, 4, false},  {1, 4, false},   {2, 4, true},      {3, 4, false},  {24, 4, false},
      {25, 4, false}, {44, 4, false},  {45, 4, true},     {46, 4, true},  {65535, 4, true},
      {0, 8, false},  {1, 8, false},   {2, 8, true},      {3, 8, false},  {24, 8, false},
      {25, 8, true},  {26, 8, true},   {44, 8, true},     {45, 8, true},  {65535, 8, true},
      {25, 7, false}, {30, 255, true}, {30, 0x100, true}, {44, 7, false}, {44, 0, false},
  };
  for (const DueRow& row : kRows) {
    StillCamera camera(row.Exposure);
    camera.Context().CommitExposure = row.Exposure;
    camera.Context().CommitCount = static_cast<std::uint16_t>(row.Count);
    camera.Deliver(88);
    EXPECT_EQ(camera.Accesses().size(), row.Due ? 1U : 0U) << row.Count << " " << row.Exposure;
    EXPECT_EQ(camera.Count(), row.Due ? 4 : row.Count + 1) << row.Count << " " << row.Exposure;
  }
}

TEST(ExposureCommit, ChangedExposureStartsTheCountAnewWithoutACommit) {
  StillCamera camera(4);
  camera.Deliver(88, 0, 3);
  EXPECT_EQ(camera.Count(), 2);
  AeOutput.Exposure = 5;
  camera.Deliver(88);
  EXPECT_EQ(camera.Count(), 0);
  EXPECT_EQ(camera.Context().CommitExposure, 5U);
  EXPECT_THAT(camera.Packets(), IsEmpty());
}

TEST(ExposureCommit, AllBitsOfTheExposureCountAsAChange) {
  StillCamera camera(0x104);
  camera.Context().CommitExposure = 4;
  camera.Context().CommitCount = 9;
  camera.Deliver(88);
  EXPECT_EQ(camera.Context().CommitExposure, 0x104U);
  EXPECT_EQ(camera.Count(), 0);
}

// A new gain with the same exposure does not delay a commit.
TEST(ExposureCommit, NewGainAloneDoesNotStartTheCountAnew) {
  StillCamera camera(7);
  AeIndex = 52;
  AeOutput.Exposure = 7;
  camera.Deliver(88, 0, 3);
  camera.Deliver(79);
  EXPECT_EQ(AeIndex, 53);
  EXPECT_THAT(camera.Accesses(),
              ElementsAre("write sensor FF60=03", "write sensor FF5D=86", "write sensor FF04=C2",
                          "write sensor FF03=04", "write sensor FF2F=83"));
}

TEST(ExposureCommit, GoesOnWhereTheLoopIsOff) {
  for (const int off : {0, 1, 2}) {
    StillCamera camera(4);
    if (off == 0) camera.Context().AutoExposure = 0;
    if (off == 1) camera.Context().AutoExposure = 2;
    if (off == 2) camera.Context().Flicker = 0;
    EXPECT_THAT(camera.CommitsOf(100), ElementsAre(4, 46, 88)) << off;
  }
}

TEST(ExposureCommit, IsForVGA0708Only) {
  for (const std::int32_t type : {0, 1, 3, 5, 6, 7, 8, 10, 11}) {
    StillCamera camera(4);
    camera.Context().SensorType = type;
    camera.Deliver(0, 0, 100);
    EXPECT_THAT(camera.Packets(), IsEmpty()) << type;
    EXPECT_EQ(camera.Count(), 0);
    EXPECT_EQ(camera.Context().CommitExposure, 0U);
  }
}

TEST(ExposureCommit, TakesTheApplicationPath) {
  StillCamera camera(0);
  camera.Context().CommitCount = 2;
  int requests = 0;
  camera.OnRequest = [&](const WirePacket&) {
    ++requests;
    EXPECT_EQ(camera.Context().AppRegisterBusy, 1U);
    EXPECT_EQ(camera.Context().DriverRegisterBusy, 0U);
  };
  camera.Deliver(88);
  EXPECT_EQ(requests, 2);
  EXPECT_EQ(camera.Context().AppRegisterBusy, 0U);
}

// The application path is never refused: the commit is sent during the application's own access,
// and clears that access's flag.
TEST(ExposureCommit, IsNotRefusedByAnApplicationAccess) {
  StillCamera camera(0);
  camera.Context().CommitCount = 2;
  camera.Context().AppRegisterBusy = 1;
  camera.Deliver(88);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF2F=83"));
  EXPECT_EQ(camera.Context().AppRegisterBusy, 0U);
}

TEST(ExposureCommit, FailedCommitCountsAsDone) {
  StillCamera camera(0);
  camera.Failure = [](const std::string&) { return -1; };
  camera.Deliver(88, 0, 3);
  EXPECT_THAT(camera.Accesses(), ElementsAre("write sensor FF2F=83 failed"));
  EXPECT_EQ(camera.Count(), 4);
}

}  // namespace
}  // namespace lidcam::test
