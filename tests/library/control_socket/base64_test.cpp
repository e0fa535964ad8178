#include "library/control_socket/base64.h"

#include <gtest/gtest.h>

namespace lidcam::app {
namespace {

std::vector<std::uint8_t> Bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

TEST(Base64, AStillOfAnyLengthIsTheSameBehindTheSocket) {
  EXPECT_EQ(ToBase64(Bytes("")), "");
  EXPECT_EQ(ToBase64(Bytes("f")), "Zg==");
  EXPECT_EQ(ToBase64(Bytes("fo")), "Zm8=");
  EXPECT_EQ(ToBase64(Bytes("foo")), "Zm9v");
  EXPECT_EQ(ToBase64(Bytes("foobar")), "Zm9vYmFy");
  std::vector<std::uint8_t> bytes;
  for (int length = 0; length < 300; ++length) {
    EXPECT_EQ(FromBase64(ToBase64(bytes)), bytes);
    bytes.push_back(static_cast<std::uint8_t>(length * 7));
  }
}

TEST(Base64, OtherTextIsNoStill) {
  EXPECT_FALSE(FromBase64("Zg="));
  EXPECT_FALSE(FromBase64("Z*=="));
  EXPECT_FALSE(FromBase64("===="));
}

}  // namespace
}  // namespace lidcam::app
