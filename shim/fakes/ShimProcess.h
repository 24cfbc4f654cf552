// A shim as a process, and an agent at its socket. On the real system and in real time: each wait
// ends with what is waited for, and has a bound.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "runtime/base/Descriptor.h"

namespace shim::fakes {

// How long anything may take on a busy machine, in milliseconds.
inline constexpr int amplePatience = 20'000;

// Whether it becomes so in time. For what nothing tells of: it is looked at again and again.
bool comesTrue(const std::function<bool()>& condition);

// The agent's command line for a VM of that name, with so many cards.
std::vector<std::string> agentArguments(const std::string& name, const std::string& monitorPath,
                                        const std::string& disk, int cards = 0);

// A socket that listens there and is inherited, as a daemon has it for the shim that it starts.
rt::Descriptor listenerAt(const std::string& path);

// A shim, started as the agent starts its QEMU: it inherits one end of a pipe, and the end of the
// pipe tells of its end. Killed with this.
class ShimProcess {
 public:
  // `environment` is added to ours.
  ShimProcess(const std::string& program, const std::vector<std::string>& arguments,
              const std::map<std::string, std::string>& environment);
  ShimProcess(const ShimProcess&) = delete;
  ~ShimProcess();

  pid_t pid() const { return pid_; }
  // The one child it has; 0 for none.
  pid_t qemu() const;
  void signal(int number) const;
  // The pipe's end: the shim has closed it.
  const rt::Descriptor& pipe() const { return pipe_; }
  // Its wait status, once the pipe has ended; -1 when that takes too long.
  int wait();
  // What it wrote on its standard error, after wait().
  std::string errors() const;

 private:
  pid_t pid_ = 0;
  rt::Descriptor pipe_;
  rt::Descriptor errors_;
};

// An agent's side of a monitor session.
class AgentClient {
 public:
  // Tries until somebody listens.
  explicit AgentClient(const std::string& path);

  // The next line, without its end; empty when none comes, or the stream ends.
  std::string line();
  // Sends a request, with a descriptor if there is one; its answer.
  std::string ask(const std::string& request, int descriptor = -1);
  // The session's begin, up to a guest that runs.
  void bringUp();
  // The agent's requests that give a card a tap, and that take it away; the answers.
  std::vector<std::string> attach(int card, int tap);
  std::vector<std::string> detach(int card);
  // The console's path, as query-chardev tells it.
  std::string console();
  const rt::Descriptor& socket() const { return socket_; }

 private:
  rt::Descriptor socket_;
  std::string unread_;
};

// Reads from the descriptor until `wanted` is among what came; all that came.
std::string readUntil(const rt::Descriptor& from, const std::string& wanted);
// Whether the descriptor becomes readable, or its stream ends, in time.
bool becomesReadable(int number, int milliseconds = amplePatience);
// Signals that process. A number that is none of a process signals nobody (to kill() it would mean
// many), and is false.
bool signalProcess(pid_t pid, int number);
// Whether the process is gone in time.
bool ends(pid_t pid);
// Whether the file comes to have that text in it in time.
bool comesToHold(const std::string& path, const std::string& text);

}  // namespace shim::fakes
