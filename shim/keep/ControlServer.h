// Serves a shim's own socket.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "shim/decide/ControlText.h"
#include "shim/keep/ListeningSocket.h"
#include "shim/keep/Wire.h"

namespace shim {

// Bounded in all that others can make it keep: so many clients, of whom the one that has been idle
// for longest makes room for another; so long a line; so much that a client does not read; so many
// requests that are not understood.
class ControlServer {
 public:
  using Client = uint64_t;  // no two the same
  struct Answers {
    std::function<std::string()> greeting;
    // Throws control::RequestError for a request that is refused. A message without a text is none:
    // the answer will be told later.
    std::function<Message(Client, control::Request, rt::Descriptors)> answer;
  };

  static constexpr size_t mostClients = 16;
  static constexpr size_t longestRequest = 64 * 1024;
  static constexpr size_t mostUnsent = 64 * 1024;
  static constexpr int mostMistakes = 8;

  // Throws Failure.
  ControlServer(Place socket, Answers answers);

  // Adds what to wait for. The same entries in ready(), before anything else is asked of this.
  void addTo(std::vector<pollfd>& polled);
  void ready(const pollfd* polled);

  bool isConnected(Client client) const;
  // Stays, however long it is idle.
  void keep(Client client);
  // Nobody, when the client is gone.
  void tell(Client client, Message message);
  void tellAll(const std::string& line);
  // Nobody is served any more, but who is there may stay to the end.
  void removePath() { socket_.remove(); }
  // The descriptor of that client's connection; -1 when it is gone.
  int number(Client client) const;

 private:
  struct Peer {
    Client id = 0;
    std::unique_ptr<Wire> wire;
    uint64_t lastHeard = 0;  // by turns
    int mistakes = 0;
    bool isKept = false;
  };

  void acceptAll();
  void makeRoom();
  void serve(Peer& peer);
  void answer(Peer& peer, Message message);
  const Peer* find(Client client) const;

  ListeningSocket socket_;
  const Answers answers_;
  std::vector<Peer> peers_;
  Client lastId_ = 0;
  uint64_t turn_ = 0;
};

}  // namespace shim
