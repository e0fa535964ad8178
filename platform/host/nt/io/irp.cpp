// The lifetime of requests: allocated or initialised, reused, freed.

#include <cstring>
#include <string>

#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/scheduling/violation.h"
#include "platform/host/nt/verifier/irp_tracker.h"
#include "platform/host/nt/verifier/kernel_faults.h"

namespace lidcam::host {
namespace {

constexpr CCHAR kMostLocations = 64;

void Fill(PIRP irp, USHORT size, CCHAR stackSize) {
  std::memset(static_cast<void*>(irp), 0, size);
  irp->Type = IO_TYPE_IRP;
  irp->Size = size;
  irp->StackCount = stackSize;
  irp->CurrentLocation = static_cast<CHAR>(stackSize + 1);
  InitializeListHead(&irp->ThreadListEntry);
  irp->Tail.Overlay.CurrentStackLocation =
      reinterpret_cast<PIO_STACK_LOCATION>(irp + 1) + stackSize;
}

void CheckStackSize(const CallRule& rule, CCHAR stackSize) {
  if (stackSize > 0 && stackSize <= kMostLocations) return;
  ReportViolation(rule.Name, std::to_string(stackSize) + " stack locations");
}

}  // namespace
}  // namespace lidcam::host

using namespace lidcam::host;

PIRP IoAllocateIrp(CCHAR stackSize, BOOLEAN) {
  const CallRule& rule = calls::kIoAllocateIrp;
  EnterKernelCall(rule, nullptr);
  CheckStackSize(rule, stackSize);
  if (KernelCallFault(rule.Name)) return nullptr;
  const USHORT size = IoSizeOfIrp(stackSize);
  auto* const irp = static_cast<PIRP>(AllocatePoolBlock(NonPagedPool, size, kIrpTag));
  if (irp == nullptr) return nullptr;
  Fill(irp, size, stackSize);
  RegisterIrp(rule.Name, irp, true);
  return irp;
}

void IoInitializeIrp(PIRP irp, USHORT packetSize, CCHAR stackSize) {
  const CallRule& rule = calls::kIoInitializeIrp;
  EnterKernelCall(rule, irp);
  CheckStackSize(rule, stackSize);
  if (packetSize < IoSizeOfIrp(stackSize)) {
    ReportViolation(rule.Name, std::to_string(packetSize) + " bytes for " +
                                   std::to_string(stackSize) + " stack locations");
  }
  CheckIrpIsIdleIfKnown(rule.Name, irp);
  Fill(irp, packetSize, stackSize);
  RegisterIrp(rule.Name, irp, false);
}

void IoReuseIrp(PIRP irp, NTSTATUS status) {
  const CallRule& rule = calls::kIoReuseIrp;
  EnterKernelCall(rule, irp);
  ExpectIdleIrp(rule.Name, irp);
  const UCHAR flags = irp->AllocationFlags;
  Fill(irp, irp->Size, irp->StackCount);
  irp->AllocationFlags = flags;
  irp->IoStatus.Status = status;
  NoteIrp(irp, rule.Name, nullptr);
}

void IoFreeIrp(PIRP irp) {
  const CallRule& rule = calls::kIoFreeIrp;
  EnterKernelCall(rule, irp);
  ForgetIrp(rule.Name, irp);
  FreePoolBlock(rule.Name, irp);
}
