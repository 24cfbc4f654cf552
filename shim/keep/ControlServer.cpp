#include "shim/keep/ControlServer.h"

#include <algorithm>

namespace shim {

ControlServer::ControlServer(Place socket, Answers answers)
    : socket_(std::move(socket), "control"), answers_(std::move(answers)) {}

void ControlServer::addTo(std::vector<pollfd>& polled) {
  std::erase_if(peers_, [](const Peer& peer) { return !peer.wire; });
  polled.push_back({socket_.number(), POLLIN, 0});
  for (const Peer& peer : peers_)
    polled.push_back({peer.wire->number(),
                      static_cast<short>(POLLIN | (peer.wire->isBlocked() ? POLLOUT : 0)), 0});
}

void ControlServer::ready(const pollfd* polled) {
  ++turn_;
  for (size_t i = 0; i < peers_.size(); ++i) {
    if (polled[i + 1].revents == 0) continue;
    peers_[i].wire->flush();
    serve(peers_[i]);
  }
  if (polled[0].revents != 0) acceptAll();
}

void ControlServer::serve(Peer& peer) {
  const size_t dropped = peer.wire->dropped();
  std::vector<Message> messages = peer.wire->receive();
  if (!messages.empty()) peer.lastHeard = turn_;
  for (Message& message : messages) {
    if (peer.mistakes >= mostMistakes || peer.wire->unsent() > mostUnsent) break;
    answer(peer, std::move(message));
  }
  const bool isNuisance = peer.wire->dropped() > dropped || peer.mistakes >= mostMistakes ||
                          peer.wire->unsent() > mostUnsent;
  if (isNuisance || peer.wire->isClosed()) peer.wire.reset();
}

void ControlServer::answer(Peer& peer, Message message) {
  Message answer;
  try {
    answer = answers_.answer(peer.id, control::requestFrom(message.text),
                             std::move(message.descriptors));
  } catch (const control::RequestError& error) {
    ++peer.mistakes;
    answer.text = control::errorLine(error.what());
  }
  if (!answer.text.empty()) peer.wire->send(std::move(answer));
}

void ControlServer::acceptAll() {
  while (rt::Descriptor connection = socket_.accept()) {
    makeRoom();
    Peer peer{++lastId_, std::make_unique<Wire>(std::move(connection), longestRequest), turn_};
    peer.wire->send({answers_.greeting(), {}});
    peers_.push_back(std::move(peer));
    // What was said already is heard, however many come behind who take the place.
    serve(peers_.back());
  }
}

void ControlServer::makeRoom() {
  std::erase_if(peers_, [](const Peer& peer) { return !peer.wire; });
  if (peers_.size() < mostClients) return;
  const auto oldest =
      std::min_element(peers_.begin(), peers_.end(), [](const Peer& a, const Peer& b) {
        return std::pair(a.isKept, a.lastHeard) < std::pair(b.isKept, b.lastHeard);
      });
  peers_.erase(oldest);
}

void ControlServer::tell(Client client, Message message) {
  if (const Peer* const peer = find(client)) peer->wire->send(std::move(message));
}

void ControlServer::tellAll(const std::string& line) {
  for (const Peer& peer : peers_)
    if (peer.wire) peer.wire->send({line, {}});
}

const ControlServer::Peer* ControlServer::find(Client client) const {
  const auto found = std::find_if(peers_.begin(), peers_.end(),
                                  [&](const Peer& peer) { return peer.id == client && peer.wire; });
  return found == peers_.end() ? nullptr : &*found;
}

bool ControlServer::isConnected(Client client) const { return find(client) != nullptr; }

void ControlServer::keep(Client client) {
  for (Peer& peer : peers_)
    if (peer.id == client) peer.isKept = true;
}

int ControlServer::number(Client client) const {
  const Peer* const peer = find(client);
  return peer ? peer->wire->number() : -1;
}

}  // namespace shim
