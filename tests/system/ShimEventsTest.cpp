// What a shim has told of its guest once that has ended.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <regex>

#include "shim/fakes/ShimWorld.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::comesToHold;
using fakes::LineClient;
using rt::fakes::contentOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class ShimEvents : public fakes::ShimWorld {
 protected:
  std::string text() const { return contentOf(file("events")); }
  // The kinds of the events, in order.
  std::vector<std::string> kinds() const {
    const std::string all = text();
    const std::regex kind("\"kind\":\"([a-z-]+)\"");
    std::vector<std::string> found;
    for (std::sregex_iterator at(all.begin(), all.end(), kind), end; at != end; ++at)
      found.push_back((*at)[1]);
    return found;
  }
  int qemuOf() const {
    std::smatch found;
    const std::string all = text();
    return std::regex_search(all, found, std::regex("\"pid\":([0-9]+)")) ? std::stoi(found[1]) : -1;
  }
};

// A QEMU whose guest shuts itself down once it was let run.
constexpr char wilfulQemu[] = R"(
printf '{"QMP": {"version": {"qemu": {"micro": 22, "minor": 2, "major": 7}}}}\n' >&3
while read -r line <&3; do
  case $line in *system_powerdown*) continue;; esac
  printf '{"return": {}, "id": %s\n' "${line##*\"id\":}" >&3
  case $line in
    *cont*) printf '{"event": "RESUME"}\n' >&3
            printf '{"event": "SHUTDOWN", "data": {"guest": true, "reason": "guest-shutdown"}}\n' >&3
            exit 0;;
  esac
done)";

TEST_F(ShimEvents, SayThatAGuestShutItselfDownThoughItsQemuEndsAsAnyOther) {
  const auto shim = start(script(wilfulQemu));
  AgentClient agent(monitor());
  agent.bringUp();
  shim->wait();
  EXPECT_THAT(kinds(), ElementsAre("started", "ready", "resumed", "shut-down", "end")) << text();
  EXPECT_THAT(text(), HasSubstr(R"("kind":"shut-down","reason":"guest-shutdown","byGuest":true)"));
  EXPECT_THAT(text(), HasSubstr(R"("kind":"ready","text":"7.2.22")"));
}

TEST_F(ShimEvents, HaveEachStepThatEndedAGuest) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  ASSERT_TRUE(comesToHold(file("events"), "\"resumed\"")) << text();
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":0.3}})");
  shim->wait();
  EXPECT_THAT(kinds(), ElementsAre("started", "ready", "resumed", "asked-to-end", "quit",
                                   "shut-down", "end"))
      << text();
  EXPECT_THAT(text(), HasSubstr(R"("reason":"host-qmp-quit","byGuest":false)"));
  EXPECT_THAT(text(), HasSubstr("\"exit\":0"));
}

TEST_F(ShimEvents, AndTheLogAreNotFilledByWhoAsksAgainAndAgain) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  ASSERT_TRUE(comesToHold(file("events"), "\"resumed\"")) << text();
  // The daemon, as which we stand here, knows by itself what it asks for.
  const pid_t other = fork();
  if (other == 0) {
    LineClient host(file("shim.sock"));
    host.line();
    for (int i = 0; i < 100; ++i) host.ask(R"({"nmi":{}})");
    _exit(0);
  }
  ASSERT_EQ(waitpid(other, nullptr, 0), other);
  const std::string log = contentOf(file("shim.log"));
  int lines = 0;
  for (size_t at = log.find("nmi was asked"); at != std::string::npos; ++lines)
    at = log.find("nmi was asked", at + 1);
  EXPECT_GT(lines, 0);
  EXPECT_LT(lines, 50);
}

TEST_F(ShimEvents, NameTheSignalThatEndedQemu) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  ASSERT_TRUE(comesToHold(file("events"), "\"resumed\"")) << text();
  ASSERT_GT(qemuOf(), 1);
  kill(qemuOf(), SIGKILL);
  shim->wait();
  EXPECT_EQ(kinds().back(), "end");
  EXPECT_THAT(text(), HasSubstr("\"signal\":9"));
}

TEST_F(ShimEvents, NameTheStrangerWhoToldTheShimToEnd) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  // This process is the shim's parent, which it takes for its daemon: somebody else sends.
  ASSERT_EQ(std::system(("sh -c 'kill -TERM " + std::to_string(shim->pid()) + "; :'").c_str()), 0);
  shim->wait();
  EXPECT_THAT(text(), HasSubstr(R"("kind":"told-to-end","reason":"stranger","text":"signal 15)"));
}

TEST_F(ShimEvents, OfTheRunsBeforeStayUntilTheirFileIsFull) {
  for (int i = 0; i < 2; ++i) {
    const auto shim = start(script("echo no >&2; exit 1"));
    shim->wait();
  }
  EXPECT_THAT(kinds(), ElementsAre("started", "end", "started", "end")) << text();
  EXPECT_THAT(text(), HasSubstr(R"("text":"no","exit":1)"));
  EXPECT_THAT(text(), Not(HasSubstr("\"n\":3")));
}

}  // namespace
}  // namespace shim
