#include "scenarios/clients/property_requests.h"

#include <cstring>

#include "driver/avstream/properties/property_ids.h"

namespace lidcam::scenarios {
namespace {

constexpr std::uint64_t kLongest = 200;

// The camera's sets are listed several times, to be chosen more often.
constexpr GUID kSets[] = {
    GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOPROCAMP),
    GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOPROCAMP),
    GuidOf(STATIC_PROPSETID_VIDCAP_CAMERACONTROL),
    GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOCONTROL),
    GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOCONTROL),
    PROPSETID_CAMERA_PRIVATE,
    PROPSETID_CAMERA_PRIVATE,
    PROPSETID_CAMERA_PRIVATE,
    GuidOf(STATIC_PROPSETID_VIDCAP_DROPPEDFRAMES),
    GuidOf(STATIC_KSPROPSETID_Pin),
    GuidOf(STATIC_KSPROPSETID_Topology),
    GuidOf(STATIC_KSPROPSETID_Connection),
    GuidOf(STATIC_KSPROPSETID_Stream),
    GuidOf(STATIC_KSPROPSETID_General),
};

constexpr std::size_t kUsualLengths[] = {0, 4, 24, 32, 40, 52, 56, 64, 132, 152, 200};

ULONG AnyFlags(Random& chance) {
  constexpr ULONG kUsual[] = {KSPROPERTY_TYPE_GET,          KSPROPERTY_TYPE_GET,
                              KSPROPERTY_TYPE_SET,          KSPROPERTY_TYPE_SET,
                              KSPROPERTY_TYPE_BASICSUPPORT, KSPROPERTY_TYPE_SETSUPPORT};
  if (!chance.OneIn(12)) return chance.OneOf(kUsual);
  return chance.OneIn(2) ? 1U << chance.Below(32) : static_cast<ULONG>(chance.Next());
}

ULONG AnyId(Random& chance) {
  return static_cast<ULONG>(chance.OneIn(20) ? chance.Next() : chance.Below(26));
}

std::size_t AnyLength(Random& chance) {
  return chance.OneIn(3) ? chance.Between(0, kLongest) : chance.OneOf(kUsualLengths);
}

GUID AnySet(Random& chance) {
  GUID set = chance.OneOf(kSets);
  if (chance.OneIn(25)) set.Data1 ^= 1U << chance.Below(32);
  return set;
}

bool WritesRegister(const PropertyRequest& request) {
  return IsSameGuid(request.Set, PROPSETID_CAMERA_PRIVATE) &&
         request.Id == PrivatePropertyRegister && request.Flags == KSPROPERTY_TYPE_SET;
}

}  // namespace

client::Block AnyBytes(Random& chance, std::size_t bytes) {
  client::Block block(bytes);
  const bool isSmall = !chance.OneIn(3);
  for (std::size_t at = 0; at < bytes; at += sizeof(ULONG)) {
    const auto word = static_cast<ULONG>(isSmall ? chance.Below(20) : chance.Next());
    std::memcpy(block.Data() + at, &word, bytes - at < sizeof(word) ? bytes - at : sizeof(word));
  }
  return block;
}

PropertyRequest AnyPropertyRequest(Random& chance, bool writesRegisters) {
  PropertyRequest request;
  request.Set = AnySet(chance);
  request.Id = AnyId(chance);
  request.Flags = AnyFlags(chance);
  if (!writesRegisters && WritesRegister(request)) request.Flags = KSPROPERTY_TYPE_GET;
  request.Request = AnyBytes(chance, AnyLength(chance));
  request.Value = AnyBytes(chance, AnyLength(chance));
  return request;
}

}  // namespace lidcam::scenarios
