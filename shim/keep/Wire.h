// One end of a local stream that carries messages and descriptors, both ways, and never waits.
#pragma once

#include <deque>
#include <vector>

#include "shim/decide/QmpStream.h"

namespace shim {

class Wire {
 public:
  // Owns `socket`, which must not block. Of lines longer than `longest` nothing is passed on.
  Wire(rt::Descriptor socket, size_t longest) : socket_(std::move(socket)), stream_(longest) {}

  int number() const { return socket_.number(); }
  // The peer has closed, or is out of reach. What it sent before was read.
  bool isClosed() const { return closed_; }
  // The peer takes less than it is sent.
  bool isBlocked() const { return !unsent_.empty(); }
  // Bytes that it has not taken.
  size_t unsent() const { return unsentBytes_; }

  // What came, by one read: poll() tells of the rest.
  std::vector<Message> receive();
  // Messages that were dropped for being too long, since the start.
  size_t dropped() const { return stream_.dropped(); }

  // Sends now what can be sent now; the rest at the next call of flush().
  void send(Message message);
  void flush();

 private:
  bool sendFront();

  rt::Descriptor socket_;
  QmpStream stream_;
  std::deque<Message> unsent_;
  size_t unsentBytes_ = 0;
  bool closed_ = false;
};

}  // namespace shim
