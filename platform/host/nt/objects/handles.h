#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// The object behind a kernel handle: an open file, an open registry key.
class HandleObject {
 public:
  HandleObject() = default;
  HandleObject(const HandleObject&) = delete;
  HandleObject& operator=(const HandleObject&) = delete;
  virtual ~HandleObject() = default;

  /// Called once by ZwClose(), after the handle was removed from the table and with no lock held.
  ///
  /// @return the status of ZwClose(); the handle is closed in any case
  virtual NTSTATUS Close() { return STATUS_SUCCESS; }

  /// For ObReferenceObjectByHandle(): the kernel object behind the handle, with one more reference;
  /// null if drivers can't refer to it.
  virtual PVOID Reference() { return nullptr; }
};

/// Gives `object` a handle. Handles are never null, are multiples of 4 and are not reused soon, so
/// that the use of a closed handle is detected.
/// @par Any thread
[[nodiscard]] HANDLE OpenHandle(std::shared_ptr<HandleObject> object);

/// Gives `object` a handle for a driver's call. Without OBJ_KERNEL_HANDLE a thread that runs an application's request
/// gets one of that application's table. The application can close such a handle, and no other thread can use it:
/// it is a violation, but for the calls that the camera's driver is required to make so.
///
/// @param call        the kernel call, for reports
/// @param attributes  null: none
[[nodiscard]] HANDLE OpenHandleOfDriver(const char* call, const OBJECT_ATTRIBUTES* attributes,
                                        std::shared_ptr<HandleObject> object);

/// While it exists, the calling thread runs an application's request.
class ApplicationRequest {
 public:
  ApplicationRequest();
  ApplicationRequest(const ApplicationRequest&) = delete;
  ApplicationRequest& operator=(const ApplicationRequest&) = delete;
  ~ApplicationRequest();

  /// The drivers have returned: a violation if they have left a handle in the application's table.
  void End() const;

 private:
  const std::size_t before_;
};

/// Runs `action` as a part of an application's request.
template <typename Action>
auto ForApplication(const Action& action) {
  const ApplicationRequest request;
  auto result = action();
  request.End();
  return result;
}

/// The object of `handle`; null for a handle that isn't open. It is a violation to look for one of an application's table
/// from anywhere else.
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

/// Number of open handles, which grows if a driver forgets a ZwClose().
[[nodiscard]] std::size_t OpenHandleCount();

}  // namespace lidcam::host
