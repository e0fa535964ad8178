#pragma once

#include <functional>
#include <string>

namespace lidcam::app {

/// Receives a notice to the user: one line without a line end. On any thread, one at a time.
using NoticeSink = std::function<void(const std::string& line)>;

/// Sets where notices go; null drops them. Initially they go to standard error, with "lidcam: " in front.
void SetNoticeSink(NoticeSink sink);

/// Tells the user something that is no error, such as a condition that may be corrected. Any thread.
void TellUser(const std::string& line);

}  // namespace lidcam::app
