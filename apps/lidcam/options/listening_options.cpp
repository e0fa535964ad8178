#include "apps/lidcam/options/listening_options.h"

#include <fstream>
#include <stdexcept>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

serve::Listener Opened(serve::Listener (*open)(const std::string& where),
                       const std::string& where) {
  try {
    return open(where);
  } catch (const std::invalid_argument& error) {
    throw UsageError(error.what());
  } catch (const serve::SocketError& error) {
    throw CommandError(error.what());
  }
}

}  // namespace

std::string PasswordIn(const std::string& path) {
  return FirstLineIn(path, "--password-file", "password");
}

std::string FirstLineIn(const std::string& path, const std::string& option,
                        const std::string& what) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line) || line.empty()) {
    throw CommandError(option + " '" + path + "': no " + what + " can be read in its first line");
  }
  return line;
}

serve::Listener ListenOn(const std::string& address) {
  return Opened(serve::Listener::OnAddress, address);
}

serve::Listener ListenOnPath(const std::string& path) {
  return Opened(serve::Listener::OnPath, path);
}

}  // namespace lidcam::app
