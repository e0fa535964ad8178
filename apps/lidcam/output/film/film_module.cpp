#include <utility>

#include "apps/lidcam/output/film/film_writer.h"

extern "C" [[gnu::visibility("default")]] lidcam::app::FrameWriter* lidcam_make_film_writer(
    std::unique_ptr<lidcam::app::ByteOutput>& file, lidcam::app::PictureSize size,
    lidcam::app::OutputForm form, std::chrono::microseconds framePeriod) {
  return lidcam::app::MakeFilmWriter(std::move(file), size, form, framePeriod).release();
}
