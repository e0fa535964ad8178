#pragma once

#include "platform/host/client/property_client.h"
#include "scenarios/run/random.h"

namespace lidcam::scenarios {

/// A property request as a client may send it: valid, almost valid, or arbitrary.
struct PropertyRequest {
  GUID Set{};
  ULONG Id = 0;
  ULONG Flags = 0;
  client::Block Request;
  client::Block Value;
};

/// A request for one of the camera's four sets or one of the streaming class's, with any id, and up
/// to 200 arbitrary bytes as request and as value.
///
/// @param writesRegisters  may also write any register of the camera
[[nodiscard]] PropertyRequest AnyPropertyRequest(Random& chance, bool writesRegisters);

/// A block of `bytes` random bytes, mostly small numbers.
[[nodiscard]] client::Block AnyBytes(Random& chance, std::size_t bytes);

}  // namespace lidcam::scenarios
