#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "platform/image/file/image_file.h"

namespace lidcam::image {

// A driver's image of five pages, made byte by byte.
class MadeImage {
 public:
  // Offsets in the file.
  static constexpr std::size_t kSignature = 0x40;
  static constexpr std::size_t kFileHeader = kSignature + 4;
  static constexpr std::size_t kOptional = kSignature + 24;
  static constexpr std::size_t kDirectories = kOptional + 112;
  static constexpr std::size_t kSections = kOptional + 240;
  static constexpr std::size_t kChecksum = kOptional + 64;

  // Addresses.
  static constexpr std::uint32_t kText = 0x1000;
  static constexpr std::uint32_t kPointers = 0x2000;
  static constexpr std::uint32_t kUnwind = 0x2100;
  static constexpr std::uint32_t kFunctions = 0x3000;
  static constexpr std::uint32_t kImports = 0x4000;
  static constexpr std::uint32_t kSlots = 0x4040;
  static constexpr std::uint32_t kNames = 0x4100;
  static constexpr std::uint32_t kRelocations = 0x5000;
  static constexpr std::uint64_t kBase = 0x140000000;

  enum Function : std::uint32_t {
    kEntry,       // asks for the time, returns its interrupt level
    kEndsThread,  // void(void*), never returns
    kReadsNull,   // void(void*)
    kMisaligned,  // void(void*): a call with a stack that isn't aligned
    kBackwards,   // void(void*): a call with the direction flag set
    kSpins,       // void(int*): until the number isn't zero
    kNumber,      // returns a number with the bytes of a pause
    kFunctionCount
  };

  MadeImage() : bytes_(0xE00) {
    Put16(0, 0x5A4D);
    Put32(0x3C, kSignature);
    Put32(kSignature, 0x4550);
    Put16(kFileHeader, 0x8664);
    Put16(kFileHeader + 2, 5);
    Put16(kFileHeader + 16, 240);
    Put16(kFileHeader + 18, 0x22);
    Put16(kOptional, 0x20B);
    Put32(kOptional + 16, kText);
    Put64(kOptional + 24, kBase);
    Put32(kOptional + 32, 0x1000);
    Put32(kOptional + 36, 0x200);
    Put32(kOptional + 56, 0x6000);
    Put32(kOptional + 60, 0x400);
    Put16(kOptional + 68, 1);
    Put32(kOptional + 108, 16);
    PutDirectory(1, kImports, 0x100);
    PutDirectory(3, kFunctions, 12 * kFunctionCount);
    PutDirectory(5, kRelocations, 8 + 2 * kFunctionCount);
    PutSection(0, ".text", kText, 0x60000020);
    PutSection(1, ".rdata", kPointers, 0x40000040);
    PutSection(2, ".pdata", kFunctions, 0x40000040);
    PutSection(3, ".idata", kImports, 0xC0000040);
    PutSection(4, ".reloc", kRelocations, 0x42000040);
    PutImports();
    PutFunction(kEntry, {0x48, 0x83, 0xEC, 0x28, 0x31, 0xC9, 0xFF, 0x15, 0,    0,   0,
                         0,    0x44, 0x0F, 0x20, 0xC0, 0x48, 0x83, 0xC4, 0x28, 0xC3},
                8, 0);
    PutFunction(
        kEndsThread,
        {0x48, 0x83, 0xEC, 0x28, 0x31, 0xC9, 0xFF, 0x15, 0, 0, 0, 0, 0x48, 0x83, 0xC4, 0x28, 0xC3},
        8, 1);
    PutFunction(kReadsNull, {0x48, 0x83, 0xEC, 0x28, 0x8B, 0x04, 0x25, 0, 0, 0, 0, 0x48, 0x83, 0xC4,
                             0x28, 0xC3});
    PutFunction(
        kMisaligned,
        {0x48, 0x83, 0xEC, 0x20, 0x31, 0xC9, 0xFF, 0x15, 0, 0, 0, 0, 0x48, 0x83, 0xC4, 0x20, 0xC3},
        8, 0);
    PutFunction(kBackwards,
                {0x48, 0x83, 0xEC, 0x28, 0x31, 0xC9, 0xFD, 0xFF, 0x15, 0, 0, 0, 0, 0x48, 0x83, 0xC4,
                 0x28, 0xC3},
                9, 0);
    PutFunction(kSpins, {0x8B, 0x01, 0xF3, 0x90, 0x85, 0xC0, 0x74, 0xF8, 0xC3});
    PutFunction(kNumber, {0xB8, 0xF3, 0x90, 0xFE, 0xFF, 0xC3});
    Put32(0xC00, kPointers);
    Put32(0xC04, 8 + 2 * kFunctionCount);
    for (std::uint32_t number = 0; number < kFunctionCount; ++number)
      Put16(0xC08 + 2 * number, static_cast<std::uint16_t>(0xA000 + 8 * number));
  }

  static std::uint32_t AddressOf(Function function) { return kText + 0x20 * function; }
  static std::size_t OffsetOf(std::uint32_t address) {
    return 0x400 + (address - kText) / 0x1000 * 0x200 + address % 0x1000;
  }

  void Put16(std::size_t at, std::uint16_t value) { Put(at, value); }
  void Put32(std::size_t at, std::uint32_t value) { Put(at, value); }
  void Put64(std::size_t at, std::uint64_t value) { Put(at, value); }
  void PutDirectory(std::size_t number, std::uint32_t address, std::uint32_t size) {
    Put32(kDirectories + 8 * number, address);
    Put32(kDirectories + 8 * number + 4, size);
  }
  void PutText(std::size_t at, std::string_view text) {
    std::memcpy(&bytes_.at(at), text.data(), text.size());
  }
  void Cut(std::size_t size) { bytes_.resize(size); }
  void Omit(bool checksum) { hasChecksum_ = !checksum; }

  // With the right checksum, unless it is omitted.
  std::vector<std::uint8_t> Bytes() {
    if (hasChecksum_ && bytes_.size() > kChecksum + 4)
      Put32(kChecksum, ImageChecksum(bytes_, kChecksum));
    return bytes_;
  }
  ImageFile File() { return {"made.sys", Bytes()}; }

 private:
  template <typename T>
  void Put(std::size_t at, T value) {
    std::memcpy(&bytes_.at(at), &value, sizeof(value));
  }

  void PutSection(std::size_t number, std::string_view name, std::uint32_t address,
                  std::uint32_t flags) {
    const std::size_t at = kSections + 40 * number;
    PutText(at, name);
    Put32(at + 8, 0x200);
    Put32(at + 12, address);
    Put32(at + 16, 0x200);
    Put32(at + 20, static_cast<std::uint32_t>(0x400 + 0x200 * number));
    Put32(at + 36, flags);
  }

  // Two libraries with one function each.
  void PutImports() {
    const std::size_t table = OffsetOf(kImports);
    for (const std::uint32_t number : {0U, 1U}) {
      Put32(table + 20 * number, kSlots + 0x40 + 16 * number);
      Put32(table + 20 * number + 12, kNames + 0x40 * number);
      Put32(table + 20 * number + 16, kSlots + 16 * number);
      Put64(OffsetOf(kSlots + 0x40 + 16 * number), kNames + 0x40 * number + 0x20 - 2);
      Put64(OffsetOf(kSlots + 16 * number), kNames + 0x40 * number + 0x20 - 2);
    }
    // The hints are the last two bytes of the names' places before.
    PutText(OffsetOf(kNames), "HAL.dll");
    PutText(OffsetOf(kNames + 0x20), "KeQueryPerformanceCounter");
    PutText(OffsetOf(kNames + 0x40), "ntoskrnl.exe");
    PutText(OffsetOf(kNames + 0x60), "PsTerminateSystemThread");
  }

  // @param call  offset of the operand of a call of import `number`; 0: none
  void PutFunction(Function function, std::initializer_list<std::uint8_t> code,
                   std::uint32_t call = 0, std::uint32_t number = 0) {
    const std::uint32_t address = AddressOf(function);
    std::memcpy(&bytes_.at(OffsetOf(address)), code.begin(), code.size());
    if (call != 0) {
      Put32(OffsetOf(address) + call, kSlots + 16 * number - (address + call + 4));
    }
    const std::uint8_t stack = *(code.begin() + 3);
    const bool hasStack = *code.begin() == 0x48;
    const std::uint32_t unwind = kUnwind + 8 * function;
    Put32(OffsetOf(unwind), hasStack ? 0x00010401 : 0x00000001);
    if (hasStack)
      Put16(OffsetOf(unwind) + 4, static_cast<std::uint16_t>(0x0204 | (stack / 8 - 1) << 12));
    const std::size_t entry = OffsetOf(kFunctions) + 12 * function;
    Put32(entry, address);
    Put32(entry + 4, address + static_cast<std::uint32_t>(code.size()));
    Put32(entry + 8, unwind);
    Put64(OffsetOf(kPointers) + 8 * function, kBase + address);
  }

  std::vector<std::uint8_t> bytes_;
  bool hasChecksum_ = true;
};

}  // namespace lidcam::image
