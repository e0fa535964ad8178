// In whose table a handle stands.

#include "platform/host/nt/objects/handles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/platform/nt/simulation/simulation_support.h"

namespace lidcam::host {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

void NTAPI EndsAtOnce(PVOID) {}

HANDLE OpenThread() {
  HANDLE handle = nullptr;
  EXPECT_EQ(PsCreateSystemThread(&handle, 0, nullptr, nullptr, nullptr, EndsAtOnce, nullptr),
            STATUS_SUCCESS);
  return handle;
}

HANDLE OpenTest(ULONG attributes, const char* call = "ZwCreateFile") {
  OBJECT_ATTRIBUTES object{};
  InitializeObjectAttributes(&object, nullptr, attributes, nullptr, nullptr);
  return OpenHandleOfDriver(call, &object, std::make_shared<HandleObject>());
}

TEST(Handle, OfAFileThatIsOpenedInAnApplicationsRequestNeedsTheKernelsTable) {
  EXPECT_THAT(ViolationOf([] { ForApplication([] { return OpenTest(OBJ_CASE_INSENSITIVE); }); }),
              HasSubstr("ZwCreateFile: without OBJ_KERNEL_HANDLE"));
  EXPECT_EQ(ViolationOf([] {
              const HANDLE handle = ForApplication([] { return OpenTest(OBJ_KERNEL_HANDLE); });
              EXPECT_EQ(ZwClose(handle), STATUS_SUCCESS);
            }),
            "");
}

TEST(Handle, OutsideOfAnApplicationsRequestIsOfTheKernelsTableInAnyCase) {
  EXPECT_EQ(ViolationOf([] {
              const HANDLE handle = OpenTest(OBJ_CASE_INSENSITIVE);
              TestThread([handle] { EXPECT_NE(FindHandle(handle), nullptr); });
              EXPECT_EQ(ZwClose(handle), STATUS_SUCCESS);
            }),
            "");
}

TEST(Handle, OfTheFrameThreadIsClosedBeforeTheApplicationsRequestEnds) {
  EXPECT_EQ(ViolationOf([] { ForApplication([] { return ZwClose(OpenThread()); }); }), "");
  EXPECT_THAT(ViolationOf([] { ForApplication(OpenThread); }),
              MatchesRegex("request: handle 0x.* is left open in the application's table"));
}

TEST(Handle, OfAKeyOfSettingsIsClosedBeforeTheApplicationsRequestEnds) {
  const auto open = [] { return OpenTest(OBJ_CASE_INSENSITIVE, "ZwCreateKey"); };
  EXPECT_EQ(ViolationOf([&] { ForApplication([&] { return ZwClose(open()); }); }), "");
  EXPECT_THAT(ViolationOf([&] { ForApplication(open); }), HasSubstr("is left open"));
}

TEST(Handle, OfAnApplicationsTableIsNoneForAnotherThread) {
  EXPECT_THAT(ViolationOf([] {
                ForApplication([] {
                  const HANDLE handle = OpenThread();
                  TestThread([handle] { ZwClose(handle); });
                  return ZwClose(handle);
                });
              }),
              MatchesRegex("ZwClose: handle 0x.* stands in the table of an application.*"));
}

TEST(Handle, IsClosedOnce) {
  Simulate({}, [] {
    const HANDLE handle = OpenThread();
    EXPECT_EQ(ZwClose(handle), STATUS_SUCCESS);
    EXPECT_EQ(ZwClose(handle), STATUS_INVALID_HANDLE);
  });
}

}  // namespace
}  // namespace lidcam::host
