#include "library/base/notices.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace lidcam::app {
namespace {

struct Notices {
  std::mutex Mutex;
  NoticeSink Sink = [](const std::string& line) {
    std::fprintf(stderr, "lidcam: %s\n", line.c_str());
  };

  // Never destroyed: a camera may be open at the very end of the program.
  static Notices& Instance() {
    static auto* const notices = new Notices;
    return *notices;
  }
};

}  // namespace

void SetNoticeSink(NoticeSink sink) {
  Notices& notices = Notices::Instance();
  const std::lock_guard lock(notices.Mutex);
  notices.Sink = std::move(sink);
}

void TellUser(const std::string& line) {
  Notices& notices = Notices::Instance();
  const std::lock_guard lock(notices.Mutex);
  if (notices.Sink) notices.Sink(line);
}

}  // namespace lidcam::app
