#include "platform/host/nt/system/message_format.h"

#include <gtest/gtest.h>

#include <array>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

std::string Format(const char* format, const std::array<std::uint64_t, 4>& arguments) {
  return FormatMessage(format, arguments.data());
}

std::uint64_t AddressOf(const void* object) {
  return reinterpret_cast<std::uintptr_t>(object);
}

constexpr std::uint64_t kNotPartOfIt = 0xAAAAAAAA00000000;

TEST(MessageFormat, ALongHas32BitsAndLeavesTheUpperHalfOfItsPlaceAlone) {
  EXPECT_EQ(Format("%ld %lu %d 0x%04lx", {kNotPartOfIt | 0xFFFFFFFF, kNotPartOfIt | 7,
                                          kNotPartOfIt | 3, kNotPartOfIt | 0x1F}),
            "-1 7 3 0x001f");
}

TEST(MessageFormat, SixtyFourBitsAreWrittenInTwoWays) {
  EXPECT_EQ(Format("%I64d %lld %I64x", {~std::uint64_t{1}, 1ULL << 40, 0xFEDCBA9876543210, 0}),
            "-2 1099511627776 fedcba9876543210");
}

TEST(MessageFormat, WidthAndPrecisionMayBeArguments) {
  EXPECT_EQ(Format("[%*d][%-5u][%.3s]", {4, 42, 7, AddressOf("abcdef")}), "[  42][7    ][abc]");
}

TEST(MessageFormat, WideStringsAreNarrowed) {
  char16_t name[] = u"\\Device\\cam\u00e9ra";
  const UNICODE_STRING counted{8, 8, name};
  EXPECT_EQ(Format("%ws|%S|%ls|%wZ",
                   {AddressOf(name), AddressOf(name), AddressOf(u"x"), AddressOf(&counted)}),
            "\\Device\\cam?ra|\\Device\\cam?ra|x|\\Dev");
}

TEST(MessageFormat, APointerHasAllItsDigits) {
  EXPECT_EQ(Format("%p", {0xFFFFF80000ABCDEF, 0, 0, 0}), "FFFFF80000ABCDEF");
}

TEST(MessageFormat, WhatIsNoConversionIsCopied) {
  EXPECT_EQ(Format("100%% %y %", {0, 0, 0, 0}), "100% %y %");
}

TEST(MessageFormat, ALongStringIsWhole) {
  const std::string text(300, 'x');
  EXPECT_EQ(Format("%s!", {AddressOf(text.c_str()), 0, 0, 0}), text + "!");
}

}  // namespace
}  // namespace lidcam::host
