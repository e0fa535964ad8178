#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "viewer/camera/picture_recording.h"

namespace lidcam::viewer {

/// The files that pages record: in a temporary folder, which is removed at the end. On the pages' thread.
class Recordings {
 public:
  /// @param forms  endings that `make` writes: "mkv"
  Recordings(std::vector<std::string> forms, MakePictureWriter make);
  Recordings(const Recordings&) = delete;
  Recordings& operator=(const Recordings&) = delete;
  ~Recordings();

  [[nodiscard]] const std::vector<std::string>& Forms() const { return forms_; }

  struct Started {
    std::uint64_t Id = 0;
    std::shared_ptr<PictureRecording> Recording;
  };
  /// Begins a file. Throws std::runtime_error for another form, or without a place for it.
  ///
  /// @param unit  of the camera, part of the name under which a browser stores the file
  [[nodiscard]] Started Start(const std::string& form, const std::string& unit);
  /// The file is complete: a browser may get it.
  void Publish(std::uint64_t id);
  /// Nobody will fetch it.
  void Discard(std::uint64_t id);

  struct File {
    std::filesystem::path Path;
    std::string Name;  ///< "lidcam-1af0-0511-seed1-20260102-030405.mkv"
  };
  /// A complete one.
  [[nodiscard]] std::optional<File> Find(std::uint64_t id) const;

  /// Complete files that are kept; the oldest goes first.
  static constexpr std::size_t kMostFiles = 20;

 private:
  struct Entry {
    File Stored;
    bool IsComplete = false;
  };

  void MakeFolder();

  const std::vector<std::string> forms_;
  const MakePictureWriter make_;
  std::filesystem::path folder_;  ///< empty until the first recording
  std::uint64_t newest_ = 0;
  std::map<std::uint64_t, Entry> entries_;
};

}  // namespace lidcam::viewer
