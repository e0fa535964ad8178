#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::test {

using WdmLevel = std::pair<unsigned, unsigned>;  ///< major, minor

/// Arguments of one of the driver's opens.
struct OpenCall {
  std::u16string Name;
  ULONG AttributesLength;
  HANDLE RootDirectory;
  ULONG Attributes;
  ACCESS_MASK Access;
  bool HasAllocationSize;
  ULONG FileAttributes;
  ULONG ShareAccess;
  ULONG Disposition;
  ULONG Options;
  PVOID ExtendedAttributes;
  ULONG ExtendedLength;

  friend bool operator==(const OpenCall&, const OpenCall&) = default;
};

/// Arguments of one of the driver's writes.
struct WriteCall {
  HANDLE File;
  bool HasEvent;
  bool HasRoutine;
  const void* Bytes;
  ULONG Length;
  std::optional<LONGLONG> Offset;
};

/// Records the driver's file calls and its queries of the driver model while it lives, and passes
/// them on; one at a time. The linker redirects those calls here (--wrap).
class StillFileCalls {
 public:
  StillFileCalls();
  StillFileCalls(const StillFileCalls&) = delete;
  StillFileCalls& operator=(const StillFileCalls&) = delete;
  ~StillFileCalls();

  /// Answers a query of a driver model level in the host's place.
  std::function<bool(WdmLevel level)> OnLevel;

  /// Runs before an open.
  std::function<void()> OnOpen;

  std::vector<WdmLevel> Levels;
  std::vector<OpenCall> Opens;
  std::vector<WriteCall> Writes;
  std::vector<HANDLE> Closes;
};

}  // namespace lidcam::test
