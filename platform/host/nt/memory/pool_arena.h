#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/host/nt/memory/guards/freed_use.h"
#include "platform/host/nt/memory/pool_zone.h"

namespace lidcam::host {

/// The pool memory of one simulated world. No address is given out twice, and freed memory becomes
/// inaccessible: an access to it raises a signal, whose handler notes the use and lets the thread
/// continue with the bytes that were there, so that the world can report it at the thread's next
/// kernel call.
///
/// Memory from TakeAlone() has pages of its own. Memory from TakeAmongOthers(), which costs less,
/// shares a page with its neighbours, and becomes inaccessible with the last of them. The last 64
/// MiB of freed memory keep their bytes, and memory of 64 KiB and more until other memory of its size is taken;
/// memory freed before that reads as zeros.
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

  /// The parts of an arena. An arena that has ended leaves them to the next one: faults of fresh pages would be a
  /// fifth of a short world's time.
  struct Zones {
    std::unique_ptr<PoolZone> Small;
    std::unique_ptr<PoolZone>
        Large;  ///< whose pages move: a stream's buffers are larger than the caches together
  };

 private:
  explicit PoolArena(Zones zones);

  [[nodiscard]] bool BecomeSpare();
  [[nodiscard]] PoolZone& ZoneOf(const void* memory) const;

  Zones zones_;
  const bool hasGuardPages_;
  bool isRetired_ = false;
};

/// Whether worlds that begin from now on have pools with guard pages; initially not.
void SetPoolGuardPages(bool has);

}  // namespace lidcam::host
