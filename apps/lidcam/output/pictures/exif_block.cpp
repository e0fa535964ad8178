#include "apps/lidcam/output/pictures/exif_block.h"

#ifdef LIDCAM_HAS_EXIF
#include <libexif/exif-data.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>
#endif

namespace lidcam::app {

#ifdef LIDCAM_HAS_EXIF
namespace {

using DataHandle = std::unique_ptr<ExifData, decltype(&exif_data_unref)>;

// The library frees an entry's bytes by the allocator that they came from.
ExifEntry* AddEntry(ExifData& data, ExifIfd part, ExifTag tag, ExifFormat format,
                    std::uint32_t size) {
  ExifMem* const memory = exif_mem_new_default();
  ExifEntry* const entry = exif_entry_new_mem(memory);
  entry->data = static_cast<unsigned char*>(exif_mem_alloc(memory, size));
  entry->size = size;
  entry->tag = tag;
  entry->format = format;
  entry->components = size / exif_format_get_size(format);
  exif_content_add_entry(data.ifd[part], entry);
  exif_mem_unref(memory);
  exif_entry_unref(entry);
  return entry;
}

void AddText(ExifData& data, ExifIfd part, ExifTag tag, const std::string& text) {
  const auto size = static_cast<std::uint32_t>(text.size() + 1);
  ExifEntry* const entry = AddEntry(data, part, tag, EXIF_FORMAT_ASCII, size);
  std::memcpy(entry->data, text.c_str(), size);
}

// Its first eight bytes name the character set.
void AddComment(ExifData& data, const std::string& text) {
  const std::string whole = std::string("ASCII\0\0\0", 8) + text;
  ExifEntry* const entry =
      AddEntry(data, EXIF_IFD_EXIF, EXIF_TAG_USER_COMMENT, EXIF_FORMAT_UNDEFINED,
               static_cast<std::uint32_t>(whole.size()));
  std::memcpy(entry->data, whole.data(), whole.size());
}

void AddExposure(ExifData& data, std::uint32_t periods, std::uint32_t periodsASecond) {
  ExifEntry* const entry = AddEntry(data, EXIF_IFD_EXIF, EXIF_TAG_EXPOSURE_TIME,
                                    EXIF_FORMAT_RATIONAL, sizeof(ExifRational));
  exif_set_rational(entry->data, exif_data_get_byte_order(&data), {periods, periodsASecond});
}

std::string TextOf(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::array<char, 40> text{};
  std::strftime(text.data(), text.size(), "%Y:%m:%d %H:%M:%S", &local);
  return text.data();
}

std::string MillisecondsOf(std::chrono::system_clock::time_point time) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(time - whole);
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%03d", static_cast<int>(rest.count()));
  return text.data();
}

}  // namespace

std::vector<std::uint8_t> MakeExif(const PictureFacts& facts) {
  const DataHandle data(exif_data_new(), exif_data_unref);
  exif_data_set_option(data.get(), EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);
  exif_data_set_data_type(data.get(), EXIF_DATA_TYPE_COMPRESSED);
  exif_data_set_byte_order(data.get(), EXIF_BYTE_ORDER_INTEL);
  AddText(*data, EXIF_IFD_0, EXIF_TAG_MODEL, facts.Camera);
  AddText(*data, EXIF_IFD_0, EXIF_TAG_SOFTWARE, "lidcam");
  AddText(*data, EXIF_IFD_0, EXIF_TAG_DATE_TIME, TextOf(facts.Taken));
  AddText(*data, EXIF_IFD_EXIF, EXIF_TAG_DATE_TIME_ORIGINAL, TextOf(facts.Taken));
  AddText(*data, EXIF_IFD_EXIF, EXIF_TAG_SUB_SEC_TIME_ORIGINAL, MillisecondsOf(facts.Taken));
  if (facts.ExposurePeriods) AddExposure(*data, *facts.ExposurePeriods, facts.PeriodsASecond);
  AddComment(*data, facts.Comment);
  unsigned char* bytes = nullptr;
  unsigned size = 0;
  exif_data_save_data(data.get(), &bytes, &size);
  const std::vector<std::uint8_t> block(bytes, bytes + size);
  std::free(bytes);
  return block;
}
#else
std::vector<std::uint8_t> MakeExif(const PictureFacts&) {
  return {};
}
#endif

}  // namespace lidcam::app
