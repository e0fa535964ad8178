#pragma once

#include <cstring>
#include <new>

#include "platform/kernel.h"

namespace lidcam::host {

inline constexpr ULONG kStreamingPoolTag = 0x7253534B;  // "KSSr"

/// Zeroed nonpaged memory of the class.
/// @return null without memory
inline PVOID AllocateZeroed(SIZE_T size) {
  PVOID const memory = ExAllocatePoolWithTag(NonPagedPool, size, kStreamingPoolTag);
  if (memory != nullptr) std::memset(memory, 0, size);
  return memory;
}

/// An object of zeros, with `extra` bytes behind it; ExFreePool() frees it.
/// @return null if there is no memory
template <typename Object>
Object* AllocateObject(SIZE_T extra = 0) {
  PVOID const memory = AllocateZeroed(sizeof(Object) + extra);
  return memory != nullptr ? ::new (memory) Object{} : nullptr;
}

}  // namespace lidcam::host
