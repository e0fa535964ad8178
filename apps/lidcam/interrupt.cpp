#include "apps/lidcam/interrupt.h"

#include <csignal>

namespace lidcam::app {
namespace {

volatile std::sig_atomic_t g_isInterrupted = 0;

extern "C" void NoteInterrupt(int) {
  g_isInterrupted = 1;
}

}  // namespace

void WatchForInterrupt() {
  struct sigaction action {};
  action.sa_handler = NoteInterrupt;
  // A second Ctrl-C ends the program at once.
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

bool IsInterrupted() {
  return g_isInterrupted != 0;
}

}  // namespace lidcam::app
