// How each VM's last run has ended, and which runs go on: what is to be known after a reboot.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/state/EndOf.h"

namespace host {

// Two small files: "ends" has a line for each VM that has ever run, "running" one for each that
// runs. What was running in another boot than this one, and has left no end, was ended by that
// boot's. Pure. Owned by EndsOnDisk.
class EndBook {
 public:
  static constexpr size_t mostVms = 20'000;  // of more, those go whose end is longest ago

  // Takes up what a file holds; returns what is wrong with it, and takes nothing then; empty: all
  // is well.
  rt::String takeEnds(std::string_view text);
  rt::String takeRunning(std::string_view text);
  std::string endsText() const;
  std::string runningText() const;

  // The machine is in this boot, which began at that time, in ms since 1970. Returns the VMs whose
  // run ended with the boot before, and of whom nobody has told it yet. Empty: nobody can say which
  // boot this is, and nothing is concluded.
  std::vector<rt::String> bootIs(const rt::String& boot, uint64_t at);

  // A run goes on, which began at that time.
  void runs(const rt::String& vm, uint64_t run, uint64_t startedAt);
  // A run has ended; `isWithAll`: by whom had all guests end. When the machine goes down next, it
  // was ended for that.
  void ended(const rt::String& vm, uint64_t run, const End& end, bool isWithAll = false);
  void vmDel(const rt::String& vm);

  // Nothing: none is known.
  const End* end(const rt::String& vm) const;
  std::map<rt::String, End> ends() const;

 private:
  struct KeptEnd {
    rt::String boot;
    uint64_t run = 0;
    bool isWithAll = false;
    End end;
  };
  struct KeptRun {
    rt::String boot;
    uint64_t run = 0;
    uint64_t startedAt = 0;
  };

  bool hasEnded(const rt::String& vm, const KeptRun& run) const;

  rt::String boot_;
  std::map<rt::String, KeptEnd> ends_;     // by VM
  std::map<rt::String, KeptRun> running_;  // likewise
};

}  // namespace host
