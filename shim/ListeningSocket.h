// A socket in a directory, where others find us.
#pragma once

#include <sys/stat.h>

#include <string>

#include "shim/Descriptor.h"
#include "shim/Place.h"

namespace shim {

// Listens from its construction on; throws Failure, which names the path as that of `what`. What an
// earlier run left there goes. Users of our group may connect, and nobody else.
class ListeningSocket {
 public:
  ListeningSocket(Place place, const std::string& what);
  ListeningSocket(const ListeningSocket&) = delete;
  ~ListeningSocket() { remove(); }

  const std::string& path() const { return place_.path; }
  int number() const { return socket_.number(); }
  // A connection that does not block; none when nobody waits any more.
  Descriptor accept() const;
  // The same socket, which listens as long as either is open; none when there can be no more.
  Descriptor duplicate() const;
  // Removes it from there, unless another's stands there by now.
  void remove() const;

 private:
  const Place place_;
  Descriptor socket_;
  struct stat own_ {};
};

// A connection to whoever listens at that path, which does not block; none when nobody does.
Descriptor connectionTo(const std::string& path);

}  // namespace shim
