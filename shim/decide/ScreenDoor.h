// Who may look at the guest's screen: pure.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "shim/decide/QmpStream.h"
#include "shim/decide/QmpText.h"
#include "shim/decide/Time.h"

namespace shim {

// QEMU serves whoever it is given, and one more at each time that it is asked: so a viewer is let
// in when QEMU, asked how many it has, has fewer than it may. One at a time; others wait outside.
//
//   the viewer   | QEMU
//   -------------+----------------------------------------------------------
//   is at the    | is asked how many it serves
//   door         | has few: is given the viewer. Has many: the viewer goes
//   is given     | took it or refused it: the next may come
//   either       | says nothing of it for ten seconds: the next may come
class ScreenDoor {
 public:
  static constexpr size_t mostViewers = 16;
  static constexpr Duration patience{10'000};

  bool isBusy() const { return step_ != Step::idle; }
  std::optional<Time> deadline() const;

  // What to ask of QEMU, with ids from `id` on, which is moved on.
  Message begin(Time now, rt::Descriptor viewer, uint64_t& id);
  // Whether QEMU says that of the viewer.
  bool isAbout(const qmp::Saying& saying) const;
  // It does: what to ask next, and a line for the log if there is something to say.
  std::vector<Message> take(const qmp::Saying& saying, uint64_t& id, std::string& log);
  // True when the viewer was given up now.
  bool timePassed(Time now);

 private:
  enum class Step { idle, asked, given };

  Step step_ = Step::idle;
  rt::Descriptor viewer_;
  uint64_t awaited_ = 0;  // the id of the answer
  Time begun_{};
};

}  // namespace shim
