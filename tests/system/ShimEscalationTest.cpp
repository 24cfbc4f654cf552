// How a guest is ended that takes no notice of anything.
#include <gmock/gmock.h>

#include "shim/decide/StopPlan.h"
#include "shim/fakes/ShimWorld.h"
#include "shim/keep/Keeper.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::LineClient;
using fakes::signaled;
using rt::fakes::contentOf;
using std::chrono::milliseconds;

// A QEMU that answers, and does nothing of what it is told to; SIGTERM is nothing to it.
constexpr char deafQemu[] = R"(
trap '' TERM
printf '{"QMP": {}}\n' >&3
while read -r line <&3; do
  printf '{"return": {}, "id": %s\n' "${line##*\"id\":}" >&3
done
while :; do read -r never; sleep 1; done)";

class ShimEscalation : public fakes::ShimWorld {
 protected:
  // The steps that are in the log, in that order; those that come out of turn are not told.
  std::vector<std::string> stepsTaken() const {
    const std::string log = contentOf(file("shim.log"));
    std::vector<std::string> taken;
    size_t from = 0;
    for (const char* step : {"presses the guest's power button", "asks QEMU to quit",
                             "sends SIGTERM to QEMU", "kills QEMU"}) {
      const size_t at = log.find(step, from);
      if (at == std::string::npos) continue;
      taken.emplace_back(step);
      from = at;
    }
    return taken;
  }
};

TEST_F(ShimEscalation, TakesEachStepInTurnAndNoLongerThanIsStated) {
  const auto shim = start(script(deafQemu));
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  const Time before = now();
  host.ask(R"({"stop":{"timeout":0.2}})");
  EXPECT_EQ(signaled(shim->wait()), SIGKILL);
  const Time stated = milliseconds(200) + StopPlan::patience + StopPlan::patience;
  EXPECT_GE(now() - before, stated);
  EXPECT_LT(now() - before, stated + std::chrono::seconds(3)) << "a busy machine takes longer";
  EXPECT_THAT(stepsTaken(),
              testing::ElementsAre("presses the guest's power button", "asks QEMU to quit",
                                   "sends SIGTERM to QEMU", "kills QEMU"))
      << contentOf(file("shim.log"));
}

TEST_F(ShimEscalation, GoesOneStepFurtherEachTimeThatItIsAskedFor) {
  const auto shim = start(script(deafQemu));
  AgentClient agent(monitor());
  agent.bringUp();
  LineClient host(file("shim.sock"));
  host.line();
  const Time before = now();
  host.ask(R"({"stop":{"timeout":3600}})");
  for (int i = 0; i < 3; ++i) host.ask(R"({"stop":{"timeout":0}})");
  EXPECT_EQ(signaled(shim->wait()), SIGKILL);
  EXPECT_LT(now() - before, StopPlan::patience);
  EXPECT_EQ(stepsTaken().size(), 4U) << contentOf(file("shim.log"));
}

}  // namespace
}  // namespace shim
