#include "platform/host/nt/memory/pool_arena.h"

#include <signal.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "platform/host/nt/memory/guards/paged_memory.h"
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

// Smaller memory costs less to fill than its pages to move.
constexpr std::size_t kSmallestLarge = std::size_t{64} << 10;

constinit std::atomic<bool> g_hasGuardPages{false};

#ifndef LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY

struct SpareZones {
  std::mutex Lock;
  PoolArena::Zones Zones;
};

// Never destroyed: worlds may end during static destruction.
SpareZones& TheSpareZones() {
  static auto* const spare = new SpareZones;
  return *spare;
}

PoolArena::Zones TakeZones() {
  {
    SpareZones& spare = TheSpareZones();
    const std::lock_guard guard(spare.Lock);
    if (spare.Zones.Small != nullptr) return std::move(spare.Zones);
  }
  return {.Small = PoolZone::Make(PoolZone::FreedPages::Stay),
          .Large = PoolZone::Make(PoolZone::FreedPages::Move)};
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

PoolArena::PoolArena(Zones zones) : zones_(std::move(zones)), hasGuardPages_(g_hasGuardPages) {}

std::shared_ptr<PoolArena> PoolArena::Make() {
#ifdef LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY
  return nullptr;
#else
  static const bool hasHandler = InstallHandler();
  if (!hasHandler) return nullptr;
  Zones zones = TakeZones();
  if (zones.Small == nullptr || zones.Large == nullptr) return nullptr;
  return std::shared_ptr<PoolArena>(new PoolArena(std::move(zones)));
#endif
}

bool PoolArena::BecomeSpare() {
#ifdef LIDCAM_SANITIZER_LOOKS_AFTER_MEMORY
  return false;
#else
  SpareZones& spare = TheSpareZones();
  const std::lock_guard guard(spare.Lock);
  if (isRetired_ || spare.Zones.Small != nullptr) return false;
  if (!zones_.Small->BeginAnew() || !zones_.Large->BeginAnew()) return false;
  spare.Zones = std::move(zones_);
  return true;
#endif
}

PoolArena::~PoolArena() {
  static_cast<void>(BecomeSpare());
}

PoolZone& PoolArena::ZoneOf(const void* memory) const {
  return zones_.Large->Contains(memory) ? *zones_.Large : *zones_.Small;
}

void* PoolArena::TakeAlone(std::size_t size, std::uint32_t tag) {
  PoolZone& zone = size >= kSmallestLarge ? *zones_.Large : *zones_.Small;
  return zone.TakeAlone(size, tag);
}

void* PoolArena::TakeAmongOthers(std::size_t size, std::uint32_t tag) {
  return zones_.Small->TakeAmongOthers(size, tag);
}

void* PoolArena::TakeAtGuardPage(std::size_t size, std::uint32_t tag) {
  return zones_.Small->TakeAtGuardPage(size, tag);
}

std::span<std::byte> PoolArena::PagesOf(const void* memory) const {
  return ZoneOf(memory).PagesOf(memory);
}

void PoolArena::Free(void* memory) {
  ZoneOf(memory).Free(memory);
}

void PoolArena::Retire() {
  isRetired_ = true;
  zones_.Small->Retire();
  zones_.Large->Retire();
}

bool PoolArena::Revive(const void* address, FreedUse& use) noexcept {
  return ZoneOf(address).Revive(address, use);
}

std::string PoolArena::DescribeAccess(const void* address) const {
  return ZoneOf(address).DescribeAccess(address);
}

}  // namespace lidcam::host
