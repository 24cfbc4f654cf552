// Stands between the agent and QEMU: what either says becomes what the other hears.
//
// Pure: messages and the time come in, and what to do comes out. The agent's client believes much
// of its peer (a return without an id ends its process, an answer that is not for it confuses it),
// so to it go only QEMU's greeting and one answer to each of its requests that has an id.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "shim/decide/Cards.h"
#include "shim/decide/CommandQueue.h"
#include "shim/decide/GuestEvents.h"
#include "shim/decide/Pictures.h"
#include "shim/decide/QmpStream.h"
#include "shim/decide/ScreenDoor.h"
#include "shim/decide/Time.h"
#include "shim/decide/Wish.h"

namespace shim {

// What is to be done, each kind in its order.
struct Actions {
  std::string toAgent;           // bytes
  std::vector<Message> toQemu;   // whole lines
  std::string killQemu;          // why; empty: not
  std::vector<std::string> log;  // lines
  // Lines: what went wrong and the agent is not told, for it could do nothing.
  std::vector<std::string> problems;
  std::vector<GuestEvent> events;  // what happened to the guest
  // What came of an operator's wish.
  struct Outcome {
    uint64_t wish = 0;
    std::string refusal;  // empty: it is done
  };
  std::vector<Outcome> outcomes;
};

// How long is waited for what.
struct Patience {
  Duration greeting{30'000};  // for QEMU to get ready; then it is killed
  // For an answer of QEMU's. Below the agent's own 5 s: its time-out would wipe out what it knows.
  Duration answer{4'000};
  Duration end{5'000};  // for QEMU to end once it has closed its monitor; then it is killed
};

struct RelaySetup {
  std::vector<std::string> cards;  // ids, in the order of their hubs
  // What query-chardev shows for our ends, by label.
  std::map<std::string, std::string> fileNames;
  Patience patience;
};

//   QEMU         | the agent's requests
//   -------------+------------------------------------------------------------------------------
//   not ready    | wait; nobody is greeted
//   answers      | one at a time, in order; a card command may be two requests to QEMU
//   is silent    | after 4 s: a query gets an error, a card command a return, and QEMU is stalled
//   stalled      | card commands get a return at once and wait; queries get an error after 4 s
//   answers again| what waits is carried out, in order; what fails then is a problem
//
// A "cont" gets an error like a query, but waits on: a guest is let run however late. Of a guest
// that an operator has paused it is answered, and not done: the guest is his until he lets it run.
// What an operator wishes comes behind all that the agent asks for, and is given up like a query.
//
// Owned by the keeper. One agent at a time; QEMU's stream is the same from start to end.
class Relay {
 public:
  Relay(Time now, RelaySetup setup);

  Actions agentConnected();
  Actions agentGone();
  // Another agent takes the place of the one before, whose questions are forgotten, and what it
  // left at the guest's cards is exchanged for what this one brings. `names`: what it calls each
  // card, and what the guest does.
  Actions adopt(Time now, std::map<std::string, std::string> names);
  Actions agentSays(Time now, Message message);
  Actions qemuSays(Time now, const std::string& text);
  // QEMU said something that was too long to be kept.
  Actions qemuSaidTooMuch(Time now);
  // QEMU's end of its stream.
  void qemuClosed(Time now);
  Actions timePassed(Time now);
  // When timePassed() should be called next; nothing while nothing is waited for.
  std::optional<Time> deadline() const;

  // Whether QEMU can be asked to end.
  bool isReady() const { return phase_ == Phase::ready && !closedAt_; }
  // Asks it, whatever else waits.
  Actions quit();
  // Presses the guest's power button, whatever else waits. One that an operator has paused is let
  // run first, or it could not hear it.
  Actions powerDown();
  // Whether one more who wants to see the guest's screen can be taken now. He is given to QEMU, or
  // goes.
  bool takesViewer() const { return isReady() && !screen_.isBusy(); }
  Actions addViewer(Time now, rt::Descriptor viewer);
  // Asks QEMU for what an operator wants. What comes of it is among the outcomes, under that
  // number, now or later, and once.
  Actions wish(Time now, uint64_t number, Wish wish);
  // Whether the card's line is up. QEMU is told as soon as it can be, also after its silence.
  Actions lineIs(Time now, const std::string& card, bool isUp);
  // Names the time for which the guest's screen has been the same; nothing while it may change.
  std::optional<uint64_t> stillness() const { return pictures_.stillness(); }
  // Whether QEMU was told to let the guest run.
  bool guestHasRun() const { return guestHasRun_; }
  bool hasAgent() const { return connected_; }
  // What is wrong as long as it stands here: sentences, by what they are about.
  const std::map<std::string, std::string>& standing() const { return standing_; }

 private:
  enum class Phase { greeting, negotiating, ready };

  // The command that QEMU was asked last. Its answers come in the order of its steps.
  struct Flight {
    Command command;
    std::optional<uint64_t> firstId;  // of the steps' ids, which are numbered on; none: no ids
    size_t steps = 0;
    std::vector<qmp::Saying> answers;
    Time sent{};
    bool late = false;  // QEMU took longer than it may
    bool wasHeld = false;
  };

  bool isStalled() const { return flight_ && flight_->late; }
  void becomeReady(Time now);
  void enqueue(Command command);
  void startNext(Time now);
  Plan planFor(const Command& command) const;
  void wishIsOver(Command& command, std::string refusal);
  bool clearUp(Time now);
  void send(Time now, Command command, const std::vector<Step>& steps);
  bool isAnswer(const qmp::Saying& saying) const;
  void takeAnswer(Time now, qmp::Saying answer);
  void giveUpOnAnswer(Time now, const char* why);
  void finish(Time now);
  void removePictures();
  void reportFailures(const Flight& flight);
  void noteOutcome(const qmp::Request& request, const std::string& failure);
  std::string answerOf(const Flight& flight) const;
  void answerInsteadOfQemu(Command& command);
  void expireQueue(Time now);
  Time flightDeadline() const;
  Actions tellQemu(const char* execute);
  void toAgent(const std::string& line);
  void noteRubbish(const std::string& what);
  void takeAboutViewer(const qmp::Saying& saying);
  Actions taken() { return std::exchange(out_, {}); }

  const Time start_;
  const RelaySetup setup_;
  Phase phase_ = Phase::greeting;
  bool killed_ = false;
  bool connected_ = false;
  bool guestHasRun_ = false;
  bool isHeld_ = false;  // an operator has paused the guest
  std::string greeting_;
  std::optional<Time> closedAt_;
  uint64_t nextId_ = 1;
  ScreenDoor screen_;
  Pictures pictures_;
  Cards cards_;
  CommandQueue queue_;
  std::optional<Flight> flight_;
  std::map<std::string, std::string> standing_;
  size_t rubbish_ = 0;
  Actions out_;
};

}  // namespace shim
