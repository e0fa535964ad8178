#include "scenarios/guide.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>
#include <type_traits>

#include "platform/host/nt/scheduling/thread.h"
#include "platform/host/nt/simulation/execution_context.h"

namespace lidcam::scenarios {
namespace {

constexpr std::uint64_t kPurposeOfBranches = 7;

// Short enough for a command line; no two branches of a run should have the same by chance.
constexpr std::uint64_t kReseedings = 1'000'000'000;

constexpr std::size_t kDeepest = 6;

// So that the branches of a run don't all begin at its first new pairs, or next to each other.
constexpr std::size_t kMostOfOneProcess = 4;
constexpr std::uint64_t kPointsBetween = 32;

constexpr std::size_t kPairs = std::size_t{1} << 22U;

template <std::size_t kSize>
void Copy(const std::string& text, std::array<char, kSize>& to) {
  const std::size_t size = std::min(text.size(), kSize - 1);
  std::memcpy(to.data(), text.data(), size);
  to[size] = '\0';
}

// The kind of a thread: its name without a number.
std::string_view KindOf(const host::Thread& thread) {
  const std::string_view name = thread.Name;
  return name.substr(0, name.find_first_of("0123456789"));
}

std::size_t PlaceOf(const host::SwitchPlace& place, std::uint64_t driverState) {
  const std::uint64_t call = std::hash<std::string_view>{}(place.Subject.Name);
  const std::uint64_t thread = std::hash<std::string_view>{}(KindOf(place.Self));
  return Random(driverState, call ^ (thread << 1U)).Below(kPairs);
}

}  // namespace

/// A branch's result, as its process leaves it: a view of a literal is the same in each process.
struct Guide::Branch {
  bool IsWhole = false;
  std::size_t Depth = 0;
  std::array<Reseeding, kDeepest> Reseedings{};
  RunFigures Figures{};
  std::array<char, 600> What{};
};

/// What all processes of a guide share. Only one of them runs at a time.
struct Guide::Shared {
  std::bitset<kPairs> Seen{};
  std::uint64_t Pairs = 0;
  std::size_t Branches = 0;  ///< of the present run

  // Behind it: `most_` of these.
  [[nodiscard]] Branch& At(std::size_t number) {
    return reinterpret_cast<Branch*>(this + 1)[number];
  }
  [[nodiscard]] static std::size_t BytesWith(std::size_t branches) {
    return sizeof(Shared) + branches * sizeof(Branch);
  }
};

Guide::Guide(std::size_t most)
    : most_(most), shared_([most] {
        static_assert(std::is_trivially_copyable_v<Branch> && alignof(Branch) <= alignof(Shared));
        void* const memory = mmap(nullptr, Shared::BytesWith(most), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        auto* const shared = new (memory) Shared;
        for (std::size_t i = 0; i < most; ++i) new (&shared->At(i)) Branch;
        return shared;
      }()) {}

Guide::~Guide() {
  munmap(shared_, Shared::BytesWith(most_));
}

bool Guide::IsPossible() {
  return host::ExecutionContext::ShareOneMachineThread();
}

std::uint64_t Guide::Pairs() const {
  return shared_->Pairs;
}

void Guide::Play(const Scenario& scenario, const RunKey& key,
                 const std::function<void(const RunResult& result)>& take) {
  seed_ = key.Seed;
  reseedings_ = key.Reseedings;
  ownBranches_ = 0;
  nextPoint_ = 0;
  shared_->Branches = 0;
  RunResult result;
  try {
    result = RunScenario(scenario, key,
                         {.Guide = [this](const host::SwitchPlace& place, std::uint64_t state) {
                           return AtPoint(place, state);
                         }});
  } catch (...) {
    if (branch_ != nullptr) EndBranch(nullptr);
    throw;
  }
  if (branch_ != nullptr) EndBranch(&result);
  take(result);
  for (std::size_t i = 0; i < shared_->Branches; ++i) {
    const Branch& branch = shared_->At(i);
    RunResult other = result;
    const auto first = branch.Reseedings.begin();
    other.Key.Reseedings.assign(first, first + static_cast<std::ptrdiff_t>(branch.Depth));
    static_cast<RunFigures&>(other) = branch.Figures;
    other.What = branch.What.data();
    other.Report.clear();
    other.Trace.clear();
    take(other);
  }
}

bool Guide::MayBranch(std::uint64_t point) const {
  return shared_->Branches < most_ && reseedings_.size() < kDeepest &&
         ownBranches_ < kMostOfOneProcess && point >= nextPoint_;
}

std::optional<std::uint64_t> Guide::AtPoint(const host::SwitchPlace& place,
                                            std::uint64_t driverState) {
  const std::size_t pair = PlaceOf(place, driverState);
  if (shared_->Seen.test(pair)) return {};
  shared_->Seen.set(pair);
  ++shared_->Pairs;
  if (!MayBranch(place.Number)) return {};
  return Fork(place.Number);
}

// @return in the new process the number with which it goes on
std::optional<std::uint64_t> Guide::Fork(std::uint64_t point) {
  const std::size_t number = shared_->Branches++;
  ++ownBranches_;
  nextPoint_ = point + kPointsBetween;
  Branch& branch = shared_->At(number) = Branch();
  const std::uint64_t seed = Random(seed_, kPurposeOfBranches + number).Below(kReseedings);
  reseedings_.push_back({point, seed});
  branch.Depth = reseedings_.size();
  std::ranges::copy(reseedings_, branch.Reseedings.begin());
  const pid_t child = fork();
  if (child == 0) {
    branch_ = &branch;
    ownBranches_ = 0;
    return seed;
  }
  reseedings_.pop_back();
  if (child == -1) {
    shared_->Branches = number;  // no process can be made now
  } else {
    Await(child, branch);
  }
  return {};
}

void Guide::Await(int child, Branch& branch) {
  int status = 0;
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  if (branch.IsWhole) return;
  branch.Figures.Outcome = Verdict::Failed;
  Copy(WIFSIGNALED(status) ? "the process ended by signal " + std::to_string(WTERMSIG(status))
                           : "the process ended with status " + std::to_string(WEXITSTATUS(status)),
       branch.What);
}

// Without the ends of what the first process has begun.
void Guide::EndBranch(const RunResult* result) {
  if (result != nullptr) {
    branch_->Figures = *result;
    Copy(result->What, branch_->What);
    branch_->IsWhole = true;
  }
  _exit(result != nullptr ? 0 : 1);
}

}  // namespace lidcam::scenarios
