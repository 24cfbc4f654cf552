// The host's prompter and the agent itself.
#include <sys/socket.h>

#include "Vm/VmAgent/fakes/AgentFixture.h"
#include "host/guests/Prompter.h"

namespace Vm {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string queryStatus = "{ \"execute\": \"query-status\",\"id\": \"status\" }\n";
const std::string cont = "{ \"execute\": \"cont\",\"id\": \"cont\" }\n";
constexpr const char* prelaunch = "{\"status\": \"prelaunch\", \"running\": false}";
constexpr const char* running = "{\"status\": \"running\", \"running\": true}";

class PrompterTest : public AgentFixture {
 protected:
  PrompterTest() {
    start();
    prompter = rt::make<host::Prompter>(
        root, status,
        [this](const rt::String& name, bool is) {
          told.push_back(name.str() + (is ? " is silent" : " answers"));
        },
        clock);
  }
  // Its QEMU answers as one does: it runs once it was let run.
  std::vector<std::string> answerAll(const std::string& name) {
    auto& qemu = processes.monitor(name);
    std::vector<std::string> requests;
    for (bool isDone = false; !isDone;) {
      turn();
      const auto asked = qemu.answer();
      if (std::find(asked.begin(), asked.end(), cont) != asked.end())
        qemu.valueIs("query-status", running);
      requests.insert(requests.end(), asked.begin(), asked.end());
      isDone = asked.empty();
    }
    return requests;
  }
  // As a host starts it: some time after it mounted the VM's record.
  void enable(const std::string& name) {
    const auto added = addVm(name);
    turn();
    added->enabledIs(true);
  }
  std::vector<std::string> run(const std::string& name) {
    enable(name);
    auto& qemu = processes.monitor(name);
    qemu.valueIs("query-status", prelaunch);
    qemu.send(fakes::greeting());
    return answerAll(name);
  }
  void fillMonitor(const std::string& name) const {
    const std::string bytes(4096, '\n');
    while (::send(vm(name)->monFd()->descriptor(), bytes.data(), bytes.size(),
                  MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    }
  }
  void drainMonitor(const std::string& name) {
    while (!processes.monitor(name).receive().text.empty()) {
    }
  }

  host::Prompter::Ptr prompter;
  std::vector<std::string> told;
};

TEST_F(PrompterTest, GuestIsShownRunningAsSoonAsItRuns) {
  const auto requests = run("web1");
  EXPECT_EQ(vmStatus("web1")->state(), "Running");
  EXPECT_EQ(requests.back(), queryStatus) << "behind all that the agent asked";
  EXPECT_EQ(std::count(requests.begin(), requests.end(), queryStatus), 2);
}

TEST_F(PrompterTest, GuestIsNotAskedMoreThanByTheAgentOnceItRuns) {
  run("web1");
  clock->nowIs(clock->now() + rt::Seconds(4.9));
  EXPECT_THAT(answerAll("web1"), IsEmpty());
  clock->nowIs(clock->now() + rt::Seconds(0.1));
  EXPECT_THAT(answerAll("web1"), ElementsAre(queryStatus));
}

TEST_F(PrompterTest, GuestThatTakesItsTimeIsAskedAgain) {
  enable("web1");
  auto& qemu = processes.monitor("web1");
  qemu.valueIs("query-status", prelaunch);
  converse("web1");
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
  qemu.valueIs("query-status", running);
  advance(0.25);
  converse("web1");
  EXPECT_EQ(vmStatus("web1")->state(), "Running");
}

TEST_F(PrompterTest, GuestThatWasSwitchedOffIsNotAsked) {
  run("web1");
  config->vmConfig("web1")->enabledIs(false);
  forget();
  advance(100);
  EXPECT_THAT(withText(said(), "sendCommand"), IsEmpty());
}

TEST_F(PrompterTest, GuestWhoseProcessEndedIsNotAsked) {
  enable("web1");
  processes.monitor("web1").valueIs("query-status", prelaunch);
  converse("web1");
  endProcess("web1");
  forget();
  advance(4.9);  // of the agent's poll, which knows nothing of the end
  EXPECT_THAT(withText(said(), "sendCommand"), IsEmpty());
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
}

TEST_F(PrompterTest, GuestIsPolledAgainAfterAPollThatCouldNotBeSent) {
  run("web1");
  fillMonitor("web1");
  EXPECT_THROW(advance(5), rt::InternalException);
  drainMonitor("web1");
  forget();
  advance(9.9);
  EXPECT_THAT(withText(said(), "is again"), IsEmpty());
  advance(20);
  const auto lines = said();
  EXPECT_EQ(withText(lines, "was not polled any more, and is again").size(), 1U);
  EXPECT_GE(withText(lines, "VmConfigSm::doMonitorActivity").size(), 3U);
  EXPECT_THAT(withText(lines, "setupNetworkDevice"), IsEmpty());
  EXPECT_EQ(processes.connections("web1"), 1U);
}

TEST_F(PrompterTest, GuestIsPolledAgainHoweverOftenAPollCouldNotBeSent) {
  run("web1");
  fillMonitor("web1");
  for (int i = 0; i < 100; ++i) {
    try {
      advance(1);
    } catch (const rt::InternalException&) {
    }
  }
  drainMonitor("web1");
  forget();
  advance(60);
  EXPECT_GE(withText(said(), "VmConfigSm::doMonitorActivity").size(), 5U);
}

TEST_F(PrompterTest, GuestThatIsStartingIsNotWoken) {
  enable("web1");
  auto& qemu = processes.monitor("web1");
  qemu.send(fakes::greeting());
  turn();
  qemu.answer();  // to qmp_capabilities, and to nothing more
  turn();
  ASSERT_EQ(vmStatus("web1")->state(), "Starting");
  forget();
  advance(100);
  EXPECT_THAT(withText(said(), "is again"), IsEmpty());
}

TEST_F(PrompterTest, GuestThatAnswersNoPollIsToldOfAndThatItAnswersAgain) {
  run("web1");
  for (int i = 0; i < 20; ++i) {
    advance(1);
    (void)answerAll("web1");
  }
  EXPECT_THAT(told, IsEmpty());
  advance(14);
  EXPECT_THAT(told, IsEmpty());
  advance(5);
  EXPECT_THAT(told, ElementsAre("web1 is silent"));
  for (int i = 0; i < 6; ++i) {
    (void)answerAll("web1");
    advance(1);
  }
  EXPECT_THAT(told, ElementsAre("web1 is silent", "web1 answers"));
}

TEST_F(PrompterTest, GuestThatWasSilentIsNoLongerOnceItsVmIsRemoved) {
  run("web1");
  advance(20);
  config->vmConfigDel("web1");
  EXPECT_THAT(told, ElementsAre("web1 is silent", "web1 answers"));
}

TEST_F(PrompterTest, VmThatIsRemovedIsForgotten) {
  run("web1");
  config->vmConfigDel("web1");
  forget();
  advance(100);
  EXPECT_THAT(withText(said(), "web1"), IsEmpty());
}

}  // namespace
}  // namespace Vm
