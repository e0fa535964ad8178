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

/// Receives a message for the user, without a line end, on the thread that detected the error.
using RegistryMessageSink = std::function<void(const std::string& message)>;

struct RegistryOptions {
  std::string File;             ///< in the exchange format; empty keeps the registry in memory only
  RegistryMessageSink Message;  ///< null: standard error
  base::FileReplacementSteps Steps;
  RegistryTree Content{};  ///< initial content of a registry in memory
};

/// The registry's content, in memory or over one file.
///
/// Changes belong to a batch, one per open key. They are visible in the whole process at once and
/// reach the file together, when the batch is committed, in one replacement. So the values that a
/// driver writes through one key are in the file completely or not at all, even after a power
/// failure, and a save of twenty values flushes the disk once. A commit reads the file again under
/// a lock and adds only its own changes, so that processes that write at the same time keep each
/// other's values; a commit that changes nothing writes nothing.
///
/// An invalid file is set aside, with a message, and never overwritten; one that can't be read is
/// left alone, and commits fail.
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

  /// Creates a key and all above it. False if it existed.
  bool CreateKey(BatchId batch, std::u16string_view path);

  /// Stores a value, creating its key if it was deleted. Of two batches with the same value the
  /// later store wins, in whichever order they are committed.
  void SetValue(BatchId batch, std::u16string_view path, std::u16string_view name,
                RegistryValue value);

  /// Ends a batch and makes its changes durable.
  ///
  /// @return 0 or the error number; failed changes are kept and are part of the next commit
  [[nodiscard]] int Commit(BatchId batch);

  /// Commits all batches, also the open ones: for the end of the process.
  [[nodiscard]] int CommitAll();

  /// The content as visible in this process.
  [[nodiscard]] RegistryTree Snapshot();

 private:
  // Without a name: the key was created.
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
  int reported_ = 0;  // the error of the last message
};

}  // namespace lidcam::host
