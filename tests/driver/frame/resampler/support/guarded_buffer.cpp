#include "tests/driver/frame/resampler/support/guarded_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace lidcam {

GuardedBuffer::GuardedBuffer(std::size_t capacity)
    : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
  capacity_ = (capacity + page_ - 1) / page_ * page_;
  void* const mapping =
      mmap(nullptr, capacity_ + 2 * page_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) std::abort();
  mapping_ = static_cast<std::uint8_t*>(mapping);
  if (mprotect(mapping_ + page_, capacity_, PROT_READ | PROT_WRITE) != 0) std::abort();
}

GuardedBuffer::~GuardedBuffer() {
  munmap(mapping_, capacity_ + 2 * page_);
}

std::uint8_t* GuardedBuffer::Place(std::size_t size, Placement placement) const {
  if (size > capacity_) std::abort();
  const std::size_t offset = placement == Placement::FlushWithEnd ? capacity_ - size : 0;
  return mapping_ + page_ + offset;
}

}  // namespace lidcam
