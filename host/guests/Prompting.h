// When a guest's monitor is asked for the guest's state beside the agent's own polls.
#pragma once

#include <algorithm>
#include <cstdint>

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"

namespace host {

// What is so of one VM's monitor session.
struct SessionFacts {
  bool isUp = false;      // its VM is on, its process lives, and it is connected
  rt::String state;       // of the guest, as the agent tells it
  uint32_t asked = 0;     // how often the session was told to ask something
  uint32_t answered = 0;  // the last of them that was answered
};

enum class Prompt : uint8_t {
  none,
  ask,   // for the guest's state
  wake,  // tell the agent once more that the session is connected: then it polls again
};

// Pure. The agent asks for a guest's state before it lets the guest run, and then 5 s later: in
// between, a guest that runs would be shown stopped. So it is asked behind all that the agent asks
// of a new session, and a few times more while it does not run. And the agent polls no more when a
// poll could not be sent: so a session that was not told to ask anything for three polls is woken;
// but not while the guest is starting, for the agent would give it its cards twice.
class Prompting {
 public:
  static constexpr int mostQuestions = 5;
  static constexpr rt::Seconds firstPause{0.25};  // and then twice as long each time
  static constexpr rt::Seconds longestSilence{15};
  static constexpr rt::Seconds longestWait{10};

  void factsAre(const SessionFacts& facts, rt::Seconds now);
  // To be asked when wakeUp() has come.
  Prompt due(rt::Seconds now);
  // Whether what it was told to ask has had no answer for so long. Seen when it is told to ask once
  // more, so nobody is woken for it.
  bool isUnanswered() const { return isUnanswered_; }
  rt::Seconds wakeUp() const { return isUp_ ? std::min(askAt_, wakeAt_) : never; }

 private:
  static constexpr rt::Seconds never = rt::Seconds::infinity();

  bool isUp_ = false;
  bool isStarting_ = false;
  uint32_t asked_ = 0;
  uint32_t answered_ = 0;
  rt::Seconds heardAt_ = never;
  bool isUnanswered_ = false;
  int questions_ = 0;
  rt::Seconds pause_ = firstPause;
  rt::Seconds askAt_ = never;
  rt::Seconds wakeAt_ = never;
};

}  // namespace host
