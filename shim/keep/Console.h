// The guest's serial line: logged, and offered as a terminal.
#pragma once

#include <poll.h>

#include <string>
#include <vector>

#include "runtime/base/Descriptor.h"
#include "shim/decide/PtyBacklog.h"
#include "shim/keep/BoundedLog.h"
#include "shim/keep/Viewers.h"

namespace shim {

// Owns the line's end, always reads it, and so never holds the guest up. What comes goes to the log
// and to a pty, which keeps its newest bytes while nobody reads it. What is typed at the pty goes
// to the guest as fast as the guest takes it. Further viewers come by a socket.
class Console {
 public:
  // `line` must not block. The pty gets the group of the socket's directory, and mode 0660. Throws
  // Failure when there can be no pty, or no socket.
  Console(rt::Descriptor line, Place log, const Place& socket);

  // The pty's path.
  const std::string& terminal() const { return terminal_; }

  // Adds what to wait for; the same entries in ready().
  void addTo(std::vector<pollfd>& polled);
  void ready(const pollfd* polled);
  // QEMU has ended: what it left on the line is taken.
  void drain();
  // Nobody can come any more.
  void removePath() const { viewers_.removePath(); }

 private:
  bool receive();
  void show(std::string_view bytes);
  void flushToTerminal();
  void receiveTyped();
  void flushTyped();

  rt::Descriptor line_;
  BoundedLog log_;
  rt::Descriptor master_;
  // Held open, so that the terminal has no end when its readers come and go.
  rt::Descriptor slave_;
  std::string terminal_;
  PtyBacklog backlog_;
  std::string typed_;
  Viewers viewers_;
};

}  // namespace shim
