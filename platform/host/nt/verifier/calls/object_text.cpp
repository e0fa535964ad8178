#include "platform/host/nt/verifier/calls/object_text.h"

#include <array>
#include <cstdio>

namespace lidcam::host {

std::string DescribeObject(const char* kind, const void* object) {
  std::array<char, 80> text{};
  std::snprintf(text.data(), text.size(), "%s %p", kind, object);
  return text.data();
}

}  // namespace lidcam::host
