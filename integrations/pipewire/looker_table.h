#pragma once

#include <spa/utils/dict.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace lidcam::integrations::pipewire {

/// Which programs are linked to a node, from what PipeWire's registry tells of its objects.
class LookerTable {
 public:
  /// An object is there. Those of other types than links, nodes and clients are skipped.
  void Add(std::uint32_t id, std::string_view type, const spa_dict* properties);
  void Remove(std::uint32_t id);

  /// The interface by which a client's program knows PipeWire ("v4l2"), which its information tells and the registry
  /// does not.
  void SetInterface(std::uint32_t client, std::string_view interface);

  /// The programs that get a node's pictures, in order: "firefox (1234)".
  [[nodiscard]] std::vector<std::string> LookersAt(std::uint32_t node) const;

  /// Whether one of them looks by V4L2's calls, as pw-v4l2 gives them.
  [[nodiscard]] bool IsSeenByV4l2(std::uint32_t node) const;

 private:
  struct Link {
    std::uint32_t Source = 0;
    std::uint32_t Target = 0;
  };
  struct Node {
    std::uint32_t Client = 0;
    std::string Name;
  };

  [[nodiscard]] std::string NameOf(std::uint32_t node) const;

  std::map<std::uint32_t, Link> links_;
  std::map<std::uint32_t, Node> nodes_;
  std::map<std::uint32_t, std::string> clients_;
  std::map<std::uint32_t, std::string> interfaces_;
};

}  // namespace lidcam::integrations::pipewire
