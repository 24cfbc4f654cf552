#include "sim/run/Shrinker.h"

#include <algorithm>

namespace sim {

namespace {

class Shrinker {
 public:
  Shrinker(Story story, const std::function<Outcome(const Story&)>& play, unsigned mostPlays)
      : best_(std::move(story)), play_(play), left_(mostPlays) {
    clause_ = play_(best_).verdict.clause;
  }

  Story run() {
    if (clause_.empty()) return best_;
    for (bool isShorter = true; isShorter && left_ > 0;) {
      isShorter = calm();
      for (size_t size = std::max<size_t>(best_.steps.size() / 2, 1); size > 0; size /= 2)
        isShorter = leaveOut(size) || isShorter;
      isShorter = makeSmaller() || isShorter;
    }
    return best_;
  }

 private:
  bool fails(const Story& story) {
    if (left_ == 0) return false;
    --left_;
    return play_(story).verdict.clause == clause_;
  }

  bool take(const Story& story) {
    if (!fails(story)) return false;
    best_ = story;
    return true;
  }

  bool calm() {
    bool any = false;
    for (const ConditionKind& each : conditionKinds()) {
      if (best_.conditions.*each.value == 0) continue;
      Story calmer = best_;
      calmer.conditions.*each.value = 0;
      any = take(calmer) || any;
    }
    if (best_.beginning != Beginning::empty) {
      Story earlier = best_;
      earlier.beginning = Beginning::empty;
      any = take(earlier) || any;
    }
    return any;
  }

  // From the end on: what is behind the failure goes first.
  bool leaveOut(size_t size) {
    bool any = false;
    for (size_t end = best_.steps.size(); end > 0;) {
      const size_t begin = end > size ? end - size : 0;
      Story shorter = best_;
      shorter.steps.erase(shorter.steps.begin() + static_cast<std::ptrdiff_t>(begin),
                          shorter.steps.begin() + static_cast<std::ptrdiff_t>(end));
      any = take(shorter) || any;
      end = begin;
    }
    return any;
  }

  bool makeSmaller() {
    bool any = false;
    for (size_t i = 0; i < best_.steps.size(); ++i) {
      if (best_.steps[i].before > Duration::zero()) {
        Story quicker = best_;
        quicker.steps[i].before = Duration::zero();
        any = take(quicker) || any;
      }
      if (best_.steps[i].amount > 0) {
        Story less = best_;
        less.steps[i].amount = 0;
        any = take(less) || any;
      }
    }
    return any;
  }

  Story best_;
  const std::function<Outcome(const Story&)>& play_;
  unsigned left_;
  std::string clause_;
};

}  // namespace

Story shrunk(const Story& story, const std::function<Outcome(const Story&)>& play,
             unsigned mostPlays) {
  return Shrinker(story, play, mostPlays).run();
}

}  // namespace sim
