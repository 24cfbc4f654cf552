// Those who look at a guest's console over a socket, RUN/vm/NAME/console.sock.
#pragma once

#include <poll.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "shim/decide/Replay.h"
#include "shim/keep/ListeningSocket.h"

namespace shim {

// Bytes, both ways. Who connects is sent the newest that the guest wrote, and then what it writes.
//
//   a viewer that                   | is
//   --------------------------------+-------------------------------------------------------------
//   sends first, of all             | the writer, until it goes: what it sends is typed
//   sends while there is a writer   | told once that it can only read; what it sends is nothing
//   sends "view\n" before all else, | a reader for good
//     in one piece                  |
//   falls behind too far            | dropped: the guest and the others never wait
class Viewers {
 public:
  static constexpr size_t mostViewers = 16;
  // What waits for a viewer beyond what the kernel holds for it.
  static constexpr size_t mostBehind = 256 * 1024;

  // Throws Failure.
  explicit Viewers(Place socket) : socket_(std::move(socket), "console") {}

  // The guest wrote that.
  void show(std::string_view bytes);

  // Adds what to wait for; `typing`: more that is typed can be taken now. The same entries in
  // ready(), before anything else but show(); what was typed.
  enum class Typing { taken, notNow };
  void addTo(std::vector<pollfd>& polled, Typing typing);
  std::string ready(const pollfd* polled);
  void removePath() const { socket_.remove(); }

 private:
  struct Viewer {
    rt::Descriptor connection;
    std::string unsent;
    enum class Role { undecided, writer, reader, viewOnly } role = Role::undecided;
  };

  void acceptAll();
  void flush(Viewer& viewer);
  std::string receive(Viewer& viewer);
  std::string heed(Viewer& viewer, std::string_view bytes);
  bool hasWriter() const;

  ListeningSocket socket_;
  Replay replay_;
  std::vector<Viewer> viewers_;
};

}  // namespace shim
