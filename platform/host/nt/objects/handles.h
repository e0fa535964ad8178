#pragma once

#include <cstddef>
#include <memory>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// Something that a kernel handle stands for: an open file, an open registry key.
class HandleObject {
 public:
  HandleObject() = default;
  HandleObject(const HandleObject&) = delete;
  HandleObject& operator=(const HandleObject&) = delete;
  virtual ~HandleObject() = default;

  /// Called once by ZwClose(), after the handle has gone from the table and with no lock held.
  ///
  /// @return the status that ZwClose() gives; the handle is gone whatever it is
  virtual NTSTATUS Close() { return STATUS_SUCCESS; }

  /// For ObReferenceObjectByHandle(): the kernel object behind the handle, with a reference more; null
  /// if drivers can't refer to it.
  virtual PVOID Reference() { return nullptr; }
};

/// Gives `object` a handle. Handles are never null, are multiples of 4 and are not soon used again,
/// so that a handle used after its close is found out.
/// @par Any thread
[[nodiscard]] HANDLE OpenHandle(std::shared_ptr<HandleObject> object);

/// What `handle` stands for; null for a handle that isn't open.
/// @par Any thread
[[nodiscard]] std::shared_ptr<HandleObject> FindHandle(HANDLE handle);

/// As FindHandle(), for objects of one kind.
///
/// @return STATUS_SUCCESS, STATUS_INVALID_HANDLE for a handle that isn't open, or
///         STATUS_OBJECT_TYPE_MISMATCH for one of another kind; `object` is null in both
template <typename Kind>
[[nodiscard]] NTSTATUS FindHandle(HANDLE handle, std::shared_ptr<Kind>& object) {
  const std::shared_ptr<HandleObject> found = FindHandle(handle);
  object = std::dynamic_pointer_cast<Kind>(found);
  if (found == nullptr) return STATUS_INVALID_HANDLE;
  return object != nullptr ? STATUS_SUCCESS : STATUS_OBJECT_TYPE_MISMATCH;
}

/// Handles that are open now: what a driver leaks when it forgets a ZwClose().
[[nodiscard]] std::size_t OpenHandleCount();

}  // namespace lidcam::host
