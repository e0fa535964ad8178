// The functions of libarchive that captures and reports are read and written by, under their own names: each loads the library at
// its first call.
#include <archive.h>
#include <archive_entry.h>

#include <array>
#include <cstdarg>
#include <cstdio>

#include "bus/capture/files/loaded_functions.h"

namespace {

using lidcam::bus::LoadedFunction;

constexpr const char* kArchiveLibrary = LIDCAM_ARCHIVE_LIBRARY;

}  // namespace

archive* archive_read_new() {
  static const LoadedFunction<decltype(archive_read_new)> function(kArchiveLibrary,
                                                                   "archive_read_new");
  return function();
}

int archive_read_support_filter_gzip(archive* reader) {
  static const LoadedFunction<decltype(archive_read_support_filter_gzip)> function(
      kArchiveLibrary, "archive_read_support_filter_gzip");
  return function(reader);
}

int archive_read_support_filter_xz(archive* reader) {
  static const LoadedFunction<decltype(archive_read_support_filter_xz)> function(
      kArchiveLibrary, "archive_read_support_filter_xz");
  return function(reader);
}

int archive_read_support_filter_zstd(archive* reader) {
  static const LoadedFunction<decltype(archive_read_support_filter_zstd)> function(
      kArchiveLibrary, "archive_read_support_filter_zstd");
  return function(reader);
}

int archive_read_support_format_empty(archive* reader) {
  static const LoadedFunction<decltype(archive_read_support_format_empty)> function(
      kArchiveLibrary, "archive_read_support_format_empty");
  return function(reader);
}

int archive_read_support_format_raw(archive* reader) {
  static const LoadedFunction<decltype(archive_read_support_format_raw)> function(
      kArchiveLibrary, "archive_read_support_format_raw");
  return function(reader);
}

int archive_read_support_format_tar(archive* reader) {
  static const LoadedFunction<decltype(archive_read_support_format_tar)> function(
      kArchiveLibrary, "archive_read_support_format_tar");
  return function(reader);
}

int archive_read_open(archive* reader, void* data, archive_open_callback* open,
                      archive_read_callback* read, archive_close_callback* close) {
  static const LoadedFunction<decltype(archive_read_open)> function(kArchiveLibrary,
                                                                    "archive_read_open");
  return function(reader, data, open, read, close);
}

int archive_read_next_header(archive* reader, archive_entry** entry) {
  static const LoadedFunction<decltype(archive_read_next_header)> function(
      kArchiveLibrary, "archive_read_next_header");
  return function(reader, entry);
}

la_ssize_t archive_read_data(archive* reader, void* bytes, size_t count) {
  static const LoadedFunction<decltype(archive_read_data)> function(kArchiveLibrary,
                                                                    "archive_read_data");
  return function(reader, bytes, count);
}

int archive_read_free(archive* reader) {
  static const LoadedFunction<decltype(archive_read_free)> function(kArchiveLibrary,
                                                                    "archive_read_free");
  return function(reader);
}

int archive_filter_count(archive* reader) {
  static const LoadedFunction<decltype(archive_filter_count)> function(kArchiveLibrary,
                                                                       "archive_filter_count");
  return function(reader);
}

int archive_format(archive* reader) {
  static const LoadedFunction<decltype(archive_format)> function(kArchiveLibrary, "archive_format");
  return function(reader);
}

const char* archive_error_string(archive* either) {
  static const LoadedFunction<decltype(archive_error_string)> function(kArchiveLibrary,
                                                                       "archive_error_string");
  return function(either);
}

archive* archive_write_new() {
  static const LoadedFunction<decltype(archive_write_new)> function(kArchiveLibrary,
                                                                    "archive_write_new");
  return function();
}

int archive_write_add_filter_gzip(archive* writer) {
  static const LoadedFunction<decltype(archive_write_add_filter_gzip)> function(
      kArchiveLibrary, "archive_write_add_filter_gzip");
  return function(writer);
}

int archive_write_set_format_ustar(archive* writer) {
  static const LoadedFunction<decltype(archive_write_set_format_ustar)> function(
      kArchiveLibrary, "archive_write_set_format_ustar");
  return function(writer);
}

int archive_write_set_bytes_in_last_block(archive* writer, int bytes) {
  static const LoadedFunction<decltype(archive_write_set_bytes_in_last_block)> function(
      kArchiveLibrary, "archive_write_set_bytes_in_last_block");
  return function(writer, bytes);
}

int archive_write_open(archive* writer, void* data, archive_open_callback* open,
                       archive_write_callback* write, archive_close_callback* close) {
  static const LoadedFunction<decltype(archive_write_open)> function(kArchiveLibrary,
                                                                     "archive_write_open");
  return function(writer, data, open, write, close);
}

int archive_write_header(archive* writer, archive_entry* entry) {
  static const LoadedFunction<decltype(archive_write_header)> function(kArchiveLibrary,
                                                                       "archive_write_header");
  return function(writer, entry);
}

la_ssize_t archive_write_data(archive* writer, const void* bytes, size_t count) {
  static const LoadedFunction<decltype(archive_write_data)> function(kArchiveLibrary,
                                                                     "archive_write_data");
  return function(writer, bytes, count);
}

int archive_write_close(archive* writer) {
  static const LoadedFunction<decltype(archive_write_close)> function(kArchiveLibrary,
                                                                      "archive_write_close");
  return function(writer);
}

int archive_write_free(archive* writer) {
  static const LoadedFunction<decltype(archive_write_free)> function(kArchiveLibrary,
                                                                     "archive_write_free");
  return function(writer);
}

archive_entry* archive_entry_new() {
  static const LoadedFunction<decltype(archive_entry_new)> function(kArchiveLibrary,
                                                                    "archive_entry_new");
  return function();
}

void archive_entry_free(archive_entry* entry) {
  static const LoadedFunction<decltype(archive_entry_free)> function(kArchiveLibrary,
                                                                     "archive_entry_free");
  function(entry);
}

const char* archive_entry_pathname(archive_entry* entry) {
  static const LoadedFunction<decltype(archive_entry_pathname)> function(kArchiveLibrary,
                                                                         "archive_entry_pathname");
  return function(entry);
}

void archive_entry_set_pathname(archive_entry* entry, const char* name) {
  static const LoadedFunction<decltype(archive_entry_set_pathname)> function(
      kArchiveLibrary, "archive_entry_set_pathname");
  function(entry, name);
}

void archive_entry_set_size(archive_entry* entry, la_int64_t size) {
  static const LoadedFunction<decltype(archive_entry_set_size)> function(kArchiveLibrary,
                                                                         "archive_entry_set_size");
  function(entry, size);
}

void archive_entry_set_filetype(archive_entry* entry, unsigned int type) {
  static const LoadedFunction<decltype(archive_entry_set_filetype)> function(
      kArchiveLibrary, "archive_entry_set_filetype");
  function(entry, type);
}

void archive_entry_set_perm(archive_entry* entry, __LA_MODE_T mode) {
  static const LoadedFunction<decltype(archive_entry_set_perm)> function(kArchiveLibrary,
                                                                         "archive_entry_set_perm");
  function(entry, mode);
}

void archive_entry_set_mtime(archive_entry* entry, time_t time, long nanoseconds) {
  static const LoadedFunction<decltype(archive_entry_set_mtime)> function(
      kArchiveLibrary, "archive_entry_set_mtime");
  function(entry, time, nanoseconds);
}

void archive_set_error(archive* either, int error, const char* format, ...) {
  static const LoadedFunction<void(archive*, int, const char*, ...)> function(kArchiveLibrary,
                                                                              "archive_set_error");
  std::array<char, 1024> text{};
  va_list values;
  va_start(values, format);
  std::vsnprintf(text.data(), text.size(), format, values);
  va_end(values);
  function(either, error, "%s", text.data());
}
