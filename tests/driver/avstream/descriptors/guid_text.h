#pragma once

#include <cstdio>
#include <string>

#include "platform/kernel.h"

namespace lidcam::test {

/// A GUID in its usual notation, in capitals and without braces.
inline std::string Text(const GUID& guid) {
  char text[40];
  std::snprintf(text, sizeof(text), "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", guid.Data1,
                guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
                guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
  return text;
}

}  // namespace lidcam::test
