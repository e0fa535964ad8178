#pragma once

#include <span>
#include <string_view>

namespace lidcam::viewer {

/// A file of the page, which is part of the program.
struct PageFile {
  std::string_view Name;  ///< "index.html"
  std::string_view Content;
};

[[nodiscard]] std::span<const PageFile> PageFiles();

}  // namespace lidcam::viewer
