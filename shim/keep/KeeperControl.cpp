// What others than the agent ask of a keeper, and who takes its guest over.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "guest/EventWords.h"
#include "shim/base/Failure.h"
#include "shim/decide/Differences.h"
#include "shim/keep/Keeper.h"

namespace shim {

namespace {

// A successor that was told of the end has ended by then, or never will.
constexpr int successorsPatience = 1'000;  // milliseconds

bool has(int descriptor, short event) {
  pollfd polled{descriptor, event, 0};
  return poll(&polled, 1, 0) == 1;
}

// Whose the other end of a connection was when it was made; nobody's where the kernel does not say.
ucred peerOf(int connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) return peer;
  return {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
}

bool isOurUser(int connection) { return peerOf(connection).uid == geteuid(); }

}  // namespace

control::State Keeper::state() const {
  if (stop_.hasBegun()) return control::State::stopping;
  return relay_->isReady() ? control::State::running : control::State::starting;
}

control::Status Keeper::status() const {
  control::Status status{state(), pid_, relay_->hasAgent(), console_->terminal(), {}};
  status.problems = restartReasons_;
  for (const auto& [about, text] : relay_->standing()) status.problems.push_back(text);
  return status;
}

Message Keeper::answer(ControlServer::Client client, const control::Request& request,
                       rt::Descriptors descriptors) {
  Message done{control::doneLine(), {}};
  switch (request.kind) {
    case control::Request::Kind::status:
      return {control::statusLine(status()), {}};
    case control::Request::Kind::stop:
      orderlyStop(client, request);
      break;
    case control::Request::Kind::wish:
      return wish(client, request);
    case control::Request::Kind::adopt:
      adopt(client, request.adoption, std::move(descriptors));
      // An agent that loses us is to find the successor, and not to look for ten seconds.
      if (rt::Descriptor copy = socket_->duplicate()) done.descriptors.push_back(std::move(copy));
      break;
    case control::Request::Kind::row:
      takeRow(client, request.row);
      break;
    case control::Request::Kind::line:
      takeLine(client, request.line);
      break;
  }
  return done;
}

void Keeper::orderlyStop(ControlServer::Client client, const control::Request& request) {
  const Duration timeout = request.timeout.value_or(stopTimeout_);
  tellOfWish(client, guest::word::stop, request.by);
  log_.write(logLine("shim", "asked to stop the guest, which gets " +
                                 std::to_string(timeout.count()) + " ms to shut itself down"));
  stop(stop_.orderly(now(), timeout, guest()));
}

// Who it was, so far as the kernel knows, and as root says of those in whose name it asks. What the
// daemon asks for in the operators' name it knows best itself.
void Keeper::tellOfWish(ControlServer::Client client, std::string_view what,
                        const std::string& by) {
  const ucred peer = peerOf(control_->number(client));
  if (peer.pid == daemonPid_) return;
  GuestEvent event{guest::event::wished, std::string(what), {}, {}, {{"uid", peer.uid}}};
  if (peer.uid == 0) event.by = by;
  // Somebody who asks again and again is not to drive what QEMU said out of the log.
  if (!events_.tell(event)) return;
  log_.write(logLine("shim", std::string(what) + " was asked for by user " +
                                 std::to_string(peer.uid) + (by.empty() ? "" : ", as " + by)));
}

Message Keeper::wish(ControlServer::Client client, const control::Request& request) {
  if (stop_.hasBegun()) throw control::RequestError("the guest is being ended");
  Asker asker{client, peerOf(control_->number(client)).uid, {}, relay_->stillness()};
  if (!askers_.mayAsk(asker.user))
    throw control::RequestError("too much that was asked for before is still to be done");
  Wish wish{request.wish.kind, request.wish.keys, {}};
  tellOfWish(client, wordOf(wish.kind), request.by);
  if (wish.kind == Wish::Kind::picture) {
    Message drawn{control::doneLine(), {}};
    drawn.descriptors.push_back(stillPicture_.reader());
    if (drawn.descriptors.front()) return drawn;
    Picture picture = makePicture();
    wish.picture.push_back(std::move(picture.writing));
    asker.picture.push_back(std::move(picture.reading));
  }
  perform(relay_->wish(now(), askers_.add(std::move(asker)), std::move(wish)));
  return {};
}

void Keeper::tellOutcome(const Actions::Outcome& outcome) {
  auto asker = askers_.take(outcome.wish);
  if (!asker) return;
  std::string refusal = outcome.refusal;
  const bool isDrawn = refusal.empty() && !asker->picture.empty();
  if (isDrawn && !isSealed(asker->picture.front()))
    refusal = "its QEMU does not let go of the picture";
  else if (isDrawn && asker->stillness == relay_->stillness())
    stillPicture_.pictureIs(asker->stillness, asker->picture.front());
  if (refusal.empty())
    control_->tell(asker->client, {control::doneLine(), std::move(asker->picture)});
  else
    control_->tell(asker->client, {control::errorLine(refusal), {}});
}

void Keeper::adopt(ControlServer::Client client, const control::Adoption& adoption,
                   rt::Descriptors descriptors) {
  // Whoever takes the guest over says where we make a socket, and what is removed for it.
  if (!isOurUser(control_->number(client)))
    throw control::RequestError("adopt: only the user who keeps the guest may take it over");
  if (stop_.hasBegun()) throw control::RequestError("adopt: the guest is being stopped");
  if (!succession_.mayBeTakenOver() && has(daemon_.number(), POLLIN)) handleDaemonsEnd();
  if (!succession_.mayBeTakenOver())
    throw control::RequestError("adopt: the guest is kept for process " +
                                std::to_string(daemonPid_) + ", which lives");
  // It may have given up while we stood still, and must not be believed to be lost then.
  if (has(control_->number(client), POLLRDHUP))
    throw control::RequestError("adopt: the successor has hung up");
  if (descriptors.empty())
    throw control::RequestError(
        "adopt: the daemon's process is missing: send a descriptor of it along");
  // The next one's agent may look for us already, and is not to find what was meant for this one.
  if (has(descriptors.front().number(), POLLIN))
    throw control::RequestError("adopt: the daemon has ended");
  std::unique_ptr<ListeningSocket> socket;
  CommandLine wanted;
  try {
    wanted = readCommandLine(adoption.arguments);
    if (wanted.name != name_)
      throw Failure("the guest is VM '" + name_ + "' and not '" + wanted.name + "'");
    rt::Descriptor handed = descriptors.size() > 1 ? std::move(descriptors[1]) : rt::Descriptor();
    if (handed && !listens(handed.number()))
      throw Failure("the second descriptor must be of a socket that listens");
    socket = monitorSocket(wanted.monitorPath, std::move(handed));
  } catch (const std::runtime_error& error) {
    throw control::RequestError("adopt: " + std::string(error.what()));
  }
  socket_->giveWayTo(*socket);
  socket_ = std::move(socket);
  agent_.reset();
  daemonPid_ = adoption.daemon;
  daemon_ = std::move(descriptors.front());
  succession_.takenOver();
  successor_ = client;
  control_->keep(client);
  restartReasons_ = restartReasons(line_, wanted);
  directory_.lastErrorDel();  // of a successor that was refused
  log_.write(logLine("shim", "keeps the guest for process " + std::to_string(daemonPid_) +
                                 " from now on, at which process " + std::to_string(adoption.pid) +
                                 " stands in for it"));
  perform(relay_->adopt(now(), cardNames(line_, wanted)));
}

// By what it is of, the next daemon may end it.
void Keeper::takeRow(ControlServer::Client client, const control::Row& row) {
  if (!isOurUser(control_->number(client)))
    throw control::RequestError("row: only the user who keeps the guest may say it");
  if (!rowMark_.rowIs(row))
    throw control::RequestError("row: there is no room for it: the guest was started without one");
  log_.write(logLine("shim", "the guest is of row " + std::to_string(row.sequence) + " of store " +
                                 row.store + " from now on"));
}

// A line may come and go all day: nobody looks for that in the guest's log.
void Keeper::takeLine(ControlServer::Client client, const control::Line& line) {
  if (!isOurUser(control_->number(client)))
    throw control::RequestError("line: only the user who keeps the guest may say it");
  const auto card = std::find_if(line_.cards.begin(), line_.cards.end(),
                                 [&](const Card& each) { return each.mac == line.card; });
  if (card == line_.cards.end())
    throw control::RequestError("line: the guest has no card with MAC address " + line.card);
  perform(relay_->lineIs(now(), card->id, line.isUp));
}

void Keeper::handleDaemonsEnd() {
  succession_.daemonEnded();
  log_.write(logLine("shim", "process " + std::to_string(daemonPid_) +
                                 ", for which the guest was kept, has ended: the guest goes on"));
}

void Keeper::lookForSuccessor() {
  if (!successor_ || control_->isConnected(*successor_)) return;
  successor_.reset();
  succession_.successorGone(now());
}

// To a daemon that made it and lives: its agent, which may lose its connection before it learns of
// our end, is to find somebody there. Otherwise nobody would remove it.
void Keeper::leaveSocket() {
  if (succession_.mayBeTakenOver() || has(daemon_.number(), POLLIN)) socket_->remove();
  socket_.reset();
}

// The successor first, and the agent's connection is open until then: it must learn of the end
// before it could try to reconnect.
void Keeper::tellOfEnd() {
  control_->removePath();
  console_->removePath();
  if (screen_) screen_->remove();
  control_->tellAll(control::endLine(*status_));
  if (!successor_) return;
  pollfd polled{control_->number(*successor_), POLLRDHUP, 0};
  (void)poll(&polled, 1, successorsPatience);
}

void Keeper::showProblems() {
  if (shownProblem_.empty() && restartReasons_.empty() && relay_->standing().empty()) return;
  std::string line;
  for (const std::string& problem : status().problems) line += (line.empty() ? "" : "; ") + problem;
  for (char& c : line)
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  if (line == shownProblem_) return;
  shownProblem_ = line;
  directory_.problemIs(line);
}

}  // namespace shim
