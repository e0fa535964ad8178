#include "platform/host/nt/memory/guards/freed_use.h"

#include "platform/host/nt/memory/guards/pool_guard.h"
#include "platform/host/nt/verifier/calls/object_text.h"

namespace lidcam::host {

std::string TagText(std::uint32_t tag) {
  std::string text = "'";
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const std::uint32_t letter = (tag >> shift) & 0xFF;
    text += letter >= 0x20 && letter < 0x7F ? static_cast<char>(letter) : '.';
  }
  return text + "'";
}

std::string BlockText(const void* memory, std::size_t size, std::uint32_t tag) {
  return DescribeObject("memory", memory) + " (" + std::to_string(size) + " bytes, tag " +
         TagText(tag) + ")";
}

std::string DescribeOverrun(const FreedUse& use) {
  const void* const memory = MemoryBehindGuard(use.Block);
  const auto guard =
      static_cast<const std::byte*>(memory) - static_cast<const std::byte*>(use.Block);
  const auto offset = static_cast<std::ptrdiff_t>(use.Offset) - guard;
  return BlockText(memory, use.Size - GuardedBytes(0), use.Tag) + " was used at byte " +
         std::to_string(offset);
}

std::string DescribeFreedUse(const FreedUse& use) {
  if (!use.IsPagedOut) return DescribeOverrun(use) + " after it had been freed";
  return BlockText(use.Block, use.Size, use.Tag) + " was used at byte " +
         std::to_string(use.Offset) + " at dispatch level, where it may be paged out";
}

}  // namespace lidcam::host
