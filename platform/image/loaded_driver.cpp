#include "platform/image/loaded_driver.h"

#include <sys/mman.h>
#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <span>
#include <string>

#include "platform/image/unwind_frames.h"

// Of the run-time library: frames of code that no file describes.
extern "C" void __register_frame(void* frames);
extern "C" void __deregister_frame(void* frames);

namespace lidcam::image {
namespace {

constexpr std::size_t kPageBytes = 0x1000;

std::size_t WholePages(std::size_t size) {
  return (size + kPageBytes - 1) / kPageBytes * kPageBytes;
}

constexpr std::size_t kPlaces = 4096;  // pages at which an image may begin

std::size_t RandomPages() {
  std::uint32_t number = 0;
  if (getrandom(&number, sizeof(number), 0) != sizeof(number)) return 0;
  return number % kPlaces;
}

void SetProtection(void* begin, std::size_t size, int protection) {
  if (mprotect(begin, WholePages(size), protection) != 0) throw std::bad_alloc();
}

bool IsFunction(const ImageFile& file, std::uint64_t address) {
  if (address >= file.Size()) return false;
  const ImageFunction* const function = file.FunctionAt(static_cast<std::uint32_t>(address));
  return function != nullptr && function->Begin == address;
}

void FindPointers(const ImageFile& file, std::vector<AddressUse>& uses) {
  for (const std::uint32_t place : file.Relocations()) {
    std::uint64_t pointer = 0;
    std::memcpy(&pointer, file.At(place).data(), sizeof(pointer));
    const std::uint64_t address = pointer - file.PreferredBase();
    if (IsFunction(file, address))
      uses.push_back({place, static_cast<std::uint32_t>(address), false});
  }
}

// lea r64, [rip + distance]
void FindDistances(const ImageFile& file, const ImageSection& section,
                   std::vector<AddressUse>& uses) {
  constexpr std::size_t kLength = 7;
  const std::span<const std::uint8_t> code = file.At(section.Address);
  for (std::size_t at = 0; at + kLength <= code.size(); ++at) {
    if ((code[at] & 0xFBU) != 0x48 || code[at + 1] != 0x8D || (code[at + 2] & 0xC7U) != 0x05)
      continue;
    std::int32_t distance = 0;
    std::memcpy(&distance, code.data() + at + 3, sizeof(distance));
    const std::int64_t target =
        std::int64_t{section.Address} + static_cast<std::int64_t>(at + kLength) + distance;
    if (target < 0 || !IsFunction(file, static_cast<std::uint64_t>(target))) continue;
    uses.push_back({section.Address + static_cast<std::uint32_t>(at + 3),
                    static_cast<std::uint32_t>(target), true});
  }
}

}  // namespace

std::vector<AddressUse> FindFunctionAddresses(const ImageFile& file) {
  std::vector<AddressUse> uses;
  FindPointers(file, uses);
  for (const ImageSection& section : file.Sections()) {
    if (section.IsExecutable) FindDistances(file, section, uses);
  }
  return uses;
}

LoadedDriver::LoadedDriver(const ImageFile& file, BlockCoverage* coverage) : file_(file) {
  calls_.reserve(file.Imports().size());
  for (const ImageImport& import : file.Imports()) {
    const KernelExport* const function = FindKernelExport(import.Library, import.Name);
    if (function == nullptr) {
      throw ImageError(file.Name() + ": imports " + import.Name + " of " + import.Library +
                       ", which the host kernel doesn't have");
    }
    calls_.push_back({function->Function, function});
  }
  callbacks_.push_back(file.Entry());
  for (const AddressUse& use : FindFunctionAddresses(file)) callbacks_.push_back(use.Function);
  std::ranges::sort(callbacks_);
  callbacks_.erase(std::unique(callbacks_.begin(), callbacks_.end()), callbacks_.end());
  frames_ = MakeUnwindFrames(file, file.Size());
  Reserve();
  try {
    CopySections();
    Relocate();
    Bind();
    DivertCallbacks();
    DivertSpinLoops();
    if (coverage != nullptr)
      blocks_ = std::make_unique<BlockBreakpoints>(*coverage, std::span(image_, file.Size()));
    Protect();
    traps_ = std::make_unique<TrappedCode>(image_, file, blocks_.get());
  } catch (...) {
    munmap(reserved_, reservedSize_);
    throw;
  }
  __register_frame(frameTable_);
}

LoadedDriver::~LoadedDriver() {
  __deregister_frame(frameTable_);
  traps_.reset();
  munmap(reserved_, reservedSize_);
}

// The image, its frames and the thunks, at another distance from the rest of the process each time.
void LoadedDriver::Reserve() {
  const std::size_t skipped = RandomPages() * kPageBytes;
  const std::size_t frames = WholePages(frames_.size());
  reservedSize_ =
      kPlaces * kPageBytes + file_.Size() + frames + WholePages(ThunkCount() * kThunkSize);
  void* const memory = mmap(nullptr, reservedSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  reserved_ = static_cast<std::uint8_t*>(memory);
  image_ = reserved_ + skipped;
  frameTable_ = image_ + file_.Size();
  thunks_ = frameTable_ + frames;
  SetProtection(image_, reservedSize_ - kPlaces * kPageBytes, PROT_READ | PROT_WRITE);
}

void LoadedDriver::CopySections() {
  std::memcpy(image_, file_.Contents().data(), file_.HeaderSize());
  for (const ImageSection& section : file_.Sections()) {
    std::memcpy(image_ + section.Address, file_.Contents().data() + section.FileOffset,
                section.FileSize);
  }
  std::memcpy(frameTable_, frames_.data(), frames_.size());
}

void LoadedDriver::Relocate() {
  const std::uint64_t moved = reinterpret_cast<std::uintptr_t>(image_) - file_.PreferredBase();
  for (const std::uint32_t place : file_.Relocations()) {
    std::uint64_t pointer = 0;
    std::memcpy(&pointer, image_ + place, sizeof(pointer));
    pointer += moved;
    std::memcpy(image_ + place, &pointer, sizeof(pointer));
  }
}

void LoadedDriver::Bind() {
  for (std::size_t number = 0; number < calls_.size(); ++number) {
    std::uint8_t* const thunk = NextThunk();
    WriteImportThunk(thunk, calls_[number]);
    const auto pointer = reinterpret_cast<std::uintptr_t>(thunk);
    std::memcpy(image_ + file_.Imports()[number].Slot, &pointer, sizeof(pointer));
  }
}

std::uintptr_t LoadedDriver::EntryThunkOf(std::uint32_t function) {
  const auto found = std::ranges::lower_bound(callbacks_, function);
  return callbackThunks_.at(static_cast<std::size_t>(found - callbacks_.begin()));
}

// The host calls the driver's functions on the driver's stack.
void LoadedDriver::DivertCallbacks() {
  for (const std::uint32_t function : callbacks_) {
    std::uint8_t* const thunk = NextThunk();
    WriteEntryThunk(thunk, reinterpret_cast<std::uintptr_t>(image_ + function));
    callbackThunks_.push_back(reinterpret_cast<std::uintptr_t>(thunk));
  }
  for (const AddressUse& use : FindFunctionAddresses(file_)) {
    const std::uintptr_t thunk = EntryThunkOf(use.Function);
    std::uint8_t* const place = image_ + use.Place;
    if (!use.IsDistance) {
      std::memcpy(place, &thunk, sizeof(thunk));
      continue;
    }
    const auto end = reinterpret_cast<std::uintptr_t>(place + sizeof(std::int32_t));
    const auto distance = static_cast<std::int32_t>(static_cast<std::int64_t>(thunk - end));
    std::memcpy(place, &distance, sizeof(distance));
  }
}

namespace {

enum class SpinLoop : std::uint8_t { None, Conditional, Endless };

// A spin loop's pause has a short jump behind it that leads back to it, or to a few bytes before it. The same bytes in
// another instruction, such as a call's distance, have none. A loop whose pause an unconditional jump follows at once,
// back over too few bytes for a condition, is endless.
SpinLoop SpinLoopAt(const std::uint8_t* pause, const std::uint8_t* codeEnd) {
  constexpr std::ptrdiff_t kPauseBytes = 2;
  constexpr std::ptrdiff_t kLongestLoop = 16;
  constexpr std::ptrdiff_t kLongestWithoutCondition = 4;
  const std::ptrdiff_t rest = std::min<std::ptrdiff_t>(codeEnd - pause - 1, kLongestLoop);
  for (std::ptrdiff_t at = kPauseBytes; at < rest; ++at) {
    const bool isUnconditional = pause[at] == 0xEB;
    if (!isUnconditional && (pause[at] & 0xF0U) != 0x70) continue;
    const std::ptrdiff_t target = at + 2 + static_cast<std::int8_t>(pause[at + 1]);
    if (target > 0 || target < -kLongestLoop) continue;
    const bool isEndless =
        isUnconditional && at == kPauseBytes && target >= -kLongestWithoutCondition;
    return isEndless ? SpinLoop::Endless : SpinLoop::Conditional;
  }
  return SpinLoop::None;
}

}  // namespace

// A thread of a simulated world that spins without a call would keep all others from running.
void LoadedDriver::DivertSpinLoops() {
  for (const ImageSection& section : file_.Sections()) {
    if (!section.IsExecutable) continue;
    std::uint8_t* const code = image_ + section.Address;
    for (std::size_t at = 0; at + 3 < section.FileSize; ++at) {
      if (code[at] != 0xF3 || code[at + 1] != 0x90) continue;
      const SpinLoop loop = SpinLoopAt(code + at, code + section.FileSize);
      if (loop == SpinLoop::None) continue;
      code[at] = kBreakpoint;
      code[at + 1] = loop == SpinLoop::Endless ? kEndlessSpinMark : kSpinMark;
    }
  }
}

void LoadedDriver::ProtectSection(const ImageSection& section, int protection) {
  SetProtection(image_ + section.Address, section.Size, protection);
}

void LoadedDriver::Protect() {
  SetProtection(image_, file_.Size(), PROT_NONE);
  SetProtection(image_, file_.HeaderSize(), PROT_READ);
  for (const ImageSection& section : file_.Sections()) {
    const bool hasImports = std::ranges::any_of(file_.Imports(), [&](const ImageImport& import) {
      return import.Slot >= section.Address && import.Slot - section.Address < section.Size;
    });
    int protection = PROT_READ;
    if (section.IsWritable && !hasImports && section.Name != ".rsrc") protection |= PROT_WRITE;
    if (section.IsExecutable) protection |= PROT_EXEC;
    ProtectSection(section, protection);
  }
  SetProtection(frameTable_, frames_.size(), PROT_READ);
  SetProtection(thunks_, ThunkCount() * kThunkSize, PROT_READ | PROT_EXEC);
}

NTSTATUS LoadedDriver::Start(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  const auto entry = reinterpret_cast<PDRIVER_INITIALIZE>(EntryThunkOf(file_.Entry()));
  const NTSTATUS status = entry(driver, registryPath);
  for (const ImageSection& section : file_.Sections()) {
    if (section.IsDiscardable) ProtectSection(section, PROT_NONE);
  }
  return status;
}

void LoadedDriver::Unload() {
  traps_->NoteUnloaded();
  SetProtection(image_, file_.Size(), PROT_NONE);
}

}  // namespace lidcam::image
