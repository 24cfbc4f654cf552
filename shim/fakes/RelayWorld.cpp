#include "shim/fakes/RelayWorld.h"

#include <poll.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace shim::fakes {

namespace {

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...) {
  char bytes[512];
  va_list values;
  va_start(values, format);
  (void)std::vsnprintf(bytes, sizeof bytes, format, values);
  va_end(values);
  return bytes;
}

}  // namespace

RelayWorld::RelayWorld(const std::vector<std::string>& cards)
    : relay(now,
            {cards, {{"serial0", "pty:/dev/pts/7"}, {"monitor", "unix:/m,server=on"}}, Patience()}),
      qemu(cards) {}

void RelayWorld::begin() {
  qemuSays(FakeQemu::greeting());
  connectAgent();
  heard();
}

std::vector<std::string> RelayWorld::ask(const std::string& line, rt::Descriptors descriptors) {
  perform(relay.agentSays(now, {line, std::move(descriptors)}));
  return heard();
}

std::vector<std::string> RelayWorld::attach(const std::string& card, const std::string& netdev) {
  const char* const host = netdev.c_str();
  rt::Descriptors descriptors;
  descriptors.emplace_back(dup(STDERR_FILENO));
  std::vector<std::string> all =
      ask(text(R"({ "execute": "getfd","arguments": {"fdname": "fd-%s"},"id": "getfd" })", host),
          std::move(descriptors));
  for (const std::string& line :
       {text(R"({ "execute": "netdev_add","arguments": {"type": "tap","fd": "fd-%s",)"
             R"("id": "%s"},"id": "netdev" })",
             host, host),
        text(R"({ "execute": "netdev_set","arguments": {"nicid": "%s","netdevid": "%s"},)"
             R"("id": "netdev" })",
             card.c_str(), host),
        text(R"({ "execute": "set_link","arguments": {"name": "%s","up": true},"id": "setlink" })",
             host)})
    for (std::string& answer : ask(line)) all.push_back(std::move(answer));
  return all;
}

std::vector<std::string> RelayWorld::detach(const std::string& netdev) {
  const char* const host = netdev.c_str();
  std::vector<std::string> all;
  for (const std::string& line :
       {text(R"({ "execute": "set_link","arguments": {"name": "%s","up": false},"id": "setlink" })",
             host),
        text(R"({ "execute": "closefd","arguments": {"fdname": "fd-%s"},"id": "closefd" })", host),
        text(R"({ "execute": "netdev_del","arguments": {"id": "%s"},"id": "netdev" })", host)})
    for (std::string& answer : ask(line)) all.push_back(std::move(answer));
  return all;
}

void RelayWorld::pass(Duration time) {
  const Time end = now + time;
  for (auto due = relay.deadline(); due && *due <= end; due = relay.deadline()) {
    now = std::max(now, *due);
    perform(relay.timePassed(now));
    if (relay.deadline() && *relay.deadline() <= now) std::abort();  // it would never sleep
  }
  now = end;
  perform(relay.timePassed(now));
}

void RelayWorld::qemuGoes() {
  qemu.go();
  letQemuSpeak();
}

std::vector<std::string> RelayWorld::heard() { return std::exchange(heard_, {}); }

void RelayWorld::perform(Actions actions) {
  const std::string& bytes = actions.toAgent;
  for (size_t at = 0; at < bytes.size();) {
    const size_t end = std::min(bytes.find('\n', at), bytes.size() - 1) + 1;
    heard_.push_back(bytes.substr(at, end - at));
    at = end;
  }
  log.insert(log.end(), actions.log.begin(), actions.log.end());
  problems.insert(problems.end(), actions.problems.begin(), actions.problems.end());
  events.insert(events.end(), actions.events.begin(), actions.events.end());
  for (const Actions::Outcome& each : actions.outcomes)
    outcomes_.push_back(std::to_string(each.wish) +
                        (each.refusal.empty() ? "" : ": " + each.refusal));
  if (!actions.killQemu.empty()) kills.push_back(actions.killQemu);
  for (Message& message : actions.toQemu) qemu.hear(std::move(message));
  letQemuSpeak();
}

void RelayWorld::letQemuSpeak() {
  for (const std::string& said : qemu.take()) perform(relay.qemuSays(now, said));
}

Probe::Probe() {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  kept.reset(ends[0]);
  given.reset(ends[1]);
}

bool Probe::isClosed() const {
  pollfd polled{kept.number(), 0, 0};
  return poll(&polled, 1, 0) == 1 && (polled.revents & POLLHUP) != 0;
}

}  // namespace shim::fakes
