#include "shim/fakes/FakeQemu.h"

#include <algorithm>
#include <regex>

#include "shim/decide/Arguments.h"

namespace shim::fakes {

namespace {

std::string textOf(const qmp::Request& request, const char* argument) {
  const auto found = request.texts.find(argument);
  return found == request.texts.end() ? std::string() : found->second;
}

std::string error(const std::string& kind, const std::string& words) {
  return R"({"class": )" + qmp::quoted(kind) + R"(, "desc": )" + qmp::quoted(words) + "}";
}

}  // namespace

FakeQemu::FakeQemu(const std::vector<std::string>& cards) {
  for (const std::string& card : cards) {
    hubs_.emplace(card, std::to_string(hubs_.size()));
    netdevs_[hubPortId(card)] = card;
  }
}

std::string FakeQemu::greeting() {
  return R"({"QMP": {"version": {"qemu": {"micro": 22, "minor": 2, "major": 7}, )"
         R"("package": "Debian 1:7.2"}, "capabilities": ["oob"]}})";
}

void FakeQemu::hear(Message message) {
  asked_.push_back(message.text);
  if (stopped_)
    waiting_.push_back(std::move(message));
  else
    answer(std::move(message));
}

void FakeQemu::go() {
  stopped_ = false;
  for (Message& message : std::exchange(waiting_, {})) answer(std::move(message));
}

std::vector<std::string> FakeQemu::take() { return std::exchange(said_, {}); }

void FakeQemu::answer(Message message) {
  const auto request = qmp::requestFrom(message.text);
  if (!request || aborted_ || quit_) return;
  const std::string refusal = answerTo(*request, message);
  if (aborted_) return;
  letGuestSend();
  std::string value = "{}";
  if (request->execute == "query-status")
    value = R"({"status": "running", "singlestep": false, "running": true})";
  if (request->execute == "query-chardev")
    value = R"([{"frontend-open": true, "filename": "unix:", "label": "monitor"}, )"
            R"({"frontend-open": true, "filename": "unix:", "label": "serial0"}])";
  if (request->execute == "query-vnc-servers") value = servers();
  const std::string id = request->id.empty() ? "" : ", \"id\": " + request->id;
  said_.push_back((refusal.empty() ? "{\"return\": " + value : "{\"error\": " + refusal) + id +
                  "}");
}

std::string FakeQemu::answerTo(const qmp::Request& request, Message& message) {
  if (const auto found = refusals_.find(request.execute); found != refusals_.end()) {
    const std::string words = found->second;
    refusals_.erase(found);
    return error("GenericError", words);
  }
  if (request.execute == "netdev_add") return netdevAdd(request);
  if (request.execute == "netdev_del") return netdevDel(request);
  if (request.execute == "getfd") return getfd(request, message);
  if (request.execute == "add_client") return addClient(request);
  if (request.execute == "closefd" && descriptors_.erase(textOf(request, "fdname")) == 0)
    return error("GenericError",
                 "File descriptor named '" + textOf(request, "fdname") + "' not found");
  if (request.execute == "quit") quit_ = true;
  if (request.execute == "cont") guestRuns_ = true;
  if (request.execute != "set_link") return {};
  const std::string name = textOf(request, "name");
  if (netdevs_.count(name) == 0 && hubs_.count(name) == 0)
    return error("DeviceNotFound", "Device '" + name + "' not found");
  if (request.up)
    down_.erase(name);
  else
    down_.insert(name);
  return {};
}

std::string FakeQemu::netdevAdd(const qmp::Request& request) {
  const std::string id = textOf(request, "id");
  if (netdevs_.count(id) != 0) return error("GenericError", "Duplicate ID '" + id + "'");
  if (textOf(request, "type") == "tap") {
    if (descriptors_.erase(textOf(request, "fd")) == 0)
      return error("GenericError",
                   "File descriptor named '" + textOf(request, "fd") + "' has not been found");
    netdevs_[id] = "";
    return {};
  }
  const std::string peer = textOf(request, "netdev");
  static const std::regex hub(R"("hubid":(\d+))");
  if (!peer.empty()) {
    if (netdevs_.count(peer) == 0) return error("GenericError", "netdev '" + peer + "' not found");
    for (const auto& [port, connected] : netdevs_) aborted_ = aborted_ || connected == peer;
  }
  if (aborted_) return {};
  netdevs_[id] = peer;
  std::smatch found;
  if (std::regex_search(request.arguments, found, hub)) hubByPort_[id] = found[1];
  return {};
}

std::string FakeQemu::netdevDel(const qmp::Request& request) {
  const std::string id = textOf(request, "id");
  if (netdevs_.erase(id) == 0) return error("DeviceNotFound", "Device '" + id + "' not found");
  hubByPort_.erase(id);
  return {};
}

// A hub with another port takes what a card sends: it has somebody to pass it to, or to nobody.
void FakeQemu::letGuestSend() {
  if (!guestRuns_) return;
  for (const auto& card : hubs_) {
    const bool isTaken = std::any_of(hubByPort_.begin(), hubByPort_.end(),
                                     [&](const auto& port) { return port.second == card.second; });
    if (hasLink(card.first) && !isTaken) stuck_.insert(card.first);
  }
}

std::string FakeQemu::servers() const {
  std::string clients;
  for (size_t i = 0; i < viewers_.size(); ++i)
    clients += std::string(i == 0 ? "" : ", ") +
               R"({"family": "unix", "service": "", "host": "", "websocket": false})";
  return R"([{"auth": "none", "clients": [)" + clients + R"(], "server": [], "id": "default"}])";
}

std::string FakeQemu::addClient(const qmp::Request& request) {
  const auto found = descriptors_.find(textOf(request, "fdname"));
  if (found == descriptors_.end())
    return error("GenericError",
                 "File descriptor named '" + textOf(request, "fdname") + "' has not been found");
  viewers_.push_back(std::move(found->second.front()));
  descriptors_.erase(found);
  return {};
}

std::string FakeQemu::getfd(const qmp::Request& request, Message& message) {
  if (message.descriptors.empty())
    return error("GenericError", "No file descriptor supplied via SCM_RIGHTS");
  descriptors_[textOf(request, "fdname")] = std::move(message.descriptors);
  return {};
}

}  // namespace shim::fakes
