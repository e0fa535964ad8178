#include "platform/host/nt/system/debug_print.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(DebugPrint, KeepsMessagesByteForByte) {
  const DebugPrintCapture debug;
  DbgPrint(" ******** two blanks  and a feed \n");
  DbgPrint("value %d of %s", 42, "many");
  EXPECT_THAT(debug.Messages(),
              ElementsAre(" ******** two blanks  and a feed \n", "value 42 of many"));
}

TEST(DebugPrint, CutsALongMessage) {
  const DebugPrintCapture debug;
  DbgPrint("%s", std::string(2000, 'x').c_str());
  EXPECT_EQ(debug.Messages().at(0), std::string(511, 'x'));
}

TEST(DebugPrint, AnObserverPassesMessagesOn) {
  const DebugPrintCapture debug;
  std::vector<std::string> seen;
  {
    const DebugPrintObserver observer(
        [&seen](const std::string& message) { seen.push_back(message); });
    DbgPrint("seen");
  }
  DbgPrint("later");
  EXPECT_THAT(seen, ElementsAre("seen"));
  EXPECT_THAT(debug.Messages(), ElementsAre("seen", "later"));
}

TEST(DebugPrint, CaptureGivesTheSinkBeforeItBack) {
  std::vector<std::string> seen;
  SetDebugPrintSink([&seen](const std::string& message) { seen.push_back(message); });
  {
    const DebugPrintCapture debug;
    DbgPrint("captured");
    EXPECT_THAT(seen, IsEmpty());
  }
  DbgPrint("passed on");
  SetDebugPrintSink(nullptr);
  DbgPrint("dropped");
  EXPECT_THAT(seen, ElementsAre("passed on"));
}

}  // namespace
}  // namespace lidcam::host
