#include "apps/lidcam/base/standard_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "library/base/command_error.h"

namespace lidcam::app {

void KeepStandardStreamsApart() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (::fcntl(stream, F_GETFD) != -1 || errno != EBADF) continue;
    // open() returns the lowest free number, which is this one.
    const int opened = ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    if (opened != stream && opened >= 0) ::close(opened);
  }
}

void RequireStandardOutput() {
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  throw CommandError("standard output can't be written: " +
                     std::string(errno != 0 ? std::strerror(errno) : "part of it was lost"));
}

}  // namespace lidcam::app
