#include "driver/sensor/register_sets/register_set_list.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "driver/core/base/camera_trace.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Entries = std::vector<RegisterSetEntry>;

void Fill(RegisterSetTable& table, const Entries& entries) {
  table.Present = 1;
  table.Count = static_cast<std::uint32_t>(entries.size());
  for (std::size_t i = 0; i < entries.size(); ++i) table.Entries[i] = entries[i];
}

// A camera with both lists and a type that has neither patches nor a tail.
class RegisterSetList : public ::testing::Test {
 protected:
  RegisterSetList() { Context().SensorType = SensorTypeK82; }

  CameraContext& Context() { return space_->Context(); }
  RegisterSpace& Space() { return *space_; }
  [[nodiscard]] const std::vector<std::string>& Accesses() const { return space_->Accesses(); }

 private:
  std::unique_ptr<RegisterSpace> space_ = std::make_unique<RegisterSpace>();
};

TEST_F(RegisterSetList, LowLightChoosesTheListAndTheMarkerTheChip) {
  Fill(Context().NormalRegisters, {{0x33, 0x09, 0x2F}, {0x11, 0x0F, 0x80}});
  Fill(Context().LowLightRegisters, {{0x11, 0x0F, 0x70}, {0x33, 0x09, 0x1F}});
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  EXPECT_THAT(Accesses(), ElementsAre("write sensor FF09=2F", "write bridge FF0F=80"));
  Space().ForgetTraffic();
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::LowLight, RegisterPath::Frame), 0);
  EXPECT_THAT(Accesses(), ElementsAre("write bridge FF0F=70", "write sensor FF09=1F"));
}

TEST_F(RegisterSetList, EntriesWithMarker22AreSkippedAndLeaveTheResult) {
  Fill(Context().NormalRegisters, {{0x11, 0x01, 0x02}, {0x22, 0x03, 0x04}});
  Space().Failure = [](const std::string& access) {
    return access == "write bridge FF01=02" ? Status{-1} : Status{0};
  };
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), -1);
  EXPECT_THAT(Accesses(), ElementsAre("write bridge FF01=02 failed"));
}

TEST_F(RegisterSetList, ResultIsTheStatusOfTheLastWrite) {
  Fill(Context().NormalRegisters, {{0x11, 0x01, 0x02}, {0x33, 0x03, 0x04}});
  Space().Failure = [](const std::string& access) {
    return access == "write bridge FF01=02" ? Status{-1} : Status{0};
  };
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  EXPECT_THAT(Accesses(), ElementsAre("write bridge FF01=02 failed", "write sensor FF03=04"));
}

TEST_F(RegisterSetList, ListOf599EntriesIsWrittenAndOneOf600IsNot) {
  Fill(Context().NormalRegisters, Entries(599, {0x11, 0x50, 0x01}));
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  EXPECT_THAT(Accesses(), SizeIs(599));
  Space().ForgetTraffic();
  Fill(Context().NormalRegisters, Entries(600, {0x11, 0x50, 0x01}));
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  Context().NormalRegisters.Count = 0xFFFFFFFF;
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(RegisterSetList, AbsentEmptyOrOverlongListOnVGA0708WritesNothingNotEvenTheTail) {
  Context().SensorType = SensorTypeVGA0708;
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::LowLight, RegisterPath::Application), 0);
  Fill(Context().NormalRegisters, {{0x11, 0x01, 0x02}});
  Context().NormalRegisters.Present = 0;
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  Context().NormalRegisters.Present = 1;
  Context().NormalRegisters.Count = 0;
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  Context().NormalRegisters.Count = 600;
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Application), 0);
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(RegisterSetList, FramePathIsRefusedEntryByEntryWhileTheApplicationHoldsTheBus) {
  Fill(Context().NormalRegisters, {{0x11, 0x01, 0x02}, {0x33, 0x03, 0x04}, {0x11, 0x05, 0x06}});
  // The application takes the bus with the first entry's data transfer and keeps it.
  Shared<std::uint32_t>& busy = Context().AppRegisterBusy;
  Space().OnRequest = [&busy](const WirePacket& packet) {
    if (packet[4] == 0x01) busy = 1;
  };
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Frame), 1);
  EXPECT_THAT(Accesses(), ElementsAre("write bridge FF01=02"));
  Context().AppRegisterBusy = 0;
}

// A refusal sends nothing: its line in the trace is what shows it.
Shared<std::uint32_t>* g_busyUntilRefused = nullptr;

void ClearBusyAtRefusal(const CameraContext*, const char* format, std::va_list) {
  if (std::string_view(format).ends_with(" refused")) *g_busyUntilRefused = 0;
}

TEST_F(RegisterSetList, EntriesBehindARefusedOneAreWritten) {
  Fill(Context().NormalRegisters, {{0x11, 0x01, 0x02}, {0x33, 0x03, 0x04}, {0x11, 0x05, 0x06}});
  // The application holds the bus during the second entry only.
  Shared<std::uint32_t>& busy = Context().AppRegisterBusy;
  Space().OnRequest = [&busy](const WirePacket& packet) {
    if (packet[4] == 0x01) busy = 1;
  };
  g_busyUntilRefused = &busy;
  SetCameraTraceSink(ClearBusyAtRefusal);
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Frame), 0);
  SetCameraTraceSink(nullptr);
  EXPECT_THAT(Accesses(), ElementsAre("write bridge FF01=02", "write bridge FF05=06"));
}

TEST_F(RegisterSetList, FailedEntryDoesNotStopTheList) {
  Fill(Context().NormalRegisters, {{0x11, 0x01, 0x02}, {0x33, 0x03, 0x04}, {0x11, 0x05, 0x06}});
  Space().Failure = [](const std::string& access) {
    return access == "write sensor FF03=04" ? Status{-1} : Status{0};
  };
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::Normal, RegisterPath::Frame), 0);
  EXPECT_THAT(Accesses(), ElementsAre("write bridge FF01=02", "write sensor FF03=04 failed",
                                      "write bridge FF05=06"));
}

// --- The user's settings are kept ---------------------------------------------------------------

struct PatchCase {
  const char* Name;
  RegisterSetEntry Entry;
  bool LowLight;
  void (*Set)(CameraContext& context);
  const char* Access;
};

void PrintTo(const PatchCase& patch, std::ostream* out) {
  *out << patch.Name;
}

void UserValues(CameraContext& context) {
  context.UserSharpness = 0x45;
  context.UserSaturation = 0xC8;
  context.UserSaturation2 = 0xC9;
}

constexpr PatchCase kPatchCases[] = {
    {"SharpnessOfTheUserInNormal", {0x11, 0x43, 0x40}, false, UserValues, "write bridge FF43=45"},
    {"SharpnessOfTheFileInLowLight", {0x11, 0x43, 0x40}, true, UserValues, "write bridge FF43=40"},
    {"SharpnessThatIsTheSame", {0x11, 0x43, 0x45}, false, UserValues, "write bridge FF43=45"},
    {"SharpnessNeverSetLeavesTheFile",
     {0x11, 0x43, 0x41},
     false,
     [](CameraContext& context) { context.UserSharpness = 0; },
     "write bridge FF43=41"},
    {"SaturationOfTheUserInNormal", {0x11, 0x78, 0x60}, false, UserValues, "write bridge FF78=C8"},
    {"OneCopyServesBothSaturations", {0x11, 0x79, 0x60}, false, UserValues, "write bridge FF79=C8"},
    {"SaturationOfTheFileInLowLight", {0x11, 0x78, 0x60}, true, UserValues, "write bridge FF78=60"},
    {"Saturation2OfTheFileInLowLight",
     {0x11, 0x79, 0x61},
     true,
     UserValues,
     "write bridge FF79=61"},
    {"SaturationNeverSetIsWrittenAs0",
     {0x11, 0x78, 0x60},
     false,
     [](CameraContext& context) { context.UserSaturation = 0; },
     "write bridge FF78=00"},
    {"SensorRegistersOfTheSameNumbersKeepTheFile",
     {0x33, 0x43, 0x40},
     false,
     UserValues,
     "write sensor FF43=40"},
    {"SensorRegister78KeepsTheFile", {0x33, 0x78, 0x60}, false, UserValues, "write sensor FF78=60"},
    {"OrientationJoinsInNormal",
     {0x11, 0x26, 0x01},
     false,
     [](CameraContext& context) { context.ShadowFF26 = 0xFF; },
     "write bridge FF26=31"},
    {"OrientationJoinsInLowLight",
     {0x11, 0x26, 0x02},
     true,
     [](CameraContext& context) { context.ShadowFF26 = 0x1C; },
     "write bridge FF26=12"},
    {"OrientationOfTheFileIsNotCleared",
     {0x11, 0x26, 0x30},
     false,
     [](CameraContext& context) { context.ShadowFF26 = 0x00; },
     "write bridge FF26=30"},
    {"SensorRegister26KeepsTheFile",
     {0x33, 0x26, 0x01},
     false,
     [](CameraContext& context) { context.ShadowFF26 = 0xFF; },
     "write sensor FF26=01"},
    {"BridgeRegister3BKeepsTheFile",
     {0x11, 0x3B, 0x0F},
     false,
     [](CameraContext& context) {
       context.SensorType = SensorTypeOV7670;
       context.Flicker = 2;
     },
     "write bridge FF3B=0F"},
};

class RegisterSetPatch : public ::testing::TestWithParam<PatchCase> {};

TEST_P(RegisterSetPatch, ValueOnBothPaths) {
  const PatchCase& patch = GetParam();
  for (const RegisterPath path : {RegisterPath::Frame, RegisterPath::Application}) {
    const auto space = std::make_unique<RegisterSpace>();
    CameraContext& context = space->Context();
    context.SensorType = SensorTypeK82;
    patch.Set(context);
    Fill(patch.LowLight ? context.LowLightRegisters : context.NormalRegisters, {patch.Entry});
    EXPECT_EQ(ApplyRegisterSet(
                  context, patch.LowLight ? RegisterList::LowLight : RegisterList::Normal, path),
              0);
    EXPECT_THAT(space->Accesses(), ElementsAre(patch.Access));
  }
}

INSTANTIATE_TEST_SUITE_P(AllPatches, RegisterSetPatch, ::testing::ValuesIn(kPatchCases),
                         [](const auto& patch) { return std::string(patch.param.Name); });

// Sensor register 0xFF3B loses its low four bits on types 7, 8 and 11 in 60 Hz light, in both lists.
class MainsBandPatch
    : public ::testing::TestWithParam<std::tuple<std::int32_t, std::int32_t, bool>> {};

TEST_P(MainsBandPatch, LowBitsOf3BFollowTheMainsOnTheOVFamily) {
  const auto [type, flicker, lowLight] = GetParam();
  const auto space = std::make_unique<RegisterSpace>();
  CameraContext& context = space->Context();
  context.SensorType = type;
  context.Flicker = flicker;
  Fill(lowLight ? context.LowLightRegisters : context.NormalRegisters, {{0x33, 0x3B, 0xCB}});
  EXPECT_EQ(ApplyRegisterSet(context, lowLight ? RegisterList::LowLight : RegisterList::Normal,
                             RegisterPath::Frame),
            0);
  const bool cleared = flicker == 2 && (type == 7 || type == 8 || type == 11);
  EXPECT_THAT(space->Accesses(),
              ElementsAre(cleared ? "write sensor FF3B=C0" : "write sensor FF3B=CB"));
}

INSTANTIATE_TEST_SUITE_P(AllSensorsAndMains, MainsBandPatch,
                         ::testing::Combine(::testing::ValuesIn(kSensorTypes),
                                            ::testing::Values(0, 1, 2, 3), ::testing::Bool()));

// --- The fixed tail ---------------------------------------------------------------------------

class RegisterSetTail : public ::testing::TestWithParam<std::tuple<std::int32_t, bool, bool>> {};

TEST_P(RegisterSetTail, FollowsTheListOnVGA0708OnTheApplicationPathOnly) {
  const auto [type, lowLight, wait] = GetParam();
  const auto space = std::make_unique<RegisterSpace>();
  CameraContext& context = space->Context();
  context.SensorType = type;
  context.UserSaturation = 0xC0;
  Fill(context.NormalRegisters, {{0x11, 0x78, 0x61}});
  Fill(context.LowLightRegisters, {{0x11, 0x78, 0x60}});
  EXPECT_EQ(ApplyRegisterSet(context, lowLight ? RegisterList::LowLight : RegisterList::Normal,
                             wait ? RegisterPath::Application : RegisterPath::Frame),
            0);

  std::vector<std::string> expected = {lowLight ? "write bridge FF78=60" : "write bridge FF78=C0"};
  if (type == 9 && wait) {
    expected.insert(
        expected.end(),
        {lowLight ? "write sensor FF09=1F" : "write sensor FF09=2F", "write sensor FF60=03",
         lowLight ? "write bridge FF73=7F" : "write bridge FF73=80", "write sensor FF2F=83"});
  }
  EXPECT_EQ(space->Accesses(), expected);
}

INSTANTIATE_TEST_SUITE_P(AllSensors, RegisterSetTail,
                         ::testing::Combine(::testing::ValuesIn(kSensorTypes), ::testing::Bool(),
                                            ::testing::Bool()));

TEST_F(RegisterSetList, StatusOfTheTailDoesNotEnterTheResult) {
  Context().SensorType = SensorTypeVGA0708;
  Fill(Context().LowLightRegisters, {{0x11, 0x78, 0x60}});
  Space().Failure = [](const std::string& access) {
    return access == "write bridge FF78=60" ? Status{0} : Status{-1};
  };
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::LowLight, RegisterPath::Application), 0);
  Space().Failure = [](const std::string& access) {
    return access == "write bridge FF78=60" ? Status{-5} : Status{0};
  };
  EXPECT_EQ(ApplyRegisterSet(Context(), RegisterList::LowLight, RegisterPath::Application), -5);
  EXPECT_THAT(Accesses(), SizeIs(10));
}

}  // namespace
}  // namespace lidcam::test
