#include <gtest/gtest.h>

#include "tests/platform/ks/class_world.h"

#include <cstring>
#include <memory>

namespace lidcam::host {
namespace {

void Note(const std::string& line) {
  g_script->Log.push_back(line);
}

NTSTATUS NTAPI Add(PKSDEVICE device) {
  Note("add");
  return g_script->Add ? g_script->Add(device) : STATUS_SUCCESS;
}
NTSTATUS NTAPI Start(PKSDEVICE device, PIRP, PCM_RESOURCE_LIST, PCM_RESOURCE_LIST) {
  Note(device->Started != FALSE ? "start of a started device" : "start");
  return g_script->Start ? g_script->Start(device) : STATUS_SUCCESS;
}
NTSTATUS NTAPI PostStart(PKSDEVICE device) {
  Note(device->Started != FALSE ? "post-start of a started device" : "post-start");
  return g_script->PostStart ? g_script->PostStart(device) : STATUS_SUCCESS;
}
NTSTATUS NTAPI QueryStop(PKSDEVICE, PIRP) {
  Note("query-stop");
  return STATUS_ACCESS_DENIED;
}
void NTAPI CancelStop(PKSDEVICE, PIRP) {
  Note("cancel-stop");
}
void NTAPI Stop(PKSDEVICE, PIRP) {
  Note("stop");
}
NTSTATUS NTAPI QueryRemove(PKSDEVICE, PIRP) {
  Note("query-remove");
  return STATUS_SUCCESS;
}
void NTAPI CancelRemove(PKSDEVICE, PIRP) {
  Note("cancel-remove");
}
void NTAPI Remove(PKSDEVICE device, PIRP) {
  Note("remove");
  if (g_script->Remove) g_script->Remove(device);
}
NTSTATUS NTAPI QueryCapabilities(PKSDEVICE, PIRP, PDEVICE_CAPABILITIES capabilities) {
  Note("query-capabilities");
  capabilities->Removable = 1;
  return STATUS_SUCCESS;
}
void NTAPI SurpriseRemoval(PKSDEVICE device, PIRP) {
  Note("surprise-removal");
  if (g_script->SurpriseRemoval) g_script->SurpriseRemoval(device);
}
NTSTATUS NTAPI QueryPower(PKSDEVICE, PIRP, DEVICE_POWER_STATE deviceTo, DEVICE_POWER_STATE,
                          SYSTEM_POWER_STATE systemTo, SYSTEM_POWER_STATE, POWER_ACTION) {
  Note("query-power D" + std::to_string(deviceTo - 1) + " S" + std::to_string(systemTo - 1));
  return STATUS_SUCCESS;
}
void NTAPI SetPower(PKSDEVICE device, PIRP, DEVICE_POWER_STATE to, DEVICE_POWER_STATE from) {
  Note("set-power D" + std::to_string(from - 1) + "->D" + std::to_string(to - 1));
  if (g_script->SetPower) g_script->SetPower(device);
}
NTSTATUS NTAPI QueryInterface(PKSDEVICE, PIRP) {
  Note("query-interface");
  return STATUS_NOT_SUPPORTED;
}

constexpr KSDEVICE_DISPATCH kFullDispatch = {
    Add,          Start,  PostStart,         QueryStop,       CancelStop, Stop,     QueryRemove,
    CancelRemove, Remove, QueryCapabilities, SurpriseRemoval, QueryPower, SetPower, QueryInterface};
constexpr KSDEVICE_DISPATCH kBareDispatch = {Add,     nullptr, nullptr, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, nullptr};

NTSTATUS NTAPI CreateTestFilter(PKSFILTER filter, PIRP irp) {
  Note("filter create");
  return g_script->FilterCreate ? g_script->FilterCreate(filter, irp) : STATUS_SUCCESS;
}
NTSTATUS NTAPI CloseTestFilter(PKSFILTER, PIRP) {
  Note("filter close");
  return STATUS_SUCCESS;
}
constexpr KSFILTER_DISPATCH kFilterDispatch = {CreateTestFilter, CloseTestFilter, nullptr, nullptr};

NTSTATUS NTAPI AnswerTestProperty(PIRP irp, PKSIDENTIFIER request, PVOID data) {
  return g_script->Property ? g_script->Property(irp, request, data) : STATUS_SUCCESS;
}

constexpr KSPROPERTY_STEPPING_LONG kRange = {1, 0, {{-100, 100}}};
constexpr LONG kDefault = 17;
constexpr KSPROPERTY_MEMBERSLIST kMembers[] = {
    {{KSPROPERTY_MEMBER_STEPPEDRANGES, sizeof(kRange), 1, 0}, &kRange},
    {{KSPROPERTY_MEMBER_VALUES, sizeof(kDefault), 1, KSPROPERTY_MEMBER_FLAG_DEFAULT}, &kDefault},
};
constexpr KSPROPERTY_VALUES kValues = {
    {GuidOf(STATIC_KSPROPTYPESETID_General), VT_I4, 0}, 2, kMembers};

// A driver's items, longer than the published ones.
struct LongItem {
  KSPROPERTY_ITEM Item;
  ULONG_PTR Own[2];
};

constexpr LongItem Item(ULONG id, bool isRead, bool isWritten, ULONG minProperty, ULONG minData,
                        const KSPROPERTY_VALUES* values = nullptr, PFNKSHANDLER support = nullptr) {
  LongItem item{};
  item.Item.PropertyId = id;
  item.Item.GetPropertyHandler = isRead ? AnswerTestProperty : nullptr;
  item.Item.SetPropertyHandler = isWritten ? AnswerTestProperty : nullptr;
  item.Item.MinProperty = minProperty;
  item.Item.MinData = minData;
  item.Item.Values = values;
  item.Item.SupportHandler = support;
  return item;
}

constexpr LongItem kItems[] = {
    Item(1, true, true, 24, 4, &kValues),
    Item(2, true, false, 40, 8),
    Item(3, false, true, 24, 4),
    Item(4, true, false, 24, 0),
    Item(5, true, true, 24, 4, nullptr, AnswerTestProperty),
    Item(1, false, false, 24, 4),
};

constexpr KSPROPERTY_SET kPropertySets[] = {{&kTestSet, 6, &kItems[0].Item, 0, nullptr}};

NTSTATUS NTAPI AddTestEvent(PIRP irp, PKSEVENTDATA data, KSEVENT_ENTRY*) {
  return g_script->AddEvent ? g_script->AddEvent(irp, data) : STATUS_NOT_IMPLEMENTED;
}
constexpr KSEVENT_ITEM kEventItems[] = {{7, 16, 0, AddTestEvent, nullptr, nullptr},
                                        {8, 0, 0, nullptr, nullptr, nullptr}};
constexpr KSEVENT_SET kEventSets[] = {{&kTestEventSet, 2, kEventItems}};

constexpr KSAUTOMATION_TABLE TestTable() {
  KSAUTOMATION_TABLE table{};
  table.PropertySetsCount = 1;
  table.PropertyItemSize = sizeof(LongItem);
  table.PropertySets = kPropertySets;
  table.EventSetsCount = 1;
  table.EventItemSize = sizeof(KSEVENT_ITEM);
  table.EventSets = kEventSets;
  return table;
}
constexpr KSAUTOMATION_TABLE kTable = TestTable();
constexpr GUID kReference = {0x33333333, 2, 0xABCD, {4, 5, 6, 7, 8, 9, 10, 11}};
constexpr GUID kCategories[] = {KSCATEGORY_VIDEO, KSCATEGORY_CAPTURE};

constexpr KSFILTER_DESCRIPTOR TestFilterDescriptor() {
  KSFILTER_DESCRIPTOR descriptor{};
  descriptor.Dispatch = &kFilterDispatch;
  descriptor.AutomationTable = &kTable;
  descriptor.Version = KSFILTER_DESCRIPTOR_VERSION;
  descriptor.ReferenceGuid = &kReference;
  descriptor.CategoriesCount = 2;
  descriptor.Categories = kCategories;
  return descriptor;
}

// The device below: records and completes requests.
NTSTATUS NTAPI AnswerBelow(PDEVICE_OBJECT, PIRP irp) {
  const IO_STACK_LOCATION& location = *IoGetCurrentIrpStackLocation(irp);
  Note("below " + std::to_string(location.MajorFunction) + "." +
       std::to_string(location.MinorFunction));
  const NTSTATUS status = g_script->Below;
  if (!g_script->IsBelowSlow) {
    irp->IoStatus.Status = status;
    IoCompleteRequest(irp, IO_NO_INCREMENT);
    return status;
  }
  IoMarkIrpPending(irp);
  struct Later {
    PIRP Irp;
    NTSTATUS Status;
  };
  auto* const later = new Later{irp, status};
  HANDLE thread = nullptr;
  const PKSTART_ROUTINE complete = [](PVOID context) NTAPI {
    const std::unique_ptr<Later> self(static_cast<Later*>(context));
    Sleep(kMillisecond);
    Note("below is done");
    self->Irp->IoStatus.Status = self->Status;
    IoCompleteRequest(self->Irp, IO_NO_INCREMENT);
  };
  EXPECT_EQ(PsCreateSystemThread(&thread, 0, nullptr, nullptr, nullptr, complete, later),
            STATUS_SUCCESS);
  ZwClose(thread);
  return STATUS_PENDING;
}

NTSTATUS NTAPI Finish(PDEVICE_OBJECT, PIRP, PVOID event) {
  KeSetEvent(static_cast<PKEVENT>(event), IO_NO_INCREMENT, FALSE);
  return STATUS_MORE_PROCESSING_REQUIRED;
}

}  // namespace

constinit const GUID kTestSet = {0x11111111, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
constinit const GUID kTestEventSet = {0x22222222, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
constinit const KSDEVICE_DESCRIPTOR kFullDevice = {&kFullDispatch, 0, nullptr, 0x100};
constinit const KSDEVICE_DESCRIPTOR kBareDevice = {&kBareDispatch, 0, nullptr, 0x100};
constinit const KSFILTER_DESCRIPTOR kTestFilter = TestFilterDescriptor();

Reply SendRequest(PDEVICE_OBJECT top, const std::function<void(PIRP, IO_STACK_LOCATION&)>& fill) {
  KEVENT done{};
  KeInitializeEvent(&done, NotificationEvent, FALSE);
  PIRP const irp = IoAllocateIrp(top->StackSize, FALSE);
  fill(irp, *IoGetNextIrpStackLocation(irp));
  IoSetCompletionRoutine(irp, Finish, &done, TRUE, TRUE, TRUE);
  IoCallDriver(top, irp);
  WaitForever(&done);
  const Reply reply{irp->IoStatus.Status, irp->IoStatus.Information};
  IoFreeIrp(irp);
  return reply;
}

ClassWorld::ClassWorld(const KSDEVICE_DESCRIPTOR& descriptor) {
  g_script = &Script;
  Script.Add = [this](PKSDEVICE device) {
    Device = device;
    return STATUS_SUCCESS;
  };
  InitializeDriverObject(Bus);
  for (const int major : {IRP_MJ_PNP, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL}) {
    Bus.MajorFunction[major] = AnswerBelow;
  }
  IoCreateDevice(&Bus, 0, nullptr, FILE_DEVICE_UNKNOWN, 0, FALSE, &Physical);
  Physical->Flags &= ~DO_DEVICE_INITIALIZING;
  InitializeDriverObject(Driver);
  EXPECT_EQ(KsInitializeDriver(&Driver, nullptr, &descriptor), STATUS_SUCCESS);
}

ClassWorld::~ClassWorld() noexcept(false) {
  if (std::uncaught_exceptions() != 0) return;
  if (Physical->AttachedDevice != nullptr) Remove();
  EXPECT_EQ(Driver.DeviceObject, nullptr) << "the device outlived its removal";
  Driver.DriverUnload(&Driver);
  IoDeleteDevice(Physical);
}

void ClassWorld::Start() {
  Script.Start = [](PKSDEVICE device) {
    return KsCreateFilterFactory(device->FunctionalDeviceObject, &kTestFilter, nullptr, nullptr,
                                 KSCREATE_ITEM_FREEONSTOP, nullptr, nullptr, nullptr);
  };
  EXPECT_EQ(Add(), STATUS_SUCCESS);
  EXPECT_EQ(PlugAndPlay(IRP_MN_START_DEVICE).Status, STATUS_SUCCESS);
  Script.Log.clear();
}

PDEVICE_OBJECT ClassWorld::Top() const {
  return Physical->AttachedDevice != nullptr ? Physical->AttachedDevice : Physical;
}

Reply ClassWorld::PlugAndPlay(UCHAR minor, DEVICE_CAPABILITIES* capabilities) {
  return SendRequest(Top(), [&](PIRP irp, IO_STACK_LOCATION& location) {
    irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
    location.MajorFunction = IRP_MJ_PNP;
    location.MinorFunction = minor;
    location.Parameters.DeviceCapabilities.Capabilities = capabilities;
  });
}

Reply ClassWorld::Power(UCHAR minor, POWER_STATE_TYPE type, int state) {
  return SendRequest(Top(), [&](PIRP irp, IO_STACK_LOCATION& location) {
    irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
    location.MajorFunction = IRP_MJ_POWER;
    location.MinorFunction = minor;
    location.Parameters.Power.Type = type;
    if (type == DevicePowerState) {
      location.Parameters.Power.State.DeviceState = static_cast<DEVICE_POWER_STATE>(state);
    } else {
      location.Parameters.Power.State.SystemState = static_cast<SYSTEM_POWER_STATE>(state);
    }
  });
}

Reply ClassWorld::SetPower(DEVICE_POWER_STATE state) {
  return Power(IRP_MN_SET_POWER, DevicePowerState, state);
}

NTSTATUS TestFile::Open(std::u16string name, TestFile* related) {
  name_ = std::move(name);
  Object = {};
  Object.Type = IO_TYPE_FILE;
  Object.Size = sizeof(FILE_OBJECT);
  Object.DeviceObject = device_;
  Object.RelatedFileObject = related != nullptr ? &related->Object : nullptr;
  Object.FileName.Length = static_cast<USHORT>(name_.size() * sizeof(WCHAR));
  Object.FileName.MaximumLength = Object.FileName.Length;
  Object.FileName.Buffer = name_.data();
  const Reply reply = SendRequest(device_, [this](PIRP, IO_STACK_LOCATION& location) {
    location.MajorFunction = IRP_MJ_CREATE;
    location.FileObject = &Object;
  });
  Object.RelatedFileObject = nullptr;
  return reply.Status;
}

NTSTATUS TestFile::OpenBytes(const std::u16string& kind, const std::vector<UCHAR>& behind,
                             TestFile& related) {
  std::u16string name = kind;
  name.resize(kind.size() + (behind.size() + 1) / sizeof(WCHAR));
  if (!behind.empty()) std::memcpy(name.data() + kind.size(), behind.data(), behind.size());
  return Open(name, &related);
}

void TestFile::Close() {
  for (const UCHAR major : {UCHAR{IRP_MJ_CLEANUP}, UCHAR{IRP_MJ_CLOSE}}) {
    const Reply reply = SendRequest(device_, [&](PIRP, IO_STACK_LOCATION& location) {
      location.MajorFunction = major;
      location.FileObject = &Object;
    });
    EXPECT_EQ(reply.Status, STATUS_SUCCESS);
  }
}

Reply TestFile::Control(ULONG code, PVOID input, ULONG inputLength, PVOID output,
                        ULONG outputLength) {
  return SendRequest(device_, [&](PIRP irp, IO_STACK_LOCATION& location) {
    location.MajorFunction = IRP_MJ_DEVICE_CONTROL;
    location.FileObject = &Object;
    irp->UserBuffer = output;
    auto& control = location.Parameters.DeviceIoControl;
    control.IoControlCode = code;
    control.Type3InputBuffer = input;
    control.InputBufferLength = inputLength;
    control.OutputBufferLength = outputLength;
  });
}

Reply TestFile::Property(const GUID& set, ULONG id, ULONG flags, PVOID output, ULONG outputLength,
                         ULONG inputLength) {
  std::vector<UCHAR> request(std::max<std::size_t>(inputLength, sizeof(KSPROPERTY)));
  const KSPROPERTY property{set, id, flags};
  std::memcpy(request.data(), &property, sizeof(property));
  request.resize(inputLength);
  request.shrink_to_fit();
  return Control(IOCTL_KS_PROPERTY, request.data(), inputLength, output, outputLength);
}

}  // namespace lidcam::host
