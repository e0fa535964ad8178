#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "serve/sockets/listener.h"
#include "viewer/live/hub.h"

namespace lidcam::viewer {

/// Shows cameras to browsers: one thread for all of them.
class WebServer {
 public:
  struct Options {
    std::vector<HubCamera> Cameras;
    std::string Version;
    std::optional<std::string> Password{};
    std::optional<std::string> ProgramToken{};  ///< of the addresses for other programs
    /// The page's files, in place of the program's own: to work on the page.
    std::optional<std::filesystem::path> PageFolder{};
    std::vector<std::string> Forms{};  ///< of recordings: "mkv"
    MakePictureWriter MakeWriter{};
    std::size_t MostConnections = 512;
  };

  WebServer(serve::Listener listener, Options options);
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;
  ~WebServer();

  /// What a browser opens: "http://127.0.0.1:8080/?token=...".
  [[nodiscard]] std::string Address() const;

  /// Serves until `isOver`, which is called twenty times a second, then closes cameras and connections. Once.
  void Run(const std::function<bool()>& isOver);

 private:
  struct Parts;

  const std::unique_ptr<Parts> parts_;
};

}  // namespace lidcam::viewer
