#pragma once

#include "platform/host/client/property_client.h"
#include "scenarios/run/random.h"

namespace lidcam::scenarios {

/// A property request as a client may send it: right, nearly right, or anything at all.
struct PropertyRequest {
  GUID Set{};
  ULONG Id = 0;
  ULONG Flags = 0;
  client::Block Request;
  client::Block Value;
};

/// A request for one of the camera's four sets or one of the streaming class's, of any id, with any
/// bytes up to a length of 200 as request and value.
///
/// @param writesRegisters  a client may write any register of the camera, too
[[nodiscard]] PropertyRequest AnyPropertyRequest(Random& chance, bool writesRegisters);

/// Fills a block of `bytes` bytes with anything, mostly small numbers.
[[nodiscard]] client::Block AnyBytes(Random& chance, std::size_t bytes);

}  // namespace lidcam::scenarios
