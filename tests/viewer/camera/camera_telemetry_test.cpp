#include "viewer/camera/camera_telemetry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lidcam::viewer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(CameraTelemetry, FramesAreCountedByTheirSizeWithTheReason) {
  CameraTelemetry telemetry;
  telemetry.NoteLine("frame end bytes=614466 expected=614466 good");
  telemetry.NoteLine("frame end bytes=600000 expected=614466 bad");
  telemetry.NoteLine("frame discarded");
  telemetry.NoteLine("frame end bytes=700000 expected=614466 bad");
  telemetry.NoteLine("frame busy bytes=614466");
  telemetry.NoteLine("pin frame no buffer");
  const BusCounts counts = telemetry.TakeCounts();
  EXPECT_EQ(counts.Good, 1U);
  EXPECT_EQ(counts.Short, 1U);
  EXPECT_EQ(counts.Long, 1U);
  EXPECT_EQ(counts.Discarded, 3U);
  EXPECT_THAT(counts.Reasons, ElementsAre(Pair("fewer bytes than a frame has", 1),
                                          Pair("more bytes than a frame has", 1),
                                          Pair("no application had a buffer for it", 1),
                                          Pair("the driver was busy with the frame before", 1),
                                          Pair("the frame before had a wrong size", 1)));
  EXPECT_EQ(telemetry.TakeCounts().Good, 0U);
}

// A change of registers costs the frame in progress and the one after it.
TEST(CameraTelemetry, FramesThatAChangeOfRegistersCostsHaveItAsTheirReason) {
  CameraTelemetry telemetry;
  telemetry.NoteLine("frame end bytes=614466 expected=614466 settling");
  telemetry.NoteLine("frame discarded");
  telemetry.NoteLine("frame discarded");
  EXPECT_THAT(telemetry.TakeCounts().Reasons,
              ElementsAre(Pair("registers were changing", 2),
                          Pair("the frame before had a wrong size", 1)));
}

TEST(CameraTelemetry, AStreamsFirstMarkerEndsNoFrame) {
  CameraTelemetry telemetry;
  telemetry.NoteLine("frame end bytes=0 expected=614466 bad");
  EXPECT_THAT(telemetry.TakeCounts().Reasons, IsEmpty());
}

TEST(CameraTelemetry, RecoveryIsToldOnceAndInOrder) {
  CameraTelemetry telemetry;
  telemetry.NoteLine("bus  write bridge FF0A=11");
  telemetry.NoteLine("iso halted transfer=3 urb status=C0000004");
  telemetry.NoteLine("recovery scheduled");
  const auto events = telemetry.TakeEvents();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].Text, "iso halted transfer=3 urb status=C0000004");
  EXPECT_EQ(events[1].Text, "recovery scheduled");
  EXPECT_LE(events[0].Time, events[1].Time);
  EXPECT_THAT(telemetry.TakeEvents(), IsEmpty());
}

TEST(CameraTelemetry, OfARegisterOnlyTheLastValueIsTold) {
  CameraTelemetry telemetry;
  telemetry.NoteRegister(RegisterChip::Bridge, 0xFF0A, 1);
  telemetry.NoteRegister(RegisterChip::Bridge, 0xFF0A, 2);
  telemetry.NoteRegister(RegisterChip::Sensor, 0xFF0A, 3);
  const auto changed = telemetry.TakeRegisters();
  ASSERT_EQ(changed.size(), 2U);
  EXPECT_EQ(changed[0].Value, 2);
  EXPECT_EQ(changed[1].Value, 3);
  EXPECT_THAT(telemetry.TakeRegisters(), IsEmpty());
  EXPECT_EQ(telemetry.AllRegisters().size(), 2U);
}

TEST(CameraTelemetry, TraceLinesAreKeptForThoseWhoAskAndTheRestIsCounted) {
  CameraTelemetry telemetry;
  telemetry.NoteLine("power on");
  EXPECT_THAT(telemetry.TakeLines().Lines, IsEmpty());
  telemetry.KeepLines(true);
  for (std::size_t i = 0; i < CameraTelemetry::kMostLines + 5; ++i) telemetry.NoteLine("power on");
  TraceLines lines = telemetry.TakeLines();
  EXPECT_EQ(lines.Lines.size(), CameraTelemetry::kMostLines);
  EXPECT_EQ(lines.Skipped, 5U);
  telemetry.NoteLine("power off");
  telemetry.KeepLines(false);
  EXPECT_THAT(telemetry.TakeLines().Lines, IsEmpty());
}

// Nobody takes them while no page is open.
TEST(CameraTelemetry, WhatNobodyTakesStaysSmall) {
  CameraTelemetry telemetry;
  for (int i = 0; i < 1000; ++i) {
    telemetry.NoteEvent("recovery scheduled");
    telemetry.NoteLoop({});
  }
  EXPECT_EQ(telemetry.TakeEvents().size(), CameraTelemetry::kMostEvents);
  EXPECT_EQ(telemetry.TakeLoop().size(), CameraTelemetry::kMostSteps);
}

}  // namespace
}  // namespace lidcam::viewer
