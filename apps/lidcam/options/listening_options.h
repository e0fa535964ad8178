#pragma once

#include <string>

#include "serve/sockets/listener.h"

namespace lidcam::app {

/// The password in the first line of --password-file. Throws CommandError if there is none.
[[nodiscard]] std::string PasswordIn(const std::string& path);

/// The first line of a file that an option names. Throws CommandError if there is none.
///
/// @param option  "--token-file", for the error
/// @param what    "token"
[[nodiscard]] std::string FirstLineIn(const std::string& path, const std::string& option,
                                      const std::string& what);

/// Listens on --listen's HOST:PORT. Throws UsageError for a text that is not an address, CommandError for one
/// that can't be listened on.
[[nodiscard]] serve::Listener ListenOn(const std::string& address);

/// The same on a socket in the file system.
[[nodiscard]] serve::Listener ListenOnPath(const std::string& path);

}  // namespace lidcam::app
