// A socket in a directory, where others find us.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "runtime/base/Descriptor.h"
#include "shim/base/Place.h"

namespace shim {

// Listens from its construction on; throws Failure, which names the path as that of `what`. What an
// earlier run left there goes, and so does this at its end, unless another has made it.
class ListeningSocket {
 public:
  // Who may connect: our own user, or all of our group.
  enum class Users { ours, group };

  ListeningSocket(Place place, const std::string& what, Users users = Users::group);
  // One that listens there already, and that its maker removes.
  ListeningSocket(Place place, rt::Descriptor listening);
  ListeningSocket(const ListeningSocket&) = delete;
  ~ListeningSocket() {
    if (isOwn_) remove();
  }

  const std::string& path() const { return place_.path; }
  // What to wait for; -1 once after there was no descriptor for who waits, who would be told of
  // again and again: he waits until something else has happened.
  int number() { return std::exchange(isExhausted_, false) ? -1 : socket_.number(); }
  // A connection that does not block; none when nobody waits any more.
  rt::Descriptor accept();
  // The same socket, which listens as long as either is open; none when there can be no more.
  rt::Descriptor duplicate() const { return copyOf(socket_); }
  // Removes it from there, unless another's stands there by now.
  void remove() const;
  // Likewise, and unless it is that one's, too.
  void giveWayTo(const ListeningSocket& next);

 private:
  const Place place_;
  rt::Descriptor socket_;
  const bool isOwn_;
  struct stat own_ {};
  bool isExhausted_ = false;
};

// Whether that descriptor is of a socket that listens.
bool listens(int number);

// The descriptor of that number, which is taken out of `inherited`; none when it is not among them,
// or does not listen.
rt::Descriptor takeListener(int number, std::vector<int>& inherited);

// Hangs up on who has connected to it by now, and was not taken.
void hangUpAt(const rt::Descriptor& listener);

// The socket at which an agent looks for the monitor: `listener`, which listens there already, or a
// new one when there is none.
std::unique_ptr<ListeningSocket> monitorSocket(const std::string& path, rt::Descriptor listener);

// The socket of a screen of that number, for whoever reaches `address`, of IPv6 with or without its
// brackets. Throws Failure.
std::unique_ptr<ListeningSocket> screenAt(const std::string& address, unsigned screen);

// A connection to whoever listens at that path, which does not block; none when nobody does.
rt::Descriptor connectionTo(const std::string& path);

}  // namespace shim
