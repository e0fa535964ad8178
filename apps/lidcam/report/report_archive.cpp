#include "apps/lidcam/report/report_archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <span>
#include <utility>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

constexpr int kReadableByAll = 0644;

}  // namespace

ReportArchive::ReportArchive(const std::string& path, std::string folder)
    : file_(path), folder_(std::move(folder)), writer_(archive_write_new()) {
  if (writer_ == nullptr) throw CommandError("output '" + path + "' can't be made: no memory");
  archive_write_add_filter_gzip(writer_);
  archive_write_set_format_ustar(writer_);
  // The library's own blocks of zeros behind the end would be padding only.
  archive_write_set_bytes_in_last_block(writer_, 1);
  const auto write = [](archive* writer, void* self, const void* bytes,
                        std::size_t size) -> la_ssize_t {
    auto& report = *static_cast<ReportArchive*>(self);
    try {
      report.file_.Write(std::span(static_cast<const std::uint8_t*>(bytes), size));
      return static_cast<la_ssize_t>(size);
    } catch (const CommandError& error) {
      report.failure_ = error.what();
      archive_set_error(writer, EIO, "%s", error.what());
      return -1;
    }
  };
  Require(archive_write_open(writer_, this, nullptr, write, nullptr));
}

ReportArchive::~ReportArchive() {
  archive_write_free(writer_);
}

void ReportArchive::Add(const std::string& name, std::string_view content) {
  const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                            archive_entry_free);
  archive_entry_set_pathname(entry.get(), (folder_ + "/" + name).c_str());
  archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
  archive_entry_set_filetype(entry.get(), AE_IFREG);
  archive_entry_set_perm(entry.get(), kReadableByAll);
  archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
  Require(archive_write_header(writer_, entry.get()));
  const la_ssize_t count = archive_write_data(writer_, content.data(), content.size());
  Require(count < 0 ? ARCHIVE_FATAL : ARCHIVE_OK);
}

void ReportArchive::Finish() {
  Require(archive_write_close(writer_));
  file_.Commit();
}

void ReportArchive::Require(int result) const {
  if (result >= ARCHIVE_WARN) return;
  if (!failure_.empty()) throw CommandError(failure_);
  throw CommandError("output '" + file_.Path() +
                     "' can't be made: " + archive_error_string(writer_));
}

}  // namespace lidcam::app
