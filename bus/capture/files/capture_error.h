#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace lidcam::bus {

/// A capture can't be read, written or used. what() is one line for the user: the file, the reason
/// and, if there is one, the remedy.
class CaptureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The system's text for an errno.
inline std::string ErrorText(int error) {
  return std::generic_category().message(error);
}

}  // namespace lidcam::bus
