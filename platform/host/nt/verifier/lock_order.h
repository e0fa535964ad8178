#pragma once

#include <cstddef>

#include "platform/host/nt/scheduling/thread.h"

namespace lidcam::host {

/// Notes that a thread is about to wait for a lock while it holds the locks in `Held`, and reports
/// an order that, together with orders seen before, can end in a deadlock.
void NoteLockOrder(const char* call, const Thread& self, const void* lock);

/// A lock is initialised again: its order is forgotten.
void ForgetLockOrder(const void* lock);

/// The same for all locks in memory that is freed.
void ForgetLockOrders(const void* memory, std::size_t size);

}  // namespace lidcam::host
