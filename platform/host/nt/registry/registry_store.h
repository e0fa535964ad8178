#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/nt/registry/registry_file.h"
#include "platform/host/nt/registry/registry_tree.h"

namespace lidcam::host {

/// Receives a message for the user, without a line end, on the thread that found the trouble.
using RegistryMessageSink = std::function<void(const std::string& message)>;

struct RegistryOptions {
  std::string File;             ///< in the exchange format; empty keeps the registry in memory only
  RegistryMessageSink Message;  ///< null: standard error
  base::FileReplacementSteps Steps;
  RegistryTree Content{};  ///< what a registry in memory holds at first
};

/// The registry's content, in memory or over one file.
///
/// Changes belong to a batch, one per open key. They are seen by everyone in the process at once and
/// reach the file together, when the batch is committed, in one replacement. So what a driver writes
/// through one key stands in the file whole or not at all, wherever the power is cut, and a save of
/// twenty values flushes the disk once. A commit reads the file again under a lock and puts only its
/// own changes into it, so that processes that write at once lose no value of each other's; a commit
/// that changes nothing writes nothing.
///
/// A file that makes no sense is set aside, with a message, and never overwritten; one that can't be
/// read is left alone, and commits fail.
/// @par Any thread
class RegistryStore {
 public:
  using BatchId = std::uint64_t;

  explicit RegistryStore(RegistryOptions options);
  RegistryStore(const RegistryStore&) = delete;
  RegistryStore& operator=(const RegistryStore&) = delete;

  [[nodiscard]] BatchId NewBatch();

  [[nodiscard]] bool HasKey(std::u16string_view path);
  [[nodiscard]] std::optional<RegistryValue> FindValue(std::u16string_view path,
                                                       std::u16string_view name);

  /// Makes a key and all above it. False if it was there.
  bool CreateKey(BatchId batch, std::u16string_view path);

  /// Stores a value, making its key if someone deleted it. Of two batches that hold one value the
  /// later store wins, whichever is committed first.
  void SetValue(BatchId batch, std::u16string_view path, std::u16string_view name,
                RegistryValue value);

  /// Ends a batch and makes its changes durable.
  ///
  /// @return 0 or the error number; what failed is kept and goes with the next commit
  [[nodiscard]] int Commit(BatchId batch);

  /// Commits all batches, the ones still open too: for the end of the process.
  [[nodiscard]] int CommitAll();

  /// The content as everyone in this process sees it.
  [[nodiscard]] RegistryTree Snapshot();

 private:
  // Without a name: the creation of the key.
  struct Change {
    std::u16string Path;
    std::optional<std::u16string> Name;
    RegistryValue Value;
  };
  struct Batch {
    std::vector<Change> Changes;
    bool Ended = false;
  };

  static bool Apply(const Batch& batch, RegistryTree& tree);
  void Supersede(std::u16string_view path, std::u16string_view name);
  void Refresh();
  int ReadBase();
  int ReadBaseLocked();
  int SetAside(std::size_t line, const std::string& what);
  void RebuildView();
  int CommitEnded();
  int WriteEnded();
  int Report(int error, const char* deed);
  void Say(const std::string& message) const;

  const RegistryOptions options_;
  std::mutex lock_;
  RegistryFileReader reader_;
  RegistryTree base_;  // as the file was last seen
  RegistryTree view_;  // base_ and all batches
  std::map<BatchId, Batch> batches_;
  BatchId nextBatch_ = 1;
  int reported_ = 0;  // the error that the last message told
};

}  // namespace lidcam::host
