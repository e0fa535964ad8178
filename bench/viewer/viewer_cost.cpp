// The processor time of a picture that `lidcam view` delivers to one page, beside that of libjpeg-turbo alone for a
// picture of the same size, in turns. The first is that of the thread that serves the pages.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>
//
#include <jpeglib.h>

#include "tests/viewer/support/web_client.h"
#include "viewer/server/web_server.h"

namespace {

using namespace lidcam;

double ProcessorTime(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

/// A picture as the library takes it without any conversion.
struct Planes {
  int Width;
  int Height;
  std::vector<std::uint8_t> Luma;
  std::vector<std::uint8_t> Blue;
  std::vector<std::uint8_t> Red;
};

// Decodes what the server sent, so that both encode the same pictures.
Planes Decode(const std::vector<std::uint8_t>& jpeg) {
  jpeg_decompress_struct decompress{};
  jpeg_error_mgr errors{};
  decompress.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&decompress);
  jpeg_mem_src(&decompress, jpeg.data(), jpeg.size());
  jpeg_read_header(&decompress, TRUE);
  decompress.out_color_space = JCS_YCbCr;
  jpeg_start_decompress(&decompress);
  Planes planes{.Width = static_cast<int>(decompress.output_width),
                .Height = static_cast<int>(decompress.output_height),
                .Luma = {},
                .Blue = {},
                .Red = {}};
  std::vector<std::uint8_t> row(3 * decompress.output_width);
  while (decompress.output_scanline < decompress.output_height) {
    JSAMPROW line = row.data();
    jpeg_read_scanlines(&decompress, &line, 1);
    for (std::size_t x = 0; x < decompress.output_width; ++x) {
      planes.Luma.push_back(row[3 * x]);
      if (x % 2 != 0) continue;
      planes.Blue.push_back(row[3 * x + 1]);
      planes.Red.push_back(row[3 * x + 2]);
    }
  }
  jpeg_finish_decompress(&decompress);
  jpeg_destroy_decompress(&decompress);
  return planes;
}

// At the viewer's quality.
std::size_t Encode(Planes& planes, std::vector<std::uint8_t>& out) {
  jpeg_compress_struct compress{};
  jpeg_error_mgr errors{};
  compress.err = jpeg_std_error(&errors);
  jpeg_create_compress(&compress);
  unsigned char* bytes = out.data();
  unsigned long size = out.size();
  jpeg_mem_dest(&compress, &bytes, &size);
  compress.image_width = static_cast<JDIMENSION>(planes.Width);
  compress.image_height = static_cast<JDIMENSION>(planes.Height);
  compress.input_components = 3;
  compress.in_color_space = JCS_YCbCr;
  jpeg_set_defaults(&compress);
  jpeg_set_quality(&compress, 88, TRUE);
  compress.comp_info[0].h_samp_factor = 2;
  compress.comp_info[0].v_samp_factor = 1;
  compress.raw_data_in = TRUE;
  jpeg_start_compress(&compress, TRUE);
  JSAMPROW rows[3][8];
  JSAMPARRAY all[3] = {rows[0], rows[1], rows[2]};
  const auto width = static_cast<std::size_t>(planes.Width);
  while (compress.next_scanline < compress.image_height) {
    for (std::size_t i = 0; i < 8; ++i) {
      const std::size_t y = compress.next_scanline + i;
      rows[0][i] = planes.Luma.data() + y * width;
      rows[1][i] = planes.Blue.data() + y * width / 2;
      rows[2][i] = planes.Red.data() + y * width / 2;
    }
    jpeg_write_raw_data(&compress, all, 8);
  }
  jpeg_finish_compress(&compress);
  jpeg_destroy_compress(&compress);
  return size;
}

}  // namespace

int main() {
  constexpr int kRounds = 5;
  constexpr int kPictures = 60;
  app::SessionOptions session;
  session.Choice.Camera = "sim";
  viewer::WebServer::Options options;
  options.Cameras.push_back({.Session = session, .State = viewer::StateOf("sim")});
  viewer::WebServer server(serve::Listener::OnAddress("127.0.0.1:0"), std::move(options));
  std::atomic<bool> isOver = false;
  std::thread thread([&] { server.Run([&] { return isOver.load(); }); });
  clockid_t clock{};
  if (pthread_getcpuclockid(thread.native_handle(), &clock) != 0) return EXIT_FAILURE;
  {
    viewer::PageClient page(server.Address());
    page.Say({{"do", "watch"}, {"cameras", {0}}});
    page.AwaitPicture();
    std::vector<double> delivered;
    std::vector<double> alone;
    std::vector<std::uint8_t> out(4 * 1024 * 1024);
    for (int round = 0; round < kRounds; ++round) {
      std::vector<std::vector<std::uint8_t>> jpegs;
      const double before = ProcessorTime(clock);
      for (int i = 0; i < kPictures; ++i) jpegs.push_back(page.AwaitPicture()["jpeg"].get_binary());
      delivered.push_back((ProcessorTime(clock) - before) / kPictures);
      std::vector<Planes> pictures;
      for (const auto& jpeg : jpegs) pictures.push_back(Decode(jpeg));
      const double start = ProcessorTime(CLOCK_THREAD_CPUTIME_ID);
      for (Planes& picture : pictures) static_cast<void>(Encode(picture, out));
      alone.push_back((ProcessorTime(CLOCK_THREAD_CPUTIME_ID) - start) / kPictures);
    }
    std::ranges::sort(delivered);
    std::ranges::sort(alone);
    std::printf(
        "640x480, %d rounds of %d pictures, median (lowest to highest), ms of processor time a "
        "picture\n",
        kRounds, kPictures);
    std::printf("delivered to one page   %.2f (%.2f to %.2f)\n", delivered[kRounds / 2],
                delivered.front(), delivered.back());
    std::printf("libjpeg-turbo alone     %.2f (%.2f to %.2f)\n", alone[kRounds / 2], alone.front(),
                alone.back());
  }
  isOver = true;
  thread.join();
  return EXIT_SUCCESS;
}
