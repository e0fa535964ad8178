#pragma once

#include <functional>
#include <string>

#include "library/lidcam.h"

namespace lidcam::api {

/// Runs what a function of the interface does, and makes a status of its exceptions, with the text for the calling
/// thread.
[[nodiscard]] lidcam_status Guard(const std::function<lidcam_status()>& body) noexcept;

/// Sets the thread's error text.
/// @return the status
lidcam_status Fail(lidcam_status status, const std::string& text) noexcept;

/// Fails for an argument that is null and must not be.
lidcam_status FailForNull(const char* argument) noexcept;

}  // namespace lidcam::api
