// Functions that the compiler calls implicitly in a kernel image, and the image's entry.

#include "driver/avstream/entry/driver_entry.h"
#include "platform/kernel.h"

namespace {

// The platform's bug check codes for these two errors, so that a dump names them.
constexpr ULONG kOverranStackBuffer = 0xF7;
constexpr ULONG kDriverViolation = 0xC4;

constexpr ULONG_PTR kPureVirtualCall = 0x50564332;

[[noreturn]] void Stop(ULONG code, ULONG_PTR first) {
  KeBugCheckEx(code, first, 0, 0, 0);
  for (;;) {
  }
}

}  // namespace

extern "C" {

void* __stack_chk_guard = nullptr;

[[noreturn]] void __stack_chk_fail() {
  Stop(kOverranStackBuffer, reinterpret_cast<ULONG_PTR>(__stack_chk_guard));
}

[[noreturn]] void __cxa_pure_virtual() {
  Stop(kDriverViolation, kPureVirtualCall);
}

// Not every release of the 32-bit kernel exports it.
int memcmp(const void* a, const void* b, size_t length) {
  const auto* first = static_cast<const UCHAR*>(a);
  const auto* second = static_cast<const UCHAR*>(b);
  for (; length != 0; --length, ++first, ++second) {
    if (*first != *second) return *first < *second ? -1 : 1;
  }
  return 0;
}

/// Entry of the image: sets the stack guard to an unpredictable value. No function that checks the
/// guard may be on the stack then. Its memory is freed after it has returned.
__attribute__((section("INIT"), optimize("no-stack-protector"))) NTSTATUS NTAPI
ImageEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  const LARGE_INTEGER counter = KeQueryPerformanceCounter(nullptr);
  auto guard = static_cast<ULONG_PTR>(counter.QuadPart) * 0x9E3779B1U;
  guard ^= reinterpret_cast<ULONG_PTR>(driver) ^ reinterpret_cast<ULONG_PTR>(&counter);
  __stack_chk_guard = reinterpret_cast<void*>(guard | 1);
  return DriverEntry(driver, registryPath);
}

}  // extern "C"
