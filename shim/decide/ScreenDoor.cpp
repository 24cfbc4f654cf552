#include "shim/decide/ScreenDoor.h"

#include <utility>

namespace shim {

namespace {

// What QEMU knows a viewer by until it is one; the next that comes by the name replaces it.
constexpr char getfd[] = R"({"fdname":"screen"})";
constexpr char addClient[] = R"({"protocol":"vnc","fdname":"screen","skipauth":true})";

}  // namespace

std::optional<Time> ScreenDoor::deadline() const {
  return isBusy() ? std::optional(begun_ + patience) : std::nullopt;
}

Message ScreenDoor::begin(Time now, rt::Descriptor viewer, uint64_t& id) {
  step_ = Step::asked;
  viewer_ = std::move(viewer);
  begun_ = now;
  awaited_ = id++;
  return {qmp::requestLine("query-vnc-servers", "", awaited_), {}};
}

bool ScreenDoor::isAbout(const qmp::Saying& saying) const {
  return isBusy() && saying.id == awaited_;
}

std::vector<Message> ScreenDoor::take(const qmp::Saying& saying, uint64_t& id, std::string& log) {
  const bool wasAsked = std::exchange(step_, Step::idle) == Step::asked;
  rt::Descriptor viewer = std::move(viewer_);
  if (saying.kind == qmp::Saying::Kind::refusal) {
    log = "QEMU does not show the guest's screen: " + saying.description;
    return {};
  }
  if (!wasAsked) return {};
  if (qmp::screenViewers(saying.value) >= mostViewers) {
    log = "refused one more to look at the guest's screen, which has " +
          std::to_string(mostViewers) + " viewers";
    return {};
  }
  step_ = Step::given;
  std::vector<Message> requests(2);
  requests[0].text = qmp::requestLine("getfd", getfd, id++);
  requests[0].descriptors.push_back(std::move(viewer));
  awaited_ = id++;
  requests[1].text = qmp::requestLine("add_client", addClient, awaited_);
  return requests;
}

bool ScreenDoor::timePassed(Time now) {
  if (!isBusy() || now < begun_ + patience) return false;
  step_ = Step::idle;
  viewer_.reset();
  return true;
}

}  // namespace shim
