#include "platform/host/nt/memory/pool_arena.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <utility>

#include "platform/host/nt/memory/guards/paged_memory.h"
#include "platform/host/nt/memory/guards/pool_guard.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY 1
#endif
#endif

namespace lidcam::host {
namespace {

constexpr std::size_t kFreedBytesKept = std::size_t{64} << 20;

// Made accessible together, so that few allocations need a system call.
constexpr std::size_t kPagesOpenedAtOnce = 1024;

constinit std::atomic<bool> g_hasGuardPages{false};

std::size_t PageSize() {
  static const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

#ifndef LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY

constexpr std::size_t kReservedBytes = std::size_t{4} << 30;

// The pages of an arena that has ended, for the next one: faults of fresh pages would be a fifth of a short
// world's time.
struct SpareArena {
  std::mutex Lock;
  std::byte* Base = nullptr;
  std::size_t OpenPages = 0;
};

// Never destroyed: worlds may end during static destruction.
SpareArena& TheSpareArena() {
  static auto* const spare = new SpareArena;
  return *spare;
}

struct sigaction g_handlerBefore {};

// Any other access raises the signal again, with the previous action.
void OnRefusedAccess(int, siginfo_t* info, void*) {
  Thread* const self = FindCurrentThread();
  PoolArena* const arena = self != nullptr ? self->World.Arena().get() : nullptr;
  FreedUse use;
  const bool goesOn =
      arena != nullptr && (arena->Revive(info->si_addr, use) || PageIn(info->si_addr, use));
  if (!goesOn) {
    sigaction(SIGSEGV, &g_handlerBefore, nullptr);
  } else if (self->UsedFreed.Block == nullptr) {
    self->UsedFreed = use;
  }
}

bool InstallHandler() {
  struct sigaction action {};
  action.sa_sigaction = OnRefusedAccess;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  return sigaction(SIGSEGV, &action, &g_handlerBefore) == 0;
}

#endif

}  // namespace

void SetPoolGuardPages(bool has) {
  g_hasGuardPages = has;
}

PoolArena::PoolArena(std::byte* base, std::size_t bytes)
    : base_(base), reservedBytes_(bytes), hasGuardPages_(g_hasGuardPages) {}

std::shared_ptr<PoolArena> PoolArena::Make() {
#ifdef LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY
  return nullptr;
#else
  static const bool hasHandler = InstallHandler();
  if (!hasHandler) return nullptr;
  if (std::shared_ptr<PoolArena> arena = TakeSpare()) return arena;
  void* const base =
      mmap(nullptr, kReservedBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  return std::shared_ptr<PoolArena>(new PoolArena(static_cast<std::byte*>(base), kReservedBytes));
#endif
}

std::shared_ptr<PoolArena> PoolArena::TakeSpare() {
#ifdef LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY
  return nullptr;
#else
  SpareArena& spare = TheSpareArena();
  const std::lock_guard guard(spare.Lock);
  if (spare.Base == nullptr) return nullptr;
  std::shared_ptr<PoolArena> arena(
      new PoolArena(std::exchange(spare.Base, nullptr), kReservedBytes));
  arena->openPages_ = spare.OpenPages;
  return arena;
#endif
}

// Keeps at most as many bytes as freed memory keeps. Pages that this world hasn't used are as an earlier one left them:
// accessible.
bool PoolArena::BecomeSpare() {
#ifdef LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY
  return false;
#else
  SpareArena& spare = TheSpareArena();
  const std::lock_guard guard(spare.Lock);
  const std::size_t used = usedPages_ * PageSize();
  if (isRetired_ || spare.Base != nullptr) return false;
  if (mprotect(base_, used, PROT_READ | PROT_WRITE) != 0) return false;
  if (used > kFreedBytesKept) {
    madvise(base_ + kFreedBytesKept, used - kFreedBytesKept, MADV_DONTNEED);
  }
  spare.Base = base_;
  spare.OpenPages = openPages_;
  return true;
#endif
}

PoolArena::~PoolArena() {
  if (!BecomeSpare()) munmap(base_, reservedBytes_);
}

std::byte* PoolArena::PageAt(std::size_t page) const {
  return base_ + page * PageSize();
}

bool PoolArena::Open(std::size_t pages) {
  const std::size_t opened = std::max(pages, kPagesOpenedAtOnce);
  if ((openPages_ + opened) * PageSize() > reservedBytes_) return false;
  const int error = mprotect(PageAt(openPages_), opened * PageSize(), PROT_READ | PROT_WRITE);
  if (error == 0) openPages_ += opened;
  return error == 0;
}

bool PoolArena::NewRun(std::size_t bytes, std::size_t guardPages) {
  if (bytes > reservedBytes_) return false;
  const std::size_t pages = std::max<std::size_t>(1, (bytes + PageSize() - 1) / PageSize());
  const std::size_t end = usedPages_ + pages + guardPages;
  if (end > openPages_ && !Open(end - openPages_)) return false;
  runs_.push_back({usedPages_, pages, 1});
  usedPages_ = end;
  return true;
}

// Allocations are kept in the order of their addresses: a new run ends the shared page.
void* PoolArena::TakeAlone(std::size_t size, std::uint32_t tag) {
  if (sharedRun_ != kNone) LetGo(std::exchange(sharedRun_, kNone));
  if (!NewRun(size)) return nullptr;
  allocations_.push_back({PageAt(runs_.back().Page), size, tag, runs_.size() - 1});
  return allocations_.back().Start;
}

void* PoolArena::TakeAtGuardPage(std::size_t size, std::uint32_t tag) {
  const std::size_t bytes = (size - GuardBytesBehind() + kAlignment - 1) & ~(kAlignment - 1);
  if (!NewRun(bytes, 1)) return nullptr;
  const Run& run = runs_.back();
  std::byte* const end = PageAt(run.Page + run.Pages);
  if (mprotect(end, PageSize(), PROT_NONE) != 0) return nullptr;
  allocations_.push_back({end - bytes, size, tag, runs_.size() - 1});
  return end - bytes;
}

void* PoolArena::TakeAmongOthers(std::size_t size, std::uint32_t tag) {
  const std::size_t bytes = (size + kAlignment - 1) & ~(kAlignment - 1);
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
const PoolArena::Allocation& PoolArena::Find(const void* address) const {
  const auto* const at = static_cast<const std::byte*>(address);
  return *std::prev(std::ranges::upper_bound(allocations_, at, std::less<>{}, &Allocation::Start));
}

std::span<std::byte> PoolArena::PagesOf(const void* memory) const {
  const Run& run = runs_[Find(memory).Run];
  return {PageAt(run.Page), run.Pages * PageSize()};
}

void PoolArena::Free(void* memory) {
  if (!isRetired_) LetGo(Find(memory).Run);
}

void PoolArena::LetGo(std::size_t number) {
  Run& run = runs_[number];
  if (--run.Users != 0) return;
  mprotect(PageAt(run.Page), run.Pages * PageSize(), PROT_NONE);
  if (number < dropped_) {
    DropBytes(run.Page, run.Pages);
    return;
  }
  freedWithBytes_ += run.Pages;
  if (freedWithBytes_ * PageSize() > kFreedBytesKept) DropOldBytes();
}

void PoolArena::DropBytes(std::size_t page, std::size_t pages) {
  if (pages != 0) madvise(PageAt(page), pages * PageSize(), MADV_DONTNEED);
}

// Neighbours are dropped together: most old memory has been freed.
void PoolArena::DropBytesUpTo(std::size_t end) {
  std::size_t first = 0;
  std::size_t pages = 0;
  for (; dropped_ < end; ++dropped_) {
    const Run& run = runs_[dropped_];
    if (run.Users == 0) {
      if (pages == 0) first = run.Page;
      pages += run.Pages;
      freedWithBytes_ -= run.Pages;
    } else {
      DropBytes(first, std::exchange(pages, 0));
    }
  }
  DropBytes(first, pages);
}

void PoolArena::DropOldBytes() {
  std::size_t end = dropped_;
  for (std::size_t pages = 0; pages < freedWithBytes_ / 2; ++end) {
    if (runs_[end].Users == 0) pages += runs_[end].Pages;
  }
  DropBytesUpTo(end);
}

void PoolArena::Retire() {
  isRetired_ = true;
  DropBytesUpTo(runs_.size());
  // Pages that only an earlier world has used.
  DropBytes(usedPages_, openPages_ - usedPages_);
  const std::size_t opened = openPages_ * PageSize();
  mprotect(base_, opened, PROT_READ | PROT_WRITE);
  munmap(base_ + opened, reservedBytes_ - opened);
  reservedBytes_ = opened;
}

bool PoolArena::Revive(const void* address, FreedUse& use) noexcept {
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

std::string PoolArena::DescribeAccess(const void* address) const {
  const auto* const at = static_cast<const std::byte*>(address);
  if (at < base_ || at >= PageAt(usedPages_) || at < allocations_.front().Start) return {};
  if (std::string paged = DescribePagedOut(address); !paged.empty()) return paged;
  const Allocation& allocation = Find(address);
  const FreedUse use{allocation.Start, static_cast<std::size_t>(at - allocation.Start),
                     allocation.Size, allocation.Tag};
  return runs_[allocation.Run].Users == 0 ? DescribeFreedUse(use) : DescribeOverrun(use);
}

}  // namespace lidcam::host
