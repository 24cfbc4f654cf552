// The socket at which the agent finds a guest's monitor the first time it looks.
#pragma once

#include <map>

#include "runtime/base/Descriptor.h"
#include "runtime/base/String.h"

namespace host {

// Listens for a guest that is about to be started. The agent removes what stands at the monitor's
// path, forks, and looks for the new guest there: finding nobody it pauses, and all other guests
// with it. So in between, in the fork, a socket that listens already is moved to that path, and the
// child inherits it: its connections wait until the guest's keeper takes them.
//
//   open()      | listens beside the path; what cannot be is said before anything is started
//   the fork    | moves the socket to the path; in that child alone it stays open over the exec
//   settle()    | keeps it; where nothing was forked it lets go of it
//   close()     | lets go of it: the guest's end is known
//
// It is kept because the agent may hear that the guest has hung up before it hears of its end. It
// looks for it once more then, and finds this socket, at which nobody serves it: it is hung up on
// again once its end is known. Owned by main(); one a process.
class MonitorListener {
 public:
  // `waitingPlace`: where the socket is until the fork; in the file system of the monitors' paths.
  // To be made before there are threads.
  explicit MonitorListener(rt::String waitingPlace);
  MonitorListener(const MonitorListener&) = delete;
  ~MonitorListener();

  // Removes what a daemon that was killed has left. No other may run.
  void removeLeftover() const;

  // Throws Exception, which names the path, when a socket cannot be put there.
  void open(const rt::String& path);
  // The start that it was opened for is over, whatever came of it.
  void settle();
  void close(const rt::String& path);
  // The descriptor, which is the same in the child; -1 unless a start has begun.
  int number() const { return socket_.number(); }

 private:
  static void handleFork();
  static void handleForkInParent();
  static void handleForkInChild();

  void letGo();

  const rt::String waitingPlace_;
  rt::String path_;
  rt::Descriptor socket_;                      // of the start that has begun
  bool isInPlace_ = false;                     // moved to the path
  bool isHandedOver_ = false;                  // a child has it
  std::map<rt::String, rt::Descriptor> kept_;  // of the guests that were started, by path
};

}  // namespace host
