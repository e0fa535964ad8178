#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <new>

#include "driver/frame/assembly/frame_assembly.h"

namespace lidcam {
namespace {

TEST(PublishedFrame, IsNullBeforeTheFirstPublish) {
  const PublishedFrame published{};
  std::uint32_t size = 77;
  EXPECT_EQ(GetRawFrame(published, size), nullptr);
  EXPECT_EQ(size, 0U);
}

TEST(PublishedFrame, CanBeFetchedTwiceWhenNoPublishCameBetween) {
  PublishedFrame published{};
  std::array<std::uint8_t, 4> frame{};
  PublishRawFrame(published, frame.data(), 4);
  for (int fetch = 0; fetch < 2; ++fetch) {
    std::uint32_t size = 0;
    EXPECT_EQ(GetRawFrame(published, size), frame.data());
    EXPECT_EQ(size, 4U);
  }
}

TEST(PublishedFrame, IsTakenBackByNull) {
  PublishedFrame published{};
  std::array<std::uint8_t, 4> frame{};
  PublishRawFrame(published, frame.data(), 4);
  PublishRawFrame(published, nullptr, 0);
  std::uint32_t size = 77;
  EXPECT_EQ(GetRawFrame(published, size), nullptr);
  EXPECT_EQ(size, 0U);
}

const PublishedFrame* g_halfWritable = nullptr;
std::uint8_t g_frameByte = 0;

void OnRefusedStore(int) {
  const std::uint8_t* const stored = g_halfWritable->PublishedRawFrame;
  _exit(stored == &g_frameByte ? 0 : 1);
}

// The size lies on a page that can't be written, so that the publishing stops half-way.
[[noreturn]] void PublishWithUnwritableSize() {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const pages =
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) _exit(2);
  auto* const boundary = static_cast<std::uint8_t*>(pages) + page;
  auto* const published =
      new (boundary - offsetof(PublishedFrame, PublishedRawFrameSize)) PublishedFrame{};
  if (mprotect(boundary, page, PROT_READ) != 0) _exit(3);
  g_halfWritable = published;
  std::signal(SIGSEGV, OnRefusedStore);
  PublishRawFrame(*published, &g_frameByte, 1);
  _exit(4);
}

TEST(PublishedFrameDeathTest, TheBufferIsStoredAheadOfTheSize) {
  EXPECT_EXIT(PublishWithUnwritableSize(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace lidcam
