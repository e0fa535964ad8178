#include "platform/image/file/catalogue.h"

#include <sha2.h>

#include <algorithm>

#include "platform/image/file/image_file.h"

namespace lidcam::image {
namespace {

using Bytes = std::span<const std::uint8_t>;

// Tags of the catalogue's encoding, DER.
constexpr std::uint8_t kOctets = 0x04;
constexpr std::uint8_t kIdentifier = 0x06;
constexpr std::uint8_t kSequence = 0x30;
constexpr std::uint8_t kConstructed = 0x20;

// Numbers of the list of members, and of SHA-256, as they are encoded.
constexpr std::array<std::uint8_t, 9> kTrustList{0x2B, 0x06, 0x01, 0x04, 0x01,
                                                 0x82, 0x37, 0x0A, 0x01};
constexpr std::array<std::uint8_t, 9> kSha256{0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};

// Elements within elements; a catalogue has 14 levels.
constexpr int kDeepest = 32;

struct Element {
  std::uint8_t Tag = 0;
  Bytes Content;
};

// Takes the first element off `rest`; false if there is no whole one.
bool Take(Bytes& rest, Element& element) {
  constexpr std::size_t kLongForm = 0x80;
  if (rest.size() < 2) return false;
  std::size_t size = rest[1];
  std::size_t head = 2;
  if (size >= kLongForm) {
    const std::size_t count = size - kLongForm;
    if (count == 0 || count > 4 || rest.size() < head + count) return false;
    size = 0;
    for (; head < 2 + count; ++head) size = size << 8U | rest[head];
  }
  if (size > rest.size() - head) return false;
  element = {rest[0], rest.subspan(head, size)};
  rest = rest.subspan(head + size);
  return true;
}

bool Is(const Element& element, Bytes identifier) {
  return element.Tag == kIdentifier && std::ranges::equal(element.Content, identifier);
}

bool BeginsWith(const Element& sequence, Bytes identifier) {
  Bytes rest = sequence.Content;
  Element first;
  return sequence.Tag == kSequence && Take(rest, first) && Is(first, identifier);
}

class Catalogue {
 public:
  explicit Catalogue(Bytes digest) : digest_(digest) {}

  /// @return false if `encoded` isn't a sequence of whole elements
  bool Read(Bytes encoded, int depth = 0, bool isOfTrustList = false) {
    if (depth > kDeepest) return false;
    Element before;
    Element element;
    for (Bytes rest = encoded; !rest.empty(); before = element) {
      if (!Take(rest, element)) return false;
      if (isOfTrustList && element.Tag == kOctets && BeginsWith(before, kSha256))
        HasDigest = HasDigest || std::ranges::equal(element.Content, digest_);
      const bool isTrustList = Is(before, kTrustList);
      HasTrustList = HasTrustList || isTrustList;
      const bool isConstructed = (element.Tag & kConstructed) != 0;
      if (isConstructed && !Read(element.Content, depth + 1, isOfTrustList || isTrustList))
        return false;
    }
    return true;
  }

  bool HasTrustList = false;
  bool HasDigest = false;

 private:
  const Bytes digest_;
};

}  // namespace

ImageDigest DigestOf(const ImageFile& image) {
  constexpr std::size_t kChecksumSize = 4;
  constexpr std::size_t kDirectorySize = 8;
  constexpr std::size_t kAlignment = 8;
  constexpr std::array<std::uint8_t, kAlignment> kPadding{};
  const Bytes all = image.Contents();
  const SignaturePlaces& places = image.Signature();
  const bool isSigned = places.SignatureSize != 0;
  const std::size_t end = isSigned ? places.Signature : all.size();
  const std::size_t behindChecksum = places.Checksum + kChecksumSize;
  const std::size_t behindDirectory = places.Directory + kDirectorySize;
  SHA2_CTX context{};
  SHA256Init(&context);
  const auto add = [&context](Bytes bytes) { SHA256Update(&context, bytes.data(), bytes.size()); };
  add(all.first(places.Checksum));
  add(all.subspan(behindChecksum, places.Directory - behindChecksum));
  add(all.subspan(behindDirectory, end - behindDirectory));
  if (!isSigned) add(Bytes(kPadding).first((kAlignment - end % kAlignment) % kAlignment));
  ImageDigest digest{};
  SHA256Final(digest.data(), &context);
  return digest;
}

void RequireMember(const ImageFile& image, const std::string& name, Bytes catalogue) {
  const ImageDigest digest = DigestOf(image);
  Catalogue read{digest};
  if (!read.Read(catalogue) || !read.HasTrustList)
    throw ImageError(name + ": is no catalogue of a driver's package");
  if (!read.HasDigest) {
    throw ImageError(image.Name() + ": isn't the file that its catalogue, " + name +
                     ", was made for: one of the two was changed or exchanged");
  }
}

}  // namespace lidcam::image
