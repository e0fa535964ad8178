#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/image/block_coverage.h"
#include "platform/image/file/image_file.h"
#include "platform/image/processor_traps.h"
#include "platform/image/stack_switch.h"

namespace lidcam::image {

/// A driver's image in this process, as the platform would have it in the kernel: its sections with their own
/// protection at another address each time, its imports bound to the host kernel. Constants and the import table are
/// read-only, and nothing is writable and executable.
class LoadedDriver {
 public:
  /// @param file      outlives the driver
  /// @param coverage  outlives the driver; null: what has run isn't noted
  /// @throws ImageError if the image imports a function that the host doesn't have; std::bad_alloc
  explicit LoadedDriver(const ImageFile& file, BlockCoverage* coverage = nullptr);
  LoadedDriver(const LoadedDriver&) = delete;
  LoadedDriver& operator=(const LoadedDriver&) = delete;
  /// No code of the driver runs any more, and none of its memory is used.
  ~LoadedDriver();

  /// Calls the driver's entry, and then makes inaccessible what only the entry needed.
  NTSTATUS Start(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath);

  /// The driver is unloaded: its image becomes inaccessible, and keeps its addresses. Code of it that runs on is a
  /// violation; threads that wait in it for ever can be unwound.
  void Unload();

  [[nodiscard]] std::uint8_t* Base() const { return image_; }
  [[nodiscard]] const ImageFile& File() const { return file_; }

 private:
  void Reserve();
  void CopySections();
  void Relocate();
  void Bind();
  void DivertCallbacks();
  void DivertSpinLoops();
  void Protect();

  [[nodiscard]] std::size_t ThunkCount() const {
    return file_.Imports().size() + callbacks_.size();
  }
  [[nodiscard]] std::uint8_t* NextThunk() { return thunks_ + kThunkSize * nextThunk_++; }
  [[nodiscard]] std::uintptr_t EntryThunkOf(std::uint32_t function);
  void ProtectSection(const ImageSection& section, int protection);

  const ImageFile& file_;
  std::vector<std::uint8_t> frames_;
  std::vector<ImportedCall> calls_;
  std::vector<std::uint32_t>
      callbacks_;  // functions whose addresses the driver gives away, in order
  std::uint8_t* reserved_ = nullptr;
  std::size_t reservedSize_ = 0;
  std::uint8_t* image_ = nullptr;
  std::uint8_t* frameTable_ = nullptr;
  std::uint8_t* thunks_ = nullptr;
  std::size_t nextThunk_ = 0;
  std::vector<std::uintptr_t> callbackThunks_;  // parallel to callbacks_
  std::unique_ptr<BlockBreakpoints> blocks_;
  std::unique_ptr<TrappedCode> traps_;
};

/// The functions of an image whose addresses are used as values: callbacks of the host, above all.
struct AddressUse {
  std::uint32_t Place;     ///< of a 64-bit pointer, or of a 32-bit distance from its end
  std::uint32_t Function;  ///< begin
  bool IsDistance;
};
[[nodiscard]] std::vector<AddressUse> FindFunctionAddresses(const ImageFile& file);

}  // namespace lidcam::image
