#include "sim/kernel/Processes.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "sim/kernel/AtExit.h"
#include "sim/kernel/InodeFile.h"
#include "sim/kernel/Machine.h"

namespace sim {

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& each : texts) pointers.push_back(each.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The program's main(), on a stack of its own.
void runProgram(Process& process) {
  const int argc = static_cast<int>(process.arguments.size());
  const int status = process.program->program(argc, process.argumentPointers.data());
  runAtExit(process);
  machine().processes.exit(status);
}

}  // namespace

Result closeDescriptor(Process& process, int number) {
  const FilePtr file = process.descriptors.take(number);
  if (!file) return -EBADF;
  if (const InodePtr inode = file->inode()) inode->locks.drop(process);
  return 0;
}

int Processes::numbersLeft() const { return mostPid - 2 - static_cast<int>(all_.size()); }

pid_t Processes::freeNumber() {
  do {
    last_ = last_ >= mostPid ? 2 : last_ + 1;
  } while (all_.contains(last_));
  return last_;
}

std::shared_ptr<Process> Processes::make(Process* parent) {
  const auto process = std::make_shared<Process>(freeNumber(), parent);
  process->started = machine().now();
  all_[process->pid] = process;
  if (parent) parent->children.push_back(process.get());
  return process;
}

std::shared_ptr<Process> Processes::find(pid_t pid) const {
  const auto found = all_.find(pid);
  return found == all_.end() ? nullptr : found->second;
}

Process& Processes::spawn(const std::string& path, const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment) {
  Process& process = *make(nullptr);
  process.group = process.session = process.pid;
  process.directory = machine().files.root();
  const InodePtr file = machine().files.at(path);
  if (!file || !file->program) throw std::logic_error("no program: " + path);
  for (int number = 0; number < 3; ++number) {
    const auto null = std::make_shared<Device>(Device::Kind::null, machine().files.at("/dev/null"));
    null->flags = O_RDWR;
    process.descriptors.set(number, null, false);
  }
  begin(process, path, file, arguments, environment);
  return process;
}

// The child's first turn begins here, too.
pid_t Processes::fork() {
  Process& parent = *machine().scheduler.current();
  for (auto at = parent.atFork.rbegin(); at != parent.atFork.rend(); ++at)
    if (at->prepare) at->prepare();
  Result error = forking ? forking() : 0;
  if (numbersLeft() == 0) error = -EAGAIN;
  const auto fiber = error == 0 ? parent.fiber->fork() : nullptr;
  if (fiber || error != 0) {
    for (const Process::AtFork& each : parent.atFork)
      if (each.inParent) each.inParent();
    return error != 0 ? static_cast<pid_t>(error) : beginChild(parent, fiber);
  }
  for (const Process::AtFork& each : machine().scheduler.current()->atFork)
    if (each.inChild) each.inChild();
  return 0;
}

pid_t Processes::beginChild(Process& parent, const std::shared_ptr<Fiber>& fiber) {
  Process& child = *make(&parent);
  child.group = parent.group;
  child.session = parent.session;
  child.environment = environ;
  child.arguments = parent.arguments;
  child.environmentTexts = parent.environmentTexts;
  child.atExit = parent.atExit;
  child.atFork = parent.atFork;
  child.descriptors = parent.descriptors;
  child.signals.mask = parent.signals.mask;
  for (int number = 1; number < NSIG; ++number)
    child.signals.action(number) = parent.signals.action(number);
  child.directory = parent.directory;
  child.root = parent.root;
  child.hasOwnMounts = parent.hasOwnMounts;
  child.user = parent.user;
  child.program = parent.program;
  child.programPath = parent.programPath;
  child.umask = parent.umask;
  child.outOfMemoryScore = parent.outOfMemoryScore;
  child.limits = parent.limits;
  child.name = parent.name;
  child.priority = parent.priority;
  child.image.take();
  child.fiber = fiber;
  child.holds = sharedOf(parent);
  parent.held = true;
  machine().scheduler.ready(child);
  const pid_t pid = child.pid;
  machine().scheduler.yield();
  return pid;
}

Result Processes::exec(const std::string& path, const std::vector<std::string>& arguments,
                       const std::vector<std::string>& environment) {
  Process& process = *machine().scheduler.current();
  const Found found =
      machine().files.find(path, process.directory, LastLink::followed, process.root);
  if (found.error) return found.error;
  if (!found.inode) return -ENOENT;
  if (found.inode->isDirectory() || (found.inode->mode & 0111U) == 0) return -EACCES;
  if (!found.inode->program) return -ENOEXEC;
  for (const int number : process.descriptors.numbers())
    if (process.descriptors.slot(number)->closedByExec) closeDescriptor(process, number);
  process.signals.handleExec();
  process.atExit.clear();
  process.atFork.clear();
  begin(process, path, found.inode, arguments, environment);
  Fiber::running()->leave();
  std::abort();
}

void Processes::begin(Process& process, const std::string& path, const InodePtr& file,
                      const std::vector<std::string>& arguments,
                      const std::vector<std::string>& environment) {
  machine().scheduler.bury(process);
  process.program = file;
  process.programPath = path;
  process.arguments = arguments;
  process.environmentTexts = environment;
  process.argumentPointers = pointersTo(process.arguments);
  process.environmentPointers = pointersTo(process.environmentTexts);
  process.environment = process.environmentPointers.data();
  process.image = ProductImage::fresh();
  process.fiber = std::make_shared<Fiber>([&process] { runProgram(process); });
  process.name = arguments.empty() ? "?" : arguments.front();
  if (started) started(process);
  machine().scheduler.ready(process);
}

void Processes::exit(int status) {
  constexpr int statusMask = 0xff;
  end(*machine().scheduler.current(), W_EXITCODE(status & statusMask, 0));
  std::abort();
}

void Processes::end(Process& process, int waitStatus) {
  if (!process.lives()) return;
  const auto alive = sharedOf(process);
  for (const auto& each : ending) each(process, waitStatus);
  const bool isCurrent = machine().scheduler.current() == &process;
  process.state = Process::State::dying;
  machine().scheduler.bury(process);
  closeNext(alive, waitStatus, manners.closesLastFirst && manners.closesLastFirst(process));
  if (isCurrent) Fiber::running()->leave();
}

// One after the other, all at once unless there is a gap.
void Processes::closeNext(const std::shared_ptr<Process>& process, int waitStatus, bool lastFirst) {
  while (true) {
    const std::vector<int> left = process->descriptors.numbers();
    if (!left.empty()) closeDescriptor(*process, lastFirst ? left.back() : left.front());
    const Duration gap = manners.gap ? manners.gap(*process) : Duration::zero();
    if (gap > Duration::zero()) {
      machine().scheduler.after(gap, [this, process, waitStatus, lastFirst] {
        if (process->state != Process::State::dying) return;
        if (process->descriptors.numbers().empty())
          conclude(*process, waitStatus);
        else
          closeNext(process, waitStatus, lastFirst);
      });
      return;
    }
    if (process->descriptors.numbers().empty()) return conclude(*process, waitStatus);
  }
}

void Processes::conclude(Process& process, int waitStatus) {
  process.state = Process::State::zombie;
  process.waitStatus = waitStatus;
  for (Process* const child : std::exchange(process.children, {})) {
    const auto alive = sharedOf(*child);  // its signal may end it
    child->parent = nullptr;
    const bool isOver = child->state == Process::State::zombie;
    if (child->deathSignal != 0) signal(*child, {child->deathSignal, 0, 0});
    if (isOver) reap(*child);
  }
  process.ended.wake();
  Process* const parent = process.parent;
  if (!parent) return reap(process);
  if (parent->signals.action(SIGCHLD).sa_handler == SIG_IGN) {
    reap(process);
  } else {
    signal(*parent, {SIGCHLD, process.pid, waitStatus});
  }
  parent->childEnded.wake();
}

void Processes::reap(Process& process) {
  if (process.parent) {
    auto& siblings = process.parent->children;
    siblings.erase(std::remove(siblings.begin(), siblings.end(), &process), siblings.end());
  }
  all_.erase(process.pid);
}

void Processes::signal(Process& process, const SignalInfo& info) {
  if (!process.lives()) return;
  if (signaling && info.sender != 0) signaling(process, info.number);
  if (info.number == SIGCONT && process.stopped) goOn(process);
  const Signals::Fate fate = process.signals.fateOf(info.number);
  // What comes to one that is stopped waits until it goes on.
  const bool waits = process.stopped && info.number != SIGKILL && fate != Signals::Fate::ignored;
  switch (waits ? Signals::Fate::waits : fate) {
    case Signals::Fate::ignored:
      return;
    case Signals::Fate::ends:
      return end(process, info.number);
    case Signals::Fate::stops:
      process.stopped = true;
      machine().scheduler.hold(process);
      return;
    case Signals::Fate::waits:
      process.signals.add(info);
      return;
    case Signals::Fate::calls:
      process.signals.add(info);
      if (process.state == Process::State::sleeping && process.sleep.canBeInterrupted)
        machine().scheduler.wake(process, Sleep::End::interrupted);
      return;
  }
}

void Processes::goOn(Process& process) {
  process.stopped = false;
  if (process.state == Process::State::ready) machine().scheduler.ready(process);
  while (const auto waiting = process.signals.takeUnblocked()) {
    signal(process, *waiting);
    if (process.signals.fateOf(waiting->number) == Signals::Fate::calls) return;
  }
}

void Processes::deliver() {
  Process& process = *machine().scheduler.current();
  while (const auto info = process.signals.takeUnblocked()) {
    switch (process.signals.fateOf(info->number)) {
      case Signals::Fate::ends:
        end(process, info->number);
        break;
      case Signals::Fate::calls:
        call(process.signals.action(info->number), info->number);
        break;
      case Signals::Fate::stops:
        process.stopped = true;
        machine().scheduler.yield();
        break;
      case Signals::Fate::ignored:
      case Signals::Fate::waits:
        break;
    }
  }
}

void Processes::call(const struct sigaction& action, int number) {
  Signals& signals = machine().scheduler.current()->signals;
  const sigset_t before = signals.mask;
  sigaddset(&signals.mask, number);
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    siginfo_t info{};
    info.si_signo = number;
    action.sa_sigaction(number, &info, nullptr);
  } else {
    action.sa_handler(number);
  }
  signals.mask = before;
}

void Processes::endAll() {
  const auto all = all_;
  for (const auto& [pid, process] : all) {
    machine().scheduler.bury(*process);
    process->state = Process::State::dying;
    process->parent = nullptr;
    process->children.clear();
    for (const int number : process->descriptors.numbers()) closeDescriptor(*process, number);
    process->state = Process::State::zombie;
    process->ended.wake();
  }
  all_.clear();
}

}  // namespace sim
