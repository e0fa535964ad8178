#include "viewer/server/site.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <sstream>
#include <string_view>

#include "viewer/server/page_files.h"

namespace lidcam::viewer {
namespace {

constexpr std::string_view kPageFolder = "/page/";
constexpr std::string_view kRecordings = "/recordings/";

std::optional<std::uint64_t> NumberIn(const std::string& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

struct FileType {
  std::string_view Ending;
  const char* Type;
};

constexpr FileType kFileTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
};

// Only names as the page's own files have: no hidden files.
bool IsFileName(std::string_view name) {
  const auto isPlain = [](char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= '0' && letter <= '9') || letter == '_' || letter == '-' || letter == '.';
  };
  return !name.empty() && name.front() != '.' && std::ranges::all_of(name, isPlain);
}

// A file of the page, or of a folder in it.
bool IsPathInPage(std::string_view path) {
  const std::size_t slash = path.find('/');
  if (slash == std::string_view::npos) return IsFileName(path);
  return IsFileName(path.substr(0, slash)) && IsFileName(path.substr(slash + 1));
}

const char* TypeOf(std::string_view name) {
  for (const FileType& type : kFileTypes) {
    if (name.ends_with(type.Ending)) return type.Type;
  }
  return nullptr;
}

std::optional<std::string> ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

// A browser that comes from elsewhere, such as a file or a page of another origin, sends no strict cookie with a
// request, nor with those that it is redirected to. From this answer it comes again by itself.
WebAnswer ComeAgain() {
  return {.Status = 200,
          .Type = "text/html; charset=utf-8",
          .Body =
              "<!doctype html><meta http-equiv=\"refresh\" content=\"0;url=/\">"
              "<title>lidcam</title>"};
}

WebAnswer RootRedirection() {
  return {.Status = 303, .Fields = {{"Location", "/"}}};
}

bool IsFromElsewhere(const WebRequest& request) {
  return request.FetchSite == "cross-site" || request.FetchSite == "same-site";
}

}  // namespace

/// A target's path and its parameters.
struct Site::Parts {
  std::string Path;
  std::map<std::string, std::string> Parameters{};

  // No parameter needs an escaped character.
  explicit Parts(const std::string& target) {
    const std::size_t question = target.find('?');
    Path = target.substr(0, question);
    std::string_view rest = question == std::string::npos
                                ? std::string_view()
                                : std::string_view(target).substr(question + 1);
    while (!rest.empty()) {
      const std::size_t end = rest.find('&');
      const std::string_view pair = rest.substr(0, end);
      const std::size_t equals = pair.find('=');
      if (equals != std::string_view::npos) {
        Parameters.emplace(pair.substr(0, equals), pair.substr(equals + 1));
      }
      rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
  }

  [[nodiscard]] std::string Of(const std::string& name) const {
    const auto found = Parameters.find(name);
    return found == Parameters.end() ? std::string() : found->second;
  }
};

const std::vector<std::pair<std::string, std::string>>& CommonFields() {
  static const std::vector<std::pair<std::string, std::string>> kFields = {
      {"Content-Security-Policy",
       "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; "
       "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
      {"Referrer-Policy", "no-referrer"},
      {"X-Content-Type-Options", "nosniff"},
      {"X-Frame-Options", "DENY"},
      {"Cross-Origin-Opener-Policy", "same-origin"},
      {"Cross-Origin-Resource-Policy", "same-origin"},
      {"Cache-Control", "no-store"},
  };
  return kFields;
}

WebAnswer ErrorAnswer(unsigned status, const std::string& line) {
  return {.Status = status, .Type = "text/plain; charset=utf-8", .Body = line + "\n"};
}

Site::Site(const Access& access, std::size_t cameras,
           std::optional<std::filesystem::path> pageFolder)
    : access_(access), cameras_(cameras), pageFolder_(std::move(pageFolder)) {}

Reaction Site::React(const WebRequest& request) const {
  if (!Access::IsOwnHost(request.Host, request.Local)) {
    return ErrorAnswer(421, "this server is not '" + request.Host.substr(0, 200) +
                                "': use the address that it was started with");
  }
  const Parts parts(request.Target);
  if (parts.Path == "/snapshot.jpg" || parts.Path == "/stream.mjpg") {
    return ForPrograms(request, parts);
  }
  if (access_.HasSession(request.Cookies, request.Local.Port)) return ReactInside(request, parts);
  return Enter(request, parts);
}

WebAnswer Site::Enter(const WebRequest& request, const Parts& parts) const {
  if (request.Method != "GET" || parts.Path != "/") {
    return ErrorAnswer(403, "open the address that lidcam view has printed first");
  }
  WebAnswer entered = IsFromElsewhere(request) ? ComeAgain() : RootRedirection();
  entered.Fields.emplace_back("Set-Cookie", access_.SetCookie(request.Local.Port));
  if (access_.NeedsPassword()) {
    if (access_.HasPassword(request.Authorization)) return entered;
    WebAnswer refused = ErrorAnswer(401, "the password is missing, or another one");
    refused.Fields = {{"WWW-Authenticate", "Basic realm=\"lidcam view\", charset=\"UTF-8\""}};
    refused.IsRefusal = !request.Authorization.empty();
    return refused;
  }
  if (access_.IsToken(parts.Of("token"))) return entered;
  if (parts.Parameters.contains("token")) {
    WebAnswer refused = ErrorAnswer(403, "the token is of another run of lidcam view");
    refused.IsRefusal = true;
    return refused;
  }
  if (IsFromElsewhere(request)) return ComeAgain();
  return ErrorAnswer(403, "open the address that lidcam view has printed: it has a token");
}

Reaction Site::ForPrograms(const WebRequest& request, const Parts& parts) const {
  const bool isAllowed = access_.HasSession(request.Cookies, request.Local.Port) ||
                         access_.IsSnapshotToken(parts.Of("token"));
  if (!isAllowed) {
    WebAnswer refused =
        ErrorAnswer(403, "a token is missing, or of another run: the page shows this address");
    refused.IsRefusal = parts.Parameters.contains("token");
    return refused;
  }
  if (request.Method != "GET") return ErrorAnswer(405, "only GET is answered here");
  const std::optional<std::size_t> camera = CameraOf(parts);
  if (!camera) return ErrorAnswer(404, "there is no such camera");
  if (parts.Path == "/snapshot.jpg") return SnapshotRequest{*camera};
  return StreamRequest{*camera};
}

Reaction Site::ReactInside(const WebRequest& request, const Parts& parts) const {
  const bool isOwnPage = Access::IsOwnOrigin(request.Origin, request.Local);
  if (request.Method == "POST") {
    if (!isOwnPage) return ErrorAnswer(403, "a page of another origin can't post here");
    if (parts.Path != "/scene") return ErrorAnswer(404, "there is nothing here");
    const std::optional<std::size_t> camera = CameraOf(parts);
    if (!camera) return ErrorAnswer(404, "there is no such camera");
    return SceneUpload{*camera, kMostSceneBytes};
  }
  if (request.Method != "GET") return ErrorAnswer(405, "only GET and POST are answered here");
  if (parts.Path == "/live") {
    if (!isOwnPage) return ErrorAnswer(403, "a page of another origin can't connect here");
    if (!request.IsUpgrade) return ErrorAnswer(426, "this is a WebSocket");
    return LiveRequest{};
  }
  // The token leaves the address also where the browser has a cookie already.
  if (parts.Path == "/" && parts.Parameters.contains("token")) {
    return RootRedirection();
  }
  if (parts.Path == "/") return FileAnswer("index.html");
  if (parts.Path.starts_with(kRecordings)) {
    const std::optional<std::uint64_t> id = NumberIn(parts.Path.substr(kRecordings.size()));
    if (id) return RecordingRequest{*id};
  }
  if (parts.Path.starts_with(kPageFolder)) return FileAnswer(parts.Path.substr(kPageFolder.size()));
  return ErrorAnswer(404, "there is nothing here");
}

WebAnswer Site::FileAnswer(const std::string& name) const {
  const char* const type = TypeOf(name);
  const WebAnswer none = ErrorAnswer(404, "the page has no such file");
  if (type == nullptr || !IsPathInPage(name)) return none;
  if (pageFolder_) {
    std::optional<std::string> content = ReadFile(*pageFolder_ / name);
    if (!content) return none;
    return {.Status = 200, .Type = type, .Body = std::move(*content)};
  }
  for (const PageFile& file : PageFiles()) {
    if (file.Name == name) return {.Status = 200, .Type = type, .Body = std::string(file.Content)};
  }
  return none;
}

std::optional<std::size_t> Site::CameraOf(const Parts& parts) const {
  const std::optional<std::uint64_t> camera =
      NumberIn(parts.Parameters.contains("camera") ? parts.Of("camera") : "0");
  if (!camera || *camera >= cameras_) return std::nullopt;
  return static_cast<std::size_t>(*camera);
}

}  // namespace lidcam::viewer
