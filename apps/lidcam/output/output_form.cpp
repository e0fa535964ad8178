#include "apps/lidcam/output/output_form.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

struct Ending {
  std::string_view Text;
  OutputForm Form;
};

constexpr std::array kEndings = {
    Ending{".mkv", OutputForm::Matroska},   Ending{".mp4", OutputForm::Mp4},
    Ending{".avi", OutputForm::Avi},        Ending{".mjpeg", OutputForm::Mjpeg},
    Ending{".mjpg", OutputForm::Mjpeg},     Ending{".y4m", OutputForm::Y4m},
    Ending{".yuy2", OutputForm::RawYuy2},   Ending{".yuv", OutputForm::RawYuy2},
    Ending{".raw", OutputForm::RawYuy2},    Ending{".png", OutputForm::PngSeries},
    Ending{".jpg", OutputForm::JpegSeries}, Ending{".jpeg", OutputForm::JpegSeries},
};

constexpr std::size_t kNumberDigits = 4;

}  // namespace

OutputForm FormOfOutput(const std::string& path) {
  if (path == "-") return OutputForm::Y4m;
  std::string extension = std::filesystem::path(path).extension().string();
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char letter) { return std::tolower(letter); });
  for (const Ending& ending : kEndings) {
    if (extension == ending.Text) return ending.Form;
  }
  // A device or pipe has no file extension that gives the format.
  std::error_code ignored;
  if (const auto status = std::filesystem::status(path, ignored);
      std::filesystem::exists(status) && std::filesystem::is_other(status)) {
    return OutputForm::Y4m;
  }
  throw UsageError("output '" + path + "' has no known ending: use " + kOutputEndings);
}

bool IsSeries(OutputForm form) {
  return form == OutputForm::PngSeries || form == OutputForm::JpegSeries;
}

bool HasFixedRate(OutputForm form) {
  return form == OutputForm::Y4m || form == OutputForm::Mjpeg || form == OutputForm::Avi;
}

bool IsOutputDevice(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::is_character_file(path, ignored);
}

std::string NumberedName(const std::string& path, std::uint64_t number) {
  const std::filesystem::path place(path);
  std::string digits = std::to_string(number);
  if (digits.size() < kNumberDigits) digits.insert(0, kNumberDigits - digits.size(), '0');
  return (place.parent_path() / place.stem()).string() + "-" + digits + place.extension().string();
}

}  // namespace lidcam::app
