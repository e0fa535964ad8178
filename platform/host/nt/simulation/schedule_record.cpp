#include "platform/host/nt/simulation/schedule_record.h"

#include <algorithm>
#include <map>
#include <utility>

namespace lidcam::host {
namespace {

/// Counts the choices at each thread's points.
class ChoiceCounter {
 public:
  void Reach(const Thread& thread) { self_ = thread.Number; }

  /// @return the present choice, with the default as chosen
  Deviation Next(std::span<Thread* const> candidates) {
    const auto own = std::ranges::find(candidates, self_, &Thread::Number);
    const Thread& chosen = own != candidates.end() ? **own : *candidates.front();
    return {self_, ++choices_[self_], chosen.Number};
  }
  void Skip() { ++choices_[self_]; }

 private:
  std::uint32_t self_ = 0;
  std::map<std::uint32_t, std::uint64_t> choices_;
};

std::string NameOf(const Thread& thread) {
  return "thread " + std::to_string(thread.Number) + " (" + thread.Name + ")";
}

std::string TextOf(std::span<Thread* const> candidates, const Deviation& deviation,
                   const Thread& chosen) {
  const auto self = std::ranges::find(candidates, deviation.Thread, &Thread::Number);
  const std::string place =
      self != candidates.end()
          ? NameOf(**self) + " stops at its choice " + std::to_string(deviation.Choice) + ", in " +
                (*self)->LastCall
          : "thread " + std::to_string(deviation.Thread) + " waits or has ended";
  return place + ": " + NameOf(chosen) + " runs";
}

class RecordingChooser final : public ThreadChooser {
 public:
  RecordingChooser(std::unique_ptr<ThreadChooser> chooser, ScheduleRecord& record)
      : chooser_(std::move(chooser)), record_(record) {}

  [[nodiscard]] bool KeepsBaton() override {
    if (!chooser_->KeepsBaton()) return false;
    counter_.Skip();
    return true;
  }
  void Reach(Thread& thread, const void* object) override {
    counter_.Reach(thread);
    chooser_->Reach(thread, object);
  }
  void Spin(Thread& thread) override {
    counter_.Reach(thread);
    chooser_->Spin(thread);
  }
  void MoveTime() override { chooser_->MoveTime(); }
  [[nodiscard]] std::uint64_t Tie(std::uint64_t number) override {
    record_.Ties.push_back(number);
    return number;
  }

  [[nodiscard]] Thread& Choose(std::span<Thread* const> candidates) override {
    Deviation choice = counter_.Next(candidates);
    Thread& chosen = chooser_->Choose(candidates);
    if (chosen.Number != choice.Chosen) {
      choice.Chosen = chosen.Number;
      record_.Deviations.push_back(choice);
    }
    return chosen;
  }

 private:
  const std::unique_ptr<ThreadChooser> chooser_;
  ScheduleRecord& record_;
  ChoiceCounter counter_;
};

class FollowingChooser final : public ThreadChooser {
 public:
  FollowingChooser(const ScheduleRecord& record, ScheduleRecord& played)
      : record_(record), played_(played) {
    for (const Deviation& each : record.Deviations)
      chosen_[{each.Thread, each.Choice}] = each.Chosen;
  }

  void Reach(Thread& thread, const void*) override { counter_.Reach(thread); }
  void Spin(Thread& thread) override { counter_.Reach(thread); }
  [[nodiscard]] std::uint64_t Tie(std::uint64_t number) override {
    const std::size_t at = played_.Ties.size();
    played_.Ties.push_back(at < record_.Ties.size() ? record_.Ties[at] : number);
    return played_.Ties.back();
  }

  [[nodiscard]] Thread& Choose(std::span<Thread* const> candidates) override {
    Deviation choice = counter_.Next(candidates);
    const auto found = chosen_.find({choice.Thread, choice.Choice});
    const std::uint32_t wanted = found != chosen_.end() ? found->second : choice.Chosen;
    const auto chosen = std::ranges::find(candidates, wanted, &Thread::Number);
    if (chosen == candidates.end() || wanted == choice.Chosen) {
      return **std::ranges::find(candidates, choice.Chosen, &Thread::Number);
    }
    choice.Chosen = wanted;
    played_.Deviations.push_back(choice);
    played_.Texts.push_back(TextOf(candidates, choice, **chosen));
    return **chosen;
  }

 private:
  const ScheduleRecord& record_;
  ScheduleRecord& played_;
  std::map<std::pair<std::uint32_t, std::uint64_t>, std::uint32_t> chosen_;
  ChoiceCounter counter_;
};

}  // namespace

std::unique_ptr<ThreadChooser> MakeRecordingChooser(std::unique_ptr<ThreadChooser> chooser,
                                                    ScheduleRecord& record) {
  return std::make_unique<RecordingChooser>(std::move(chooser), record);
}

std::unique_ptr<ThreadChooser> MakeFollowingChooser(const ScheduleRecord& record,
                                                    ScheduleRecord& played) {
  return std::make_unique<FollowingChooser>(record, played);
}

}  // namespace lidcam::host
