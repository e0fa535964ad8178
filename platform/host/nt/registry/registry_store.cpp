#include "platform/host/nt/registry/registry_store.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/host/nt/registry/registry_text.h"

namespace lidcam::host {
namespace {

// Replacing a symbolic link would disconnect the file that it points to.
RegistryOptions WithResolvedFile(RegistryOptions options) {
  if (options.File.empty()) return options;
  std::error_code error;
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(options.File, error);
  if (!error) options.File = resolved.string();
  return options;
}

std::string ReasonOf(int error) {
  if (error == EINVAL) return "it is no file";
  if (error == EOVERFLOW) {
    return "it has more than " + std::to_string(kLargestRegistryFile >> 20) +
           " MiB, which settings never take: move it away, and settings start anew";
  }
  return std::generic_category().message(error);
}

}  // namespace

RegistryStore::RegistryStore(RegistryOptions options)
    : options_(WithResolvedFile(std::move(options))) {
  if (options_.File.empty()) view_ = options_.Content;
}

RegistryStore::BatchId RegistryStore::NewBatch() {
  const std::lock_guard guard(lock_);
  return nextBatch_++;
}

bool RegistryStore::HasKey(std::u16string_view path) {
  const std::lock_guard guard(lock_);
  Refresh();
  return view_.HasKey(path);
}

std::optional<RegistryValue> RegistryStore::FindValue(std::u16string_view path,
                                                      std::u16string_view name) {
  const std::lock_guard guard(lock_);
  Refresh();
  const RegistryValue* const value = view_.FindValue(path, name);
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

bool RegistryStore::CreateKey(BatchId batch, std::u16string_view path) {
  const std::lock_guard guard(lock_);
  Refresh();
  if (!view_.CreateKey(path)) return false;
  batches_[batch].Changes.push_back({std::u16string(path), std::nullopt, {}});
  return true;
}

void RegistryStore::SetValue(BatchId batch, std::u16string_view path, std::u16string_view name,
                             RegistryValue value) {
  const std::lock_guard guard(lock_);
  Supersede(path, name);
  batches_[batch].Changes.push_back({std::u16string(path), std::u16string(name), value});
  view_.SetValue(path, name, std::move(value));
}

void RegistryStore::Supersede(std::u16string_view path, std::u16string_view name) {
  for (auto& [id, batch] : batches_) {
    std::erase_if(batch.Changes, [&](const Change& change) {
      return change.Name && SameRegistryName(*change.Name, name) &&
             SameRegistryName(change.Path, path);
    });
  }
}

RegistryTree RegistryStore::Snapshot() {
  const std::lock_guard guard(lock_);
  Refresh();
  return view_;
}

int RegistryStore::Commit(BatchId batch) {
  const std::lock_guard guard(lock_);
  const auto found = batches_.find(batch);
  if (found == batches_.end()) return 0;
  found->second.Ended = true;
  return CommitEnded();
}

int RegistryStore::CommitAll() {
  const std::lock_guard guard(lock_);
  if (batches_.empty()) return 0;
  for (auto& [id, batch] : batches_) batch.Ended = true;
  return CommitEnded();
}

int RegistryStore::CommitEnded() {
  const int error = options_.File.empty() ? 0 : WriteEnded();
  if (error != 0) return Report(error, "write");
  std::erase_if(batches_, [](const auto& entry) { return entry.second.Ended; });
  return 0;
}

int RegistryStore::WriteEnded() {
  const RegistryFileLock lock(options_.File);
  if (lock.Error() != 0) return lock.Error();
  const int readError = ReadBaseLocked();
  if (readError != 0) return readError;
  bool isChanged = false;
  RegistryTree next = base_;
  for (const auto& [id, batch] : batches_) {
    if (batch.Ended && Apply(batch, next)) isChanged = true;
  }
  if (!isChanged) return 0;
  const std::string text = WriteRegistryText(next);
  if (text.size() > kLargestRegistryFile) return EOVERFLOW;
  const int error = ReplaceRegistryFile(options_.File, text, options_.Steps);
  if (error != 0) return error;
  base_ = std::move(next);
  RebuildView();
  return 0;
}

bool RegistryStore::Apply(const Batch& batch, RegistryTree& tree) {
  bool isChanged = false;
  for (const Change& change : batch.Changes) {
    const bool changes = change.Name ? tree.SetValue(change.Path, *change.Name, change.Value)
                                     : tree.CreateKey(change.Path);
    isChanged = isChanged || changes;
  }
  return isChanged;
}

void RegistryStore::Refresh() {
  if (options_.File.empty() || reader_.IsCurrent(options_.File)) return;
  Report(ReadBase(), "read");
}

// Most reads take no lock: the file is replaced in one step. An invalid file is read again under
// the lock, because another process may be about to set it aside too.
int RegistryStore::ReadBase() {
  std::string content;
  const int error = reader_.Read(options_.File, content);
  RegistryTextError textError;
  if (error == ENOENT || (error == 0 && !ParseRegistryText(content, base_, textError))) {
    base_ = {};
  }
  RebuildView();
  if (textError.What.empty()) return error == ENOENT ? 0 : error;
  const RegistryFileLock lock(options_.File);
  return lock.Error() != 0 ? lock.Error() : ReadBaseLocked();
}

int RegistryStore::ReadBaseLocked() {
  std::string content;
  int error = reader_.Read(options_.File, content);
  if (error != 0 && error != ENOENT) return error;
  RegistryTextError textError;
  RegistryTree tree;
  if (error == 0 && !ParseRegistryText(content, tree, textError)) {
    tree = {};
    error = SetAside(textError.Line, textError.What);
    if (error != 0) return error;
  }
  base_ = std::move(tree);
  RebuildView();
  return 0;
}

int RegistryStore::SetAside(std::size_t line, const std::string& what) {
  std::string aside;
  const int error = SetRegistryFileAside(options_.File, aside);
  const std::string place = line != 0 ? ", line " + std::to_string(line) : std::string();
  const std::string trouble = "registry: " + options_.File + place + ": " + what;
  if (error == 0) {
    Say(trouble + "; the file is kept as " + aside + ", settings start anew");
  } else if (error != reported_) {
    Say(trouble + "; it can't be renamed and is left alone, settings are not saved: " +
        std::generic_category().message(error));
    reported_ = error;
  }
  return error;
}

void RegistryStore::RebuildView() {
  view_ = base_;
  for (const auto& [id, batch] : batches_) Apply(batch, view_);
}

// Each error is reported once, until it is over.
int RegistryStore::Report(int error, const char* deed) {
  if (error != 0 && error != reported_) {
    Say("registry: can't " + std::string(deed) + " " + options_.File + ": " + ReasonOf(error));
  }
  reported_ = error;
  return error;
}

void RegistryStore::Say(const std::string& message) const {
  if (options_.Message) {
    options_.Message(message);
  } else {
    std::fprintf(stderr, "%s\n", message.c_str());
  }
}

}  // namespace lidcam::host
