#include "tests/compliance/support/frame_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/compliance/support/compliance_world.h"

namespace lidcam::compliance {
namespace {

constexpr ULONG kFlagsWithClock = 0x111;
constexpr ULONG kFlagsWithoutClock = 0x1;
// The two calls that deliver nothing are counted.
constexpr LONGLONG kFirstCounter = 2;
constexpr LONGLONG kQuiet = 200 * kMillisecond;

}  // namespace

void FrameRules::Take(const client::Frame& frame) {
  SCOPED_TRACE("frame " + std::to_string(count_));
  EXPECT_EQ(frame.Bytes().size(), imageBytes_);
  EXPECT_EQ(frame.Duration(), interval_);
  EXPECT_EQ(frame.OptionsFlags(), hasClock_ ? kFlagsWithClock : kFlagsWithoutClock);
  TakeTime(frame);
  TakeNumbers(frame);
  ++count_;
}

void FrameRules::TakeTime(const client::Frame& frame) {
  if (hasClock_) {
    EXPECT_GT(frame.PresentationTime(), lastTime_);
  } else {
    EXPECT_EQ(frame.PresentationTime(), 0);
  }
  lastTime_ = frame.PresentationTime();
}

void FrameRules::TakeNumbers(const client::Frame& frame) {
  const LONGLONG counter = kFirstCounter + count_;
  if (hasClock_) {
    const LONGLONG due = lastTime_ / interval_;
    EXPECT_EQ(frame.DropCount(), std::max<LONGLONG>(due - counter, 0));
    EXPECT_EQ(frame.PictureNumber(), counter + frame.DropCount());
    EXPECT_GE(frame.PictureNumber(), kFirstCounter);
    EXPECT_GE(frame.PictureNumber(), lastNumber_);
  } else {
    EXPECT_EQ(frame.DropCount(), 0);
    EXPECT_EQ(frame.PictureNumber(), 0);
  }
  lastNumber_ = frame.PictureNumber();
  lastDropCount_ = frame.DropCount();
}

void ExpectSanePicture(std::span<const std::byte> yuy2, std::int32_t width) {
  std::set<std::byte> brightnesses;
  for (std::size_t i = 0; i < yuy2.size(); i += 2) brightnesses.insert(yuy2[i]);
  EXPECT_GT(brightnesses.size(), 16U) << "a picture of hardly any brightness";
  const auto pitch = static_cast<std::size_t>(width) * 2;
  bool differs = false;
  for (std::size_t at = pitch; at + pitch <= yuy2.size() && !differs; at += pitch) {
    differs = !std::ranges::equal(yuy2.first(pitch), yuy2.subspan(at, pitch));
  }
  EXPECT_TRUE(differs) << "a picture of one line";
}

NTSTATUS TakeFrames(client::Stream& stream, int count, FrameRules& rules) {
  for (int i = 0; i < count; ++i) {
    const client::NextFrame next = stream.Next(kFrameWait);
    if (next.Status != STATUS_SUCCESS) return next.Status;
    rules.Take(*next.Picture);
  }
  return STATUS_SUCCESS;
}

NTSTATUS TakeFrames(client::Stream& stream, int count) {
  for (int i = 0; i < count; ++i) {
    const NTSTATUS status = stream.Next(kFrameWait).Status;
    if (status != STATUS_SUCCESS) return status;
  }
  return STATUS_SUCCESS;
}

void TakeFramesUntilQuiet(client::Stream& stream, FrameRules& rules) {
  bool isQuiet = false;
  while (!isQuiet) {
    const client::NextFrame next = stream.Next(kQuiet);
    isQuiet = !next.Picture;
    if (next.Picture) rules.Take(*next.Picture);
  }
}

NTSTATUS DrainFrames(client::Stream& stream, LONGLONG quiet) {
  NTSTATUS status = STATUS_SUCCESS;
  while (status == STATUS_SUCCESS) status = stream.Next(quiet).Status;
  return status;
}

}  // namespace lidcam::compliance
