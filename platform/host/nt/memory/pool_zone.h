#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/host/nt/memory/guards/freed_use.h"

namespace lidcam::host {

/// Pages of a pool arena. Addresses are given out once, from the lowest on, until BeginAnew(); freed pages are
/// inaccessible. The last 64 MiB of freed memory keep their bytes, unless these are moved.
/// @par One thread at a time
class PoolZone {
 public:
  /// What becomes of the pages behind freed addresses.
  enum class FreedPages {
    Stay,
    Move,  ///< to the next memory of as many pages: they are in the processor's caches still, and need no fault
  };

  /// @return null without address space
  [[nodiscard]] static std::unique_ptr<PoolZone> Make(FreedPages freed);

  PoolZone(const PoolZone&) = delete;
  PoolZone& operator=(const PoolZone&) = delete;
  ~PoolZone();

  /// Memory with pages of its own. Null when all addresses have been given out, as for the next two.
  [[nodiscard]] void* TakeAlone(std::size_t size, std::uint32_t tag);
  /// Memory that shares a page with that which is taken next.
  [[nodiscard]] void* TakeAmongOthers(std::size_t size, std::uint32_t tag);
  /// Memory that ends at a page that is never accessible.
  [[nodiscard]] void* TakeAtGuardPage(std::size_t size, std::uint32_t tag);

  [[nodiscard]] bool Contains(const void* address) const;

  // The rest is for memory and addresses within it.

  [[nodiscard]] std::span<std::byte> PagesOf(const void* memory) const;
  void Free(void* memory);
  [[nodiscard]] bool Revive(const void* address, FreedUse& use) noexcept;
  [[nodiscard]] std::string DescribeAccess(const void* address) const;

  /// All memory has been freed: addresses are given out again. At most as many pages as freed memory keeps stay.
  ///
  /// @return false if the zone can't be used any more
  [[nodiscard]] bool BeginAnew();

  /// Allocated memory stays accessible until the zone's end. Nothing is taken any more, and freed memory isn't watched.
  void Retire();

  [[nodiscard]] static std::size_t PageSize();

 private:
  /// Pages that become inaccessible together.
  struct Run {
    std::size_t Page;
    std::size_t Pages;
    std::size_t Users;     ///< allocations not yet freed, plus one while the run can take more
    bool HasBytes = true;  ///< of a freed run: neither dropped nor moved
  };
  struct Allocation {
    std::byte* Start;
    std::size_t Size;
    std::uint32_t Tag;
    std::size_t Run;
  };
  /// Pages with bytes that nothing uses: of a freed run, or behind all that has been given out.
  struct UnusedPages {
    std::size_t Page;
    std::size_t Pages;
    std::size_t Run;  ///< kNone: of the time before BeginAnew()
  };

  PoolZone(std::byte* base, FreedPages freed);

  [[nodiscard]] std::byte* PageAt(std::size_t page) const;
  [[nodiscard]] const Allocation& Find(const void* address) const;
  bool NewRun(std::size_t bytes, std::size_t guardPages = 0);
  bool Open(std::size_t pages);
  bool MoveUnusedTo(const Run& run);
  void KeepNewestUnused();
  void LetGo(std::size_t run);
  void DropBytesUpTo(std::size_t end);
  void DropBytes(std::size_t page, std::size_t pages);
  void DropOldBytes();

  std::byte* const base_;
  const FreedPages freed_;
  std::size_t reservedBytes_;
  std::vector<Run> runs_;                ///< by address
  std::vector<Allocation> allocations_;  ///< by address
  std::vector<UnusedPages> unused_;      ///< if freed pages move; the newest at the end
  std::size_t moves_ = 0;
  std::size_t sharedRun_ = kNone;  ///< the run that can take more
  std::size_t sharedBytes_ = 0;    ///< bytes of it that are allocated
  std::size_t usedPages_ = 0;
  std::size_t openPages_ = 0;       ///< made accessible so far
  std::size_t dropped_ = 0;         ///< number of first runs whose freed ones have lost their bytes
  std::size_t freedWithBytes_ = 0;  ///< pages
  bool isRetired_ = false;

  static constexpr std::size_t kNone = SIZE_MAX;
};

}  // namespace lidcam::host
