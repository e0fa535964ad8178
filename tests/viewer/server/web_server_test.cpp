#include "viewer/server/web_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/viewer/support/web_client.h"

namespace lidcam::viewer {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

// A PNG.
constexpr char kWhitePixel[] =
    "\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR\0\0\0\x01\0\0\0\x01\x08\x02\0\0\0\x90\x77\x53\xDE"
    "\0\0\0\x0CIDAT\x78\x9C\x63\xF8\xFF\xFF\x3F\0\x05\xFE\x02\xFE\x0D\xEF\x46\xB8"
    "\0\0\0\0IEND\xAE\x42\x60\x82";

/// Writes the numbers of pictures, a line each.
class NumberWriter final : public PictureWriter {
 public:
  explicit NumberWriter(const std::string& path) : file_(path) {}
  void Write(const Picture& picture, std::chrono::microseconds) override {
    file_ << picture.Number << "\n";
  }
  void Finish() override { file_.close(); }

 private:
  std::ofstream file_;
};

/// A file on a disk with room for two pictures.
class FullDiskWriter final : public PictureWriter {
 public:
  explicit FullDiskWriter(const std::string& path) : file_(path) {}
  void Write(const Picture&, std::chrono::microseconds) override {
    if (++pictures_ > 2) throw std::runtime_error("the disk is full");
    file_ << pictures_ << "\n";
  }
  void Finish() override { file_.close(); }

 private:
  std::ofstream file_;
  int pictures_ = 0;
};

/// A server on a thread of its own, with a simulated camera.
class WebServerTest : public testing::Test {
 protected:
  WebServerTest() {
    ::setenv("LIDCAM_HOME", folder_.c_str(), 1);
    ::unsetenv("XDG_RUNTIME_DIR");
    std::filesystem::create_directories(folder_);
  }
  ~WebServerTest() override {
    End();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  void Begin(WebServer::Options options = {}, const std::string& camera = "sim") {
    app::SessionOptions session;
    session.Choice.Camera = camera;
    options.Cameras.push_back({.Session = session, .State = StateOf(camera)});
    options.Version = "1";
    options.Forms = {"txt", "full", "none"};
    options.MakeWriter = [](const std::string& path,
                            app::PictureSize) -> std::unique_ptr<PictureWriter> {
      if (path.ends_with(".none")) throw std::runtime_error("the module is missing");
      if (path.ends_with(".full")) return std::make_unique<FullDiskWriter>(path);
      return std::make_unique<NumberWriter>(path);
    };
    server_ =
        std::make_unique<WebServer>(serve::Listener::OnAddress("127.0.0.1:0"), std::move(options));
    address_ = server_->Address();
    thread_ = std::thread([this] { server_->Run([this] { return isOver_.load(); }); });
  }

  void End() {
    if (!thread_.joinable()) return;
    isOver_ = true;
    thread_.join();
    server_.reset();
  }

  [[nodiscard]] std::uint16_t Port() const { return PortOf(address_); }
  [[nodiscard]] std::string Origin() const {
    return "Origin: http://127.0.0.1:" + std::to_string(Port()) + "\r\n";
  }

  /// A page that watches the camera.
  [[nodiscard]] std::unique_ptr<PageClient> Watcher() const {
    auto page = std::make_unique<PageClient>(address_);
    page->Say({{"do", "watch"}, {"cameras", {0}}});
    return page;
  }

  const std::filesystem::path folder_ =
      std::filesystem::path(testing::TempDir()) / ("viewer-" + std::to_string(::getpid()));
  std::unique_ptr<WebServer> server_;
  std::string address_;
  std::atomic<bool> isOver_ = false;
  std::thread thread_;
};

TEST_F(WebServerTest, APageThatLooksGetsPicturesAndTheCameraIsOn) {
  Begin();
  const auto page = Watcher();
  EXPECT_EQ(page->AwaitNamed("hello")["cameras"][0]["state"], "off");
  page->AwaitState("on");
  const json first = page->AwaitPicture();
  const json second = page->AwaitPicture();
  EXPECT_EQ(first["jpeg"].get_binary()[0], 0xFF);
  EXPECT_EQ(first["jpeg"].get_binary()[1], 0xD8);
  EXPECT_EQ(first["width"], 640);
  EXPECT_GT(second["number"], first["number"]);
  EXPECT_GT(second["monotonic"], first["monotonic"]);
  EXPECT_GE(second["sent"], second["monotonic"]);
}

// Its end is that of an older frame: a page must not take it for a picture of one moment.
TEST_F(WebServerTest, APictureThatLostBytesOnTheBusIsToldApart) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  page->Ask({{"do", "simulate"}, {"camera", 0}, {"faults", "frame 2 packet 100 lose 60"}});
  page->Await([](const json& message) {
    return message.contains("jpeg") && message.value("whole", json()) == json(false);
  });
  page->Await([](const json& message) {
    return message.contains("jpeg") && message.value("whole", json()) == json(true);
  });
}

TEST_F(WebServerTest, ACameraThatNoPageLooksAtIsOff) {
  Begin();
  const auto page = Watcher();
  const PageClient other(address_);
  page->AwaitPicture();
  page->Say({{"do", "watch"}, {"cameras", json::array()}});
  page->AwaitState("off");
}

TEST_F(WebServerTest, ASlowPageHoldsUpNeitherTheCameraNorAQuickOne) {
  Begin();
  const auto quick = Watcher();
  const auto slow = Watcher();
  slow->Shows = false;
  quick->AwaitPicture();
  std::int64_t last = 0;
  for (int i = 0; i < 60; ++i) last = quick->AwaitPicture()["number"];
  slow->AwaitPicture();
  EXPECT_LT(slow->AwaitPicture()["number"].get<std::int64_t>(), last);
  slow->Say({{"do", "clock"}, {"sent", 1}});
  // Nothing of the sixty is under way.
  const json next = slow->Await(
      [](const json& message) { return message.contains("jpeg") || message.contains("clock"); });
  EXPECT_TRUE(next.contains("clock"));
}

TEST_F(WebServerTest, AControlThatAPageSetsIsSavedAndOtherPagesSeeIt) {
  Begin();
  const auto page = Watcher();
  const auto other = Watcher();
  page->AwaitPicture();
  EXPECT_FALSE(page->Ask({{"do", "set"}, {"camera", 0}, {"name", "contrast"}, {"value", 13}})
                   .contains("error"));
  const auto contrastOf = [](const json& rows) {
    for (const json& row : rows) {
      if (row["name"] == "Contrast") return row;
    }
    return json();
  };
  other->Await([&](const json& message) {
    if (!message.contains("controls")) return false;
    const json row = contrastOf(message["controls"]["rows"]);
    return row["value"] == 13 && row["saved"] == 13;
  });
  std::ifstream settings(folder_ / "registry.reg", std::ios::binary);
  EXPECT_TRUE(settings.good());
  const json refused =
      page->Ask({{"do", "set"}, {"camera", 0}, {"name", "Contrast"}, {"value", 1000}});
  EXPECT_THAT(refused["error"], HasSubstr("1000"));
}

// A read of the bridge that meets the exposure control never ends, and one of the sensor spoils its write.
TEST_F(WebServerTest, AControlThatAPageSetsIsNotReadBackFromTheRegisters) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  page->Ask({{"do", "trace"}, {"camera", 0}, {"on", true}});
  std::string trace;
  const auto sets = [&](const char* name, int value, const auto& isOver) {
    page->Say({{"do", "set"}, {"camera", 0}, {"name", name}, {"value", value}});
    page->Await([&](const json& message) {
      if (message.contains("trace")) {
        for (const json& line : message["trace"]["lines"]) trace += line.get<std::string>() + "\n";
      }
      return isOver(message);
    });
  };
  sets("Contrast", 3, [](const json& message) { return message.contains("controls"); });
  sets("Brightness", 20,
       [&](const json&) { return trace.find("write bridge FF77") != std::string::npos; });
  EXPECT_THAT(trace, HasSubstr("write bridge FF0F"));
  EXPECT_THAT(trace, testing::Not(HasSubstr("read  bridge FF77")));
  EXPECT_THAT(trace, testing::Not(HasSubstr("read  sensor FF04")));
}

TEST_F(WebServerTest, EveryControlIsResetAtOnce) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  page->Ask({{"do", "set"}, {"camera", 0}, {"name", "LED"}, {"value", 3}});
  page->Ask({{"do", "set"}, {"camera", 0}, {"name", "Contrast"}, {"value", 3}});
  page->Ask({{"do", "reset"}, {"camera", 0}});
  page->Await([](const json& message) {
    if (!message.contains("controls")) return false;
    bool areDefaults = true;
    for (const json& row : message["controls"]["rows"]) {
      if (row["name"] == "LED" || row["name"] == "Contrast")
        areDefaults &= row["value"] == row["default"];
    }
    return areDefaults;
  });
}

TEST_F(WebServerTest, TheLoopTheBusAndTheRegistersAreTold) {
  Begin();
  const auto page = Watcher();
  const json registers = page->AwaitNamed("registers");
  EXPECT_EQ(registers["changed"][0]["name"], "PowerAndLed");
  const json loop = page->AwaitNamed("loop");
  EXPECT_EQ(loop["target"], 88);
  EXPECT_EQ(loop["low"], 80);
  EXPECT_EQ(loop["high"], 96);
  EXPECT_GT(loop["luminance"], 0);
  const json bus = page->Await([](const json& message) {
    return message.contains("bus") && message["bus"]["good"] > 10;
  })["bus"];
  EXPECT_GT(bus["packets"], 1000);
  EXPECT_GT(bus["bytes"], 6000000);
}

TEST_F(WebServerTest, TheTraceGoesToThePageThatAsks) {
  Begin();
  const auto page = Watcher();
  const auto other = Watcher();
  page->AwaitPicture();
  page->Ask({{"do", "trace"}, {"camera", 0}, {"on", true}});
  const json trace = page->AwaitNamed("trace");
  EXPECT_THAT(trace["lines"][0].get<std::string>(), testing::ContainsRegex("frame|bus|exposure"));
  other->Say({{"do", "clock"}, {"sent", 1}});
  const json next = other->Await(
      [](const json& message) { return message.contains("trace") || message.contains("clock"); });
  EXPECT_TRUE(next.contains("clock"));
}

TEST_F(WebServerTest, ARegisterIsReadAndWritten) {
  Begin();
  const auto page = Watcher();
  // The exposure control's commit takes no turns with an application's accesses: the next is 22 frames after this one.
  page->Ask({{"do", "trace"}, {"camera", 0}, {"on", true}});
  page->Await([](const json& message) {
    return message.contains("trace") &&
           std::ranges::any_of(message["trace"]["lines"], [](const json& line) {
             return line.get<std::string>().find("write sensor FF2F=83") != std::string::npos;
           });
  });
  const json request = {{"do", "register"}, {"camera", 0}, {"chip", "bridge"}, {"address", 0xFF43}};
  json write = request;
  write["value"] = 5;
  EXPECT_EQ(page->Ask(write)["value"], 5);
  EXPECT_EQ(page->Ask(request)["value"], 5);
}

TEST_F(WebServerTest, MoreLightMakesTheCameraReportMoreLuminance) {
  Begin({}, "sim:1af0:0511,light=3lx@0s");
  const auto page = Watcher();
  const json before = page->AwaitNamed("loop");
  page->Ask({{"do", "simulate"}, {"camera", 0}, {"light", 20000}});
  page->Await([&](const json& message) {
    return message.contains("loop") && message["loop"]["luminance"] > 150;
  });
  EXPECT_LT(before["luminance"], 100);
  EXPECT_TRUE(page->Ask({{"do", "simulate"}, {"camera", 0}, {"light", 0}}).contains("error"));
}

TEST_F(WebServerTest, ACameraThatThePageUnplugsStaysAwayUntilItIsPluggedIn) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  page->Ask({{"do", "simulate"}, {"camera", 0}, {"unplug", true}});
  page->AwaitState("unplugged");
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  page->Say({{"do", "clock"}, {"sent", 1}});
  const json next = page->Await(
      [](const json& message) { return message.contains("jpeg") || message.contains("clock"); });
  EXPECT_TRUE(next.contains("clock"));
  page->Ask({{"do", "simulate"}, {"camera", 0}, {"plug", true}});
  page->AwaitPicture();
}

TEST_F(WebServerTest, FaultsBeginWhileTheCameraRuns) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  page->Ask({{"do", "simulate"}, {"camera", 0}, {"faults", "at 0s lose 200"}});
  page->Await(
      [](const json& message) { return message.contains("bus") && message["bus"]["short"] > 0; });
  EXPECT_THAT(page->Ask({{"do", "simulate"}, {"camera", 0}, {"faults", "at 0s explode"}})["error"],
              HasSubstr("explode"));
}

// The driver's own recovery does not end the halt.
TEST_F(WebServerTest, ACameraWhoseEndpointHaltsIsOpenedAnew) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  page->Ask({{"do", "simulate"}, {"camera", 0}, {"faults", "frame 2 packet 50 stall"}});
  EXPECT_THAT(page->AwaitState("failed")["error"], HasSubstr("no whole frame"));
  page->AwaitPicture();
}

TEST_F(WebServerTest, ASceneThatIsPostedIsShown) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  const std::string cookie = CookieOf(address_);
  const HttpAnswer done = Ask(Port(), "/scene?camera=0", cookie + Origin(), "POST",
                              std::string(std::begin(kWhitePixel), std::end(kWhitePixel)));
  EXPECT_EQ(done.Status, 204U);
  const HttpAnswer refused =
      Ask(Port(), "/scene?camera=0", cookie + Origin(), "POST", "no picture");
  EXPECT_EQ(refused.Status, 400U);
  EXPECT_THAT(refused.Body, HasSubstr("scene"));
  // White all over: the loop makes it grey, and no pixel has a colour.
  for (int i = 0; i < 10; ++i) page->AwaitPicture();
  const json pixels = page->Ask(
      {{"do", "pixels"}, {"camera", 0}, {"x", 0}, {"y", 0}, {"width", 64}, {"height", 1}});
  for (const json& value : pixels["u"]) EXPECT_NEAR(value.get<int>(), 128, 3);
}

TEST_F(WebServerTest, ARecordingIsFetchedByTheBrowser) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  const json started = page->Ask({{"do", "record"}, {"camera", 0}, {"form", "txt"}});
  for (int i = 0; i < 10; ++i) page->AwaitPicture();
  const json size = page->Ask({{"do", "size"}, {"camera", 0}, {"width", 320}, {"height", 240}});
  EXPECT_TRUE(size.contains("error"));
  const std::string cookie = CookieOf(address_);
  EXPECT_EQ(Ask(Port(), "/recordings/1", cookie).Status, 404U);
  const json stopped =
      page->Ask({{"do", "stop"}, {"camera", 0}, {"recording", started["recording"]}});
  EXPECT_GE(stopped["frames"], 9);
  const HttpAnswer film = Ask(Port(), stopped["href"], cookie);
  EXPECT_EQ(film.Status, 200U);
  EXPECT_EQ(std::ranges::count(film.Body, '\n'), stopped["frames"].get<std::int64_t>());
  EXPECT_THAT(film.Field("Content-Disposition"),
              StartsWith("attachment; filename=\"lidcam-1af0-0511-seed1-"));
  EXPECT_EQ(Ask(Port(), stopped["href"], {}).Status, 403U);
}

TEST_F(WebServerTest, AFullDiskEndsARecordingWhichKeepsWhatWasWritten) {
  Begin();
  const auto page = Watcher();
  const json started = page->Ask({{"do", "record"}, {"camera", 0}, {"form", "full"}});
  const json ended = page->AwaitNamed("recordingEnded");
  EXPECT_EQ(ended["camera"], 0);
  EXPECT_EQ(ended["recording"], started["recording"]);
  EXPECT_EQ(ended["frames"], 2);
  EXPECT_EQ(ended["failure"], "the disk is full");
  EXPECT_EQ(Ask(Port(), ended["href"], CookieOf(address_)).Body, "1\n2\n");
  const json stopped =
      page->Ask({{"do", "stop"}, {"camera", 0}, {"recording", started["recording"]}});
  EXPECT_TRUE(stopped.contains("error"));
}

TEST_F(WebServerTest, ARecordingThatCannotBeginIsToldAtOnce) {
  Begin();
  const auto page = Watcher();
  page->Ask({{"do", "record"}, {"camera", 0}, {"form", "none"}});
  const json ended = page->AwaitNamed("recordingEnded");
  EXPECT_EQ(ended["frames"], 0);
  EXPECT_EQ(ended["error"], "the module is missing");
  EXPECT_FALSE(ended.contains("href"));
}

TEST_F(WebServerTest, APageThatDisappearsEndsItsRecordingAndTheCameraIsOff) {
  Begin();
  const PageClient other(address_);
  PageClient stays(address_);
  {
    const auto page = Watcher();
    page->AwaitPicture();
    page->Ask({{"do", "record"}, {"camera", 0}, {"form", "txt"}});
  }
  stays.AwaitState("off");
}

TEST_F(WebServerTest, OtherProgramsTakeASnapshotAndAStream) {
  Begin();
  PageClient page(address_);
  const std::string token = page.AwaitNamed("hello")["snapshotToken"];
  const HttpAnswer snapshot = Ask(Port(), "/snapshot.jpg?camera=0&token=" + token, {});
  EXPECT_EQ(snapshot.Status, 200U);
  EXPECT_EQ(snapshot.Field("Content-Type"), "image/jpeg");
  EXPECT_THAT(snapshot.Body, StartsWith("\xFF\xD8"));
  RawClient stream(Port());
  stream.Send("GET /stream.mjpg?token=" + token +
              " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(Port()) + "\r\n\r\n");
  std::string line = stream.ReadLine();
  EXPECT_THAT(line, HasSubstr("200"));
  int parts = 0;
  while (parts < 3) parts += stream.ReadLine() == "--lidcam-frame" ? 1 : 0;
  EXPECT_EQ(stream.ReadLine(), "Content-Type: image/jpeg");
}

TEST_F(WebServerTest, ASnapshotOfACameraThatIsAwayIsAnErrorInWords) {
  Begin({}, "usb:99-9");
  PageClient page(address_);
  const std::string token = page.AwaitNamed("hello")["snapshotToken"];
  RawClient client(Port());
  client.Send("GET /snapshot.jpg?token=" + token +
              " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(Port()) + "\r\n\r\n");
  page.AwaitState("failed");
}

// Each of them ends its own connection and no other.
TEST_F(WebServerTest, RubbishEndsThatConnectionOnly) {
  Begin();
  const auto page = Watcher();
  page->AwaitPicture();
  const std::string head = "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(Port()) + "\r\n";
  const std::string rubbish[] = {std::string("\x16\x03\x01\x02\x00\x01", 6),
                                 "\r\n\r\n\r\n",
                                 "GET\r\n\r\n",
                                 "GET / HTTP/9.9\r\n\r\n",
                                 head + "Content-Length: 99999999999999999999\r\n\r\n",
                                 head + "Content-Length: -1\r\n\r\n",
                                 head + "X: " + std::string(20000, 'x') + "\r\n\r\n",
                                 std::string(100000, 'A'),
                                 head + "Transfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFF\r\n",
                                 std::string(1000, '\0')};
  for (const std::string& bytes : rubbish) {
    RawClient client(Port());
    client.Send(bytes);
    EXPECT_TRUE(client.IsClosed()) << bytes.substr(0, 40);
  }
  page->AwaitPicture();
}

TEST_F(WebServerTest, AHeaderThatIsTooLongIsRefusedByItsStatus) {
  Begin();
  const HttpAnswer answer = Ask(Port(), "/", "X: " + std::string(10000, 'x') + "\r\n");
  EXPECT_EQ(answer.Status, 431U);
}

TEST_F(WebServerTest, AnUploadThatIsTooLargeIsRefused) {
  Begin();
  const std::string cookie = CookieOf(address_);
  const std::string length = "Content-Length: 17000000\r\n";
  const HttpAnswer answer = Ask(Port(), "/scene?camera=0", cookie + Origin() + length, "POST");
  EXPECT_EQ(answer.Status, 413U);
}

TEST_F(WebServerTest, APageThatSendsNoMessageOrATooLongOneIsClosed) {
  Begin();
  PageClient binary(address_);
  binary.SendFrame(2, "{}");
  EXPECT_TRUE(binary.Raw().IsClosed());
  PageClient wrong(address_);
  wrong.SendFrame(1, "hello");
  EXPECT_TRUE(wrong.Raw().IsClosed());
  PageClient lengthy(address_);
  lengthy.SendFrame(1, "{\"do\":\"" + std::string(70000, 'x') + "\"}");
  EXPECT_TRUE(lengthy.Raw().IsClosed());
  PageClient good(address_);
  EXPECT_FALSE(good.Ask({{"do", "watch"}, {"cameras", json::array({1})}})["error"].is_null());
}

TEST_F(WebServerTest, ConnectionsAboveTheLimitAreClosedUntilOthersEnd) {
  WebServer::Options options;
  options.MostConnections = 3;
  Begin(std::move(options));
  auto first = std::make_unique<PageClient>(address_);
  const PageClient second(address_);
  const RawClient third(Port());
  RawClient fourth(Port());
  EXPECT_TRUE(fourth.IsClosed());
  first.reset();
  for (int i = 0; i < 100; ++i) {
    if (Ask(Port(), "/", {}).Status == 403) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  FAIL() << "the place of a connection that ended stays taken";
}

TEST_F(WebServerTest, EveryAnswerHasThePolicyThatLetsAPageLoadNothingElse) {
  Begin();
  const std::string cookie = CookieOf(address_);
  for (const char* const target : {"/", "/nothing", "/page/index.html"}) {
    for (const std::string& fields : {cookie, std::string()}) {
      const HttpAnswer answer = Ask(Port(), target, fields);
      EXPECT_THAT(answer.Field("Content-Security-Policy"),
                  StartsWith("default-src 'none'; script-src 'self'"));
      EXPECT_EQ(answer.Field("Referrer-Policy"), "no-referrer");
      EXPECT_EQ(answer.Field("X-Content-Type-Options"), "nosniff");
    }
  }
}

TEST_F(WebServerTest, TwoHundredViewersGetPictures) {
  Begin();
  std::vector<std::unique_ptr<PageClient>> pages;
  for (int i = 0; i < 200; ++i) {
    pages.push_back(Watcher());
    pages.back()->Say({{"do", "size"}, {"camera", 0}, {"width", 160}, {"height", 120}});
  }
  for (const auto& page : pages) {
    EXPECT_EQ(page->AwaitPicture()["jpeg"].get_binary()[0], 0xFF);
  }
}

}  // namespace
}  // namespace lidcam::viewer
