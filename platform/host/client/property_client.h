#pragma once

#include <cstring>
#include <optional>
#include <type_traits>
#include <vector>

#include "platform/host/client/client_error.h"
#include "platform/host/client/video_format.h"
#include "platform/host/nt/io/device_file.h"

namespace lidcam::client {

/// The result of a property's basic support.
struct PropertySupport {
  struct Range {
    LONG Minimum;
    LONG Maximum;
    ULONG Step;
    bool operator==(const Range&) const = default;
  };

  ULONG AccessFlags = 0;  ///< KSPROPERTY_TYPE_GET and _SET
  std::optional<Range> Values;
  std::optional<LONG> Default;
};

/// The published value of a property of video processing, camera control, or the camera's own set.
struct Level {
  LONG Value = 0;
  ULONG Flags = 0;  ///< KSPROPERTY_VIDEOPROCAMP_FLAGS_*
  ULONG Capabilities = 0;
  bool operator==(const Level&) const = default;
};

/// Sends property requests to an open file. Passive level, one thread at a time.
class PropertyClient {
 public:
  /// @param file  outlives this
  explicit PropertyClient(const host::DeviceFile& file) : file_(&file) {}

  /// Sends one request as it is: `flags` go into its KSPROPERTY, the value may have any length.
  /// @param request  begins with a KSPROPERTY, whose fields are overwritten
  NTSTATUS Ask(const GUID& set, ULONG id, ULONG flags, Block& request, Block& value,
               ULONG_PTR& information) const;

  /// Reads a value whose length the driver determines.
  /// @param request  as for Ask()
  NTSTATUS GetSized(const GUID& set, ULONG id, Block request, Block& value) const;
  [[nodiscard]] Block GetSized(const GUID& set, ULONG id) const;

  /// A value without a KSPROPERTY ahead of it.
  template <typename Value>
  [[nodiscard]] NTSTATUS Get(const GUID& set, ULONG id, Value& value) const {
    return Exchange(set, id, KSPROPERTY_TYPE_GET, sizeof(KSPROPERTY), value);
  }
  template <typename Value>
  [[nodiscard]] NTSTATUS Set(const GUID& set, ULONG id, Value value) const {
    return Exchange(set, id, KSPROPERTY_TYPE_SET, sizeof(KSPROPERTY), value);
  }

  /// A block that begins with a KSPROPERTY and is both request and value, as in the video capture
  /// sets.
  template <typename Value>
  [[nodiscard]] NTSTATUS GetBlock(const GUID& set, ULONG id, Value& value) const {
    return Exchange(set, id, KSPROPERTY_TYPE_GET, sizeof(Value), value);
  }
  template <typename Value>
  [[nodiscard]] NTSTATUS SetBlock(const GUID& set, ULONG id, Value value) const {
    return Exchange(set, id, KSPROPERTY_TYPE_SET, sizeof(Value), value);
  }

  /// @throws ClientError
  [[nodiscard]] PropertySupport Support(const GUID& set, ULONG id) const;

 private:
  template <typename Value>
  NTSTATUS Exchange(const GUID& set, ULONG id, ULONG flags, std::size_t requestBytes,
                    Value& value) const {
    static_assert(std::is_trivially_copyable_v<Value>);
    Block copy(std::as_bytes(std::span(&value, 1)));
    Block request(requestBytes);
    if (requestBytes > sizeof(KSPROPERTY)) {
      WriteHead(set, id, flags, copy);
      request = copy;
    }
    ULONG_PTR information = 0;
    const NTSTATUS status = Ask(set, id, flags, request, copy, information);
    if (NT_SUCCESS(status)) std::memcpy(&value, copy.Data(), sizeof(value));
    return status;
  }

  static void WriteHead(const GUID& set, ULONG id, ULONG flags, Block& request);

  const host::DeviceFile* file_;
};

}  // namespace lidcam::client
