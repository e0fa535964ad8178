#include "platform/image/processor_traps.h"

#include <signal.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "platform/host/nt/memory/pool_arena.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/image/block_coverage.h"
#include "platform/image/driver_stack.h"
#include "platform/image/source_place.h"
#include "platform/image/stack_switch.h"

namespace lidcam::image {
namespace {

// Read by the signal handler without a lock.
struct CodeRange {
  std::atomic<std::uintptr_t> Begin{0};
  std::atomic<std::uintptr_t> End{0};
  std::string Name;
  const ImageFile* File = nullptr;
  const BlockBreakpoints* Blocks = nullptr;  // null: none
  std::atomic<bool> IsUnloaded{false};
};

constexpr std::size_t kMostDrivers = 64;
std::array<CodeRange, kMostDrivers> g_ranges;
std::mutex g_rangesLock;
struct sigaction g_handlerBefore {};

const CodeRange* RangeOf(std::uintptr_t place) {
  const auto found = std::ranges::find_if(g_ranges, [place](const CodeRange& range) {
    return place >= range.Begin && place < range.End;
  });
  return found != g_ranges.end() ? &*found : nullptr;
}

// By the numbers that instructions use.
constexpr std::array kRegisters{REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                                REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                REG_R12, REG_R13, REG_R14, REG_R15};

/// An instruction that reads something of the processor's into a register.
struct ProcessorRead {
  enum class Source { Nothing, Level, Thread };
  Source What = Source::Nothing;
  std::size_t Target = 0;  // number of the register
  greg_t Length = 0;       // of the instruction
};

ProcessorRead ReadAt(std::uintptr_t place) {
  constexpr std::array<std::uint8_t, 4> kThreadOffset{0x88, 0x01, 0x00, 0x00};
  std::array<std::uint8_t, 9> code{};
  std::memcpy(code.data(), reinterpret_cast<const void*>(place), code.size());
  // mov r64, cr8
  if ((code[0] & 0xFEU) == 0x44 && code[1] == 0x0F && code[2] == 0x20 && (code[3] & 0xF8U) == 0xC0)
    return {ProcessorRead::Source::Level, (code[0] & 1U) * 8U + (code[3] & 7U), 4};
  // mov r64, gs:[0x188]
  if (code[0] == 0x65 && (code[1] & 0xFBU) == 0x48 && code[2] == 0x8B &&
      (code[3] & 0xC7U) == 0x04 && code[4] == 0x25 &&
      std::equal(kThreadOffset.begin(), kThreadOffset.end(), code.begin() + 5))
    return {ProcessorRead::Source::Thread, (code[1] & 4U) * 2U + (code[3] >> 3U & 7U), 9};
  return {};
}

std::string PlaceText(std::uintptr_t place) {
  const CodeRange* const range = RangeOf(place);
  std::array<char, 24> offset{};
  std::snprintf(offset.data(), offset.size(), "+0x%llx",
                static_cast<unsigned long long>(range != nullptr ? place - range->Begin : place));
  return (range != nullptr ? range->Name : std::string("driver")) + offset.data();
}

// Not for signal handlers.
std::string WholePlaceText(std::uintptr_t place) {
  const CodeRange* const range = RangeOf(place);
  if (range == nullptr) return PlaceText(place);
  const std::string source =
      SourcePlace(*range->File, static_cast<std::uint32_t>(place - range->Begin));
  return PlaceText(place) + (source.empty() ? "" : ", " + source);
}

// Instructions that run on behind the unloading are faults at their own address.
bool RunsOn(std::uintptr_t place, std::uintptr_t address) {
  const CodeRange* const range = RangeOf(place);
  return range != nullptr && range->IsUnloaded && place == address;
}

const char* KindOf(std::uintptr_t signal) {
  switch (static_cast<int>(signal)) {
    case SIGSEGV:
    case SIGBUS:
      return "an access to memory that isn't there";
    case SIGILL:
      return "an instruction that the processor doesn't know";
    case SIGFPE:
      return "a division by zero";
    default:
      return "a breakpoint";
  }
}

// Runs as if the faulting instruction had called it.
void NTAPI ReportFault(std::uintptr_t place, std::uintptr_t address, std::uintptr_t signal) {
  if (RunsOn(place, address)) {
    host::ReportViolation("driver",
                          "its code runs after it was unloaded, at " + WholePlaceText(place));
  }
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "0x%llx", static_cast<unsigned long long>(address));
  const host::PoolArena* const arena = host::CurrentWorld().Arena().get();
  const std::string access =
      arena != nullptr ? arena->DescribeAccess(reinterpret_cast<const void*>(address)) : "";
  host::ReportViolation(
      "driver", (access.empty() ? std::string(KindOf(signal)) + " (" + text.data() + ")" : access) +
                    " at " + WholePlaceText(place));
}

const ImportedCall g_reportFault{reinterpret_cast<void (*)()>(&ReportFault), nullptr};

bool Answer(std::uintptr_t place, greg_t* registers) {
  const host::Thread* const thread = host::FindCurrentThread();
  const ProcessorRead read = ReadAt(place);
  if (thread == nullptr || read.What == ProcessorRead::Source::Nothing) return false;
  registers[kRegisters.at(read.Target)] = read.What == ProcessorRead::Source::Level
                                              ? greg_t{thread->Level}
                                              : reinterpret_cast<greg_t>(&thread->Object);
  registers[REG_RIP] += read.Length;
  return true;
}

[[noreturn]] void EndAtOverflow(std::uintptr_t place) {
  const std::string text = PlaceText(place) + ": the driver's stack of " +
                           std::to_string(DriverStack::kBytes) + " bytes overflows\n";
  static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
  std::abort();
}

// The driver's call in which code of the host runs on the driver's stack; 0 if none does.
std::uintptr_t CallOnDriverStack(const greg_t* registers) {
  const auto* word = reinterpret_cast<const std::uintptr_t*>(registers[REG_RSP]);
  const DriverStack* const stack = DriverStack::FindOfCurrentThread();
  for (; stack != nullptr && stack->Contains(word); ++word) {
    if (RangeOf(*word) != nullptr) return *word - 1;
  }
  return 0;
}

void DivertToReport(int signal, const siginfo_t& info, greg_t* registers, std::uintptr_t place) {
  const DriverStack* const stack = DriverStack::FindOfCurrentThread();
  if (stack == nullptr || stack->IsInGuard(info.si_addr)) EndAtOverflow(place);
  // Unwinding looks up the byte ahead of a return address.
  const std::uintptr_t from = static_cast<std::uintptr_t>(registers[REG_RIP]) + 1;
  registers[REG_RSP] -= static_cast<greg_t>(sizeof(from));
  std::memcpy(reinterpret_cast<void*>(registers[REG_RSP]), &from, sizeof(from));
  registers[REG_RCX] = static_cast<greg_t>(place);
  registers[REG_RDX] = reinterpret_cast<greg_t>(info.si_addr);
  registers[REG_R8] = signal;
  registers[REG_R11] = reinterpret_cast<greg_t>(&g_reportFault);
  registers[REG_RIP] = reinterpret_cast<greg_t>(&LidcamFault);
}

// The instruction by which processors wait in a spin loop has been replaced by a breakpoint and a byte.
bool ContinueWithSpin(int signal, greg_t* registers) {
  if (signal != SIGTRAP) return false;
  const auto behind = static_cast<std::uintptr_t>(registers[REG_RIP]) + 1;
  const std::uint8_t mark = *reinterpret_cast<const std::uint8_t*>(behind - 1);
  host::Thread* const thread = host::FindCurrentThread();
  if (thread == nullptr || (mark != kSpinMark && mark != kEndlessSpinMark)) return false;
  if (mark == kEndlessSpinMark) thread->SpinsForGood = true;
  registers[REG_RSP] -= static_cast<greg_t>(sizeof(behind));
  std::memcpy(reinterpret_cast<void*>(registers[REG_RSP]), &behind, sizeof(behind));
  registers[REG_RIP] = reinterpret_cast<greg_t>(&LidcamSpin);
  return true;
}

// A block runs for the first time.
bool ContinueWithBlock(int signal, const CodeRange& range, greg_t* registers) {
  if (signal != SIGTRAP || range.Blocks == nullptr) return false;
  const auto place = static_cast<std::uintptr_t>(registers[REG_RIP]) - 1;
  if (!range.Blocks->Take(place - range.Begin)) return false;
  registers[REG_RIP] = static_cast<greg_t>(place);
  return true;
}

void OnFault(int signal, siginfo_t* info, void* context);

void Install(int signal, struct sigaction* before) {
  struct sigaction action {};
  action.sa_sigaction = OnFault;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, before);
}

// With guard pages a driver stops at its access to freed memory.
bool IsToStop(bool isDriver) {
  const host::Thread* const thread = host::FindCurrentThread();
  return isDriver && thread != nullptr && thread->World.Arena() != nullptr &&
         thread->World.Arena()->HasGuardPages();
}

// The handler before, which knows the uses of freed memory, gives up by removing itself.
bool HandlerBeforeTakes(int signal, siginfo_t* info, void* context) {
  if (signal != SIGSEGV || (g_handlerBefore.sa_flags & SA_SIGINFO) == 0) return false;
  struct sigaction mine {};
  sigaction(SIGSEGV, nullptr, &mine);
  g_handlerBefore.sa_sigaction(signal, info, context);
  struct sigaction now {};
  sigaction(SIGSEGV, nullptr, &now);
  if (now.sa_sigaction == mine.sa_sigaction) return true;
  sigaction(SIGSEGV, &mine, nullptr);
  return false;
}

void OnFault(int signal, siginfo_t* info, void* context) {
  greg_t* const registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  const auto place = static_cast<std::uintptr_t>(registers[REG_RIP]);
  const CodeRange* const range = RangeOf(place);
  const bool isDriver = range != nullptr;
  const bool isLoaded = isDriver && !range->IsUnloaded;
  if (isLoaded && signal == SIGSEGV && Answer(place, registers)) return;
  if (isDriver && ContinueWithBlock(signal, *range, registers)) return;
  if (isDriver && ContinueWithSpin(signal, registers)) return;
  if (!IsToStop(isDriver) && HandlerBeforeTakes(signal, info, context)) return;
  // The driver's copies and fills are calls of the host's on its own stack.
  const std::uintptr_t blamed = isDriver ? place : CallOnDriverStack(registers);
  if (blamed != 0) {
    DivertToReport(signal, *info, registers, blamed);
  } else {
    ::signal(signal, SIG_DFL);  // the access is repeated
  }
}

bool InstallAll() {
  // Its handler has to be there first.
  static_cast<void>(host::PoolArena::Make());
  Install(SIGSEGV, &g_handlerBefore);
  for (const int signal : {SIGBUS, SIGILL, SIGFPE, SIGTRAP}) Install(signal, nullptr);
  return true;
}

// Never unmapped before its thread ends.
struct SignalStack {
  SignalStack() {
    Size = std::max<std::size_t>(getauxval(AT_MINSIGSTKSZ), 16384) + 65536;
    Memory = mmap(nullptr, Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (Memory == MAP_FAILED) throw std::runtime_error("no memory for a signal stack");
    stack_t stack{};
    stack.ss_sp = Memory;
    stack.ss_size = Size;
    stack_t before{};
    sigaltstack(nullptr, &before);
    if ((before.ss_flags & SS_DISABLE) == 0 && before.ss_size >= Size) return;
    sigaltstack(&stack, nullptr);
  }
  SignalStack(const SignalStack&) = delete;
  SignalStack& operator=(const SignalStack&) = delete;
  ~SignalStack() {
    stack_t now{};
    sigaltstack(nullptr, &now);
    if (now.ss_sp == Memory) {
      now.ss_flags = SS_DISABLE;
      sigaltstack(&now, nullptr);
    }
    munmap(Memory, Size);
  }

  void* Memory = nullptr;
  std::size_t Size = 0;
};

}  // namespace

TrappedCode::TrappedCode(const std::uint8_t* image, const ImageFile& file,
                         const BlockBreakpoints* blocks) {
  static const bool isInstalled = InstallAll();
  static_cast<void>(isInstalled);
  const std::lock_guard guard(g_rangesLock);
  const auto free =
      std::ranges::find(g_ranges, 0U, [](const CodeRange& range) { return range.Begin.load(); });
  if (free == g_ranges.end()) throw std::runtime_error("too many drivers are loaded at once");
  slot_ = static_cast<std::size_t>(free - g_ranges.begin());
  free->Name = std::filesystem::path(file.Name()).filename().string();
  free->File = &file;
  free->Blocks = blocks;
  free->IsUnloaded = false;
  free->End = reinterpret_cast<std::uintptr_t>(image) + file.Size();
  free->Begin = reinterpret_cast<std::uintptr_t>(image);
}

void TrappedCode::NoteUnloaded() {
  g_ranges[slot_].IsUnloaded = true;
}

TrappedCode::~TrappedCode() {
  const std::lock_guard guard(g_rangesLock);
  g_ranges[slot_].End = 0;
  g_ranges[slot_].Begin = 0;
}

void PrepareTraps() {
  static thread_local const SignalStack stack;
  static_cast<void>(stack);
}

}  // namespace lidcam::image
