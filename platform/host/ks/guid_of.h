#pragma once

#if defined(_WIN32) && !defined(LIDCAM_HOST_DECLARATIONS)
#include "platform/kernel.h"
#else
#include "platform/host/ks/ks_declarations.h"
#endif

namespace lidcam::host {

/// A GUID of the numbers that the platform publishes as STATIC_ and the GUID's name, for data that must
/// be built at compile time.
constexpr GUID GuidOf(ULONG data1, USHORT data2, USHORT data3, UCHAR b1, UCHAR b2, UCHAR b3,
                      UCHAR b4, UCHAR b5, UCHAR b6, UCHAR b7, UCHAR b8) {
  return GUID{data1, data2, data3, {b1, b2, b3, b4, b5, b6, b7, b8}};
}

}  // namespace lidcam::host
