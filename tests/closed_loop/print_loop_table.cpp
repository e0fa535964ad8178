// Prints the exposure loop's outcome at each light, in the form of the golden table.

#include <cstdio>

#include "tests/closed_loop/loop_table.h"

int main() {
  std::fputs(lidcam::app::LoopTableHeading().c_str(), stdout);
  for (const lidcam::app::LoopCase& loopCase : lidcam::app::AllLoopCases()) {
    const lidcam::app::LoopOutcome outcome = lidcam::app::RunLoopCase(loopCase);
    std::fputs(lidcam::app::LoopTableLine(loopCase, outcome).c_str(), stdout);
    std::fflush(stdout);
  }
  return 0;
}
