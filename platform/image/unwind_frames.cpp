#include "platform/image/unwind_frames.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

namespace lidcam::image {
namespace {

// ---- The image's side.

enum class UnwindOperation : unsigned {
  PushRegister = 0,
  AllocateLarge = 1,
  AllocateSmall = 2,
  SetFramePointer = 3,
  SaveRegister = 4,
  SaveRegisterFar = 5,
  SaveVector = 8,
  SaveVectorFar = 9,
};

struct UnwindCode {
  unsigned Offset;  // of the end of its instruction in the function
  UnwindOperation Operation;
  unsigned Info;
  std::uint32_t Operand;  // of the slots behind the first
};

struct UnwindInformation {
  unsigned FrameRegister = 0;     // 0: none
  unsigned FrameOffset = 0;       // bytes
  std::vector<UnwindCode> Codes;  // in the order of the instructions
};

unsigned OperandSlots(UnwindOperation operation, unsigned info) {
  switch (operation) {
    case UnwindOperation::AllocateLarge:
      return info == 0 ? 1 : 2;
    case UnwindOperation::SaveRegister:
    case UnwindOperation::SaveVector:
      return 1;
    case UnwindOperation::SaveRegisterFar:
    case UnwindOperation::SaveVectorFar:
      return 2;
    default:
      return 0;
  }
}

bool IsKnown(unsigned operation) {
  return operation <= 5 || operation == 8 || operation == 9;
}

// Nothing if the information is not within the image, or of an unknown kind.
std::optional<UnwindInformation> ReadUnwindInformation(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kHeaderSize = 4;
  if (bytes.size() < kHeaderSize) return std::nullopt;
  const unsigned version = bytes[0] & 7U;
  const unsigned flags = bytes[0] >> 3U;
  const std::size_t slotCount = bytes[2];
  if (version != 1 || flags != 0 || bytes.size() < kHeaderSize + 2 * slotCount) return std::nullopt;
  const auto slot = [&](std::size_t number) {
    return static_cast<std::uint32_t>(bytes[kHeaderSize + 2 * number] |
                                      bytes[kHeaderSize + 2 * number + 1] << 8U);
  };
  UnwindInformation information{bytes[3] & 15U, (bytes[3] >> 4U) * 16U, {}};
  for (std::size_t at = 0; at < slotCount;) {
    const std::uint32_t first = slot(at++);
    const unsigned number = (first >> 8U) & 15U;
    if (!IsKnown(number)) return std::nullopt;
    UnwindCode code{first & 0xFFU, static_cast<UnwindOperation>(number), first >> 12U, 0};
    const unsigned operands = OperandSlots(code.Operation, code.Info);
    if (at + operands > slotCount) return std::nullopt;
    if (operands > 0) code.Operand = slot(at);
    if (operands > 1) code.Operand |= slot(at + 1) << 16U;
    at += operands;
    information.Codes.push_back(code);
  }
  std::ranges::reverse(information.Codes);
  return information;
}

std::uint32_t AllocatedBytes(const UnwindCode& code) {
  constexpr std::uint32_t kWord = 8;
  if (code.Operation == UnwindOperation::AllocateSmall) return code.Info * kWord + kWord;
  return code.Info == 0 ? code.Operand * kWord : code.Operand;
}

// ---- The run-time library's side.

constexpr unsigned kStackPointer = 7;
constexpr unsigned kReturnAddress = 16;
constexpr std::array<std::uint8_t, 16> kDwarfNumbers{0, 2, 1,  3,  7,  6,  4,  5,
                                                     8, 9, 10, 11, 12, 13, 14, 15};

class FrameWriter {
 public:
  void Byte(unsigned value) { bytes_.push_back(static_cast<std::uint8_t>(value)); }
  void Word(std::uint32_t value) {
    for (unsigned shift = 0; shift < 32; shift += 8) Byte(value >> shift & 0xFFU);
  }
  void Number(std::uint32_t value) {  // of a variable length
    while (value >= 0x80) {
      Byte((value & 0x7FU) | 0x80U);
      value >>= 7U;
    }
    Byte(value);
  }

  [[nodiscard]] std::uint32_t Place() const { return static_cast<std::uint32_t>(bytes_.size()); }

  /// Begins a record with a place for its length, which End() fills in.
  std::uint32_t Begin() {
    Word(0);
    return Place();
  }
  void End(std::uint32_t begin) {
    while (Place() % 8 != 4) Byte(0);  // no operation
    const std::uint32_t length = Place() - begin;
    for (unsigned i = 0; i < 4; ++i) {
      bytes_[begin - 4 + i] = static_cast<std::uint8_t>(length >> (8 * i));
    }
  }

  std::vector<std::uint8_t> Take() { return std::move(bytes_); }

  void DefineFrame(unsigned base, std::uint32_t offset) {
    Byte(0x0C);
    Number(base);
    Number(offset);
  }
  void SetFrameOffset(std::uint32_t offset) {
    Byte(0x0E);
    Number(offset);
  }
  /// The caller's value of a register is `distance` bytes below the frame's address.
  void Saved(unsigned number, std::uint32_t distance) {
    Byte(0x80U | number);
    Number(distance / 8);
  }
  void Advance(std::uint32_t bytes) {
    if (bytes == 0) return;
    Byte(0x02);
    Byte(bytes);
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

void WriteCommonInformation(FrameWriter& frames) {
  const std::uint32_t begin = frames.Begin();
  frames.Word(0);
  frames.Byte(1);  // version
  for (const char character : {'z', 'R', '\0'}) frames.Byte(static_cast<unsigned char>(character));
  frames.Number(1);   // unit of code
  frames.Byte(0x78);  // unit of data: -8
  frames.Byte(kReturnAddress);
  frames.Number(1);   // length of the next
  frames.Byte(0x1B);  // addresses are 32-bit distances
  frames.DefineFrame(kStackPointer, 8);
  frames.Saved(kReturnAddress, 8);
  frames.End(begin);
}

// Distances from the frame's address, the stack pointer ahead of the call.
struct FrameShape {
  std::uint32_t Depth = 8;  // of the stack pointer
  std::uint32_t Base = 0;   // of the fixed part, from which saved registers are counted
};

FrameShape WholeShape(const UnwindInformation& information) {
  FrameShape shape;
  for (const UnwindCode& code : information.Codes) {
    switch (code.Operation) {
      case UnwindOperation::PushRegister:
        shape.Depth += 8;
        break;
      case UnwindOperation::AllocateLarge:
      case UnwindOperation::AllocateSmall:
        shape.Depth += AllocatedBytes(code);
        break;
      case UnwindOperation::SetFramePointer:
        shape.Base = shape.Depth;
        break;
      default:
        break;
    }
  }
  if (shape.Base == 0) shape.Base = shape.Depth;
  return shape;
}

void WriteCodes(FrameWriter& frames, const UnwindInformation& information) {
  const std::uint32_t base = WholeShape(information).Base;
  std::uint32_t depth = 8;
  bool hasFramePointer = false;
  unsigned at = 0;
  const auto deepen = [&](std::uint32_t bytes) {
    depth += bytes;
    if (!hasFramePointer) frames.SetFrameOffset(depth);
  };
  for (const UnwindCode& code : information.Codes) {
    if (code.Offset > at) frames.Advance(code.Offset - at);
    at = std::max(at, code.Offset);
    switch (code.Operation) {
      case UnwindOperation::PushRegister:
        deepen(8);
        frames.Saved(kDwarfNumbers.at(code.Info), depth);
        break;
      case UnwindOperation::AllocateLarge:
      case UnwindOperation::AllocateSmall:
        deepen(AllocatedBytes(code));
        break;
      case UnwindOperation::SetFramePointer:
        hasFramePointer = true;
        frames.DefineFrame(kDwarfNumbers.at(information.FrameRegister),
                           depth - information.FrameOffset);
        break;
      case UnwindOperation::SaveRegister:
        frames.Saved(kDwarfNumbers.at(code.Info), base - code.Operand * 8);
        break;
      case UnwindOperation::SaveRegisterFar:
        frames.Saved(kDwarfNumbers.at(code.Info), base - code.Operand);
        break;
      case UnwindOperation::SaveVector:
      case UnwindOperation::SaveVectorFar:
        break;
    }
  }
}

}  // namespace

std::vector<std::uint8_t> MakeUnwindFrames(const ImageFile& file, std::uint32_t place) {
  FrameWriter frames;
  WriteCommonInformation(frames);
  for (const ImageFunction& function : file.Functions()) {
    const auto information = ReadUnwindInformation(file.At(function.Unwind));
    if (!information) {
      throw ImageError(file.Name() + ": the function at " + std::to_string(function.Begin) +
                       " has unwind information of an unknown kind");
    }
    const std::uint32_t begin = frames.Begin();
    frames.Word(frames.Place());  // distance of the common information
    frames.Word(function.Begin - (place + frames.Place()));
    frames.Word(function.End - function.Begin);
    frames.Number(0);
    WriteCodes(frames, *information);
    frames.End(begin);
  }
  frames.Word(0);
  return frames.Take();
}

}  // namespace lidcam::image
