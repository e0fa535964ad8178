#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::image {

/// An image that can't be loaded; names the file and the reason.
class ImageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A part of the image with a protection of its own. Addresses are relative to the image's begin.
struct ImageSection {
  std::string Name;
  std::uint32_t Address;
  std::uint32_t Size;        ///< in memory; what the file lacks is zero
  std::uint32_t FileOffset;  ///< of its contents
  std::uint32_t FileSize;    ///< at most Size
  bool IsWritable;
  bool IsExecutable;
  bool IsDiscardable;  ///< not needed after the driver's entry has returned
};

/// A function of another image that this one calls.
struct ImageImport {
  std::string Library;  ///< in lower case
  std::string Name;
  std::uint32_t Slot;  ///< address of the pointer through which the image calls it
};

/// A function's code and the address of its unwind information.
struct ImageFunction {
  std::uint32_t Begin;
  std::uint32_t End;
  std::uint32_t Unwind;
};

/// What of the file a digest for a signature leaves out. Offsets in the file.
struct SignaturePlaces {
  std::size_t Checksum = 0;
  std::size_t Directory = 0;      ///< of the signature's place and size
  std::size_t Signature = 0;      ///< behind everything else
  std::size_t SignatureSize = 0;  ///< 0: not signed
};

/// The file of a 64-bit kernel driver, checked: everything that it points to is within the file, and within the
/// image.
class ImageFile {
 public:
  /// With a catalogue beside it (lidcam.cat beside lidcam.sys) the image has to be the one that the catalogue was made
  /// for.
  ///
  /// @throws ImageError if the file can't be read, is no driver for this processor, or isn't its catalogue's
  [[nodiscard]] static ImageFile Read(const std::string& path);

  /// @param name  of the file, for messages
  /// @throws ImageError
  ImageFile(std::string name, std::vector<std::uint8_t> contents);

  [[nodiscard]] const std::string& Name() const { return name_; }
  [[nodiscard]] std::span<const std::uint8_t> Contents() const { return contents_; }
  /// Bytes in memory, a multiple of the page size.
  [[nodiscard]] std::uint32_t Size() const { return size_; }
  [[nodiscard]] std::uint32_t HeaderSize() const { return headerSize_; }
  [[nodiscard]] std::uint64_t PreferredBase() const { return preferredBase_; }
  /// Address of the driver's entry.
  [[nodiscard]] std::uint32_t Entry() const { return entry_; }
  [[nodiscard]] const std::vector<ImageSection>& Sections() const { return sections_; }
  /// Addresses of the 64-bit pointers into the image.
  [[nodiscard]] const std::vector<std::uint32_t>& Relocations() const { return relocations_; }
  [[nodiscard]] const std::vector<ImageImport>& Imports() const { return imports_; }
  /// By address.
  [[nodiscard]] const std::vector<ImageFunction>& Functions() const { return functions_; }

  [[nodiscard]] const SignaturePlaces& Signature() const { return signature_; }
  /// Whether the file was read with a catalogue that names its digest.
  [[nodiscard]] bool IsOfCatalogue() const { return isOfCatalogue_; }

  /// The bytes of the file at an address, up to the end of its section; empty if there are none.
  [[nodiscard]] std::span<const std::uint8_t> At(std::uint32_t address) const;
  /// The function that contains an address; null if none does.
  [[nodiscard]] const ImageFunction* FunctionAt(std::uint32_t address) const;

 private:
  struct Directory {
    std::uint32_t Address = 0;
    std::uint32_t Size = 0;
  };

  void ReadHeaders();
  void ReadSections(std::size_t table, std::uint16_t count);
  void ReadSection(std::size_t header);
  void CheckEntry() const;
  void CheckChecksum(std::size_t place) const;
  void NoteSignature(std::size_t directory, const Directory& signature);
  void ReadRelocations(const Directory& directory);
  void ReadRelocationBlock(std::uint32_t page, std::span<const std::uint8_t> entries);
  void ReadImports(const Directory& directory);
  void ReadImportsOf(const std::string& library, std::uint32_t names, std::uint32_t slots);
  void ReadFunctions(const Directory& directory);

  void Require(bool holds, std::string_view otherwise) const;
  template <typename T>
  [[nodiscard]] T FieldAt(std::size_t offset, const char* what) const;
  template <typename T>
  [[nodiscard]] T ValueAt(std::uint32_t address, const char* what) const;
  [[nodiscard]] std::string TextAt(std::uint32_t address, const char* what) const;
  [[nodiscard]] std::span<const std::uint8_t> BytesAt(std::uint32_t address, std::size_t size,
                                                      const char* what) const;

  const std::string name_;
  const std::vector<std::uint8_t> contents_;
  SignaturePlaces signature_;
  bool isOfCatalogue_ = false;
  std::uint32_t size_ = 0;
  std::uint32_t headerSize_ = 0;
  std::uint64_t preferredBase_ = 0;
  std::uint32_t entry_ = 0;
  std::vector<ImageSection> sections_;
  std::vector<std::uint32_t> relocations_;
  std::vector<ImageImport> imports_;
  std::vector<ImageFunction> functions_;
};

/// The checksum that the header of an image must contain.
///
/// @param place  offset of the checksum, whose own four bytes don't count
[[nodiscard]] std::uint32_t ImageChecksum(std::span<const std::uint8_t> contents,
                                          std::size_t place);

}  // namespace lidcam::image
