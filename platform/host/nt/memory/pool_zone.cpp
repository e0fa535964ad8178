#include "platform/host/nt/memory/pool_zone.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#include "platform/host/nt/memory/guards/paged_memory.h"
#include "platform/host/nt/memory/guards/pool_guard.h"
#include "platform/host/nt/memory/pool_arena.h"

namespace lidcam::host {
namespace {

constexpr std::size_t kReservedBytes = std::size_t{4} << 30;
constexpr std::size_t kFreedBytesKept = std::size_t{64} << 20;

// Made accessible together, so that few allocations need a system call.
constexpr std::size_t kPagesOpenedAtOnce = 1024;

// Pages that were moved never become one mapping with their new neighbours, and the system has a limit of 65,530.
constexpr std::size_t kMostMoves = 8192;

constexpr int kOfOneProcess = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;

std::size_t AlignedUp(std::size_t bytes) {
  return (bytes + PoolArena::kAlignment - 1) & ~(PoolArena::kAlignment - 1);
}

}  // namespace

std::size_t PoolZone::PageSize() {
  static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

PoolZone::PoolZone(std::byte* base, FreedPages freed)
    : base_(base), freed_(freed), reservedBytes_(kReservedBytes) {}

std::unique_ptr<PoolZone> PoolZone::Make(FreedPages freed) {
  void* const base = mmap(nullptr, kReservedBytes, PROT_NONE, kOfOneProcess, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  return std::unique_ptr<PoolZone>(new PoolZone(static_cast<std::byte*>(base), freed));
}

PoolZone::~PoolZone() {
  munmap(base_, reservedBytes_);
}

bool PoolZone::Contains(const void* address) const {
  const auto* const at = static_cast<const std::byte*>(address);
  return at >= base_ && at < base_ + reservedBytes_;
}

std::byte* PoolZone::PageAt(std::size_t page) const {
  return base_ + page * PageSize();
}

bool PoolZone::Open(std::size_t pages) {
  const std::size_t opened = std::max(pages, kPagesOpenedAtOnce);
  if ((openPages_ + opened) * PageSize() > reservedBytes_) return false;
  const int error = mprotect(PageAt(openPages_), opened * PageSize(), PROT_READ | PROT_WRITE);
  if (error == 0) openPages_ += opened;
  return error == 0;
}

bool PoolZone::NewRun(std::size_t bytes, std::size_t guardPages) {
  if (bytes > reservedBytes_) return false;
  const std::size_t pages = std::max<std::size_t>(1, (bytes + PageSize() - 1) / PageSize());
  const std::size_t end = usedPages_ + pages + guardPages;
  if (end > openPages_ && !Open(end - openPages_)) return false;
  const Run run{usedPages_, pages, 1};
  if (!unused_.empty() && !MoveUnusedTo(run)) return false;
  runs_.push_back(run);
  usedPages_ = end;
  return true;
}

// Gives a new run the pages that were freed last, of those that are as many.
//
// @return false if the run can't be used
bool PoolZone::MoveUnusedTo(const Run& run) {
  const auto isThere = [&run](const UnusedPages& unused) {
    return unused.Page < run.Page + run.Pages && run.Page < unused.Page + unused.Pages;
  };
  const auto isSame = [&run](const UnusedPages& unused) {
    return unused.Page == run.Page && unused.Pages == run.Pages;
  };
  const bool isInPlace = std::ranges::any_of(unused_, isSame);
  std::erase_if(unused_, isThere);
  if (isInPlace) return true;
  const auto found =
      std::ranges::find(unused_.rbegin(), unused_.rend(), run.Pages, &UnusedPages::Pages);
  if (found == unused_.rend()) return true;
  const UnusedPages from = *found;
  unused_.erase(std::next(found).base());
  if (from.Run != kNone) {
    runs_[from.Run].HasBytes = false;
    freedWithBytes_ -= from.Pages;
  }
  ++moves_;
  const std::size_t bytes = run.Pages * PageSize();
  // The addresses that the pages leave stay reserved, as inaccessible as they were.
  void* const moved = mremap(PageAt(from.Page), bytes, bytes,
                             MREMAP_MAYMOVE | MREMAP_FIXED | MREMAP_DONTUNMAP, PageAt(run.Page));
  if (moved != MAP_FAILED) {
    return from.Run == kNone || mprotect(moved, bytes, PROT_READ | PROT_WRITE) == 0;
  }
  // What was there may be gone.
  return mmap(PageAt(run.Page), bytes, PROT_READ | PROT_WRITE, kOfOneProcess | MAP_FIXED, -1, 0) !=
         MAP_FAILED;
}

// Allocations are kept in the order of their addresses: a new run ends the shared page.
void* PoolZone::TakeAlone(std::size_t size, std::uint32_t tag) {
  if (sharedRun_ != kNone) LetGo(std::exchange(sharedRun_, kNone));
  if (!NewRun(size)) return nullptr;
  allocations_.push_back({PageAt(runs_.back().Page), size, tag, runs_.size() - 1});
  return allocations_.back().Start;
}

void* PoolZone::TakeAtGuardPage(std::size_t size, std::uint32_t tag) {
  const std::size_t bytes = AlignedUp(size - GuardBytesBehind());
  if (!NewRun(bytes, 1)) return nullptr;
  const Run& run = runs_.back();
  std::byte* const end = PageAt(run.Page + run.Pages);
  if (mprotect(end, PageSize(), PROT_NONE) != 0) return nullptr;
  allocations_.push_back({end - bytes, size, tag, runs_.size() - 1});
  return end - bytes;
}

void* PoolZone::TakeAmongOthers(std::size_t size, std::uint32_t tag) {
  const std::size_t bytes = AlignedUp(size);
  if (sharedRun_ != kNone && sharedBytes_ + bytes > PageSize()) {
    LetGo(std::exchange(sharedRun_, kNone));
  }
  if (sharedRun_ == kNone) {
    if (!NewRun(PageSize())) return nullptr;
    sharedRun_ = runs_.size() - 1;
    sharedBytes_ = 0;
  }
  std::byte* const start =
      PageAt(runs_[sharedRun_].Page) + std::exchange(sharedBytes_, sharedBytes_ + bytes);
  ++runs_[sharedRun_].Users;
  allocations_.push_back({start, size, tag, sharedRun_});
  return start;
}

// The last allocation that begins at or before the address.
const PoolZone::Allocation& PoolZone::Find(const void* address) const {
  const auto* const at = static_cast<const std::byte*>(address);
  return *std::prev(std::ranges::upper_bound(allocations_, at, std::less<>{}, &Allocation::Start));
}

std::span<std::byte> PoolZone::PagesOf(const void* memory) const {
  const Run& run = runs_[Find(memory).Run];
  return {PageAt(run.Page), run.Pages * PageSize()};
}

void PoolZone::Free(void* memory) {
  if (!isRetired_) LetGo(Find(memory).Run);
}

void PoolZone::LetGo(std::size_t number) {
  Run& run = runs_[number];
  if (--run.Users != 0) return;
  mprotect(PageAt(run.Page), run.Pages * PageSize(), PROT_NONE);
  if (number < dropped_) {
    DropBytes(run.Page, run.Pages);
    return;
  }
  if (freed_ == FreedPages::Move) unused_.push_back({run.Page, run.Pages, number});
  freedWithBytes_ += run.Pages;
  if (freedWithBytes_ * PageSize() > kFreedBytesKept) DropOldBytes();
}

void PoolZone::DropBytes(std::size_t page, std::size_t pages) {
  if (pages != 0) madvise(PageAt(page), pages * PageSize(), MADV_DONTNEED);
}

// Neighbours are dropped together: most old memory has been freed.
void PoolZone::DropBytesUpTo(std::size_t end) {
  std::size_t first = 0;
  std::size_t pages = 0;
  for (; dropped_ < end; ++dropped_) {
    Run& run = runs_[dropped_];
    if (run.Users == 0) {
      if (pages == 0) first = run.Page;
      pages += run.Pages;
      if (std::exchange(run.HasBytes, false)) freedWithBytes_ -= run.Pages;
    } else {
      DropBytes(first, std::exchange(pages, 0));
    }
  }
  DropBytes(first, pages);
  std::erase_if(unused_, [this](const UnusedPages& unused) {
    return unused.Run != kNone && unused.Run < dropped_;
  });
}

void PoolZone::DropOldBytes() {
  std::size_t end = dropped_;
  for (std::size_t pages = 0; pages < freedWithBytes_ / 2; ++end) {
    if (runs_[end].Users == 0 && runs_[end].HasBytes) pages += runs_[end].Pages;
  }
  DropBytesUpTo(end);
}

void PoolZone::KeepNewestUnused() {
  std::size_t kept = 0;
  std::size_t first = unused_.size();
  while (first != 0 && (kept + unused_[first - 1].Pages) * PageSize() <= kFreedBytesKept) {
    kept += unused_[--first].Pages;
    unused_[first].Run = kNone;
  }
  for (std::size_t i = 0; i < first; ++i) DropBytes(unused_[i].Page, unused_[i].Pages);
  unused_.erase(unused_.begin(), unused_.begin() + static_cast<std::ptrdiff_t>(first));
}

// Pages that this time hasn't used are as an earlier one left them: accessible.
bool PoolZone::BeginAnew() {
  const std::size_t used = usedPages_ * PageSize();
  if (isRetired_ || moves_ > kMostMoves) return false;
  if (used != 0 && mprotect(base_, used, PROT_READ | PROT_WRITE) != 0) return false;
  if (freed_ == FreedPages::Move) {
    KeepNewestUnused();
  } else if (used > kFreedBytesKept) {
    madvise(base_ + kFreedBytesKept, used - kFreedBytesKept, MADV_DONTNEED);
  }
  runs_.clear();
  allocations_.clear();
  sharedRun_ = kNone;
  usedPages_ = 0;
  dropped_ = 0;
  freedWithBytes_ = 0;
  return true;
}

void PoolZone::Retire() {
  isRetired_ = true;
  DropBytesUpTo(runs_.size());
  // Pages that only an earlier time has used.
  DropBytes(usedPages_, openPages_ - usedPages_);
  unused_.clear();
  const std::size_t opened = openPages_ * PageSize();
  if (opened != 0) mprotect(base_, opened, PROT_READ | PROT_WRITE);
  munmap(base_ + opened, reservedBytes_ - opened);
  reservedBytes_ = opened;
}

bool PoolZone::Revive(const void* address, FreedUse& use) noexcept {
  const auto* const at = static_cast<const std::byte*>(address);
  if (at < base_ || at >= PageAt(usedPages_)) return false;
  if (at < allocations_.front().Start) return false;
  const Allocation& allocation = Find(address);
  const Run& run = runs_[allocation.Run];
  if (run.Users != 0 || at >= PageAt(run.Page + run.Pages)) return false;
  use = {allocation.Start, static_cast<std::size_t>(at - allocation.Start), allocation.Size,
         allocation.Tag};
  return mprotect(PageAt(run.Page), run.Pages * PageSize(), PROT_READ | PROT_WRITE) == 0;
}

std::string PoolZone::DescribeAccess(const void* address) const {
  const auto* const at = static_cast<const std::byte*>(address);
  if (at < base_ || at >= PageAt(usedPages_) || at < allocations_.front().Start) return {};
  if (std::string paged = DescribePagedOut(address); !paged.empty()) return paged;
  const Allocation& allocation = Find(address);
  const FreedUse use{allocation.Start, static_cast<std::size_t>(at - allocation.Start),
                     allocation.Size, allocation.Tag};
  return runs_[allocation.Run].Users == 0 ? DescribeFreedUse(use) : DescribeOverrun(use);
}

}  // namespace lidcam::host
