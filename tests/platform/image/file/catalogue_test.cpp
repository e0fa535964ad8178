#include "platform/image/file/catalogue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/platform/image/made_image.h"

namespace lidcam::image {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes Element(std::uint8_t tag, const Bytes& content) {
  Bytes head{tag};
  if (content.size() < 0x80) {
    head.push_back(static_cast<std::uint8_t>(content.size()));
  } else {
    head.insert(head.end(), {0x82, static_cast<std::uint8_t>(content.size() >> 8),
                             static_cast<std::uint8_t>(content.size())});
  }
  return Joined({head, content});
}

Bytes Sequence(std::initializer_list<Bytes> parts) {
  return Element(0x30, Joined(parts));
}

Bytes Sha256() {
  return Sequence(
      {Bytes{0x06, 9, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01}, Bytes{0x05, 0}});
}

// A list of members, each with a text ahead of its digest.
Bytes CatalogueOf(std::initializer_list<ImageDigest> digests) {
  Bytes members;
  for (const ImageDigest& digest : digests) {
    const Bytes text = Element(0x04, Bytes(130, 0x30));
    members = Joined(
        {members,
         Sequence({text, Element(0x31, Sequence({Sha256(), Element(0x04, {digest.begin(),
                                                                          digest.end()})}))})});
  }
  const Bytes list{0x06, 9, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x0A, 0x01};
  return Sequence({list, Element(0xA0, Sequence({Element(0x30, members)}))});
}

std::string VerdictOn(const ImageFile& image, const Bytes& catalogue) {
  try {
    RequireMember(image, "made.cat", catalogue);
  } catch (const ImageError& error) {
    return error.what();
  }
  return "";
}

ImageDigest OtherDigest() {
  ImageDigest digest{};
  digest.fill(7);
  return digest;
}

TEST(Catalogue, HasTheImageAmongItsMembers) {
  const ImageFile image = MadeImage().File();
  EXPECT_EQ(VerdictOn(image, CatalogueOf({OtherDigest(), DigestOf(image)})), "");
}

TEST(Catalogue, OfAnotherImageIsNamedWithThisOne) {
  EXPECT_EQ(VerdictOn(MadeImage().File(), CatalogueOf({OtherDigest()})),
            "made.sys: isn't the file that its catalogue, made.cat, was made for: one of the two "
            "was changed or exchanged");
}

TEST(Catalogue, IsNotMetByADigestOutsideOfItsMembers) {
  const ImageFile image = MadeImage().File();
  const ImageDigest digest = DigestOf(image);
  const Bytes stray = Sequence({Sha256(), Element(0x04, {digest.begin(), digest.end()})});
  EXPECT_THAT(VerdictOn(image, Sequence({stray, CatalogueOf({OtherDigest()})})),
              HasSubstr("isn't the file"));
}

TEST(Catalogue, ThatIsCutOffAnywhereIsNone) {
  const ImageFile image = MadeImage().File();
  const Bytes whole = CatalogueOf({DigestOf(image)});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(VerdictOn(image, Bytes(whole.begin(), whole.begin() + static_cast<long>(size))),
              "made.cat: is no catalogue of a driver's package")
        << size;
  }
}

TEST(Catalogue, WithElementsWithinElementsForEverIsNone) {
  Bytes nested;
  for (int level = 0; level < 100; ++level) nested = Element(0x30, nested);
  EXPECT_THAT(VerdictOn(MadeImage().File(), nested), HasSubstr("is no catalogue"));
}

TEST(ImageDigest, CoversAllButTheChecksumAndTheSignature) {
  MadeImage made;
  const ImageDigest digest = DigestOf(made.File());
  Bytes changed = made.Bytes();
  changed[MadeImage::OffsetOf(MadeImage::kNames + 0xF0)] ^= 1;
  std::uint32_t sum = ImageChecksum(changed, MadeImage::kChecksum);
  std::memcpy(&changed[MadeImage::kChecksum], &sum, sizeof(sum));
  EXPECT_NE(DigestOf({"made.sys", changed}), digest);

  MadeImage signature;
  const Bytes unsigned_ = signature.Bytes();
  signature.PutDirectory(4, static_cast<std::uint32_t>(unsigned_.size()), 16);
  Bytes bytes = signature.Bytes();
  bytes.insert(bytes.end(), 16, 0x5A);
  sum = ImageChecksum(bytes, MadeImage::kChecksum);
  std::memcpy(&bytes[MadeImage::kChecksum], &sum, sizeof(sum));
  EXPECT_EQ(DigestOf({"made.sys", bytes}), digest);
}

// The files of a package in a folder of their own.
class PackageFolder : public testing::Test {
 protected:
  void SetUp() override {
    Folder =
        std::filesystem::path(testing::TempDir()) /
        (std::string("package-") + testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(Folder);
    Write("lidcam.sys", MadeImage().Bytes());
  }
  void TearDown() override { std::filesystem::remove_all(Folder); }

  void Write(const char* name, const Bytes& bytes) const {
    std::ofstream(Folder / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }
  [[nodiscard]] std::string Image() const { return (Folder / "lidcam.sys").string(); }

  std::filesystem::path Folder;
};

TEST_F(PackageFolder, WithoutACatalogueHasAnImageThatNothingVouchesFor) {
  EXPECT_FALSE(ImageFile::Read(Image()).IsOfCatalogue());
}

TEST_F(PackageFolder, WithItsCatalogueHasAnImageThatIsVerified) {
  Write("lidcam.cat", CatalogueOf({DigestOf(MadeImage().File())}));
  EXPECT_TRUE(ImageFile::Read(Image()).IsOfCatalogue());
}

TEST_F(PackageFolder, WithACatalogueOfAnotherImageIsRefused) {
  Write("lidcam.cat", CatalogueOf({OtherDigest()}));
  try {
    static_cast<void>(ImageFile::Read(Image()));
    ADD_FAILURE() << "the image is accepted";
  } catch (const ImageError& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("lidcam.sys: isn't the file"),
                                    HasSubstr("lidcam.cat, was made for")));
  }
}

}  // namespace
}  // namespace lidcam::image
