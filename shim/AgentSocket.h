// The monitor's socket, where the agent expects QEMU's.
#pragma once

#include <sys/stat.h>

#include <string>

#include "shim/Descriptor.h"

namespace shim {

// Listens from its construction on; throws Failure. What an earlier run left at the path goes.
class AgentSocket {
 public:
  explicit AgentSocket(std::string path);
  AgentSocket(const AgentSocket&) = delete;
  ~AgentSocket() { remove(); }

  const std::string& path() const { return path_; }
  int number() const { return socket_.number(); }
  // A connection that does not block; none when nobody waits any more.
  Descriptor accept() const;
  // Removes the path, unless it is another's by now.
  void remove() const;

 private:
  const std::string path_;
  Descriptor socket_;
  struct stat own_ {};
};

}  // namespace shim
