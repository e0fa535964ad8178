// Watches a running `lidcam view` as so many pages do, and prints what they got and the program's memory.

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tests/viewer/support/web_client.h"

namespace {

using lidcam::viewer::PageClient;

struct Viewer {
  std::atomic<std::uint64_t> Pictures = 0;
  std::atomic<std::uint64_t> Bytes = 0;
  std::atomic<bool> IsClosed = false;
};

// Draws every picture at once.
void Watch(PageClient& page, Viewer& viewer, const std::atomic<bool>& isOver) {
  page.Raw().LongestWait = std::chrono::minutes(10);  // a busy machine doesn't close a page
  try {
    page.Say({{"do", "watch"}, {"cameras", {0}}});
    while (!isOver) {
      const auto message = page.HearMessage();
      if (!message) break;
      viewer.Bytes += message->Payload.size();
      if (message->Kind != 2) continue;
      ++viewer.Pictures;
      page.SayShown(nlohmann::json::parse(PageClient::HeaderOf(message->Payload)));
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "viewer_load: %s\n", error.what());
  }
  if (!isOver) viewer.IsClosed = true;
}

// Resident memory.
double MebibytesOf(const std::string& process) {
  constexpr double kKibibytes = 1024;
  std::ifstream status("/proc/" + process + "/status");
  for (std::string word; status >> word;) {
    double size = 0;
    if (word == "VmRSS:" && status >> size) return size / kKibibytes;
  }
  return 0;
}

void PrintRow(double seconds, double interval, const std::vector<std::unique_ptr<Viewer>>& viewers,
              std::vector<std::uint64_t>& before, std::uint64_t& bytesBefore,
              const std::string& process) {
  constexpr double kMebibyte = 1024.0 * 1024.0;
  std::vector<double> rates;
  std::uint64_t bytes = 0;
  std::size_t closed = 0;
  for (std::size_t i = 0; i < viewers.size(); ++i) {
    const std::uint64_t pictures = viewers[i]->Pictures;
    rates.push_back(static_cast<double>(pictures - before[i]) / interval);
    before[i] = pictures;
    bytes += viewers[i]->Bytes;
    closed += viewers[i]->IsClosed ? 1U : 0U;
  }
  std::ranges::sort(rates);
  std::printf("%6.0f  %7zu  %6zu  %7.1f  %6.1f  %7.1f  %8.1f  %7.1f\n", seconds,
              viewers.size() - closed, closed, rates.front(), rates[rates.size() / 2], rates.back(),
              static_cast<double>(bytes - bytesBefore) / kMebibyte / interval,
              MebibytesOf(process));
  std::fflush(stdout);
  bytesBefore = bytes;
}

}  // namespace

int main(int count, char** arguments) {
  using Clock = std::chrono::steady_clock;
  if (count != 6) {
    std::fprintf(stderr, "usage: viewer_load ADDRESS PROCESS VIEWERS SECONDS INTERVAL\n");
    return 2;
  }
  ::signal(SIGPIPE, SIG_IGN);
  const std::string address = arguments[1];
  const std::string process = arguments[2];
  const double total = std::atof(arguments[4]);
  const double interval = std::atof(arguments[5]);
  std::vector<std::unique_ptr<Viewer>> viewers(static_cast<std::size_t>(std::atol(arguments[3])));
  if (viewers.empty() || total <= 0 || interval <= 0) return 2;
  std::atomic<bool> isOver = false;
  std::vector<std::unique_ptr<PageClient>> pages;
  for (auto& viewer : viewers) {
    viewer = std::make_unique<Viewer>();
    pages.push_back(std::make_unique<PageClient>(address));
  }
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < viewers.size(); ++i) {
    threads.emplace_back([&, i] { Watch(*pages[i], *viewers[i], isOver); });
  }
  std::printf(
      "                        pictures a second of a viewer\n"
      "     s  viewers  closed   fewest  median     most     MiB/s  RSS MiB\n");
  std::vector<std::uint64_t> pictures(viewers.size());
  std::uint64_t bytes = 0;
  const auto begin = Clock::now();
  auto last = begin;
  for (auto row = begin; row < begin + std::chrono::duration<double>(total);) {
    row += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(interval));
    std::this_thread::sleep_until(row);
    const auto now = Clock::now();
    PrintRow(std::chrono::duration<double>(now - begin).count(),
             std::chrono::duration<double>(now - last).count(), viewers, pictures, bytes, process);
    last = now;
  }
  const bool isAnyClosed =
      std::ranges::any_of(viewers, [](const auto& viewer) { return viewer->IsClosed.load(); });
  isOver = true;
  for (std::thread& thread : threads) thread.join();
  return isAnyClosed ? EXIT_FAILURE : EXIT_SUCCESS;
}
