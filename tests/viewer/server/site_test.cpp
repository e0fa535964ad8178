#include "viewer/server/site.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace lidcam::viewer {
namespace {

/// A server with two cameras at 127.0.0.1:8080, and requests to it as its own page sends them.
class SiteTest : public testing::Test {
 protected:
  [[nodiscard]] WebRequest Own(const std::string& target) const {
    const std::string cookie = access_.SetCookie(8080);
    WebRequest request = Unknown(target);
    request.Cookies = cookie.substr(0, cookie.find(';'));
    request.Origin = "http://127.0.0.1:8080";
    return request;
  }

  [[nodiscard]] static WebRequest Unknown(const std::string& target) {
    return {.Method = "GET",
            .Target = target,
            .Host = "127.0.0.1:8080",
            .Local = {.Text = "127.0.0.1:8080", .Port = 8080, .IsLoopback = true}};
  }

  /// 0 for another reaction than an answer.
  [[nodiscard]] unsigned StatusOf(const WebRequest& request) const {
    const Reaction reaction = site_.React(request);
    const auto* const answer = std::get_if<WebAnswer>(&reaction);
    return answer == nullptr ? 0 : answer->Status;
  }

  [[nodiscard]] WebAnswer AnswerTo(const WebRequest& request) const {
    return std::get<WebAnswer>(site_.React(request));
  }

  static std::string FieldOf(const WebAnswer& answer, const std::string& name) {
    for (const auto& [field, value] : answer.Fields) {
      if (field == name) return value;
    }
    return {};
  }

  const Access access_{std::nullopt};
  const Site site_{access_, 2, std::nullopt};
};

TEST_F(SiteTest, TheTokenGivesACookieAndLeavesTheAddress) {
  const WebAnswer answer = AnswerTo(Unknown("/?token=" + access_.Token()));
  EXPECT_EQ(answer.Status, 303U);
  EXPECT_EQ(FieldOf(answer, "Location"), "/");
  EXPECT_EQ(FieldOf(answer, "Set-Cookie"), access_.SetCookie(8080));
  EXPECT_EQ(StatusOf(Own("/?token=" + access_.Token())), 303U);
}

TEST_F(SiteTest, WithoutTheCookieNothingIsGiven) {
  for (const char* const target : {"/", "/page/index.html", "/live", "/recordings/1", "/scene",
                                   "/snapshot.jpg", "/stream.mjpg", "/nothing", "/?token="}) {
    const WebAnswer answer = AnswerTo(Unknown(target));
    EXPECT_EQ(answer.Status, 403U) << target;
    EXPECT_EQ(FieldOf(answer, "Set-Cookie"), "") << target;
  }
}

TEST_F(SiteTest, AWrongTokenIsRefusedSlowly) {
  EXPECT_TRUE(AnswerTo(Unknown("/?token=0123")).IsRefusal);
  EXPECT_TRUE(AnswerTo(Unknown("/snapshot.jpg?token=0123")).IsRefusal);
  EXPECT_FALSE(AnswerTo(Unknown("/")).IsRefusal);
}

TEST_F(SiteTest, AnotherHostIsRefusedWithTheCookieAndTheTokenToo) {
  for (const std::string& target :
       {std::string("/"), "/?token=" + access_.Token(), std::string("/live"),
        "/snapshot.jpg?token=" + access_.SnapshotToken()}) {
    WebRequest request = Own(target);
    request.Host = "evil.example:8080";
    EXPECT_EQ(StatusOf(request), 421U) << target;
    request.Host = "";
    EXPECT_EQ(StatusOf(request), 421U) << target;
  }
}

TEST_F(SiteTest, TheWebSocketIsForThisServersOwnPageOnly) {
  WebRequest request = Own("/live");
  request.IsUpgrade = true;
  EXPECT_TRUE(std::holds_alternative<LiveRequest>(site_.React(request)));
  for (const char* const origin : {"", "null", "http://evil.example", "http://127.0.0.1:8081"}) {
    request.Origin = origin;
    EXPECT_EQ(StatusOf(request), 403U) << origin;
  }
  EXPECT_EQ(StatusOf(Own("/live")), 426U);
}

TEST_F(SiteTest, OnlyTheOwnPagePostsAScene) {
  WebRequest request = Own("/scene?camera=1");
  request.Method = "POST";
  const Reaction reaction = site_.React(request);
  ASSERT_TRUE(std::holds_alternative<SceneUpload>(reaction));
  EXPECT_EQ(std::get<SceneUpload>(reaction).Camera, 1U);
  EXPECT_EQ(std::get<SceneUpload>(reaction).Most, 16U * 1024 * 1024);
  request.Origin = "http://evil.example";
  EXPECT_EQ(StatusOf(request), 403U);
  request.Origin = "";
  EXPECT_EQ(StatusOf(request), 403U);
  request = Unknown("/scene?camera=1");
  request.Method = "POST";
  request.Origin = "http://127.0.0.1:8080";
  EXPECT_EQ(StatusOf(request), 403U);
}

TEST_F(SiteTest, OtherProgramsTakePicturesByATokenOfTheirOwn) {
  const std::string token = "token=" + access_.SnapshotToken();
  const Reaction snapshot = site_.React(Unknown("/snapshot.jpg?camera=1&" + token));
  ASSERT_TRUE(std::holds_alternative<SnapshotRequest>(snapshot));
  EXPECT_EQ(std::get<SnapshotRequest>(snapshot).Camera, 1U);
  const Reaction stream = site_.React(Unknown("/stream.mjpg?" + token));
  ASSERT_TRUE(std::holds_alternative<StreamRequest>(stream));
  EXPECT_EQ(std::get<StreamRequest>(stream).Camera, 0U);
  EXPECT_EQ(StatusOf(Unknown("/?" + token)), 403U);
  EXPECT_EQ(StatusOf(Unknown("/snapshot.jpg?token=" + access_.Token())), 403U);
}

TEST_F(SiteTest, CamerasThatThereAreNotAreNotFound) {
  for (const char* const number : {"2", "-1", "", "x", "1x", "99999999999999999999", "0x1"}) {
    EXPECT_EQ(StatusOf(Own(std::string("/snapshot.jpg?camera=") + number)), 404U) << number;
  }
}

TEST_F(SiteTest, ThePagesFilesAreGivenByTheirNamesOnly) {
  EXPECT_EQ(AnswerTo(Own("/")).Type, "text/html; charset=utf-8");
  EXPECT_EQ(StatusOf(Own("/page/index.html")), 200U);
  EXPECT_EQ(StatusOf(Own("/page/picture/stage.js")), 200U);
  for (const char* const target :
       {"/page/", "/page/..", "/page/../CMakeLists.txt", "/page/%2e%2e/x.html", "/page//etc/passwd",
        "/page//index.html", "/page/picture/", "/page/picture/../index.html",
        "/page/picture/a/b.js", "/page/./index.html", "/page/.index.html", "/page/none.html",
        "/page/index", "/index.html", "//"}) {
    EXPECT_EQ(StatusOf(Own(target)), 404U) << target;
  }
}

TEST_F(SiteTest, ThePagesFilesMayComeFromAFolderAndNotFromAboveIt) {
  const std::filesystem::path folder = std::filesystem::path(LIDCAM_SOURCE_ROOT) / "viewer/page";
  const Site site(access_, 1, folder);
  EXPECT_EQ(std::get<WebAnswer>(site.React(Own("/"))).Status, 200U);
  EXPECT_EQ(std::get<WebAnswer>(site.React(Own("/page/picture/stage.js"))).Status, 200U);
  EXPECT_EQ(std::get<WebAnswer>(site.React(Own("/page/../embed_page.cmake"))).Status, 404U);
  EXPECT_EQ(std::get<WebAnswer>(site.React(Own("/page/picture/../../server/access.js"))).Status,
            404U);
  EXPECT_EQ(std::get<WebAnswer>(site.React(Own("/page/..%2fCMakeLists.txt"))).Status, 404U);
}

TEST_F(SiteTest, OtherMethodsAreRefused) {
  for (const char* const method : {"PUT", "DELETE", "OPTIONS", "HEAD", "GETX", ""}) {
    WebRequest request = Own("/");
    request.Method = method;
    EXPECT_EQ(StatusOf(request), 405U) << method;
  }
}

// A strict cookie doesn't come with a request that another site has led to.
TEST_F(SiteTest, ABrowserThatComesFromElsewhereComesAgainFromHere) {
  WebRequest request = Unknown("/");
  request.FetchSite = "cross-site";
  EXPECT_EQ(StatusOf(request), 200U);
  EXPECT_NE(AnswerTo(request).Body.find("url=/"), std::string::npos);
  request.FetchSite = "same-origin";
  EXPECT_EQ(StatusOf(request), 403U);
  request = Unknown("/?token=" + access_.Token());
  request.FetchSite = "cross-site";
  EXPECT_EQ(StatusOf(request), 200U);
  EXPECT_EQ(FieldOf(AnswerTo(request), "Set-Cookie"), access_.SetCookie(8080));
}

TEST_F(SiteTest, AnswersKeepBrowsersFromLoadingAnythingElse) {
  const auto& fields = CommonFields();
  const auto valueOf = [&](const std::string& name) {
    return std::ranges::find(fields, name, [](const auto& field) { return field.first; })->second;
  };
  EXPECT_TRUE(valueOf("Content-Security-Policy")
                  .starts_with("default-src 'none'; script-src 'self'; style-src 'self'; "
                               "img-src 'self' blob:; connect-src 'self'"));
  EXPECT_EQ(valueOf("Referrer-Policy"), "no-referrer");
  EXPECT_EQ(valueOf("X-Content-Type-Options"), "nosniff");
}

TEST(SiteWithAPassword, AsksForItAndTakesNoToken) {
  const Access access("open sesame");
  const Site site(access, 1, std::nullopt);
  WebRequest request{.Method = "GET",
                     .Target = "/",
                     .Host = "192.168.1.5:8080",
                     .Local = {.Text = "192.168.1.5:8080", .Port = 8080, .IsLoopback = false}};
  WebAnswer answer = std::get<WebAnswer>(site.React(request));
  EXPECT_EQ(answer.Status, 401U);
  EXPECT_FALSE(answer.IsRefusal);
  request.Authorization = "Basic Om9wZW4=";
  answer = std::get<WebAnswer>(site.React(request));
  EXPECT_EQ(answer.Status, 401U);
  EXPECT_TRUE(answer.IsRefusal);
  request.Authorization = "Basic Om9wZW4gc2VzYW1l";
  EXPECT_EQ(std::get<WebAnswer>(site.React(request)).Status, 303U);
  request.Authorization = "";
  request.Target = "/?token=" + access.Token();
  EXPECT_EQ(std::get<WebAnswer>(site.React(request)).Status, 401U);
}

}  // namespace
}  // namespace lidcam::viewer
