#include "shim/keep/Keeper.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "guest/EventWords.h"
#include "shim/base/Failure.h"
#include "shim/box/Rights.h"
#include "shim/keep/DiskImage.h"
#include "shim/keep/QemuProcess.h"
#include "shim/keep/Sender.h"

namespace shim {

namespace {

namespace event = guest::event;

constexpr size_t logSize = 256 * 1024;
constexpr size_t longestRequest = 64 * 1024;
// Longer than any answer that is passed on, so that what QEMU says is understood first.
constexpr size_t longestSaying = 256 * 1024;
// An agent that does not take its answers gets no further ones.
constexpr size_t mostUnsent = 64 * 1024;
// How many reads a dead QEMU's last words are worth.
constexpr int mostReads = 256;

// A stream of ours and its other end, which is QEMU's.
std::pair<rt::Descriptor, rt::Descriptor> streamPair() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw failureOf("a stream to QEMU could not be made");
  std::pair<rt::Descriptor, rt::Descriptor> pair{rt::Descriptor(ends[0]), rt::Descriptor(ends[1])};
  (void)fcntl(ends[0], F_SETFL, O_NONBLOCK);  // QEMU sets its end by itself
  return pair;
}

std::pair<rt::Descriptor, rt::Descriptor> outputPipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw failureOf("a pipe for QEMU's output could not be made");
  std::pair<rt::Descriptor, rt::Descriptor> pair{rt::Descriptor(ends[0]), rt::Descriptor(ends[1])};
  (void)fcntl(ends[0], F_SETFL, O_NONBLOCK);
  return pair;
}

std::vector<DiskImage> openImages(const CommandLine& line, const Environment& environment) {
  std::vector<DiskImage> images;
  for (const Drive& drive : line.drives)
    images.push_back(openDiskImage(drive, environment.imageFormat));
  return images;
}

std::vector<int> numbersOf(const std::vector<DiskImage>& images) {
  std::vector<int> numbers;
  for (const DiskImage& image : images)
    for (const rt::Descriptor& each : image.descriptors) numbers.push_back(each.number());
  return numbers;
}

Box boxOf(const Environment& environment, const Facts& facts, const GuestUser& user) {
  Box box{user.number(), {environment.qemu, qemusFiles(), std::nullopt}};
  box.root.readable.insert(box.root.readable.end(), environment.qemuReads.begin(),
                           environment.qemuReads.end());
  if (const auto device = kvmDevice(); device && usesKvm(facts, environment.policy))
    box.root.kvm = {*device, user.number()};
  return box;
}

std::string describe(int status) {
  if (WIFSIGNALED(status)) return "QEMU was ended by signal " + std::to_string(WTERMSIG(status));
  return "QEMU ended with status " + std::to_string(WEXITSTATUS(status));
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

}  // namespace

Time now() {
  return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

sigset_t keeperSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&signals, signal);
  return signals;
}

Keeper::Keeper(const Environment& environment, const CommandLine& line, const std::string& argv0,
               const VmDirectory& directory, VmLock& lock, std::unique_ptr<ListeningSocket> socket,
               const Parent& parent)
    : name_(line.name),
      line_(line),
      stopTimeout_(environment.stopTimeout),
      directory_(directory),
      lock_(lock),
      user_(directory.sharedPlace(guest::guestUsersFile), environment.guestUsers),
      group_(environment.group),
      socket_(std::move(socket)),
      log_(directory.place(guest::shimLog), logSize),
      events_(directory.place(guest::eventsFile)),
      daemonPid_(parent.pid()),
      daemon_(parent.process()),
      succession_(static_cast<bool>(daemon_)) {
  const sigset_t set = keeperSignals();
  signals_.reset(signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC));
  if (!signals_) throw failureOf("signals cannot be read");
  directory_.problemIs("");
  control_ = std::make_unique<ControlServer>(
      directory_.place(guest::shimSocket),
      ControlServer::Answers{
          [this] {
            return control::greetingLine({guest::shimProtocol, name_, getpid(), pid_, state()});
          },
          [this](ControlServer::Client client, const control::Request& request,
                 rt::Descriptors descriptors) {
            return answer(client, request, std::move(descriptors));
          }});
  start(environment, line, argv0);
}

void Keeper::start(const Environment& environment, const CommandLine& line,
                   const std::string& argv0) {
  auto [monitor, qemuMonitor] = streamPair();
  auto [serial, qemuSerial] = streamPair();
  auto [reading, writing] = outputPipe();
  output_ = std::move(reading);
  qemu_ = std::make_unique<Wire>(std::move(monitor), longestSaying);
  console_ = std::make_unique<Console>(std::move(serial), directory_.place(guest::consoleLog),
                                       directory_.place(guest::consoleSocket));
  // One of an earlier run would show a screen that is served elsewhere.
  directory_.fileDel(guest::screenSocket);
  if (line.screen)
    screen_ =
        environment.screenAddress.empty()
            ? std::make_unique<ListeningSocket>(directory_.place(guest::screenSocket), "screen")
            : screenAt(environment.screenAddress, *line.screen);
  RelaySetup setup;
  for (const Card& card : line.cards) setup.cards.push_back(card.id);
  setup.fileNames = {{"serial0", "pty:" + console_->terminal()},
                     {"monitor", "unix:" + socket_->path() + ",server=on"}};
  relay_ = std::make_unique<Relay>(now(), std::move(setup));

  // Last, so that nothing becomes of what is found here but QEMU. Its copies are the only ones
  // then.
  const std::vector<DiskImage> images = openImages(line, environment);
  const Facts facts{isKvmUsable(), driveFiles(line.drives, images, firstImageDescriptor)};
  std::vector<std::string> argv = rewrittenArguments(line, facts, environment.policy);
  argv.insert(argv.begin(), argv0);
  pid_ = startQemu(boxOf(environment, facts, user_), group_, argv,
                   {qemuMonitor.number(), qemuSerial.number(), lock_.number(), writing.number(),
                    numbersOf(images)});
  // To end QEMU, which is another user's, is all that is left to do as root.
  keepOnlyRights({CAP_KILL});
  for (const auto& [path, file] : facts.images) {
    imageNames_[fdSetName(file.set)] = path;
    log_.write(logLine(
        "shim", fdSetName(file.set) + " is " + path + ", a disk image, opened as " + file.format));
  }
  log_.write(logLine("shim", "process " + std::to_string(pid_) + " is " + environment.qemu +
                                 ", of user " + std::to_string(user_.number()) +
                                 ", started as: " + joined(argv)));
  events_.tell({event::started, {}, environment.qemu, {}, {{"pid", pid_}}});
}

int Keeper::run() {
  while (!status_) {
    std::vector<pollfd> waiting = polled();
    if (poller_.wait(waiting, timeout()) < 0 && errno != EINTR) throw failureOf("poll");
    handle(waiting);
    passTime();
  }
  group_.endRest();
  collectRest();
  writeEnd();
  directory_.problemIs("");
  log_.write(logLine("shim", describe(*status_)));
  leaveSocket();
  tellOfEnd();
  return *status_;
}

std::vector<pollfd> Keeper::polled() {
  const auto entry = [](int number, int events) {
    return pollfd{number, static_cast<short>(events), 0};
  };
  constexpr size_t usual = 16;
  std::vector<pollfd> waiting;
  waiting.reserve(usual);
  // One agent at a time: another waits until the one before has closed.
  waiting.push_back(entry(agent_ ? -1 : socket_->number(), POLLIN));
  waiting.push_back(agent_ ? entry(agent_->number(), (agent_->unsent() < mostUnsent ? POLLIN : 0) |
                                                         (agent_->isBlocked() ? POLLOUT : 0))
                           : entry(-1, 0));
  waiting.push_back(
      entry(qemu_->isClosed() ? -1 : qemu_->number(), POLLIN | (qemu_->isBlocked() ? POLLOUT : 0)));
  waiting.push_back(entry(signals_.number(), POLLIN));
  waiting.push_back(entry(output_.number(), POLLIN));
  waiting.push_back(entry(succession_.mayBeTakenOver() ? -1 : daemon_.number(), POLLIN));
  waiting.push_back(entry(screen_ && relay_->takesViewer() ? screen_->number() : -1, POLLIN));
  console_->addTo(waiting);
  controlPlace_ = waiting.size();
  control_->addTo(waiting);
  return waiting;
}

int Keeper::timeout() const {
  std::optional<Time> first = relay_->deadline();
  for (const auto other : {stop_.deadline(), succession_.deadline()})
    if (other) first = first ? std::min(*first, *other) : *other;
  if (const auto left = events_.timeLeft())
    first = std::min(first.value_or(Time::max()), now() + Duration(*left));
  if (!first) return -1;
  return static_cast<int>(std::clamp<Time::rep>((*first - now()).count(), 0, 3'600'000));
}

void Keeper::handle(const std::vector<pollfd>& polled) {
  const auto came = [&](Entry entry) { return polled[entry].revents != 0; };
  if (came(output)) receiveOutput();
  if (came(qemu)) {
    qemu_->flush();
    receiveFromQemu();
  }
  if (came(agent)) {
    agent_->flush();
    receiveFromAgent();
  }
  if (came(listener)) acceptAgent();
  if (came(screen)) acceptViewer();
  console_->ready(&polled[console]);
  if (came(daemon)) handleDaemonsEnd();
  control_->ready(&polled[controlPlace_]);
  lookForSuccessor();
  if (came(signals)) handleSignals();
}

void Keeper::handleSignals() {
  signalfd_siginfo told{};
  while (read(signals_.number(), &told, sizeof told) == sizeof told) {
    if (told.ssi_signo != SIGCHLD) {
      handleEndingSignal(told.ssi_signo, static_cast<pid_t>(told.ssi_pid));
      continue;
    }
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      lock_.endKeeping();
      status_ = status;
      return;  // the process id is nobody's now
    }
  }
}

// The daemon knows why it wants the guest to end; of anybody else it must be told.
void Keeper::handleEndingSignal(unsigned signal, pid_t sender) {
  const std::string text = signalText(signal, sender);
  log_.write(logLine("shim", "told to end the guest, by " + text));
  if (sender != daemonPid_ && !stop_.hasBegun()) endedBy_ = endedByText(text, name_);
  events_.tell({event::toldToEnd, sender == daemonPid_ ? "daemon" : "stranger", text, {}, {}});
  stop(stop_.atOnce(now(), guest()));
}

StopPlan::Guest Keeper::guest() const { return {relay_->isReady(), relay_->guestHasRun()}; }

void Keeper::stop(StopStep step) {
  if (step == StopStep::none) return;
  lock_.endKeeping();
  switch (step) {
    case StopStep::none:
      break;
    case StopStep::powerDown:
      log_.write(logLine("shim", "presses the guest's power button"));
      events_.tell({event::askedToEnd, {}, {}, {}, {}});
      perform(relay_->powerDown());
      break;
    case StopStep::quit:
      log_.write(logLine("shim", "asks QEMU to quit"));
      events_.tell({event::quit, {}, {}, {}, {}});
      perform(relay_->quit());
      break;
    case StopStep::terminate:
      log_.write(logLine("shim", "sends SIGTERM to QEMU"));
      events_.tell({event::terminated, {}, {}, {}, {}});
      kill(pid_, SIGTERM);
      break;
    case StopStep::kill:
      log_.write(logLine("shim", "kills QEMU"));
      events_.tell({event::killed, {}, {}, {}, {}});
      kill(pid_, SIGKILL);
      break;
  }
}

void Keeper::acceptAgent() {
  rt::Descriptor connection = socket_->accept();
  if (!connection) return;
  agent_ = std::make_unique<Wire>(std::move(connection), longestRequest);
  perform(relay_->agentConnected());
}

// Whoever may connect to the socket sees the guest's screen and has its keyboard.
void Keeper::acceptViewer() {
  if (rt::Descriptor viewer = screen_->accept())
    perform(relay_->addViewer(now(), std::move(viewer)));
}

void Keeper::receiveFromAgent() {
  for (Message& message : agent_->receive()) perform(relay_->agentSays(now(), std::move(message)));
  if (!agent_->isClosed()) return;
  agent_.reset();
  perform(relay_->agentGone());
}

void Keeper::receiveFromQemu() {
  for (const Message& message : qemu_->receive()) perform(relay_->qemuSays(now(), message.text));
  for (; qemuDropped_ < qemu_->dropped(); ++qemuDropped_) perform(relay_->qemuSaidTooMuch(now()));
  if (qemu_->isClosed()) relay_->qemuClosed(now());
}

bool Keeper::receiveOutput() {
  char bytes[4096];
  const ssize_t count = read(output_.number(), bytes, sizeof bytes);
  if (count > 0) {
    logLines(lines_.take({bytes, static_cast<size_t>(count)}));
    return true;
  }
  if (count == 0) output_.reset();
  return false;
}

void Keeper::passTime() {
  if (status_) return;
  perform(relay_->timePassed(now()));
  stop(stop_.timePassed(now(), guest()));
  events_.timePassed();
  if (succession_.timePassed(now())) {
    log_.write(logLine("shim", "ends the guest, whose daemon has lost it"));
    stop(stop_.atOnce(now(), guest()));
  }
  showProblems();
}

void Keeper::perform(Actions actions) {
  for (const std::string& line : actions.log) log_.write(logLine("shim", line));
  for (const std::string& line : actions.problems) log_.write(logLine("problem", line));
  for (const GuestEvent& event : actions.events) events_.tell(event);
  stillPicture_.stillnessIs(relay_->stillness());
  for (const Actions::Outcome& outcome : actions.outcomes) tellOutcome(outcome);
  for (Message& message : actions.toQemu) qemu_->send(std::move(message));
  if (agent_ && !actions.toAgent.empty()) agent_->send({std::move(actions.toAgent), {}});
  if (actions.killQemu.empty() || status_) return;
  killedFor_ = actions.killQemu;
  log_.write(logLine("shim", killedFor_ + ": it is killed"));
  events_.tell({event::killed, {}, killedFor_, {}, {}});
  lock_.endKeeping();
  kill(pid_, SIGKILL);
}

void Keeper::logLines(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) log_.write(logLine("qemu", withNames(line, imageNames_)));
}

void Keeper::collectRest() {
  for (int i = 0; i < mostReads && output_ && receiveOutput(); ++i) {
  }
  logLines(lines_.end());
  for (int i = 0; i < mostReads && !qemu_->isClosed(); ++i) receiveFromQemu();
  console_->drain();
  if (agent_) agent_->flush();
}

std::string Keeper::causeOfEnd(const std::optional<GuestGroup::Memory>& memory) const {
  if (memory && memory->wasTooMuch)
    return "ended by the memory limit of " + std::to_string(memory->limit) + " MiB";
  if (!endedBy_.empty()) return endedBy_;
  if (!killedFor_.empty()) return killedFor_;
  return lines_.last().empty() ? describe(*status_) : withNames(lines_.last(), imageNames_);
}

void Keeper::writeEnd() {
  const auto memory = group_.memory();
  const bool wasTooMuch = memory && memory->wasTooMuch;
  const std::string cause = causeOfEnd(memory);
  if (memory && memory->peak != 0)
    log_.write(logLine("shim", "QEMU had " + std::to_string(memory->peak) + " MiB at most, of " +
                                   std::to_string(memory->limit)));
  const bool bySignal = WIFSIGNALED(*status_);
  events_.tell(
      {event::end,
       wasTooMuch ? std::string(event::memoryLimit) : std::string(),
       cause,
       {},
       {{bySignal ? "signal" : "exit", bySignal ? WTERMSIG(*status_) : WEXITSTATUS(*status_)}}});
  // A guest that ended as it should has nothing to say, whatever was warned of meanwhile.
  const bool ended = WIFEXITED(*status_) && WEXITSTATUS(*status_) == 0;
  if (endedBy_.empty() && (ended || stop_.hasBegun())) return;
  directory_.lastErrorIs(cause);
}

}  // namespace shim
