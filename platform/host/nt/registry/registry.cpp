#include "platform/host/nt/registry/registry.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/host/nt/io/device_object.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/registry/registry_text.h"
#include "platform/host/nt/scheduling/scheduler.h"

namespace lidcam::host {
namespace {

// Never destroyed: keys may be closed during static destruction.
struct Registry {
  std::mutex Lock;
  std::shared_ptr<RegistryStore> Store;
  std::shared_ptr<const RegistryCallHook> Hook;
};

Registry& TheRegistry() {
  static auto* const registry = new Registry;
  return *registry;
}

std::shared_ptr<RegistryStore> CurrentStore() {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  return registry.Store;
}

// Runs outside of the lock: hooks may make registry calls.
template <typename MakeCall>
NTSTATUS AskHook(MakeCall makeCall) {
  std::shared_ptr<const RegistryCallHook> hook;
  {
    Registry& registry = TheRegistry();
    const std::lock_guard guard(registry.Lock);
    hook = registry.Hook;
  }
  return hook != nullptr ? (*hook)(makeCall()) : STATUS_SUCCESS;
}

NTSTATUS StatusOfError(int error) {
  switch (error) {
    case 0:
      return STATUS_SUCCESS;
    case EACCES:
    case EPERM:
    case EROFS:
      return STATUS_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
      return STATUS_DISK_FULL;
    default:
      return STATUS_REGISTRY_IO_FAILED;
  }
}

class OpenKey final : public HandleObject {
 public:
  OpenKey(std::shared_ptr<RegistryStore> store, std::u16string path)
      : store_(std::move(store)), path_(std::move(path)), batch_(store_->NewBatch()) {}

  [[nodiscard]] RegistryStore& Store() const { return *store_; }
  [[nodiscard]] const std::shared_ptr<RegistryStore>& SharedStore() const { return store_; }
  [[nodiscard]] const std::u16string& Path() const { return path_; }
  [[nodiscard]] RegistryStore::BatchId Batch() const { return batch_; }

  NTSTATUS Close() override {
    const NTSTATUS refused =
        AskHook([this] { return RegistryCall{.Name = "ZwClose", .Path = path_}; });
    return refused != STATUS_SUCCESS ? refused : StatusOfError(store_->Commit(batch_));
  }

 private:
  const std::shared_ptr<RegistryStore> store_;
  const std::u16string path_;
  const RegistryStore::BatchId batch_;
};

// The kernel's names of the registry's roots, and those of the exchange format.
struct RootName {
  std::u16string_view Kernel;
  std::u16string_view Exchange;
};
constexpr std::array<RootName, 2> kRoots = {{
    {u"\\Registry\\Machine", u"HKEY_LOCAL_MACHINE"},
    {u"\\Registry\\User", u"HKEY_USERS"},
}};

// Keys that every installation has.
constexpr std::array<std::u16string_view, 4> kSystemKeys = {
    u"HKEY_LOCAL_MACHINE",
    u"HKEY_LOCAL_MACHINE\\Software",
    u"HKEY_LOCAL_MACHINE\\System",
    u"HKEY_USERS",
};

constexpr std::size_t kLongestKeyName = 255;      // characters
constexpr std::size_t kLongestValueName = 16383;  // characters

bool IsSystemKey(std::u16string_view path) {
  return std::ranges::any_of(
      kSystemKeys, [path](std::u16string_view key) { return SameRegistryName(key, path); });
}

// Gives the exchange format's form of a path in the kernel's form.
NTSTATUS TranslatePath(std::u16string_view kernel, std::u16string& path) {
  if (!kernel.starts_with(u'\\')) return STATUS_OBJECT_PATH_SYNTAX_BAD;
  for (const RootName& root : kRoots) {
    if (!SameRegistryName(kernel, root.Kernel) && !IsBelowKey(kernel, root.Kernel)) continue;
    path = root.Exchange;
    path += kernel.substr(root.Kernel.size());
    return STATUS_SUCCESS;
  }
  return STATUS_OBJECT_NAME_NOT_FOUND;
}

NTSTATUS TextOf(const UNICODE_STRING* string, std::u16string_view& text) {
  text = {};
  if (string == nullptr || string->Length == 0) return STATUS_SUCCESS;
  if (string->Length % sizeof(WCHAR) != 0 || string->Buffer == nullptr) {
    return STATUS_OBJECT_NAME_INVALID;
  }
  text = {string->Buffer, string->Length / sizeof(WCHAR)};
  return IsRegistryTextName(text) ? STATUS_SUCCESS : STATUS_OBJECT_NAME_INVALID;
}

NTSTATUS CheckKeyNames(std::u16string_view path) {
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find(u'\\', start), path.size());
    if (end == start) return STATUS_OBJECT_NAME_INVALID;
    if (end - start > kLongestKeyName) return STATUS_INVALID_PARAMETER;
    start = end + 1;
  }
  return STATUS_SUCCESS;
}

// The key that a call names: its registry and its path.
struct Place {
  std::shared_ptr<RegistryStore> Store;
  std::u16string Path;
};

NTSTATUS FindPlace(const OBJECT_ATTRIBUTES& attributes, Place& place) {
  std::u16string_view name;
  NTSTATUS status = TextOf(attributes.ObjectName, name);
  if (status != STATUS_SUCCESS) return status;
  if (attributes.RootDirectory == nullptr) {
    place.Store = CurrentStore();
    status = TranslatePath(name, place.Path);
  } else {
    std::shared_ptr<OpenKey> root;
    status = FindHandle(attributes.RootDirectory, root);
    if (status != STATUS_SUCCESS) return status;
    if (name.starts_with(u'\\')) return STATUS_OBJECT_PATH_SYNTAX_BAD;
    place.Store = root->SharedStore();
    place.Path = root->Path();
    if (!name.empty()) (place.Path += u'\\') += name;
  }
  if (status != STATUS_SUCCESS) return status;
  // One trailing separator is ignored.
  if (place.Path.ends_with(u'\\')) place.Path.pop_back();
  return CheckKeyNames(place.Path);
}

// A create makes only the last key of a path.
bool HasParent(RegistryStore& store, std::u16string_view path) {
  const std::size_t end = path.rfind(u'\\');
  if (end == path.npos) return true;
  const std::u16string_view parent = path.substr(0, end);
  return IsSystemKey(parent) || store.HasKey(parent);
}

std::shared_ptr<OpenKey> Open(const Place& place, bool& isNew) {
  auto key = std::make_shared<OpenKey>(place.Store, place.Path);
  isNew = !IsSystemKey(place.Path) && place.Store->CreateKey(key->Batch(), place.Path);
  return key;
}

// Where the data begins in a KEY_VALUE_FULL_INFORMATION: behind the name, aligned.
constexpr std::size_t kFullHeader = offsetof(KEY_VALUE_FULL_INFORMATION, Name);
constexpr std::size_t DataOffsetFor(std::size_t nameBytes) {
  constexpr std::size_t kAlignment = alignof(ULONG);
  return (kFullHeader + nameBytes + kAlignment - 1) / kAlignment * kAlignment;
}

// The whole answer; the caller gets as much as its buffer holds.
std::vector<std::uint8_t> FullInformation(std::u16string_view name, const RegistryValue& value) {
  const std::size_t nameBytes = name.size() * sizeof(WCHAR);
  const std::size_t dataOffset = DataOffsetFor(nameBytes);
  std::vector<std::uint8_t> answer(dataOffset + value.Data.size());
  const std::array<ULONG, 5> header = {0, value.Type, static_cast<ULONG>(dataOffset),
                                       static_cast<ULONG>(value.Data.size()),
                                       static_cast<ULONG>(nameBytes)};
  static_assert(sizeof(header) == kFullHeader);
  std::memcpy(answer.data(), header.data(), sizeof(header));
  if (!name.empty()) std::memcpy(answer.data() + kFullHeader, name.data(), nameBytes);
  std::ranges::copy(value.Data, answer.begin() + static_cast<std::ptrdiff_t>(dataOffset));
  return answer;
}

void CommitAtExit() {
  static_cast<void>(CloseRegistry());
}

}  // namespace

void OpenRegistry(RegistryOptions options) {
  static const bool isRegistered = std::atexit(CommitAtExit) == 0;
  static_cast<void>(isRegistered);
  auto store = std::make_shared<RegistryStore>(std::move(options));
  static_cast<void>(CloseRegistry());
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  registry.Store = std::move(store);
}

void SetRegistryFile(const std::string& path) {
  if (path.empty()) {
    static_cast<void>(CloseRegistry());
  } else {
    OpenRegistry({.File = path, .Message = nullptr, .Steps = {}});
  }
}

RegistryTree SnapshotRegistry() {
  const std::shared_ptr<RegistryStore> store = CurrentStore();
  return store != nullptr ? store->Snapshot() : RegistryTree{};
}

void MergeIntoRegistry(const RegistryTree& content) {
  const std::shared_ptr<RegistryStore> store = CurrentStore();
  if (store == nullptr) return;
  const RegistryStore::BatchId batch = store->NewBatch();
  for (const auto& [key, values] : content.Keys()) {
    store->CreateKey(batch, key);
    for (const auto& [name, value] : values) store->SetValue(batch, key, name, value);
  }
  static_cast<void>(store->Commit(batch));
}

int CloseRegistry() {
  Registry& registry = TheRegistry();
  std::shared_ptr<RegistryStore> store;
  {
    const std::lock_guard guard(registry.Lock);
    store.swap(registry.Store);
  }
  return store != nullptr ? store->CommitAll() : 0;
}

void SetRegistryCallHook(RegistryCallHook hook) {
  Registry& registry = TheRegistry();
  const std::lock_guard guard(registry.Lock);
  registry.Hook = hook ? std::make_shared<const RegistryCallHook>(std::move(hook)) : nullptr;
}

std::u16string ImagingDriverKey(unsigned instance) {
  std::u16string key =
      u"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Class\\"
      u"{6BDD1FC6-810F-11D0-BEC7-08002BE2092F}\\";
  for (unsigned power = 1000; power != 0; power /= 10) {
    key.push_back(static_cast<char16_t>(u'0' + instance / power % 10));
  }
  return key;
}

}  // namespace lidcam::host

using lidcam::host::AskHook;
using lidcam::host::OpenKey;
using lidcam::host::RegistryCall;

// The class's name and the options have no effect in a registry without volatile keys; access of
// kernel callers is not checked.
NTSTATUS ZwCreateKey(PHANDLE key, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes, ULONG,
                     PUNICODE_STRING, ULONG, PULONG disposition) {
  lidcam::host::EnterKernelCall(lidcam::host::calls::kZwCreateKey, attributes);
  if (key == nullptr || attributes == nullptr) return STATUS_INVALID_PARAMETER;
  lidcam::host::Place place;
  NTSTATUS status = lidcam::host::FindPlace(*attributes, place);
  if (status != STATUS_SUCCESS) return status;
  status = AskHook([&] {
    return RegistryCall{.Name = "ZwCreateKey",
                        .Path = place.Path,
                        .Access = access,
                        .Attributes = attributes->Attributes};
  });
  if (status != STATUS_SUCCESS) return status;
  if (place.Store == nullptr || !lidcam::host::HasParent(*place.Store, place.Path)) {
    return STATUS_OBJECT_NAME_NOT_FOUND;
  }
  bool isNew = false;
  *key = lidcam::host::OpenHandleOfDriver(lidcam::host::calls::kZwCreateKey.Name, attributes,
                                          lidcam::host::Open(place, isNew));
  if (disposition != nullptr) *disposition = isNew ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  return STATUS_SUCCESS;
}

NTSTATUS ZwQueryValueKey(HANDLE handle, PUNICODE_STRING name,
                         KEY_VALUE_INFORMATION_CLASS informationClass, PVOID information,
                         ULONG length, PULONG resultLength) {
  lidcam::host::EnterKernelCall(lidcam::host::calls::kZwQueryValueKey, handle);
  std::shared_ptr<OpenKey> key;
  NTSTATUS status = lidcam::host::FindHandle(handle, key);
  std::u16string_view text;
  if (status == STATUS_SUCCESS) status = lidcam::host::TextOf(name, text);
  if (status != STATUS_SUCCESS) return status;
  if (informationClass != KeyValueFullInformation || resultLength == nullptr) {
    return STATUS_INVALID_PARAMETER;
  }
  status = AskHook([&] {
    return RegistryCall{.Name = "ZwQueryValueKey",
                        .Path = key->Path(),
                        .Value = std::u16string(text),
                        .Length = length};
  });
  if (status != STATUS_SUCCESS) return status;
  const auto value = key->Store().FindValue(key->Path(), text);
  if (!value) return STATUS_OBJECT_NAME_NOT_FOUND;
  const std::vector<std::uint8_t> answer = lidcam::host::FullInformation(text, *value);
  *resultLength = static_cast<ULONG>(answer.size());
  if (length < lidcam::host::kFullHeader) return STATUS_BUFFER_TOO_SMALL;
  std::memcpy(information, answer.data(), std::min<std::size_t>(length, answer.size()));
  return length < answer.size() ? STATUS_BUFFER_OVERFLOW : STATUS_SUCCESS;
}

NTSTATUS ZwSetValueKey(HANDLE handle, PUNICODE_STRING name, ULONG, ULONG type, PVOID data,
                       ULONG length) {
  lidcam::host::EnterKernelCall(lidcam::host::calls::kZwSetValueKey, handle);
  std::shared_ptr<OpenKey> key;
  NTSTATUS status = lidcam::host::FindHandle(handle, key);
  std::u16string_view text;
  if (status == STATUS_SUCCESS) status = lidcam::host::TextOf(name, text);
  if (status != STATUS_SUCCESS) return status;
  if (text.size() > lidcam::host::kLongestValueName || (data == nullptr && length != 0)) {
    return STATUS_INVALID_PARAMETER;
  }
  status = AskHook([&] {
    return RegistryCall{.Name = "ZwSetValueKey",
                        .Path = key->Path(),
                        .Value = std::u16string(text),
                        .Type = type,
                        .Length = length};
  });
  if (status != STATUS_SUCCESS) return status;
  const auto* const bytes = static_cast<const std::uint8_t*>(data);
  key->Store().SetValue(key->Batch(), key->Path(), text, {type, {bytes, bytes + length}});
  return STATUS_SUCCESS;
}

// The driver key belongs to the device's installation: opening it creates it and its parents.
NTSTATUS IoOpenDeviceRegistryKey(PDEVICE_OBJECT device, ULONG type, ACCESS_MASK access,
                                 PHANDLE handle) {
  lidcam::host::EnterKernelCall(lidcam::host::calls::kIoOpenDeviceRegistryKey, device);
  lidcam::host::Place place;
  place.Store = lidcam::host::CurrentStore();
  // Checked ahead of the device: without a registry callers may have no device of the host.
  if (place.Store == nullptr) return STATUS_OBJECT_NAME_NOT_FOUND;
  const auto* const hostDevice = lidcam::host::FindHostDevice(device);
  if (hostDevice == nullptr || hostDevice->DriverKey.empty()) return STATUS_OBJECT_NAME_NOT_FOUND;
  if (type != PLUGPLAY_REGKEY_DRIVER || handle == nullptr) return STATUS_INVALID_PARAMETER;
  NTSTATUS status = lidcam::host::TranslatePath(hostDevice->DriverKey, place.Path);
  if (status == STATUS_SUCCESS) status = lidcam::host::CheckKeyNames(place.Path);
  if (status != STATUS_SUCCESS) return status;
  status = AskHook([&] {
    return RegistryCall{
        .Name = "IoOpenDeviceRegistryKey", .Path = place.Path, .Access = access, .Type = type};
  });
  if (status != STATUS_SUCCESS) return status;
  bool isNew = false;
  *handle = lidcam::host::OpenHandle(lidcam::host::Open(place, isNew));  // always of the kernel
  return STATUS_SUCCESS;
}
