#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/host/nt/memory/guards/freed_use.h"

namespace lidcam::host {

/// The pool memory of one simulated world. No address is given out twice, and freed memory becomes
/// inaccessible: an access to it raises a signal, whose handler notes the use and lets the thread
/// continue with the bytes that were there, so that the world can report it at the thread's next
/// kernel call.
///
/// Memory from TakeAlone() has pages of its own. Memory from TakeAmongOthers(), which costs less,
/// shares a page with its neighbours, and becomes inaccessible with the last of them. The last 64
/// MiB of freed memory keep their bytes; memory freed before that reads as zeros.
///
/// With guard pages (SetPoolGuardPages) each block has pages of its own, and ends at one that is never accessible. A
/// driver's image is stopped at the instruction that accesses such a page, or freed memory.
/// @par One thread at a time, as the threads of a simulated world run
class PoolArena {
 public:
  static constexpr std::size_t kLargestAmongOthers = 1024;
  static constexpr std::size_t kAlignment = 16;

  /// @return null without address space, and under a sanitizer, which detects such uses itself
  [[nodiscard]] static std::shared_ptr<PoolArena> Make();

  PoolArena(const PoolArena&) = delete;
  PoolArena& operator=(const PoolArena&) = delete;
  ~PoolArena();

  /// @return aligned to 16 bytes; null when the 4 GiB of addresses have been given out
  [[nodiscard]] void* TakeAlone(std::size_t size, std::uint32_t tag);

  /// @param size  at most kLargestAmongOthers
  [[nodiscard]] void* TakeAmongOthers(std::size_t size, std::uint32_t tag);

  [[nodiscard]] bool HasGuardPages() const { return hasGuardPages_; }
  /// @param size  with a guard behind that is not allocated, except for what the alignment leaves of it
  [[nodiscard]] void* TakeAtGuardPage(std::size_t size, std::uint32_t tag);

  /// The pages of memory from TakeAlone() or TakeAtGuardPage().
  [[nodiscard]] std::span<std::byte> PagesOf(const void* memory) const;

  void Free(void* memory);

  /// The world has ended. Allocated memory stays accessible until it is freed; further uses of
  /// freed memory are not detected.
  void Retire();

  /// For the signal handler: lets an access to freed memory continue.
  ///
  /// @return false if `address` lies in no arena
  [[nodiscard]] bool Revive(const void* address, FreedUse& use) noexcept;

  /// What a refused access to `address` was an access to; empty if it lies in no page of this arena's.
  [[nodiscard]] std::string DescribeAccess(const void* address) const;

 private:
  /// Pages that become inaccessible together.
  struct Run {
    std::size_t Page;
    std::size_t Pages;
    std::size_t Users;  ///< allocations not yet freed, plus one while the run can take more
  };
  struct Allocation {
    std::byte* Start;
    std::size_t Size;
    std::uint32_t Tag;
    std::size_t Run;
  };

  PoolArena(std::byte* base, std::size_t bytes);

  [[nodiscard]] static std::shared_ptr<PoolArena> TakeSpare();
  [[nodiscard]] bool BecomeSpare();
  [[nodiscard]] std::byte* PageAt(std::size_t page) const;
  [[nodiscard]] const Allocation& Find(const void* address) const;
  bool NewRun(std::size_t bytes, std::size_t guardPages = 0);
  bool Open(std::size_t pages);
  void LetGo(std::size_t run);
  void DropBytesUpTo(std::size_t end);
  void DropBytes(std::size_t page, std::size_t pages);
  void DropOldBytes();

  std::byte* const base_;
  std::size_t reservedBytes_;
  std::vector<Run> runs_;                ///< by address
  std::vector<Allocation> allocations_;  ///< by address
  std::size_t sharedRun_ = kNone;        ///< the run that can take more
  std::size_t sharedBytes_ = 0;          ///< bytes of it that are allocated
  std::size_t usedPages_ = 0;
  std::size_t openPages_ = 0;       ///< made accessible so far
  std::size_t dropped_ = 0;         ///< number of first runs whose freed ones have lost their bytes
  std::size_t freedWithBytes_ = 0;  ///< pages
  bool isRetired_ = false;
  const bool hasGuardPages_;

  static constexpr std::size_t kNone = SIZE_MAX;
};

/// Whether worlds that begin from now on have pools with guard pages; initially not.
void SetPoolGuardPages(bool has);

}  // namespace lidcam::host
