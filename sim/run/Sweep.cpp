#include "sim/run/Sweep.h"

#include <array>

namespace sim {

namespace {

// Calls of each from the story's beginning on; what comes later is of a machine at rest.
constexpr uint64_t mostOfDaemon = 800;
constexpr uint64_t mostOfShim = 300;

constexpr std::array words = {"kill-daemon-soon", "fail-daemon-soon", "kill-shim-soon",
                              "fail-shim-soon"};
constexpr std::array everyWay = {Spoilt::daemonDies, Spoilt::daemonFails, Spoilt::shimDies,
                                 Spoilt::shimFails};

bool isOfDaemon(Spoilt how) { return how == Spoilt::daemonDies || how == Spoilt::daemonFails; }

}  // namespace

// A daemon that died is started again two seconds later.
std::vector<Story> fixedStories() {
  std::vector<Story> stories;
  for (const char* const text :
       {"empty: +0ms add vm1 2; +2000ms start-daemon",
        "running: +0ms disable vm1; +2000ms start-daemon",
        "running: +0ms restart vm1; +2000ms start-daemon",
        "running: +0ms remove vm1; +2000ms start-daemon",
        "adopted: +0ms renew vm1; +2000ms start-daemon",
        "running: +0ms kill-qemu vm1 0; +100ms restart vm1; +2000ms start-daemon",
        "running: +0ms unplug Ethernet2; +10ms plug Ethernet2; +2000ms start-daemon",
        "running: +0ms end-daemon; +0ms start-daemon; +2000ms start-daemon"})
    stories.push_back(storyFromText(std::string("seed=1 ") + text));
  return stories;
}

Story spoilt(const Story& story, Spoilt how, uint64_t call) {
  Story result = story;
  Step step;
  step.kind = kindFromWord(words.at(static_cast<size_t>(how)));
  step.subject = 1;
  step.amount = call;
  result.steps.insert(result.steps.begin(), step);
  return result;
}

uint64_t sweep(uint64_t stride, const std::function<bool(const Story&)>& play) {
  uint64_t failed = 0;
  for (const Story& story : fixedStories())
    for (const Spoilt how : everyWay)
      for (uint64_t call = 0; call < (isOfDaemon(how) ? mostOfDaemon : mostOfShim); call += stride)
        if (!play(spoilt(story, how, call))) ++failed;
  return failed;
}

}  // namespace sim
