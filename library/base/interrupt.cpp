#include "library/base/interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>

namespace lidcam::app {
namespace {

// Programs such as timeout send one request twice: to the program and to its process group.
constexpr std::int64_t kTogether = 200;  // ms

std::atomic<std::int64_t> g_askedAt = 0;  // ms of the machine's clock; 0: not yet
std::atomic<int> g_signal = 0;
std::atomic<bool> g_isSaveAsked = false;
static_assert(decltype(g_isSaveAsked)::is_always_lock_free);
static_assert(decltype(g_askedAt)::is_always_lock_free && decltype(g_signal)::is_always_lock_free);

std::int64_t Now() {
  constexpr std::int64_t kMillisecondsPerSecond = 1000;
  constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kMillisecondsPerSecond + now.tv_nsec / kNanosecondsPerMillisecond + 1;
}

extern "C" void NoteInterrupt(int signal) {
  const int error = errno;
  const std::int64_t now = Now();
  std::int64_t askedAt = 0;
  if (g_askedAt.compare_exchange_strong(askedAt, now)) {
    g_signal = signal;
  } else if (now - askedAt > kTogether) {
    std::signal(signal, SIG_DFL);
    raise(signal);
  }
  errno = error;
}

extern "C" void NoteSaveRequest(int) {
  g_isSaveAsked = true;
}

bool IsIgnored(int signal) {
  struct sigaction before {};
  return sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN;
}

}  // namespace

void WatchForInterrupt() {
  struct sigaction action {};
  action.sa_handler = NoteInterrupt;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  if (!IsIgnored(SIGHUP)) sigaction(SIGHUP, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

bool IsInterrupted() {
  return g_signal != 0;
}

bool IsInterruptedByUser() {
  return g_signal == SIGINT;
}

std::string InterruptText() {
  switch (g_signal) {
    case 0:
      return {};
    case SIGINT:
      return "interrupted";
    case SIGHUP:
      return "ended by SIGHUP";
    default:
      return "ended by SIGTERM";
  }
}

void WatchForSaveRequest() {
  struct sigaction action {};
  action.sa_handler = NoteSaveRequest;
  action.sa_flags = SA_RESTART;
  sigaction(SIGUSR1, &action, nullptr);
}

bool TakeSaveRequest() {
  return g_isSaveAsked.exchange(false);
}

}  // namespace lidcam::app
