#include "shim/decide/Relay.h"

#include <algorithm>

#include "guest/EventWords.h"

namespace shim {

namespace {

namespace event = guest::event;
using Kind = qmp::Saying::Kind;

// A value that is longer is no answer to any question of the agent's, whose reader has no bound.
constexpr size_t longestValue = 64 * 1024;
// Six commands for each of some dozens of cards: more than an agent has, and little memory.
constexpr size_t longestQueue = 256;
// Of what nobody understands, so much is logged.
constexpr size_t loggedRubbish = 10;
constexpr size_t shownRubbish = 200;
constexpr uint64_t negotiationId = 0;
// What stands about QEMU itself; no netdev has that name.
constexpr char silence[] = "";

std::string subjectOf(const qmp::Request& request) {
  std::string subject = request.execute;
  for (const char* const argument : {"name", "id", "fdname", "nicid", "netdevid"})
    if (const auto found = request.texts.find(argument); found != request.texts.end())
      subject += " " + found->second;
  return subject;
}

std::string inSeconds(Duration time) { return std::to_string(time.count() / 1000) + " s"; }

}  // namespace

Relay::Relay(Time now, RelaySetup setup)
    : start_(now), setup_(std::move(setup)), cards_(setup_.cards) {}

Actions Relay::agentConnected() {
  connected_ = true;
  if (phase_ == Phase::ready) toAgent(greeting_);
  return taken();
}

Actions Relay::agentGone() {
  connected_ = false;
  // Its questions are nobody's now; its card commands were told to be done, or will be again.
  auto& waiting = queue_.commands();
  std::erase_if(waiting, [](const Command& command) {
    return !command.isOperators() && !Cards::isAbout(command.request.execute);
  });
  for (Command& command : waiting) command.awaited = false;
  if (flight_) flight_->command.awaited = false;
  return taken();
}

Actions Relay::adopt(Time now, std::map<std::string, std::string> names) {
  connected_ = false;
  std::erase_if(queue_.commands(), [](const Command& each) { return !each.isOperators(); });
  if (flight_) flight_->command.awaited = false;
  std::erase_if(standing_, [](const auto& problem) { return problem.first != silence; });
  cards_.agentIs(std::move(names));
  startNext(now);
  return taken();
}

Actions Relay::agentSays(Time now, Message message) {
  auto request = qmp::requestFrom(message.text);
  if (!request) {
    noteRubbish("the agent sent what is no request: " + message.text.substr(0, shownRubbish));
    return taken();
  }
  // Only once can a stream of QEMU's be negotiated. That was done, and nobody is greeted before.
  if (request->execute == "qmp_capabilities") {
    if (!request->id.empty()) toAgent(qmp::returnLine(request->id));
    return taken();
  }
  // QEMU would keep any other for the next getfd.
  message.descriptors.resize(
      std::min<size_t>(message.descriptors.size(), request->execute == "getfd" ? 1 : 0));
  const bool awaited = !request->id.empty();
  enqueue(
      {std::move(*request), std::move(message.descriptors), now + setup_.patience.answer, awaited});
  startNext(now);
  return taken();
}

void Relay::enqueue(Command command) {
  const qmp::Request& request = command.request;
  if (queue_.size() - queue_.wishes() >= longestQueue) {
    const std::string text = "too much waits for QEMU, given up: " + subjectOf(request);
    out_.problems.push_back(text);
    if (command.awaited)
      toAgent(Cards::alwaysSucceeds(request.execute) ? qmp::returnLine(request.id)
                                                     : qmp::errorLine(request.id, text));
    return;
  }
  if (isStalled() && Cards::isAbout(request.execute)) {
    answerInsteadOfQemu(command);
    const auto id = request.texts.find("id");
    if (request.execute == "netdev_del" && id != request.texts.end() && queue_.takeBack(id->second))
      return;
  }
  queue_.push(std::move(command));
}

void Relay::startNext(Time now) {
  while (phase_ == Phase::ready && !closedAt_ && !flight_) {
    if (clearUp(now)) return;
    if (queue_.empty()) return;
    Command command = queue_.pop();
    const Plan plan = planFor(command);
    if (plan.refusal.empty()) {
      send(now, std::move(command), plan.steps);
      continue;
    }
    noteOutcome(command.request, plan.refusal);
    if (command.awaited) {
      toAgent(qmp::errorLine(command.request.id, plan.refusal));
    } else {
      out_.problems.push_back(subjectOf(command.request) + ": " + plan.refusal);
    }
  }
}

Plan Relay::planFor(const Command& command) const {
  if (command.isOperators()) return {command.steps, {}};
  Plan plan = cards_.planFor(command.request);
  if (isHeld_ && command.request.execute == "cont") plan.steps.back() = {"stop", ""};
  return plan;
}

// Whether there was something to clear up, which QEMU was asked for now.
bool Relay::clearUp(Time now) {
  auto left = cards_.removalBefore(queue_.empty() ? nullptr : &queue_.front().request);
  if (!left) left = cards_.linkToSet();
  if (!left) return false;
  send(now, {std::move(left->request), {}, {}, false}, left->plan.steps);
  return true;
}

// A card stays without its netdev until it is attached anew.
void Relay::noteOutcome(const qmp::Request& request, const std::string& failure) {
  const bool isBinding = request.execute == "netdev_set";
  if (!isBinding && request.execute != "netdev_add") return;
  const auto netdev = request.texts.find(isBinding ? "netdevid" : "id");
  if (netdev == request.texts.end()) return;
  if (!failure.empty())
    standing_.emplace(netdev->second, subjectOf(request) + ": " + failure);  // the first is why
  else if (isBinding)
    standing_.erase(netdev->second);
}

void Relay::send(Time now, Command command, const std::vector<Step>& steps) {
  cards_.begin(command.request);
  if (const auto id = command.request.texts.find("id");
      command.request.execute == "netdev_add" && id != command.request.texts.end())
    standing_.erase(id->second);
  guestHasRun_ = guestHasRun_ || command.request.execute == "cont";
  const bool wasHeld = isHeld_;
  if (command.isPicture && command.wish) pictures_.begin(*command.wish);
  if (command.isOperators())
    isHeld_ = command.request.execute == "stop" || (isHeld_ && command.request.execute != "cont");
  // QEMU reads one byte a turn of its loop, so ids cost time. Its answers come in order, and one
  // command's at a time; but after what was no answer, who knows which the next one belongs to.
  std::optional<uint64_t> id;
  if (rubbish_ > 0) id = std::exchange(nextId_, nextId_ + steps.size());
  flight_ = Flight{{}, id, steps.size(), {}, now, false, wasHeld};
  for (const Step& step : steps) {
    Message line{qmp::requestLine(step.execute, step.arguments, id), {}};
    if (id) ++*id;
    line.descriptors = std::exchange(command.descriptors, {});
    out_.toQemu.push_back(std::move(line));
  }
  flight_->command = std::move(command);
}

Actions Relay::qemuSays(Time now, const std::string& text) {
  const auto saying = qmp::sayingFrom(text);
  if (!saying) {
    noteRubbish("QEMU sent what is no message: " + text.substr(0, shownRubbish));
    giveUpOnAnswer(now, "QEMU's answer is no QMP");
  } else if (saying->kind == Kind::greeting && phase_ == Phase::greeting) {
    greeting_ = text + "\r\n";
    out_.events.push_back({event::ready, {}, qmp::versionFrom(text), {}, {}});
    phase_ = Phase::negotiating;
    out_.toQemu.push_back({qmp::requestLine("qmp_capabilities", "", negotiationId), {}});
  } else if (saying->kind == Kind::result || saying->kind == Kind::refusal) {
    if (phase_ == Phase::negotiating && saying->id == negotiationId) {
      becomeReady(now);
    } else if (screen_.isAbout(*saying)) {
      takeAboutViewer(*saying);
    } else if (isAnswer(*saying)) {
      takeAnswer(now, *saying);
    } else if (!saying->id) {
      noteRubbish("QEMU complains: " + text.substr(0, shownRubbish));
    }
  } else if (auto event = eventFrom(*saying)) {
    pictures_.take(event->kind);
    removePictures();
    out_.events.push_back(std::move(*event));
  }
  return taken();
}

Actions Relay::qemuSaidTooMuch(Time now) {
  noteRubbish("QEMU sent a message that is too long");
  giveUpOnAnswer(now, "QEMU's answer is too long");
  return taken();
}

// It may have been the answer that is waited for, and then no other will come.
void Relay::giveUpOnAnswer(Time now, const char* why) {
  // Answers to card commands are short, and what QEMU did must not be guessed.
  if (!flight_ || Cards::isAbout(flight_->command.request.execute)) return;
  qmp::Saying answer;
  answer.kind = Kind::refusal;
  answer.value = R"({"class": "GenericError", "desc": )" + qmp::quoted(why) + "}";
  answer.description = why;
  takeAnswer(now, std::move(answer));
}

bool Relay::isAnswer(const qmp::Saying& saying) const {
  if (!flight_) return false;
  if (!flight_->firstId) return !saying.id;
  return saying.id == *flight_->firstId + flight_->answers.size();
}

void Relay::takeAnswer(Time now, qmp::Saying answer) {
  flight_->answers.push_back(std::move(answer));
  if (flight_->answers.size() == flight_->steps) finish(now);
}

void Relay::becomeReady(Time now) {
  phase_ = Phase::ready;
  if (connected_) toAgent(greeting_);
  startNext(now);
}

void Relay::finish(Time now) {
  Flight flight = std::move(*flight_);
  flight_.reset();
  cards_.end(flight.command.request, flight.answers);
  pictures_.end();
  removePictures();
  if (flight.late) {
    out_.log.push_back("QEMU answers again, after " + inSeconds(now - flight.sent));
    out_.events.push_back({event::answers, {}, {}, {}, {}});
    standing_.erase(silence);
  }
  const auto refusal =
      std::find_if(flight.answers.begin(), flight.answers.end(),
                   [](const qmp::Saying& answer) { return answer.kind == Kind::refusal; });
  noteOutcome(flight.command.request, refusal == flight.answers.end() ? "" : refusal->description);
  if (refusal != flight.answers.end() && flight.command.isOperators()) isHeld_ = flight.wasHeld;
  wishIsOver(flight.command, refusal == flight.answers.end() ? "" : refusal->description);
  reportFailures(flight);
  if (flight.command.awaited) toAgent(answerOf(flight));
  startNext(now);
}

void Relay::reportFailures(const Flight& flight) {
  const std::string& execute = flight.command.request.execute;
  const bool agentIsTold = flight.command.awaited && !Cards::alwaysSucceeds(execute);
  // A descriptor that became a netdev's is not there any more: no failure.
  if (agentIsTold || execute == "closefd" || !Cards::isAbout(execute)) return;
  for (const qmp::Saying& answer : flight.answers)
    if (answer.kind == Kind::refusal)
      out_.problems.push_back(subjectOf(flight.command.request) + ": " + answer.description);
}

std::string Relay::answerOf(const Flight& flight) const {
  const qmp::Request& request = flight.command.request;
  if (Cards::alwaysSucceeds(request.execute)) return qmp::returnLine(request.id);
  const qmp::Saying& answer = flight.answers.back();  // before it may stand what prepares it
  if (answer.value.size() > longestValue)
    return qmp::errorLine(request.id, "QEMU's answer is too long");
  if (answer.kind == Kind::refusal) return qmp::refusalLine(request.id, answer.value);
  return qmp::returnLine(request.id, request.execute == "query-chardev"
                                         ? qmp::withFileNames(answer.value, setup_.fileNames)
                                         : answer.value);
}

void Relay::answerInsteadOfQemu(Command& command) {
  wishIsOver(command, "QEMU does not answer; what it was asked for already it may still do");
  if (!std::exchange(command.awaited, false)) return;
  toAgent(Cards::isAbout(command.request.execute)
              ? qmp::returnLine(command.request.id)
              : qmp::errorLine(command.request.id, "QEMU does not answer"));
}

void Relay::qemuClosed(Time now) {
  if (!closedAt_) closedAt_ = now;
}

Time Relay::flightDeadline() const {
  // What is carried out later has its time from when it was sent.
  return flight_->command.awaited ? flight_->command.deadline
                                  : flight_->sent + setup_.patience.answer;
}

Actions Relay::timePassed(Time now) {
  if (!killed_ && phase_ != Phase::ready && now >= start_ + setup_.patience.greeting) {
    killed_ = true;
    out_.killQemu = "QEMU was not ready within " + inSeconds(setup_.patience.greeting);
  }
  if (!killed_ && closedAt_ && now >= *closedAt_ + setup_.patience.end) {
    killed_ = true;
    out_.killQemu = "QEMU closed its monitor but did not end";
  }
  if (flight_ && !flight_->late && now >= flightDeadline()) {
    flight_->late = true;
    standing_[silence] = "QEMU does not answer";
    out_.log.push_back("QEMU does not answer " + subjectOf(flight_->command.request));
    out_.events.push_back({event::silent, {}, subjectOf(flight_->command.request), {}, {}});
    answerInsteadOfQemu(flight_->command);
  }
  expireQueue(now);
  if (screen_.timePassed(now))
    out_.log.push_back("QEMU does not answer for one who wants to see the guest's screen");
  return taken();
}

void Relay::expireQueue(Time now) {
  auto& waiting = queue_.commands();
  for (auto at = waiting.begin(); at != waiting.end();) {
    const bool isCard = Cards::isAbout(at->request.execute);
    // A guest is let run however late: nobody would ask again, and what an agent left is cleared up
    // before it.
    const bool isKept = isCard || (at->request.execute == "cont" && !at->isOperators());
    const bool isOver = at->isWaitedFor() && now >= at->deadline;
    if (isOver || (isCard && isStalled())) answerInsteadOfQemu(*at);
    at = isOver && !isKept ? waiting.erase(at) : std::next(at);
  }
}

std::optional<Time> Relay::deadline() const {
  std::optional<Time> first;
  const auto consider = [&](Time time) { first = first ? std::min(*first, time) : time; };
  if (!killed_ && phase_ != Phase::ready) consider(start_ + setup_.patience.greeting);
  if (!killed_ && closedAt_) consider(*closedAt_ + setup_.patience.end);
  if (flight_ && !flight_->late) consider(flightDeadline());
  for (const Command& command : queue_.commands())
    if (command.isWaitedFor()) consider(command.deadline);
  if (const auto screen = screen_.deadline()) consider(*screen);
  return first;
}

Actions Relay::quit() { return tellQemu("quit"); }

Actions Relay::powerDown() {
  if (std::exchange(isHeld_, false)) {
    out_.log.push_back("lets the guest, which an operator has paused, run: it is to shut down");
    out_.toQemu.push_back({qmp::requestLine("cont", "", nextId_++), {}});
  }
  return tellQemu("system_powerdown");
}

// Its answer is nobody's, and known by its id.
Actions Relay::tellQemu(const char* execute) {
  out_.toQemu.push_back({qmp::requestLine(execute, "", nextId_++), {}});
  return taken();
}

Actions Relay::addViewer(Time now, rt::Descriptor viewer) {
  out_.toQemu.push_back(screen_.begin(now, std::move(viewer), nextId_));
  return taken();
}

void Relay::takeAboutViewer(const qmp::Saying& saying) {
  std::string log;
  for (Message& request : screen_.take(saying, nextId_, log))
    out_.toQemu.push_back(std::move(request));
  if (!log.empty()) out_.log.push_back(std::move(log));
}

void Relay::toAgent(const std::string& line) {
  if (connected_) out_.toAgent += line;
}

void Relay::noteRubbish(const std::string& what) {
  if (rubbish_++ < loggedRubbish) out_.log.push_back(what);
}

}  // namespace shim
