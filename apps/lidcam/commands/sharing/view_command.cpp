#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/lidcam/commands/commands.h"
#include "apps/lidcam/options/common_options.h"
#include "apps/lidcam/options/listening_options.h"
#include "apps/lidcam/output/pipeline/frame_output.h"
#include "library/base/command_error.h"
#include "library/base/interrupt.h"
#include "library/frames/replay_pipeline.h"
#ifdef LIDCAM_HAS_VIEWER
#include "viewer/server/access.h"
#include "viewer/server/web_server.h"
#endif

namespace lidcam::app {
namespace {

struct ViewCommand {
  std::vector<std::string> Cameras;
  std::string Address = "127.0.0.1:0";
  std::optional<std::string> PasswordFile;
  std::optional<std::string> TokenFile;
  std::optional<std::string> PageFolder;
  bool HasNoBrowser = false;
  bool IsQuiet = false;
};

#ifdef LIDCAM_HAS_VIEWER

std::optional<std::string> ViewPassword(const ViewCommand& command) {
  if (command.PasswordFile) return PasswordIn(*command.PasswordFile);
  const char* const password = std::getenv("LIDCAM_VIEW_PASSWORD");
  if (password == nullptr || *password == '\0') return std::nullopt;
  return password;
}

std::optional<std::string> ProgramToken(const ViewCommand& command) {
  if (!command.TokenFile) return std::nullopt;
  std::string token = FirstLineIn(*command.TokenFile, "--token-file", "token");
  if (!viewer::IsFitForToken(token)) {
    throw CommandError("--token-file '" + *command.TokenFile +
                       "': a token has at least 16 letters, digits, - and _, and nothing else");
  }
  return token;
}

// A camera that is away, or in use, is waited for.
viewer::HubCamera ViewCamera(const std::string& address) {
  SessionOptions session;
  session.Choice.Camera = address;
  session.Patience.HowToWait = "";
  viewer::CameraState state = viewer::StateOf(address);
  try {
    state = viewer::DescribeCamera(session);
  } catch (const CommandError& error) {
    const bool mayChange = error.Kind() == Failure::InUse || error.Kind() == Failure::Unplugged;
    if (!mayChange) throw;
    state.Phase = viewer::CameraPhase::Failed;
    state.Error = error.what();
  }
  return {.Session = std::move(session), .State = std::move(state)};
}

std::vector<viewer::HubCamera> ViewCameras(const ViewCommand& command) {
  std::vector<viewer::HubCamera> cameras;
  if (command.Cameras.empty()) {
    CommonOptions common;
    common.Output.IsQuiet = command.IsQuiet;
    ChooseCamera(common);
    cameras.push_back(ViewCamera(common.Camera.Camera));
  }
  for (const std::string& address : command.Cameras) cameras.push_back(ViewCamera(address));
  return cameras;
}

/// Has the desktop open an address. The arguments of a process are seen by all users of the machine, and the address has
/// the token: the browser gets a file of the user's own that leads to it, which goes with this object.
class BrowserPage {
 public:
  explicit BrowserPage(const std::string& address) {
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    const bool hasDesktop =
        std::getenv("DISPLAY") != nullptr || std::getenv("WAYLAND_DISPLAY") != nullptr;
    if (!hasDesktop || folder == nullptr || *folder != '/') return;
    path_ = std::string(folder) + "/lidcam-view-" + std::to_string(::getpid()) + ".html";
    const int file =
        ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) return;
    const std::string page =
        "<!doctype html><meta http-equiv=\"refresh\" content=\"0;url=" + address + "\">\n";
    const bool isWritten = ::write(file, page.data(), page.size()) == std::ssize(page);
    ::close(file);
    if (!isWritten) return;
    std::string program = "xdg-open";
    std::array<char*, 3> arguments{program.data(), path_.data(), nullptr};
    if (::posix_spawnp(&process_, program.c_str(), nullptr, nullptr, arguments.data(), environ) !=
        0) {
      process_ = 0;
    }
  }
  BrowserPage(const BrowserPage&) = delete;
  BrowserPage& operator=(const BrowserPage&) = delete;
  ~BrowserPage() {
    if (!path_.empty()) ::unlink(path_.c_str());
    if (process_ != 0) ::waitpid(process_, nullptr, WNOHANG);
  }

 private:
  std::string path_;
  pid_t process_ = 0;
};

/// A file of a page's recording, as `lidcam stream` writes it.
class ViewWriter final : public viewer::PictureWriter {
 public:
  ViewWriter(const std::string& path, PictureSize size)
      : output_(MakeFileWriter(path, size, kFramePeriod)) {}

  void Write(const viewer::Picture& picture, std::chrono::microseconds time) override {
    output_->Write({.Yuy2 = picture.Yuy2, .Time = time, .Number = ++number_});
  }
  void Finish() override { output_->Finish(); }

 private:
  const std::unique_ptr<FrameWriter> output_;
  std::uint64_t number_ = 0;
};

std::vector<std::string> ViewForms() {
#ifdef LIDCAM_HAS_FILM
  return {"mkv", "mp4", "avi", "mjpeg", "y4m", "yuy2"};
#else
  return {"mjpeg", "y4m", "yuy2"};
#endif
}

void RunView(const ViewCommand& command) {
  const std::optional<std::string> password = ViewPassword(command);
  const std::optional<std::string> programToken = ProgramToken(command);
  serve::Listener listener = ListenOn(command.Address);
  if (listener.IsReachable() && !password) {
    throw UsageError(
        "view: " + listener.Name() +
        " can be reached by other machines: give --password-file or LIDCAM_VIEW_PASSWORD");
  }
  viewer::WebServer server(std::move(listener),
                           {.Cameras = ViewCameras(command),
                            .Version = LIDCAM_VERSION,
                            .Password = password,
                            .ProgramToken = programToken,
                            .PageFolder = command.PageFolder,
                            .Forms = ViewForms(),
                            .MakeWriter = [](const std::string& path, PictureSize size) {
                              return std::make_unique<ViewWriter>(path, size);
                            }});
  std::fprintf(stderr, "lidcam: %s\n", server.Address().c_str());
  std::optional<BrowserPage> browser;
  if (!command.HasNoBrowser) browser.emplace(server.Address());
  server.Run(IsInterrupted);
}

#else

void RunView(const ViewCommand&) {
  throw CommandError("view: this lidcam was built without Boost.Beast");
}

#endif

}  // namespace

void AddViewCommand(CLI::App& app) {
  const auto command = std::make_shared<ViewCommand>();
  CLI::App* const sub =
      app.add_subcommand("view", "the live camera in the browser, with the driver's inside");
  sub->add_option(
         "--camera", command->Cameras,
         "usb[:BUS-PORT][:VID:PID], sim[:vid:pid][,NAME=VALUE...] or capture:FILE; once for "
         "each camera; if not given, a camera that is plugged in, else sim")
      ->type_name("CAMERA")
      ->allow_extra_args(false)
      ->envname("LIDCAM_CAMERA");
  sub->add_option("--listen", command->Address,
                  "where browsers connect, a free port of 127.0.0.1 if not given")
      ->type_name("ADDRESS:PORT");
  sub->add_option("--password-file", command->PasswordFile,
                  "a file whose first line is the password; needed, or LIDCAM_VIEW_PASSWORD, where "
                  "other machines can reach the address")
      ->type_name("FILE");
  sub->add_option("--token-file", command->TokenFile,
                  "a file whose first line is the token of /snapshot.jpg and /stream.mjpg; another "
                  "one at each start if not given")
      ->type_name("FILE");
  sub->add_flag("--no-browser", command->HasNoBrowser, "only print the address");
  sub->add_flag("-q,--quiet", command->IsQuiet, "tell only the address, warnings and errors");
  // For work on the page.
  sub->add_option("--page-folder", command->PageFolder)->group("");
  sub->footer(
      "The camera is on only while a page looks at it. Ctrl-C and SIGTERM end the command.\n"
      "Example:\n"
      "  lidcam view                                  # prints an address, and opens it\n"
      "  lidcam view --camera sim --camera sim:1af0:6010,light=20lx@0s\n"
      "  lidcam view --camera capture:bus.pcap --no-browser");
  sub->callback([command] { RunView(*command); });
}

}  // namespace lidcam::app
