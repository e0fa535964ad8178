#include "platform/image/stack_switch.h"

#include <cstring>
#include <string>

#include "platform/host/nt/declarations/preemption_points.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/image/driver_stack.h"
#include "platform/image/processor_traps.h"

namespace lidcam::image {
namespace {

// What a call into the driver restores at its end. The code below knows the offsets.
struct EntryRecord {
  DriverStack* Stack;
  std::uintptr_t Host;
  std::uintptr_t Driver;
};

// Home places for four arguments, and places for twelve more; a multiple of the stack's alignment.
constexpr std::uintptr_t kOutgoingArea = 128;

}  // namespace

extern "C" {

void LidcamEnterDriver();
void LidcamLeaveDriver();
void NTAPI LidcamSpinOnce();
extern const ImportedCall LidcamSpinCall;
std::uintptr_t NTAPI LidcamBeginEntry(EntryRecord* record);
void NTAPI LidcamEndEntry(const EntryRecord* record);
std::uintptr_t NTAPI LidcamHostStack(std::uintptr_t frame);
void NTAPI LidcamBeforeCall(const ImportedCall* call, std::uintptr_t frame, std::uintptr_t flags);
void NTAPI LidcamAfterCall(const ImportedCall* call);

void LidcamSpinOnce() {
  host::SpinOnce();
}

const ImportedCall LidcamSpinCall{reinterpret_cast<void (*)()>(&LidcamSpinOnce), nullptr};

/// @return the driver's stack pointer for the call; 0 if the caller runs on that stack already
std::uintptr_t LidcamBeginEntry(EntryRecord* record) {
  DriverStack& stack = DriverStack::OfCurrentThread();
  if (stack.Contains(record)) return 0;
  PrepareTraps();
  *record = {&stack, stack.Host, stack.Driver};
  // The caller's frame ends below the record: its code has 128 bytes there.
  stack.Host = reinterpret_cast<std::uintptr_t>(record) - kOutgoingArea;
  return (stack.Driver & ~std::uintptr_t{15}) - kOutgoingArea;
}

void LidcamEndEntry(const EntryRecord* record) {
  record->Stack->Host = record->Host;
  record->Stack->Driver = record->Driver;
}

/// Runs on the driver's stack.
///
/// @return the host's stack pointer; 0 if the caller runs on that stack already
std::uintptr_t LidcamHostStack(std::uintptr_t frame) {
  DriverStack* const stack = DriverStack::FindOfCurrentThread();
  if (stack == nullptr || !stack->Contains(reinterpret_cast<const void*>(frame))) return 0;
  stack->Driver = frame - kOutgoingArea;
  return (stack->Host & ~std::uintptr_t{15}) - 2 * kOutgoingArea;
}

void LidcamBeforeCall(const ImportedCall* call, std::uintptr_t frame, std::uintptr_t flags) {
  constexpr std::uintptr_t kDirectionFlag = 0x400;
  if (call->Export == nullptr) return;  // not a call of the driver's
  const std::string name(call->Export->Name);
  if (frame % 16 != 0) {
    host::ReportViolation(name.c_str(), "the driver calls with a stack that isn't aligned");
  }
  if ((flags & kDirectionFlag) != 0) {
    host::ReportViolation(name.c_str(), "the driver calls with the direction flag set");
  }
}

void LidcamAfterCall(const ImportedCall* call) {
  if (call->Export == nullptr) return;
  if (host::g_preemptiveSimulations.load(std::memory_order_relaxed) == 0) [[likely]]
    return;
  host::PreemptAt(call->Export->Name.data(), nullptr, host::PreemptionKind::Release);
}

}  // extern "C"

// Arguments: rcx, rdx, r8, r9, then the caller's stack from 48 bytes above the frame pointer. r11 has the function of
// the driver, or the ImportedCall. Unwinding uses the frame pointer, which survives the change of stacks.
asm(R"(
  .text
  .macro LIDCAM_COPY_ARGUMENTS to
  .irp at, 0, 8, 16, 24, 32, 40, 48, 56, 64, 72, 80
  movq 48+\at(%rbp), %rax
  movq %rax, 32+\at(\to)
  .endr
  .endm

  .macro LIDCAM_BEGIN_FRAME
  .cfi_startproc
  pushq %rbp
  .cfi_def_cfa_offset 16
  .cfi_offset %rbp, -16
  movq %rsp, %rbp
  .cfi_def_cfa_register %rbp
  .endm

  .macro LIDCAM_KEEP_ARGUMENTS
  movq %rcx, 16(%rbp)
  movq %rdx, 24(%rbp)
  movq %r8, 32(%rbp)
  movq %r9, 40(%rbp)
  .endm

  .globl LidcamEnterDriver
  .hidden LidcamEnterDriver
  .type LidcamEnterDriver, @function
LidcamEnterDriver:
  LIDCAM_BEGIN_FRAME
  LIDCAM_KEEP_ARGUMENTS
  subq $192, %rsp
  movq %r11, -8(%rbp)
  leaq -48(%rbp), %rcx
  callq LidcamBeginEntry
  testq %rax, %rax
  jz 1f
  movq %rax, %r10
  LIDCAM_COPY_ARGUMENTS %r10
  movq 16(%rbp), %rcx
  movq 24(%rbp), %rdx
  movq 32(%rbp), %r8
  movq 40(%rbp), %r9
  movq %r10, %rsp
  callq *-8(%rbp)
  leaq -192(%rbp), %rsp
  movq %rax, -16(%rbp)
  leaq -48(%rbp), %rcx
  callq LidcamEndEntry
  movq -16(%rbp), %rax
  leaveq
  .cfi_remember_state
  .cfi_def_cfa %rsp, 8
  retq
  .cfi_restore_state
1:
  movq 16(%rbp), %rcx
  movq 24(%rbp), %rdx
  movq 32(%rbp), %r8
  movq 40(%rbp), %r9
  movq -8(%rbp), %r11
  leaveq
  .cfi_def_cfa %rsp, 8
  jmpq *%r11
  .cfi_endproc
  .size LidcamEnterDriver, . - LidcamEnterDriver

  .globl LidcamLeaveDriver
  .hidden LidcamLeaveDriver
  .type LidcamLeaveDriver, @function
LidcamLeaveDriver:
  LIDCAM_BEGIN_FRAME
  LIDCAM_KEEP_ARGUMENTS
  pushq %r11
  pushfq
  cld
  subq $48, %rsp
  movq %rbp, %rcx
  andq $-16, %rsp
  callq LidcamHostStack
  testq %rax, %rax
  jnz 1f
  leaq -192(%rsp), %rax
1:
  movq %rax, %rsp
  movq -8(%rbp), %rcx
  movq %rbp, %rdx
  movq -16(%rbp), %r8
  callq LidcamBeforeCall
  LIDCAM_COPY_ARGUMENTS %rsp
  movq 16(%rbp), %rcx
  movq 24(%rbp), %rdx
  movq 32(%rbp), %r8
  movq 40(%rbp), %r9
  movq -8(%rbp), %rax
  callq *(%rax)
  movq %rax, -16(%rbp)
  movq -8(%rbp), %rcx
  callq LidcamAfterCall
  movq -16(%rbp), %rax
  leaveq
  .cfi_def_cfa %rsp, 8
  retq
  .cfi_endproc
  .size LidcamLeaveDriver, . - LidcamLeaveDriver

  .globl LidcamFault
  .hidden LidcamFault
  .type LidcamFault, @function
LidcamFault:
  LIDCAM_BEGIN_FRAME
  andq $-16, %rsp
  subq $128, %rsp
  callq LidcamLeaveDriver
  ud2
  .cfi_endproc
  .size LidcamFault, . - LidcamFault

  .globl LidcamSpin
  .hidden LidcamSpin
  .type LidcamSpin, @function
LidcamSpin:
  LIDCAM_BEGIN_FRAME
  pushfq
  pushq %rax
  pushq %rcx
  pushq %rdx
  pushq %r8
  pushq %r9
  pushq %r10
  pushq %r11
  andq $-16, %rsp
  subq $144, %rsp
  movups %xmm0, 48(%rsp)
  movups %xmm1, 64(%rsp)
  movups %xmm2, 80(%rsp)
  movups %xmm3, 96(%rsp)
  movups %xmm4, 112(%rsp)
  movups %xmm5, 128(%rsp)
  leaq LidcamSpinCall(%rip), %r11
  callq LidcamLeaveDriver
  movups 48(%rsp), %xmm0
  movups 64(%rsp), %xmm1
  movups 80(%rsp), %xmm2
  movups 96(%rsp), %xmm3
  movups 112(%rsp), %xmm4
  movups 128(%rsp), %xmm5
  leaq -64(%rbp), %rsp
  popq %r11
  popq %r10
  popq %r9
  popq %r8
  popq %rdx
  popq %rcx
  popq %rax
  popfq
  popq %rbp
  .cfi_def_cfa %rsp, 8
  retq
  .cfi_endproc
  .size LidcamSpin, . - LidcamSpin
)");

namespace {

// mov r11, first; jmp to `second`.
void WriteJump(std::uint8_t* code, std::uintptr_t first, void (*second)()) {
  constexpr std::uint8_t kLoad[] = {0x49, 0xBB};
  constexpr std::uint8_t kJump[] = {0xFF, 0x25, 0, 0, 0, 0};
  const auto target = reinterpret_cast<std::uintptr_t>(second);
  std::memset(code, 0xCC, kThunkSize);
  std::memcpy(code, kLoad, sizeof(kLoad));
  std::memcpy(code + 2, &first, sizeof(first));
  std::memcpy(code + 10, kJump, sizeof(kJump));
  std::memcpy(code + 16, &target, sizeof(target));
}

}  // namespace

void WriteImportThunk(std::uint8_t* code, const ImportedCall& call) {
  if (call.Export->IsPlain) {
    WriteJump(code, 0, call.Function);
  } else {
    WriteJump(code, reinterpret_cast<std::uintptr_t>(&call), LidcamLeaveDriver);
  }
}

void WriteEntryThunk(std::uint8_t* code, std::uintptr_t function) {
  WriteJump(code, function, LidcamEnterDriver);
}

}  // namespace lidcam::image
