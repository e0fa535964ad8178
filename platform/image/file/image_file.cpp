#include "platform/image/file/image_file.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "platform/image/file/catalogue.h"

namespace lidcam::image {
namespace {

constexpr std::uint32_t kPage = 0x1000;
constexpr std::uint32_t kLargestImage = 64U << 20;

// Offsets in the file, and in the headers behind its signature.
constexpr std::size_t kSignatureOffset = 0x3C;
constexpr std::size_t kFileHeader = 4;
constexpr std::size_t kOptionalHeader = 24;
constexpr std::size_t kOptionalHeaderSize = 240;
constexpr std::size_t kDirectories = kOptionalHeader + 112;
constexpr std::size_t kSectionHeaderSize = 40;

constexpr std::uint16_t kMachineAmd64 = 0x8664;
constexpr std::uint16_t kMagic64Bits = 0x20B;
constexpr std::uint16_t kSubsystemNative = 1;
constexpr std::uint16_t kRelocationsStripped = 0x0001;
constexpr std::uint16_t kExecutableImage = 0x0002;

enum DirectoryNumber : std::size_t {
  kExportDirectory = 0,
  kImportDirectory = 1,
  kFunctionDirectory = 3,
  kSignatureDirectory = 4,  // the only one whose address is an offset in the file
  kRelocationDirectory = 5,
  kThreadStorageDirectory = 9,
  kDelayedImportDirectory = 13,
  kDirectoryCount = 16,
};

constexpr std::uint32_t kSectionDiscardable = 0x02000000;
constexpr std::uint32_t kSectionExecutable = 0x20000000;
constexpr std::uint32_t kSectionReadable = 0x40000000;
constexpr std::uint32_t kSectionWritable = 0x80000000;

template <typename T>
T Load(std::span<const std::uint8_t> bytes, std::size_t offset) {
  T value{};
  std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

std::string InLowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char character) {
    return static_cast<char>(std::tolower(character));
  });
  return text;
}

std::vector<std::uint8_t> ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw ImageError(path + ": " + std::strerror(errno));
  std::vector<std::uint8_t> contents{std::istreambuf_iterator<char>(file), {}};
  if (file.bad()) throw ImageError(path + ": can't be read");
  return contents;
}

}  // namespace

std::uint32_t ImageChecksum(std::span<const std::uint8_t> contents, std::size_t place) {
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < contents.size(); at += 2) {
    if (at == place || at == place + 2) continue;
    const std::uint32_t high = at + 1 < contents.size() ? contents[at + 1] : 0U;
    sum += contents[at] | high << 8;
    sum = (sum & 0xFFFF) + (sum >> 16);
  }
  return sum + static_cast<std::uint32_t>(contents.size());
}

ImageFile ImageFile::Read(const std::string& path) {
  ImageFile image(path, ReadWhole(path));
  const std::filesystem::path catalogue = std::filesystem::path(path).replace_extension(".cat");
  std::error_code error;
  if (catalogue == path || !std::filesystem::exists(catalogue, error)) return image;
  RequireMember(image, catalogue.string(), ReadWhole(catalogue.string()));
  image.isOfCatalogue_ = true;
  return image;
}

ImageFile::ImageFile(std::string name, std::vector<std::uint8_t> contents)
    : name_(std::move(name)), contents_(std::move(contents)) {
  ReadHeaders();
}

void ImageFile::Require(bool holds, std::string_view otherwise) const {
  if (!holds) throw ImageError(name_ + ": " + std::string(otherwise));
}

template <typename T>
T ImageFile::FieldAt(std::size_t offset, const char* what) const {
  Require(offset <= contents_.size() && contents_.size() - offset >= sizeof(T),
          std::string("the file ends within its ").append(what));
  return Load<T>(contents_, offset);
}

std::span<const std::uint8_t> ImageFile::At(std::uint32_t address) const {
  for (const ImageSection& section : sections_) {
    if (address < section.Address || address - section.Address >= section.FileSize) continue;
    const std::uint32_t skipped = address - section.Address;
    return std::span(contents_).subspan(section.FileOffset + skipped, section.FileSize - skipped);
  }
  return {};
}

std::span<const std::uint8_t> ImageFile::BytesAt(std::uint32_t address, std::size_t size,
                                                 const char* what) const {
  const std::span<const std::uint8_t> bytes = At(address);
  Require(bytes.size() >= size, std::string(what) + " is not within a section");
  return bytes.first(size);
}

template <typename T>
T ImageFile::ValueAt(std::uint32_t address, const char* what) const {
  return Load<T>(BytesAt(address, sizeof(T), what), 0);
}

std::string ImageFile::TextAt(std::uint32_t address, const char* what) const {
  const std::span<const std::uint8_t> bytes = At(address);
  const auto end = std::ranges::find(bytes, 0);
  Require(end != bytes.end(), std::string(what) + " is not within a section");
  return {bytes.begin(), end};
}

void ImageFile::ReadHeaders() {
  const char* const headers = "headers";
  Require(FieldAt<std::uint16_t>(0, headers) == 0x5A4D, "is no executable image");
  const std::size_t signature = FieldAt<std::uint32_t>(kSignatureOffset, headers);
  Require(FieldAt<std::uint32_t>(signature, headers) == 0x4550, "is no image of Windows");
  Require(FieldAt<std::uint16_t>(signature + kFileHeader, headers) == kMachineAmd64,
          "is not for 64-bit x86 processors");
  const auto sectionCount = FieldAt<std::uint16_t>(signature + kFileHeader + 2, headers);
  Require(FieldAt<std::uint16_t>(signature + kFileHeader + 16, headers) == kOptionalHeaderSize,
          "has an optional header of an unknown size");
  const auto kind = FieldAt<std::uint16_t>(signature + kFileHeader + 18, headers);
  Require((kind & kExecutableImage) != 0, "was not linked completely");
  Require((kind & kRelocationsStripped) == 0, "has no relocations");

  const std::size_t optional = signature + kOptionalHeader;
  Require(FieldAt<std::uint16_t>(optional, headers) == kMagic64Bits, "is no 64-bit image");
  entry_ = FieldAt<std::uint32_t>(optional + 16, headers);
  preferredBase_ = FieldAt<std::uint64_t>(optional + 24, headers);
  Require(FieldAt<std::uint32_t>(optional + 32, headers) == kPage,
          "has sections that are not aligned to pages");
  size_ = FieldAt<std::uint32_t>(optional + 56, headers);
  Require(size_ != 0 && size_ % kPage == 0 && size_ <= kLargestImage, "has a wrong size in memory");
  headerSize_ = FieldAt<std::uint32_t>(optional + 60, headers);
  Require(headerSize_ <= contents_.size() && headerSize_ <= size_, "has headers of a wrong size");
  signature_.Checksum = optional + 64;
  CheckChecksum(signature_.Checksum);
  Require(FieldAt<std::uint16_t>(optional + 68, headers) == kSubsystemNative, "is no driver");
  Require(FieldAt<std::uint32_t>(optional + 108, headers) == kDirectoryCount,
          "has an unknown number of directories");
  const auto directory = [&](DirectoryNumber number) {
    const std::size_t place = signature + kDirectories + number * 8;
    return Directory{FieldAt<std::uint32_t>(place, headers),
                     FieldAt<std::uint32_t>(place + 4, headers)};
  };
  NoteSignature(signature + kDirectories + kSignatureDirectory * 8, directory(kSignatureDirectory));
  Require(directory(kExportDirectory).Size == 0, "has exports");
  Require(directory(kThreadStorageDirectory).Size == 0, "has variables for each thread");
  Require(directory(kDelayedImportDirectory).Size == 0, "has delayed imports");

  ReadSections(optional + kOptionalHeaderSize, sectionCount);
  CheckEntry();
  ReadRelocations(directory(kRelocationDirectory));
  ReadImports(directory(kImportDirectory));
  ReadFunctions(directory(kFunctionDirectory));
}

void ImageFile::CheckChecksum(std::size_t place) const {
  Require(FieldAt<std::uint32_t>(place, "headers") == ImageChecksum(contents_, place),
          "has a wrong checksum: the file was changed after it was linked");
}

void ImageFile::NoteSignature(std::size_t directory, const Directory& signature) {
  signature_.Directory = directory;
  signature_.Signature = signature.Address;
  signature_.SignatureSize = signature.Size;
  Require(signature.Size == 0 ||
              (signature.Address >= headerSize_ && signature.Address <= contents_.size() &&
               signature.Size == contents_.size() - signature.Address),
          "has a signature that isn't at its end");
}

void ImageFile::ReadSections(std::size_t table, std::uint16_t count) {
  Require(count != 0, "has no sections");
  Require(table + count * kSectionHeaderSize <= headerSize_, "has sections without headers");
  for (std::size_t number = 0; number < count; ++number)
    ReadSection(table + number * kSectionHeaderSize);
}

void ImageFile::ReadSection(std::size_t header) {
  const auto* const name = reinterpret_cast<const char*>(contents_.data() + header);
  ImageSection section{.Name = std::string(name, strnlen(name, 8)),
                       .Address = FieldAt<std::uint32_t>(header + 12, "headers"),
                       .Size = FieldAt<std::uint32_t>(header + 8, "headers"),
                       .FileOffset = FieldAt<std::uint32_t>(header + 20, "headers"),
                       .FileSize = FieldAt<std::uint32_t>(header + 16, "headers"),
                       .IsWritable = false,
                       .IsExecutable = false,
                       .IsDiscardable = false};
  const std::string which = "section " + section.Name;
  const std::uint32_t end =
      sections_.empty() ? headerSize_ : sections_.back().Address + sections_.back().Size;
  Require(section.Address % kPage == 0 && section.Address >= end,
          which + " begins within the one before");
  Require(section.Size != 0 && section.Address < size_ && section.Size <= size_ - section.Address,
          which + " ends behind the image");
  Require(section.FileOffset <= contents_.size() &&
              section.FileSize <= contents_.size() - section.FileOffset,
          which + " ends behind the file");
  section.FileSize = std::min(section.FileSize, section.Size);
  const auto flags = FieldAt<std::uint32_t>(header + 36, "headers");
  section.IsWritable = (flags & kSectionWritable) != 0;
  section.IsExecutable = (flags & kSectionExecutable) != 0;
  section.IsDiscardable = (flags & kSectionDiscardable) != 0;
  Require((flags & kSectionReadable) != 0, which + " can't be read");
  Require(!section.IsWritable || !section.IsExecutable, which + " is writable and executable");
  sections_.push_back(std::move(section));
}

void ImageFile::CheckEntry() const {
  const auto containsEntry = [this](const ImageSection& section) {
    return section.IsExecutable && entry_ >= section.Address &&
           entry_ - section.Address < section.FileSize;
  };
  Require(std::ranges::any_of(sections_, containsEntry), "has an entry that is not in its code");
}

void ImageFile::ReadRelocations(const Directory& directory) {
  std::span<const std::uint8_t> left =
      BytesAt(directory.Address, directory.Size, "the relocation table");
  while (!left.empty()) {
    Require(left.size() >= 8, "the relocation table ends within a block");
    const auto page = Load<std::uint32_t>(left, 0);
    const auto size = Load<std::uint32_t>(left, 4);
    Require(size >= 8 && size <= left.size() && size % 2 == 0,
            "the relocation table has a block of a wrong size");
    ReadRelocationBlock(page, left.subspan(8, size - 8));
    left = left.subspan(size);
  }
}

void ImageFile::ReadRelocationBlock(std::uint32_t page, std::span<const std::uint8_t> entries) {
  constexpr unsigned kPadding = 0;
  constexpr unsigned kPointer64 = 10;
  for (std::size_t at = 0; at < entries.size(); at += 2) {
    const auto entry = Load<std::uint16_t>(entries, at);
    const unsigned kind = entry >> 12;
    if (kind == kPadding) continue;
    Require(kind == kPointer64, "has a relocation of an unknown kind");
    const std::uint32_t address = page + (entry & 0xFFF);
    const auto pointer = ValueAt<std::uint64_t>(address, "a relocation");
    Require(pointer >= preferredBase_ && pointer - preferredBase_ < size_,
            "has a relocation of a pointer that leads outside of the image");
    relocations_.push_back(address);
  }
}

void ImageFile::ReadImports(const Directory& directory) {
  constexpr std::uint32_t kDescriptorSize = 20;
  const char* const table = "the import table";
  for (std::uint32_t at = directory.Address;; at += kDescriptorSize) {
    const std::span<const std::uint8_t> descriptor = BytesAt(at, kDescriptorSize, table);
    const auto names = Load<std::uint32_t>(descriptor, 0);
    const auto library = Load<std::uint32_t>(descriptor, 12);
    const auto slots = Load<std::uint32_t>(descriptor, 16);
    if (library == 0) return;
    ReadImportsOf(InLowerCase(TextAt(library, "a library's name")), names != 0 ? names : slots,
                  slots);
  }
}

void ImageFile::ReadImportsOf(const std::string& library, std::uint32_t names,
                              std::uint32_t slots) {
  constexpr std::uint32_t kHintSize = 2;
  for (std::uint32_t offset = 0;; offset += sizeof(std::uint64_t)) {
    const auto name = ValueAt<std::uint64_t>(names + offset, "an import");
    if (name == 0) return;
    Require(name <= size_, "imports a function of " + library + " by number");
    const std::uint32_t slot = slots + offset;
    static_cast<void>(BytesAt(slot, sizeof(std::uint64_t), "an import's pointer"));
    imports_.push_back(
        {library, TextAt(static_cast<std::uint32_t>(name) + kHintSize, "an import's name"), slot});
  }
}

void ImageFile::ReadFunctions(const Directory& directory) {
  constexpr std::uint32_t kEntrySize = 12;
  const std::span<const std::uint8_t> table =
      BytesAt(directory.Address, directory.Size, "the function table");
  Require(table.size() % kEntrySize == 0, "has a function table of a wrong size");
  for (std::size_t at = 0; at < table.size(); at += kEntrySize) {
    const ImageFunction function{Load<std::uint32_t>(table, at), Load<std::uint32_t>(table, at + 4),
                                 Load<std::uint32_t>(table, at + 8)};
    const std::uint32_t end = functions_.empty() ? 0 : functions_.back().End;
    Require(function.Begin >= end && function.Begin < function.End && function.End <= size_,
            "has a function table in a wrong order");
    functions_.push_back(function);
  }
}

const ImageFunction* ImageFile::FunctionAt(std::uint32_t address) const {
  const auto behind = std::ranges::upper_bound(functions_, address, {}, &ImageFunction::Begin);
  if (behind == functions_.begin()) return nullptr;
  const ImageFunction& function = *std::prev(behind);
  return address < function.End ? &function : nullptr;
}

}  // namespace lidcam::image
