#pragma once

#include <functional>
#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/registry/registry_store.h"

namespace lidcam::host {

/// Opens the registry for ZwCreateKey() and the other registry calls. The previous one is
/// committed; keys that are open in it stay open in it.
///
/// Values set through a key become durable together when the key is closed (see RegistryStore), or
/// at the process's regular end if a driver did not close it.
/// @par Any thread
void OpenRegistry(RegistryOptions options);

/// OpenRegistry() over one file, with messages on standard error; closes the registry for an empty
/// path. The folder is created at the first save.
void SetRegistryFile(const std::string& path);

/// The content of the open registry; empty without one.
/// @par Any thread
[[nodiscard]] RegistryTree SnapshotRegistry();

/// Adds keys and values to the open registry and commits them; no effect without one.
/// @par Any thread
void MergeIntoRegistry(const RegistryTree& content);

/// Closes the registry: no device has settings then, which is the initial state.
///
/// @return 0, or the error number of the last commit
int CloseRegistry();

/// One registry call, as the driver made it. Fields that the call doesn't have are 0 or empty.
struct RegistryCall {
  const char* Name = "";   ///< "ZwCreateKey", ...
  std::u16string Path{};   ///< full path of the key; for calls that open a key, the requested one
  std::u16string Value{};  ///< name of the value
  ACCESS_MASK Access = 0;
  ULONG Attributes = 0;  ///< OBJ_ flags
  ULONG Type = 0;        ///< type of the value, or of the device's key
  ULONG Length = 0;      ///< bytes of the caller's block or data
};

/// Called ahead of each call's work; a nonzero status becomes the call's result, without its work.
using RegistryCallHook = std::function<NTSTATUS(const RegistryCall& call)>;

/// Sets the hook by which tests observe and fail calls; null removes it.
void SetRegistryCallHook(RegistryCallHook hook);

}  // namespace lidcam::host
