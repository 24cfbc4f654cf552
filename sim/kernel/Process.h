// A process of the model, and what it has.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/Time.h"
#include "sim/fiber/Fiber.h"
#include "sim/fiber/ProductImage.h"
#include "sim/kernel/File.h"
#include "sim/kernel/Signals.h"
#include "sim/kernel/Timers.h"

namespace sim {

class Inode;

// What a process waits for while it sleeps.
struct Sleep {
  enum class End { none, woken, timedOut, interrupted };

  void forget(const WaitQueue& queue);

  std::vector<WaitQueue*> queues;
  bool canBeInterrupted = true;
  End end = End::none;
  std::optional<TimerId> timer;
  const char* call = "";  // that sleeps
  Time since{};
};

// What a process runs. Returns its exit status.
using Program = std::function<int(int argc, char** argv)>;

// Owned by Processes. Public, for it is a record: Processes and the calls keep it.
class Process {
 public:
  enum class State {
    ready,     // runs, or may
    sleeping,  // until something changes or is due
    dying,     // its descriptors are being closed
    zombie,    // until its parent asks
  };

  Process(pid_t number, Process* parentProcess) : pid(number), parent(parentProcess) {}
  Process(const Process&) = delete;

  bool lives() const { return state != State::dying && state != State::zombie; }
  // Has it look again at what it sleeps for.
  void wake();

  const pid_t pid;
  Process* parent;  // null: init's
  std::vector<Process*> children;
  pid_t group = 0;
  pid_t session = 0;
  Time started{};  // by its fork

  State state = State::ready;
  bool stopped = false;  // by SIGSTOP
  // A forked child shares its parent's heap here. So the parent waits until the child has a program
  // of its own, has ended, or sleeps.
  bool held = false;
  std::weak_ptr<Process> holds;
  Sleep sleep;
  int waitStatus = 0;  // of a zombie
  WaitQueue ended;     // for who holds a descriptor of it
  WaitQueue childEnded;

  std::shared_ptr<Fiber> fiber;
  ProductImage image;
  char** environment = nullptr;
  // Copies that exec has made, and what main() is given.
  std::vector<std::string> arguments;
  std::vector<std::string> environmentTexts;
  std::vector<char*> argumentPointers;
  std::vector<char*> environmentPointers;
  struct AtExit {
    void (*run)(void*);
    void* argument;
  };
  std::vector<AtExit> atExit;
  struct AtFork {
    void (*prepare)();
    void (*inParent)();
    void (*inChild)();
  };
  std::vector<AtFork> atFork;

  Descriptors descriptors;
  Signals signals;
  std::shared_ptr<Inode> directory;  // where relative paths begin
  std::shared_ptr<Inode> root;       // where absolute ones do; null: at the machine's
  bool hasOwnMounts = false;
  std::shared_ptr<Inode> draft;  // a file system of its own, and where it is mounted
  std::string draftPlace;
  uid_t user = 0;
  std::shared_ptr<Inode> program;  // the file that it runs
  std::string programPath;
  unsigned umask = 022;
  int deathSignal = 0;
  int outOfMemoryScore = 0;
  std::map<int, rlimit> limits;

  // For who watches.
  std::string name;  // of the program, and of its VM if it has one
  uint64_t callsSinceSleep = 0;
  uint64_t calls = 0;
  uint64_t priority = 0;  // among those that may run
};

}  // namespace sim
