#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "apps/lidcam/output/output_file.h"

struct archive;

namespace lidcam::app {

/// An archive, tar compressed by gzip, of files in one folder. It says nothing of the user: all files belong to
/// root. Throws CommandError.
class ReportArchive {
 public:
  /// @param path    "-" is standard output
  /// @param folder  that the files are in, for who unpacks it
  ReportArchive(const std::string& path, std::string folder);
  ReportArchive(const ReportArchive&) = delete;
  ReportArchive& operator=(const ReportArchive&) = delete;
  ~ReportArchive();

  void Add(const std::string& name, std::string_view content);

  /// Completes the archive under its name.
  void Finish();

 private:
  void Require(int result) const;

  OutputFile file_;
  const std::string folder_;
  archive* writer_;
  std::string failure_;  ///< of the file
};

}  // namespace lidcam::app
