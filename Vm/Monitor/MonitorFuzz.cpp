// A whole session under a peer that sends anything, a machine that issues anything, and time.
//
// The input is a sequence of actions, a byte each with operands behind it (see act()). After each
// of them is checked what must hold whatever happened.
#include <jansson.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/base/Trace.h"

namespace Vm {

namespace {

constexpr size_t maxActions = 200;

void require(bool holds, const char* claim) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", claim);
  std::abort();
}

// Takes all messages, so that their texts are built, and forgets them.
class Nowhere final : public rt::TraceSink {
 public:
  void write(const rt::TraceRecord& record) override { bytes_ += record.message.size(); }

 private:
  size_t bytes_ = 0;
};

class Input {
 public:
  Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

  bool empty() const { return at_ == end_; }
  uint8_t byte() { return empty() ? uint8_t{0} : *at_++; }
  // A length byte and as many bytes, or what there is of them.
  std::string text() {
    const size_t length = std::min<size_t>(byte(), static_cast<size_t>(end_ - at_));
    std::string text(reinterpret_cast<const char*>(at_), length);
    at_ += length;
    return text;
  }

 private:
  const uint8_t* at_;
  const uint8_t* const end_;
};

// Messages that lead further than random bytes do.
std::string message(uint8_t which) {
  static const char* const ids[] = {"enter",   "status", "cont",    "chardev", "netdev",
                                    "setlink", "getfd",  "closefd", "nobody"};
  const std::string id = ids[which % 9];
  switch (which / 9 % 6) {
    case 0:
      return fakes::greeting();
    case 1:
      return fakes::errorOf(id);
    case 2:
      return fakes::eventOf("STOP");
    case 3:
      return fakes::returnOf(id, "[{\"filename\": \"pty:/dev/pts/1\", \"label\": \"serial0\"}]");
    case 4:
      return fakes::returnOf(id, "{\"running\": true}");
    default:
      return fakes::returnOf(id);
  }
}

// Whether the parser, given this text, meets a return without an id. That ends the process, by
// design.
bool endsTheProcess(const std::string& text) {
  for (size_t offset = 0; offset < text.size();) {
    json_error_t error;
    json_t* const root = json_loads(text.c_str() + offset, JSON_DISABLE_EOF_CHECK, &error);
    if (!root) return false;
    const bool ends = !json_object_get(root, "error") && json_object_get(root, "return") &&
                      !json_object_get(root, "id");
    json_decref(root);
    if (ends) return true;
    offset += static_cast<size_t>(error.position);
    while (offset < text.size() && text[offset] == ' ') ++offset;
  }
  return false;
}

// Sees to it that a session has at most one request in flight, and counts them.
class FlightWatch final : public rt::StateMachineOf<FlightWatch> {
 public:
  explicit FlightWatch(MonitorSm::Ptr session) : session_(*this, std::move(session)) {}

  size_t started() const { return started_; }

  static constexpr std::string_view typeName = "Vm::FlightWatch";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &FlightWatch::initialized>>;

 private:
  void handleRequest() {
    require(!session_->isPendingRequest(), "a request is taken up when none is in flight");
  }
  void handlePending() { started_ += session_->isPendingRequest() ? 1 : 0; }

  size_t started_ = 0;
  rt::Reactor<FlightWatch, MonitorSm,
              rt::On<&MonitorSm::qmpPendingRequest, &FlightWatch::handleRequest>,
              rt::On<&MonitorSm::isPendingRequest, &FlightWatch::handlePending>>
      session_;
};

class FuzzedSession : fakes::MonitorSession {
 public:
  FuzzedSession() {
    reader->onResult = [this] { handleResult(); };
  }

  void run(Input input) {
    for (size_t i = 0; i < maxActions && !input.empty(); ++i) {
      try {
        act(input);
      } catch (const rt::Exception&) {
        // Writing or reading fails once the peer has gone. The loop goes on, and so does this.
        require(!connected_, "nothing throws while the peer is there");
      }
      takeWritten();
      check();
    }
  }

 private:
  void act(Input& input) {
    const uint8_t action = input.byte();
    switch (action % 8) {
      case 0:
        return say(input.text());
      case 1:
        return say(message(input.byte()));
      case 2: {  // part of a message
        const std::string whole = message(input.byte());
        return say(whole.substr(0, input.byte() % whole.size()));
      }
      case 3:
        return hearAll();
      case 4:
        return command(input);
      case 5:
        unread_.clear();
        return advance(static_cast<double>(input.byte()) / 16);
      case 6:
        if (action == 6) issueWithinResult_ = 3;
        return;
      default:
        if (action == 0xFF) close(input.byte());
        return;
    }
  }

  void say(const std::string& bytes) {
    if (!connected_) return;
    const std::string unread = unread_ + bytes;
    if (endsTheProcess(session->qmpParser()->unparsedString().str() + unread)) return;
    peer.send(bytes);
    unread_ = unread;
    sent_ += bytes.size();
    if (++says_ % 50 == 0) hearAll();  // else the socket might take no more
  }

  void hearAll() {
    unread_.clear();  // whatever comes of it: a pass reads all that is there
    turn();
  }

  void command(Input& input) {
    const auto cmd = static_cast<MonitorCommand>(input.byte() % 7);
    std::string name = input.text();
    std::replace(name.begin(), name.end(), '\n', ' ');  // it ends a request, for who counts them
    const auto args = fakes::backendArgs(0, name.c_str(), name.c_str(), name.c_str());
    if (name.empty())
      issue(cmd);
    else
      issue(cmd, args);
  }

  void close(uint8_t how) {
    if (!connected_) return;
    connected_ = false;
    if (how % 3 == 0) return peer.close();
    if (how % 3 == 1) return peer.reset();
    peer.shutDown();
    shut_ = true;
  }

  void handleResult() {
    ++results_;
    require(output->counter() == results_, "each result raises the counter by one");
    require(session->helloMessage(), "no result comes before the greeting");
    if (issueWithinResult_ > 0) {
      --issueWithinResult_;
      issue(MonitorCommand::queryStatus);
    }
  }

  void takeWritten() {
    if (!connected_ && !shut_) return;
    const size_t before = written_;
    for (const auto& request : peer.take()) {
      ++written_;
      require(request.descriptors.empty(), "no descriptor was given, so none is passed");
    }
    require(written_ == flights_->started(), "what is in flight was written once");
    if (before != written_)
      require(session->helloMessage(), "nothing is written before the greeting");
  }

  void check() {
    const auto& queue = session->qmpRequestQueue();
    require(queue.nextIndex() >= nextIndex_, "queue indexes grow");
    nextIndex_ = queue.nextIndex();
    // Every request left the queue by being written, dropped at a time-out or failing.
    require(written_ + queue.size() <= queue.nextIndex(), "no request is written twice");
    require(results_ == 0 || written_ > 0, "a result comes after a request only");
    require(!session->isPendingRequest() || session->helloMessage(),
            "nothing is in flight before the greeting");
    require(
        queue.size() == 0 || !session->helloMessage() || session->isPendingRequest() || !connected_,
        "what is queued waits for a request in flight");
    require(queue.size() <= 2 * sent_ + 16 * maxActions, "the queue is bounded by what was issued");
    require(session->qmpParser()->unparsedString().size() <= sent_,
            "no more is kept than was sent");
    if (connected_)
      require(status->state() != MonitorStatus::MonitorState::disconnected,
              "it is connected while the peer is there");
  }

  const rt::Ptr<FlightWatch> flights_ = rt::make<FlightWatch>(session);
  bool connected_ = true;
  bool shut_ = false;
  int issueWithinResult_ = 0;
  std::string unread_;
  size_t says_ = 0;
  size_t sent_ = 0;
  size_t written_ = 0;
  uint32_t results_ = 0;
  uint32_t nextIndex_ = 0;
};

}  // namespace

}  // namespace Vm

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Vm::Nowhere nowhere;
  rt::traceSinkIs(&nowhere);
  rt::vmTrace().levelsIs(~rt::TraceLevels(0));
  Vm::FuzzedSession().run({data, size});
  return 0;
}
