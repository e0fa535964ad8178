// Runs the whole tour of the camera's driver, by means of user mode only.

#include <cstdio>
#include <exception>

#include "tests/on_wine/client/tour.h"

int wmain(int count, wchar_t** words) {
  if (count != 4) {
    std::fputs("usage: lidcam_client PACKAGE BUS RUN (folders, each with its last \\)\n", stderr);
    return 2;
  }
  try {
    lidcam::wine::TakeTour({words[1], words[2], words[3]});
  } catch (const std::exception& error) {
    std::printf("failed: %s\n", error.what());
    return 1;
  }
  std::puts("ok all of it");
  return 0;
}
