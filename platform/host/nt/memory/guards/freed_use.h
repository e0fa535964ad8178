#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace lidcam::host {

/// A use of memory that had been freed, or may be paged out.
struct FreedUse {
  const void* Block = nullptr;  ///< start of the memory; null: no use
  std::size_t Offset = 0;       ///< of the byte used
  std::size_t Size = 0;         ///< of the memory, as allocated
  std::uint32_t Tag = 0;
  bool IsPagedOut = false;  ///< not freed: Block and Size are without guards then
};

/// "memory 0x7f... (24 bytes, tag 'Test') was used at byte 8 after it had been freed", or "at dispatch level, where it
/// may be paged out"
[[nodiscard]] std::string DescribeFreedUse(const FreedUse& use);

/// "memory 0x7f... (24 bytes, tag 'Test') was used at byte 32", which is not one of its bytes
[[nodiscard]] std::string DescribeOverrun(const FreedUse& use);

/// "'Test'": a tag is four letters, the first in the lowest byte.
[[nodiscard]] std::string TagText(std::uint32_t tag);

/// A block of the pool, as reports name it.
[[nodiscard]] std::string BlockText(const void* memory, std::size_t size, std::uint32_t tag);

}  // namespace lidcam::host
