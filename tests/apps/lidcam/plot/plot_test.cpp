#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <sstream>
#include <string>
#include <vector>

#include "apps/lidcam/frames/frame_log.h"
#include "apps/lidcam/plot/frame_log_reader.h"
#include "apps/lidcam/plot/gnuplot.h"
#include "apps/lidcam/plot/loop_plot.h"
#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const std::string kLogHeader = std::string(kFrameLogHeader) + "\n";
const std::string kGoodRow = "1,0.064,104,3,29,3,1,156,522,Normal,Normal,1,0,0,300\n";

std::vector<FrameRow> Read(const std::string& text) {
  std::istringstream input(text);
  return ReadFrameLog(input, "frames.csv");
}

TEST(FrameLogReader, ReadsBackWhatTheLogWrote) {
  std::vector<FrameRow> rows;
  for (std::uint64_t frame = 1; frame <= 5; ++frame) {
    rows.push_back({.Frame = frame,
                    .Seconds = static_cast<double>(frame) / 8,
                    .Luma = 255,
                    .Level = 20,
                    .Index = 80,
                    .Exposure = 20,
                    .CoarseGain = 3,
                    .FineGain = 192,
                    .Lines = 3480,
                    .State = static_cast<std::uint32_t>(frame % 4),
                    .Mode = static_cast<std::uint32_t>(frame % 3),
                    .Events = {.Steps = 1, .Commits = 2, .Refused = 4},
                    .Lux = frame == 3 ? std::nullopt : std::optional(0.1)});
  }
  std::string text = kLogHeader;
  for (const FrameRow& row : rows) text += ToCsv(row) + "\n";
  EXPECT_EQ(Read(text), rows);
}

TEST(FrameLogReader, LinesMayEndAsOnWindows) {
  EXPECT_EQ(Read(std::string(kFrameLogHeader) + "\r\n" + kGoodRow.substr(0, kGoodRow.size() - 1) +
                 "\r\n"),
            Read(kLogHeader + kGoodRow));
}

TEST(FrameLogReader, AByteOrderMarkIsNoError) {
  EXPECT_EQ(Read("\xEF\xBB\xBF" + kLogHeader + kGoodRow), Read(kLogHeader + kGoodRow));
}

struct BadLog {
  std::string Text;
  std::string Place;
  std::string Reason;
};

TEST(FrameLogReader, NamesTheLineAndTheReasonOfAnError) {
  const std::string second = "2,0.1,104,3,29,3,1,156,522,Normal,Normal,1,0,0,300\n";
  const std::vector<BadLog> logs = {
      {"", "line 1", "empty"},
      {"time,luma\n", "line 1", "header is 'time,luma'"},
      {kLogHeader, "line 1", "no frame"},
      {kLogHeader + "1,2,3\n", "line 2", "3 fields in place of 15"},
      {kLogHeader + kGoodRow + "\n", "line 3", "1 fields in place of 15"},
      {kLogHeader + kGoodRow + kGoodRow, "line 3", "frame 1 does not come after frame 1"},
      {kLogHeader + second + "3,0.05,104,3,29,3,1,156,522,Normal,Normal,1,0,0,300\n", "line 3",
       "earlier"},
      {kLogHeader + "1,0.064,256,3,29,3,1,156,522,Normal,Normal,1,0,0,300\n", "line 2",
       "luma '256' is no number from 0 to 255"},
      {kLogHeader + "1,0.064,104,3,-1,3,1,156,522,Normal,Normal,1,0,0,300\n", "line 2",
       "index '-1' is no number from 0 to 80"},
      {kLogHeader + "1,0.064,104,3,29,3x,1,156,522,Normal,Normal,1,0,0,300\n", "line 2",
       "exposure '3x'"},
      {kLogHeader + "1,nan,104,3,29,3,1,156,522,Normal,Normal,1,0,0,300\n", "line 2",
       "time_s 'nan'"},
      {kLogHeader + "1,0.064,104,3,29,3,1,156,522,Twilight,Normal,1,0,0,300\n", "line 2",
       "light_state 'Twilight' is none of Normal, LowLight, Initial, Dummy"},
      {kLogHeader + "1,0.064,104,3,29,3,1,156,522,Normal,Initial,1,0,0,300\n", "line 2",
       "light_mode 'Initial'"},
      {kLogHeader + "1,0.064,104,3,29,3,1,156,522,Normal,Normal,1,0,0,dark\n", "line 2",
       "lux 'dark'"},
  };
  for (const BadLog& log : logs) {
    try {
      (void)Read(log.Text);
      ADD_FAILURE() << log.Reason;
    } catch (const CommandError& error) {
      EXPECT_THAT(error.what(), HasSubstr("frames.csv"));
      EXPECT_THAT(error.what(), HasSubstr(log.Place));
      EXPECT_THAT(error.what(), HasSubstr(log.Reason));
    }
  }
}

TEST(FrameLogReader, AMissingFileIsNamed) {
  EXPECT_THROW((void)ReadFrameLog("/no/such/frames.csv"), CommandError);
  EXPECT_THROW((void)ReadFrameLog("/"), CommandError);
}

std::size_t CountOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

std::vector<FrameRow> TwoStates() {
  return Read(kLogHeader + kGoodRow + "2,1,30,3,53,7,3,134,1218,Normal,Normal,1,1,0,5\n" +
              "3,2,41,3,53,7,3,134,1218,Dummy,Dummy,0,0,2,5\n" +
              "4,3,41,3,50,6,3,134,1044,Dummy,Dummy,1,0,0,5\n");
}

std::string Draw(const std::vector<FrameRow>& rows, const std::string& title) {
  return RunGnuplot(LoopPlotScript(rows, title));
}

TEST(LoopPlot, EqualLogsGiveEqualBytes) {
  EXPECT_EQ(Draw(TwoStates(), "Loop"), Draw(TwoStates(), "Loop"));
}

// The first frame leaves Initial and steps down from the index of a new camera, 30.
TEST(LoopPlot, CountsEveryEventInItsHeading) {
  EXPECT_THAT(Draw(TwoStates(), "Loop"),
              HasSubstr("4 frames in 3 s: 3 steps, 2 transitions, 1 commit, 1 frame with refused "
                        "writes"));
}

TEST(LoopPlot, TimeInItsHeadingHasAtMostTwoDecimals) {
  EXPECT_THAT(
      Draw(Read(kLogHeader + "1,0.6666666,104,3,29,3,1,156,522,Normal,Normal,1,0,0,300\n"), ""),
      HasSubstr("1 frame in 0.67 s: "));
}

// Each mark is defined once, and placed where an event is.
TEST(LoopPlot, DrawsOneMarkForEachEvent) {
  const std::string drawing = Draw(TwoStates(), "Loop");
  EXPECT_EQ(CountOf(drawing, "'#gpPt12' transform='translate("), 2U) << "diamonds: transitions";
  EXPECT_EQ(CountOf(drawing, "'#gpPt8' transform='translate("), 1U)
      << "upright triangles: steps up";
  EXPECT_EQ(CountOf(drawing, "'#gpPt10' transform='translate("), 2U)
      << "other triangles: steps down";
  EXPECT_EQ(CountOf(drawing, "'#gpPt6' transform='translate("), 1U) << "circle: the light";
  EXPECT_EQ(CountOf(drawing, "'#gpPt1' transform='translate("), 1U) << "cross: refused";
}

TEST(LoopPlot, NamesAxesAndStates) {
  const std::string drawing = Draw(TwoStates(), "A <dark> room");
  for (const char* text : {">luminance<", ">exposure (periods)<", ">index<", ">fine gain<",
                           ">coarse gain<", ">light (lx)<", ">Normal<", ">Dummy<", ">5 lx<",
                           ">80 to 96<", "time since the stream's start (s)", "A &lt;dark> room"}) {
    EXPECT_THAT(drawing, HasSubstr(text));
  }
}

TEST(LoopPlot, TitleIsDrawnAsItIsWritten) {
  EXPECT_THAT(Draw(TwoStates(), "it's {a}^b_c~d@e\\n #f $g `h`"),
              HasSubstr(">it's {a}^b_c~d@e\\n #f $g `h`<"));
}

TEST(LoopPlot, HasNoByteThatIsNoText) {
  EXPECT_THAT(Draw(TwoStates(), "a\xFF\x01<b"), HasSubstr(">a\\xFF &lt;b<"));
}

TEST(LoopPlot, ACameraOfGlassHasNoLightPanel) {
  const std::string drawing =
      Draw(Read(kLogHeader + "1,0.064,104,3,29,3,1,156,522,Normal,Normal,1,0,0,\n"), "Loop");
  EXPECT_THAT(drawing, Not(HasSubstr("light (lx)")));
}

TEST(LoopPlot, OneFrameAtTheVeryStartIsDrawnWithoutInfinities) {
  const std::string drawing =
      Draw(Read(kLogHeader + "1,0,104,3,29,3,1,156,522,Normal,Normal,1,0,0,0\n"), "Loop");
  for (const char* before : {"\"", "'", "-", ",", " "}) {
    EXPECT_EQ(CountOf(drawing, std::string(before) + "nan"), 0U);
    EXPECT_EQ(CountOf(drawing, std::string(before) + "inf"), 0U);
  }
}

TEST(LoopPlot, ALogWithoutEventsHasEmptyLanes) {
  const std::string drawing =
      Draw(Read(kLogHeader + "1,1,104,3,30,0,0,0,0,Initial,Normal,0,0,0,\n"), "Loop");
  EXPECT_THAT(drawing, HasSubstr(">refused<"));
  EXPECT_EQ(CountOf(drawing, "' transform='translate("), 0U);
}

TEST(Gnuplot, ThatIsMissingIsNamedWithItsPackage) {
  const std::string path = getenv("PATH");
  setenv("PATH", "/no/such/folder", 1);
  try {
    (void)RunGnuplot("set terminal svg\n");
    ADD_FAILURE() << "was run";
  } catch (const CommandError& error) {
    EXPECT_STREQ(error.what(),
                 "gnuplot, which makes the drawing, is not there: install the Debian package "
                 "gnuplot-nox");
  }
  setenv("PATH", path.c_str(), 1);
}

TEST(Gnuplot, ThatFailsIsToldWithItsReason) {
  try {
    (void)RunGnuplot("draw a camera\n");
    ADD_FAILURE() << "was drawn";
  } catch (const CommandError& error) {
    EXPECT_THAT(error.what(), HasSubstr("gnuplot fails: "));
    EXPECT_THAT(error.what(), HasSubstr("invalid command"));
  }
}

}  // namespace
}  // namespace lidcam::app
