#pragma once

#include <functional>
#include <string>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/registry/registry_store.h"

namespace lidcam::host {

/// Opens the registry that ZwCreateKey() and its kin work on from now on. The one before is
/// committed; keys that are open in it stay open in it.
///
/// Values set through a key become durable together when the key is closed (see RegistryStore), or
/// at the process's regular end if a driver forgets to close it.
/// @par Any thread
void OpenRegistry(RegistryOptions options);

/// OpenRegistry() over one file, with messages on standard error; closes the registry for an empty
/// path. The folder is made when something is saved.
void SetRegistryFile(const std::string& path);

/// The content of the open registry; empty without one.
/// @par Any thread
[[nodiscard]] RegistryTree SnapshotRegistry();

/// Takes the registry away: no device has settings then, which is the initial state.
///
/// @return 0, or the error number of the last commit
int CloseRegistry();

/// One call of the registry's, as the driver made it. Fields that the call hasn't are 0 or empty.
struct RegistryCall {
  const char* Name = "";   ///< "ZwCreateKey", ...
  std::u16string Path{};   ///< full path of the key; the wanted one for the calls that open a key
  std::u16string Value{};  ///< name of the value
  ACCESS_MASK Access = 0;
  ULONG Attributes = 0;  ///< OBJ_ flags
  ULONG Type = 0;        ///< type of the value, or of the device's key
  ULONG Length = 0;      ///< bytes of the caller's block or data
};

/// Sees each call ahead of its work; a nonzero status is what the call then gives, its work undone.
using RegistryCallHook = std::function<NTSTATUS(const RegistryCall& call)>;

/// Sets the hook that tests watch and fail calls with; null takes it away.
void SetRegistryCallHook(RegistryCallHook hook);

}  // namespace lidcam::host
