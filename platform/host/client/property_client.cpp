#include "platform/host/client/property_client.h"

#include <utility>

namespace lidcam::client {
namespace {

/// Reads consecutive records from a block, within its bounds.
class BlockReader {
 public:
  explicit BlockReader(const Block& block) : left_(block.Bytes()) {}

  template <typename Record>
  bool Read(Record& record) {
    if (left_.size() < sizeof(record)) return false;
    std::memcpy(&record, left_.data(), sizeof(record));
    left_ = left_.subspan(sizeof(record));
    return true;
  }

  bool Skip(std::size_t bytes) {
    if (left_.size() < bytes) return false;
    left_ = left_.subspan(bytes);
    return true;
  }

 private:
  std::span<const std::byte> left_;
};

void ReadMembers(BlockReader& reader, PropertySupport& support) {
  KSPROPERTY_MEMBERSHEADER header{};
  if (!reader.Read(header)) return;
  std::size_t bytes = std::size_t{header.MembersSize} * header.MembersCount;
  const bool isDefault = (header.Flags & KSPROPERTY_MEMBER_FLAG_DEFAULT) != 0;
  KSPROPERTY_STEPPING_LONG range{};
  LONG value = 0;
  if (header.MembersFlags == KSPROPERTY_MEMBER_STEPPEDRANGES && bytes >= sizeof(range)) {
    if (!reader.Read(range)) return;
    bytes -= sizeof(range);
    support.Values = {range.Bounds.SignedMinimum, range.Bounds.SignedMaximum, range.SteppingDelta};
  } else if (header.MembersFlags == KSPROPERTY_MEMBER_VALUES && isDefault &&
             bytes >= sizeof(value)) {
    if (!reader.Read(value)) return;
    bytes -= sizeof(value);
    support.Default = value;
  }
  reader.Skip(bytes);
}

}  // namespace

void PropertyClient::WriteHead(const GUID& set, ULONG id, ULONG flags, Block& request) {
  KSPROPERTY head{};
  head.Set = set;
  head.Id = id;
  head.Flags = flags;
  if (request.Size() >= sizeof(head)) std::memcpy(request.Data(), &head, sizeof(head));
}

NTSTATUS PropertyClient::Ask(const GUID& set, ULONG id, ULONG flags, Block& request, Block& value,
                             ULONG_PTR& information) const {
  WriteHead(set, id, flags, request);
  return file_->Control(IOCTL_KS_PROPERTY,
                        {.Input = request.Data(),
                         .InputBytes = static_cast<ULONG>(request.Size()),
                         .Output = value.Size() != 0 ? value.Data() : nullptr,
                         .OutputBytes = static_cast<ULONG>(value.Size())},
                        information);
}

NTSTATUS PropertyClient::GetSized(const GUID& set, ULONG id, Block request, Block& value) const {
  ULONG_PTR information = 0;
  Block nothing;
  NTSTATUS status = Ask(set, id, KSPROPERTY_TYPE_GET, request, nothing, information);
  if (status != STATUS_BUFFER_OVERFLOW) return status;
  value = Block(information);
  status = Ask(set, id, KSPROPERTY_TYPE_GET, request, value, information);
  if (NT_SUCCESS(status)) value.Shorten(information);
  return status;
}

Block PropertyClient::GetSized(const GUID& set, ULONG id) const {
  Block value;
  Check(GetSized(set, id, Block(sizeof(KSPROPERTY)), value), "tell a property");
  return value;
}

PropertySupport PropertyClient::Support(const GUID& set, ULONG id) const {
  Block request(sizeof(KSPROPERTY));
  Block value;
  ULONG_PTR information = 0;
  NTSTATUS status = Ask(set, id, KSPROPERTY_TYPE_BASICSUPPORT, request, value, information);
  if (status == STATUS_BUFFER_OVERFLOW) {
    value = Block(information);
    status = Ask(set, id, KSPROPERTY_TYPE_BASICSUPPORT, request, value, information);
  }
  Check(status, "describe a property");
  BlockReader reader(value);
  KSPROPERTY_DESCRIPTION description{};
  if (!reader.Read(description)) {
    throw ClientError("describe a property", STATUS_INVALID_BUFFER_SIZE);
  }
  PropertySupport support;
  support.AccessFlags = description.AccessFlags;
  for (ULONG i = 0; i < description.MembersListCount; ++i) ReadMembers(reader, support);
  return support;
}

}  // namespace lidcam::client
