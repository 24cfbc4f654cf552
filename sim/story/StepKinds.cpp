// What may happen in a story. A new kind is a row here and a function in sim/story.
#include <array>
#include <stdexcept>

#include "sim/story/Step.h"

namespace sim {

namespace {

using enum Subject;

std::vector<StepKind> operatorsKinds() {
  using enum Switch;
  return {
      {"add", operators, vm, 40, 5},      // its amount: cards, and whether it is disabled
      {"set", operators, vm, 20, 5},      // which field
      {"add-card", operators, vm, 8, 2},  // of which device
      {"remove-card", operators, vm, 6, 0},
      {"enable", operators, vm, 40, 0},
      {"disable", operators, vm, 30, 0},
      {"restart", operators, vm, 30, 0},
      {"remove", operators, vm, 15, 0},
      {"renew", operators, vm, 15, 0},   // removed, and added as it was
      {"toggle", operators, vm, 10, 9},  // how often
      {"look", operators, vm, 10, 4},    // by which verb
      {"wait", operators, vm, 10, 0},
      {"rest", operators, nobody, 15, 60},  // seconds
      {"write-rubbish", writers, vm, 10, 7},
      {"write-stranger", writers, nobody, 4, 5},
      {"renew-at-once", writers, vm, 12, 0},  // in one transaction
      {"remove-at-once", writers, vm, 8, 0},
      {"hold-database", writers, nobody, 6, 8000},  // milliseconds
  };
}

std::vector<StepKind> processesKinds() {
  using enum Switch;
  return {
      {"kill-daemon", daemon, nobody, 14, 0},
      {"kill-daemon-soon", daemon, nobody, 20, 800},  // so many calls from now
      {"fail-daemon-soon", daemon, nobody, 8, 800},   // at that call
      {"end-daemon", daemon, nobody, 10, 0},
      {"start-daemon", daemon, nobody, 40, 0},
      {"pause-daemon", daemon, nobody, 8, 5000},  // milliseconds
      {"second-daemon", daemon, nobody, 4, 0},
      {"kill-shim", shim, vm, 14, 2},         // which: the first, or the last
      {"kill-shim-soon", shim, vm, 14, 300},  // so many calls from now
      {"fail-shim-soon", shim, vm, 8, 300},
      {"end-shim", shim, vm, 8, 2},
      {"pause-shim", shim, vm, 8, 20000},
      {"pause-and-kill", shim, vm, 8, 3000},  // one stands, another is killed
      {"kill-qemu", qemu, vm, 12, 1},         // by which signal
      {"end-qemu", qemu, vm, 6, 0},
      {"pause-qemu", qemu, vm, 8, 40000},
      {"next-qemu", qemu, vm, 25, 14},  // its manner, from the next start on
      {"power-off", guest, vm, 15, 3},  // after how many seconds
      {"deaf-guest", guest, vm, 8,
       1},  // takes no notice of its button; 1: nor its QEMU of anything
      {"turn-clock", clock, nobody, 6, 172800},
  };
}

std::vector<StepKind> surroundingsKinds() {
  using enum Switch;
  return {
      {"unplug", link, port, 15, 0},
      {"plug", link, port, 30, 0},
      {"replug", link, port, 15, 1},         // 1: with the number that it had
      {"flap", link, port, 10, 20},          // how often
      {"downcast", link, port, 5, 0},        // the device goes down, and up
      {"take-tap", link, vm, 12, 3},         // somebody removes the VM's tap
      {"take-name", link, nobody, 6, 2},     // a stranger has the name of a tap
      {"lose-news", link, nobody, 6, 0},     // of more changes than fit
      {"fill-disk", disk, nobody, 8, 4000},  // bytes that are left
      {"free-disk", disk, nobody, 12, 0},
      {"fill-run", disk, nobody, 8, 4000},
      {"free-run", disk, nobody, 12, 0},
      {"remove-image", files, vm, 8, 0},
      {"restore-image", files, vm, 12, 0},
      {"swap-image", files, vm, 5, 3},    // for a directory, a fifo, a short one
      {"spoil-file", files, vm, 12, 23},  // which of a VM's files, and how
      {"move-store", store, nobody, 6, 0},
      {"return-store", store, nobody, 12, 0},
      {"copy-store", store, nobody, 3, 0},   // it is kept
      {"older-store", store, nobody, 3, 0},  // what was kept comes back
  };
}

std::vector<StepKind> all() {
  std::vector<StepKind> kinds = operatorsKinds();
  for (const auto& more : {processesKinds(), surroundingsKinds()})
    kinds.insert(kinds.end(), more.begin(), more.end());
  return kinds;
}

}  // namespace

const std::vector<StepKind>& stepKinds() {
  static const std::vector<StepKind> kinds = all();
  return kinds;
}

size_t kindFromWord(std::string_view word) {
  const auto& kinds = stepKinds();
  for (size_t i = 0; i < kinds.size(); ++i)
    if (kinds[i].word == word) return i;
  throw std::invalid_argument("'" + std::string(word) + "' is no kind of step");
}

std::string_view wordOf(Switch group) {
  constexpr std::array<std::string_view, switchCount> words = {
      "operators", "writers", "daemon", "shim",  "qemu", "guest",
      "link",      "disk",    "files",  "store", "clock"};
  return words.at(static_cast<size_t>(group));
}

}  // namespace sim
