#pragma once

#include <string>

namespace lidcam::host {

/// A name and an address, as reports give objects.
[[nodiscard]] std::string DescribeObject(const char* kind, const void* object);

}  // namespace lidcam::host
