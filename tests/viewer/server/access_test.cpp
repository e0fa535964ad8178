#include "viewer/server/access.h"

#include <gtest/gtest.h>

#include <set>

namespace lidcam::viewer {
namespace {

const LocalAddress kLoopback{.Text = "127.0.0.1:8080", .Port = 8080, .IsLoopback = true};
const LocalAddress kNetwork{.Text = "192.168.1.5:8080", .Port = 8080, .IsLoopback = false};

std::string CookieOf(const Access& access, std::uint16_t port) {
  const std::string field = access.SetCookie(port);
  return field.substr(0, field.find(';'));
}

TEST(ViewerAccess, OnlyTheAddressThatWasReachedIsTheServersHost) {
  EXPECT_TRUE(Access::IsOwnHost("127.0.0.1:8080", kLoopback));
  EXPECT_TRUE(Access::IsOwnHost("LocalHost:8080", kLoopback));
  for (const char* const host :
       {"", "127.0.0.1", "127.0.0.1:8081", "localhost", "localhost:80", "evil.example:8080",
        "127.0.0.1:8080.evil.example", "127.0.0.2:8080", "[::1]:8080", "127.0.0.1:8080 "}) {
    EXPECT_FALSE(Access::IsOwnHost(host, kLoopback)) << host;
  }
}

TEST(ViewerAccess, AnAddressOfTheNetworkIsNotCalledLocalhost) {
  EXPECT_TRUE(Access::IsOwnHost("192.168.1.5:8080", kNetwork));
  EXPECT_FALSE(Access::IsOwnHost("localhost:8080", kNetwork));
}

TEST(ViewerAccess, OnlyPagesOfThisServerAreOfItsOrigin) {
  EXPECT_TRUE(Access::IsOwnOrigin("http://127.0.0.1:8080", kLoopback));
  EXPECT_TRUE(Access::IsOwnOrigin("http://localhost:8080", kLoopback));
  for (const char* const origin :
       {"", "null", "http://127.0.0.1", "https://127.0.0.1:8080", "http://evil.example",
        "http://evil.example:8080", "http://127.0.0.1:8080/", "127.0.0.1:8080"}) {
    EXPECT_FALSE(Access::IsOwnOrigin(origin, kLoopback)) << origin;
  }
}

TEST(ViewerAccess, TheCookieOpensAmongOthersAndForItsOwnPortOnly) {
  const Access access(std::nullopt);
  const std::string cookie = CookieOf(access, 8080);
  EXPECT_TRUE(access.HasSession(cookie, 8080));
  EXPECT_TRUE(access.HasSession("a=b; " + cookie + "; c=d", 8080));
  EXPECT_FALSE(access.HasSession(cookie, 8081));
  EXPECT_FALSE(access.HasSession("", 8080));
  EXPECT_FALSE(access.HasSession("lidcam_8080=", 8080));
  EXPECT_FALSE(access.HasSession(cookie + "0", 8080));
  EXPECT_FALSE(access.HasSession(cookie.substr(0, cookie.size() - 1), 8080));
}

TEST(ViewerAccess, TheCookieIsKeptFromScriptsAndFromOtherSites) {
  const Access access(std::nullopt);
  EXPECT_TRUE(access.SetCookie(8080).ends_with("; HttpOnly; SameSite=Strict; Path=/"));
  EXPECT_TRUE(access.SetCookie(8080).starts_with("lidcam_8080="));
}

TEST(ViewerAccess, EachSecretOpensItsOwnDoorOnly) {
  const Access access(std::nullopt);
  EXPECT_TRUE(access.IsToken(access.Token()));
  EXPECT_FALSE(access.IsToken(access.SnapshotToken()));
  EXPECT_FALSE(access.IsToken(""));
  EXPECT_TRUE(access.IsSnapshotToken(access.SnapshotToken()));
  EXPECT_FALSE(access.IsSnapshotToken(access.Token()));
  EXPECT_FALSE(access.HasSession("lidcam_8080=" + access.Token(), 8080));
}

TEST(ViewerAccess, TheTokenOfOtherProgramsMayBeGiven) {
  const Access access(std::nullopt, "0123456789abcdef");
  EXPECT_EQ(access.SnapshotToken(), "0123456789abcdef");
  EXPECT_TRUE(access.IsSnapshotToken("0123456789abcdef"));
  EXPECT_FALSE(access.IsToken("0123456789abcdef"));
}

TEST(ViewerAccess, ATokenIsLongAndNeedsNoEscapeInAnAddress) {
  EXPECT_TRUE(IsFitForToken("azAZ09-_azAZ09-_"));
  EXPECT_FALSE(IsFitForToken("azAZ09-_azAZ09-"));
  EXPECT_FALSE(IsFitForToken(""));
  for (const char* const text :
       {"0123456789abcde ", "0123456789abcde&", "0123456789abcde%", "0123456789abcde\r"}) {
    EXPECT_FALSE(IsFitForToken(text)) << text;
  }
}

TEST(ViewerAccess, WithAPasswordTheTokenOpensNothing) {
  const Access access("open sesame");
  EXPECT_TRUE(access.NeedsPassword());
  EXPECT_FALSE(access.IsToken(access.Token()));
}

TEST(ViewerAccess, ThePasswordIsTakenAsABrowserSendsIt) {
  const Access access("open sesame");
  EXPECT_TRUE(access.HasPassword("Basic Om9wZW4gc2VzYW1l"));      // ":open sesame"
  EXPECT_TRUE(access.HasPassword("basic bWU6b3BlbiBzZXNhbWU="));  // "me:open sesame"
  for (const char* const field : {"", "Basic", "Basic ", "Basic !", "Basic b3BlbiBzZXNhbWU=",
                                  "Bearer Om9wZW4gc2VzYW1l", "Basic Om9wZW4gc2VzYW0="}) {
    EXPECT_FALSE(access.HasPassword(field)) << field;
  }
}

TEST(ViewerAccess, SecretsAreComparedWhole) {
  EXPECT_TRUE(IsSecret("secret", "secret"));
  for (const char* const given : {"", "s", "secre", "secrets", "Secret", "secresecret"}) {
    EXPECT_FALSE(IsSecret("secret", given)) << given;
  }
  EXPECT_FALSE(IsSecret("", ""));
}

TEST(ViewerAccess, SecretsDiffer) {
  std::set<std::string> secrets;
  for (int i = 0; i < 100; ++i) secrets.insert(NewSecret());
  EXPECT_EQ(secrets.size(), 100U);
  EXPECT_EQ(secrets.begin()->size(), 32U);
}

}  // namespace
}  // namespace lidcam::viewer
