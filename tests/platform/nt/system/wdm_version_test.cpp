#include "platform/host/nt/system/wdm_version.h"

#include <gtest/gtest.h>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

class WdmVersion : public testing::Test {
 protected:
  ~WdmVersion() override { SetWdmVersion(0x0130); }
};

TEST_F(WdmVersion, IsInitiallyOnePointThirtyHex) {
  EXPECT_EQ(IoIsWdmVersionAvailable(1, 0x30), TRUE);
  EXPECT_EQ(IoIsWdmVersionAvailable(1, 0x31), FALSE);
  EXPECT_EQ(IoIsWdmVersionAvailable(2, 0x00), FALSE);
}

TEST_F(WdmVersion, OffersEverythingUpToTheOneSet) {
  SetWdmVersion(0x0110);
  EXPECT_EQ(IoIsWdmVersionAvailable(1, 0x05), TRUE);
  EXPECT_EQ(IoIsWdmVersionAvailable(1, 0x10), TRUE);
  EXPECT_EQ(IoIsWdmVersionAvailable(1, 0x20), FALSE);
}

TEST_F(WdmVersion, ZeroOffersNone) {
  SetWdmVersion(0);
  EXPECT_EQ(IoIsWdmVersionAvailable(1, 0x00), FALSE);
}

}  // namespace
}  // namespace lidcam::host
