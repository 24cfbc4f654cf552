// All processes of a machine: their beginnings and ends.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/kernel/Inode.h"
#include "sim/kernel/Process.h"

namespace sim {

// How the last of a process goes.
struct EndManners {
  // Between the closing of two of its descriptors, and before its parent is told; 0: at once.
  std::function<Duration(const Process&)> gap;
  // Whether its descriptors are closed from the last to the first.
  std::function<bool(const Process&)> closesLastFirst;
};

class Processes {
 public:
  Processes() = default;
  Processes(const Processes&) = delete;

  // A child of init's with that program. The standard descriptors are /dev/null.
  Process& spawn(const std::string& path, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment);

  // Null when there is none of that number.
  std::shared_ptr<Process> find(pid_t pid) const;
  const std::map<pid_t, std::shared_ptr<Process>>& all() const { return all_; }
  std::shared_ptr<Process> sharedOf(const Process& process) const { return find(process.pid); }

  // As the calls of these names; of the current process.
  pid_t fork();
  // Returns only when it fails, and why.
  Result exec(const std::string& path, const std::vector<std::string>& arguments,
              const std::vector<std::string>& environment);
  [[noreturn]] void exit(int status);

  // A signal comes.
  void signal(Process& process, const SignalInfo& info);
  // What waits for the current process is done: it may be its end.
  void deliver();
  // It ends now, wherever it is; `waitStatus`: as waitpid() tells. Returns, unless it is the
  // current one.
  void end(Process& process, int waitStatus);
  // The parent has asked for it; its number is free.
  void reap(Process& process);

  // All end without a trace, as when the power fails.
  void endAll();

  EndManners manners;
  pid_t mostPid = 30000;
  // Told of each end, with its wait status, before anything of it is gone.
  std::vector<std::function<void(const Process&, int waitStatus)>> ending;
  // Told of each signal that a process, or the kernel, sends.
  std::function<void(const Process& target, int signal)> signaling;
  // Asked at each fork; returns -errno to have it fail.
  std::function<Result()> forking;
  // Told of each program that is run.
  std::function<void(Process&)> started;

 private:
  std::shared_ptr<Process> make(Process* parent);
  pid_t freeNumber();
  void begin(Process& process, const std::string& path, const InodePtr& file,
             const std::vector<std::string>& arguments,
             const std::vector<std::string>& environment);
  pid_t beginChild(Process& parent, const std::shared_ptr<Fiber>& fiber);
  int numbersLeft() const;
  void closeNext(const std::shared_ptr<Process>& process, int waitStatus, bool lastFirst);
  void conclude(Process& process, int waitStatus);
  void goOn(Process& process);
  void call(const struct sigaction& action, int number);

  std::map<pid_t, std::shared_ptr<Process>> all_;
  pid_t last_ = 100;
};

// Closes one of a process' descriptors: the process' locks on that file go with it. -EBADF.
Result closeDescriptor(Process& process, int number);

}  // namespace sim
