#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "scenarios/run/random.h"

namespace lidcam::scenarios {

/// How a run differs from the usual ones of its scenario: it leaves out some kinds of fault and operation, and has
/// parameters of its own. Some faults need many operations of one kind, or a stream that no other kind ends early;
/// they are rare in runs that have a little of everything.
///
/// All answers are functions of the seed alone, in whatever order they are asked for.
class Swarm {
 public:
  /// A usual run: all kinds, and the usual parameters.
  Swarm() = default;
  explicit Swarm(std::uint64_t seed);

  /// Whether the run has faults or operations of this kind.
  [[nodiscard]] bool Has(std::string_view kind);

  /// Chooses one of several kinds: any that the run has; any at all if it has none of them.
  ///
  /// @return an index; equally likely for each, so that a kind with several is more frequent
  template <std::size_t kCount>
  [[nodiscard]] std::size_t Choose(Random& chance, const std::string_view (&kinds)[kCount]) {
    std::size_t chosen = chance.Below(kCount);
    bool hasSome = false;
    for (const std::string_view kind : kinds) hasSome = Has(kind) || hasSome;
    while (hasSome && !Has(kinds[chosen])) chosen = chance.Below(kCount);
    return chosen;
  }

  /// A parameter of the run: for one run in four as `usual`, otherwise `first` to `last`, both included.
  [[nodiscard]] std::uint64_t Value(std::string_view parameter, std::uint64_t usual,
                                    std::uint64_t first, std::uint64_t last);

  /// What was asked for: the kinds that are left out, and the parameters.
  [[nodiscard]] const std::set<std::string>& LeftOut() const { return leftOut_; }
  [[nodiscard]] const std::map<std::string, std::uint64_t>& Parameters() const {
    return parameters_;
  }

 private:
  std::optional<std::uint64_t> seed_;
  std::uint64_t quartersLeftOut_ = 0;
  std::set<std::string> leftOut_;
  std::map<std::string, std::uint64_t> parameters_;
};

}  // namespace lidcam::scenarios
