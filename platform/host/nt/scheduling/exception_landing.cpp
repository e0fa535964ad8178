// A kernel call may throw, and its convention preserves rsi and rdi, which those of Linux don't. clang++ relies on
// this in the code that handles the exception, too; but the unwinder gives that code only the registers that the
// convention of Linux preserves. g++ expects no more there. So with clang++ each exception handler is entered by way
// of a routine that loads the two registers.

#include <unwind.h>

#include <cstdint>

namespace {

enum DwarfRegister : int { kRsi = 4, kRdi = 5 };

struct Landing {
  std::uintptr_t Rsi;
  std::uintptr_t Rdi;
  std::uintptr_t Handler;
};

constinit thread_local Landing t_landing{};

// The unwinder's record of a frame begins with the addresses of its saved registers; null: not saved.
bool IsSaved(const _Unwind_Context* frame, DwarfRegister number) {
  return reinterpret_cast<const void* const*>(frame)[number] != nullptr;
}

}  // namespace

extern "C" {

_Unwind_Reason_Code __real___gxx_personality_v0(int version, _Unwind_Action actions,
                                                _Unwind_Exception_Class kind,
                                                _Unwind_Exception* exception,
                                                _Unwind_Context* frame);
_Unwind_Reason_Code __wrap___gxx_personality_v0(int version, _Unwind_Action actions,
                                                _Unwind_Exception_Class kind,
                                                _Unwind_Exception* exception,
                                                _Unwind_Context* frame);
void LidcamEnterHandler();
Landing* LidcamLanding();

}  // extern "C"

Landing* LidcamLanding() {
  return &t_landing;
}

asm(R"(
  .text
  .type LidcamEnterHandler, @function
LidcamEnterHandler:
  pushq %rax
  pushq %rdx
  pushq %rbx
  movq %rsp, %rbx
  andq $-16, %rsp
  callq LidcamLanding
  movq %rbx, %rsp
  movq (%rax), %rsi
  movq 8(%rax), %rdi
  movq 16(%rax), %rcx
  popq %rbx
  popq %rdx
  popq %rax
  jmpq *%rcx
  .size LidcamEnterHandler, . - LidcamEnterHandler
)");

_Unwind_Reason_Code __wrap___gxx_personality_v0(int version, _Unwind_Action actions,
                                                _Unwind_Exception_Class kind,
                                                _Unwind_Exception* exception,
                                                _Unwind_Context* frame) {
  const _Unwind_Reason_Code answer =
      __real___gxx_personality_v0(version, actions, kind, exception, frame);
  if (answer != _URC_INSTALL_CONTEXT || !IsSaved(frame, kRsi) || !IsSaved(frame, kRdi))
    return answer;
  t_landing = {_Unwind_GetGR(frame, kRsi), _Unwind_GetGR(frame, kRdi), _Unwind_GetIP(frame)};
  _Unwind_SetIP(frame, reinterpret_cast<std::uintptr_t>(&LidcamEnterHandler));
  return answer;
}
