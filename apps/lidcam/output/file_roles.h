#pragma once

#include <string>
#include <vector>

namespace lidcam::app {

/// A file that a command reads; "-" is standard input.
struct InputRole {
  std::string What;  ///< to the user: "capture", "scene"
  std::string Path;
};

/// A file that a command writes.
struct OutputRole {
  std::string Option;     ///< that names it: "-o", "--log"
  std::string Path;       ///< "-" is standard output
  bool IsSeries = false;  ///< numbered files: shot.png stands for shot-0001.png and so on
};

/// Looks at a command's files before any of them is opened.
///
/// Throws UsageError if an output is one of the inputs, or two outputs are one: by the file, whatever
/// names, links or redirections lead to it. Devices may stand for several.
///
/// Then tells on standard error of files beside the outputs that an earlier program was killed over: they
/// hold what it had written.
void LookAtFiles(const std::vector<InputRole>& inputs, const std::vector<OutputRole>& outputs);

}  // namespace lidcam::app
