#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "viewer/server/access.h"

namespace lidcam::viewer {

/// What a request says, without its body.
struct WebRequest {
  std::string Method;
  std::string Target;  ///< "/snapshot.jpg?camera=0"
  std::string Host{};
  std::string Origin{};
  std::string Cookies{};
  std::string Authorization{};
  std::string FetchSite{};  ///< Sec-Fetch-Site: where the browser came from
  bool IsUpgrade = false;   ///< to a WebSocket
  LocalAddress Local{};
};

/// An answer with a body of its own.
struct WebAnswer {
  unsigned Status = 200;
  std::string Type{};  ///< of the body
  std::string Body{};
  std::vector<std::pair<std::string, std::string>> Fields{};
  bool IsRefusal = false;  ///< of a token or a password: it comes late
};

// What else a request may lead to.

/// The page's WebSocket.
struct LiveRequest {};
/// The next picture of a camera.
struct SnapshotRequest {
  std::size_t Camera;
};
/// All pictures of a camera, for as long as the client takes them.
struct StreamRequest {
  std::size_t Camera;
};
/// A recording's file.
struct RecordingRequest {
  std::uint64_t Id;
};
/// A body of at most `Most` bytes, for a camera's scene.
struct SceneUpload {
  std::size_t Camera;
  std::size_t Most;
};

using Reaction = std::variant<WebAnswer, LiveRequest, SnapshotRequest, StreamRequest,
                              RecordingRequest, SceneUpload>;

/// Decides what a request gets. Nothing is given before the request's Host, and then its cookie or token, are right.
class Site {
 public:
  /// @param pageFolder  the page's files are read from there, in place of the program's own: to work on the page
  Site(const Access& access, std::size_t cameras, std::optional<std::filesystem::path> pageFolder);

  [[nodiscard]] Reaction React(const WebRequest& request) const;

  static constexpr std::size_t kMostSceneBytes = std::size_t{16} * 1024 * 1024;

 private:
  struct Parts;

  [[nodiscard]] Reaction ReactInside(const WebRequest& request, const Parts& parts) const;
  [[nodiscard]] WebAnswer Enter(const WebRequest& request, const Parts& parts) const;
  [[nodiscard]] Reaction ForPrograms(const WebRequest& request, const Parts& parts) const;
  [[nodiscard]] WebAnswer FileAnswer(const std::string& name) const;
  [[nodiscard]] std::optional<std::size_t> CameraOf(const Parts& parts) const;

  const Access& access_;
  const std::size_t cameras_;
  const std::optional<std::filesystem::path> pageFolder_;
};

/// The fields that every answer has.
[[nodiscard]] const std::vector<std::pair<std::string, std::string>>& CommonFields();

/// An answer that says in a line what is wrong.
[[nodiscard]] WebAnswer ErrorAnswer(unsigned status, const std::string& line);

}  // namespace lidcam::viewer
