#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "tests/driver/core/settings/settings_fixture.h"

namespace lidcam::test {
namespace {

using ::testing::Each;
using SettingsArguments = SettingsWorld;

// Arguments that the host's registry ignores.
struct UnusedArguments {
  ULONG TitleIndex;
  PUNICODE_STRING Class;
  ULONG Options;
  PULONG Disposition;

  friend bool operator==(const UnusedArguments&, const UnusedArguments&) = default;
};

std::vector<UnusedArguments>* g_unused = nullptr;

// The key stays over a restart: its options are 0.
TEST_F(SettingsArguments, KeysAndValuesHaveNoTitleNoClassAndNoOptions) {
  std::vector<UnusedArguments> unused;
  g_unused = &unused;
  SaveSettings(context_, kSettings);
  LoadSettings(context_, kSettings);
  g_unused = nullptr;
  EXPECT_EQ(unused.size(), 1 + 20 + 16U);
  EXPECT_THAT(unused, Each(UnusedArguments{0, nullptr, 0, nullptr}));
}

}  // namespace
}  // namespace lidcam::test

// The linker makes these names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {

NTSTATUS NTAPI __real_ZwCreateKey(PHANDLE key, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                  ULONG titleIndex, PUNICODE_STRING keyClass, ULONG options,
                                  PULONG disposition);
NTSTATUS NTAPI __wrap_ZwCreateKey(PHANDLE key, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                  ULONG titleIndex, PUNICODE_STRING keyClass, ULONG options,
                                  PULONG disposition);
NTSTATUS NTAPI __real_ZwSetValueKey(HANDLE key, PUNICODE_STRING name, ULONG titleIndex, ULONG type,
                                    PVOID data, ULONG size);
NTSTATUS NTAPI __wrap_ZwSetValueKey(HANDLE key, PUNICODE_STRING name, ULONG titleIndex, ULONG type,
                                    PVOID data, ULONG size);

NTSTATUS NTAPI __wrap_ZwCreateKey(PHANDLE key, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes,
                                  ULONG titleIndex, PUNICODE_STRING keyClass, ULONG options,
                                  PULONG disposition) {
  if (lidcam::test::g_unused != nullptr) {
    lidcam::test::g_unused->push_back({titleIndex, keyClass, options, disposition});
  }
  return __real_ZwCreateKey(key, access, attributes, titleIndex, keyClass, options, disposition);
}

NTSTATUS NTAPI __wrap_ZwSetValueKey(HANDLE key, PUNICODE_STRING name, ULONG titleIndex, ULONG type,
                                    PVOID data, ULONG size) {
  if (lidcam::test::g_unused != nullptr) {
    lidcam::test::g_unused->push_back({titleIndex, nullptr, 0, nullptr});
  }
  return __real_ZwSetValueKey(key, name, titleIndex, type, data, size);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
