#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace lidcam::image {

class ImageFile;

/// SHA-256.
using ImageDigest = std::array<std::uint8_t, 32>;

/// The digest of an image that its signatures and its catalogue cover: they leave out the checksum, the place of the
/// signature, and the signature.
[[nodiscard]] ImageDigest DigestOf(const ImageFile& image);

/// Checks that a package's catalogue has the image's digest among its members. Who signed the catalogue isn't checked.
///
/// @param name  of the catalogue, for messages
/// @throws ImageError if it hasn't, or is no catalogue
void RequireMember(const ImageFile& image, const std::string& name,
                   std::span<const std::uint8_t> catalogue);

}  // namespace lidcam::image
