#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Kind = ShimAnswer::Kind;

class PowerVerb : public fakes::VmctlFixture {
 protected:
  PowerVerb() {
    putVm("web1", true);
    putRunning("web1");
  }
};

TEST_F(PowerVerb, AsksTheGuestsShimInTheNameOfWhoRunsIt) {
  EXPECT_EQ(vmctl("pause web1"), (Answer{0, "", "web1: paused\n"}));
  EXPECT_EQ(vmctl("resume web1"), (Answer{0, "", "web1: goes on\n"}));
  EXPECT_EQ(vmctl("reset web1"), (Answer{0, "", "web1: reset\n"}));
  EXPECT_EQ(vmctl("nmi web1"), (Answer{0, "", "web1: has got its interrupt\n"}));
  EXPECT_THAT(shimCalls_,
              ElementsAre(R"(web1 {"pause":{"by":"op1"}})", R"(web1 {"resume":{"by":"op1"}})",
                          R"(web1 {"reset":{"by":"op1"}})", R"(web1 {"nmi":{"by":"op1"}})"));
}

TEST_F(PowerVerb, NeedsNoDaemon) {
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("pause web1"), (Answer{0, "", "web1: paused\n"}));
}

TEST_F(PowerVerb, IsForSeveralAndForAllThatRun) {
  putVm("web2", true);
  putRunning("web2");
  putVm("web3", false);
  putOff("web3");
  EXPECT_EQ(vmctl("pause --all"), (Answer{0, "", "web1: paused\nweb2: paused\n"}));
  EXPECT_EQ(vmctl("resume web2 web1"), (Answer{0, "", "web2: goes on\nweb1: goes on\n"}));
  EXPECT_EQ(vmctl("reset").exit, 2);
  EXPECT_EQ(vmctl("reset web1 --all").exit, 2);
}

TEST_F(PowerVerb, SaysThatNoGuestRunsForAll) {
  putOff("web1");
  EXPECT_EQ(vmctl("pause --all"), (Answer{0, "", "no guest runs\n"}));
}

TEST_F(PowerVerb, KnowsOnlyVmsThatThereAre) {
  EXPECT_EQ(vmctl("pause web9"),
            (Answer{3, "", "vmctl: web9: there is no such VM; did you mean 'web1'?\n"}));
  EXPECT_THAT(shimCalls_, IsEmpty());
}

TEST_F(PowerVerb, SaysWhyItWasNotDone) {
  const std::pair<ShimAnswer, Answer> cases[] = {
      {{Kind::absent, "", ""},
       {4, "", "vmctl: web1: no guest runs: 'vmctl start web1' starts one\n"}},
      {{Kind::denied, "", ""},
       {1, "",
        "vmctl: web1: its guest's keeper may not be asked: run vmctl as root, or as a member of "
        "the group vmagent\n"}},
      {{Kind::silent, "", ""}, {7, "", "vmctl: web1: its guest's keeper does not answer\n"}},
      {{Kind::ended, "", ""}, {4, "", "vmctl: web1: its guest has ended meanwhile\n"}},
      {{Kind::refused, R"({"error":"QEMU is not ready"})", ""},
       {4, "", "vmctl: web1: QEMU is not ready\n"}},
      {{Kind::refused, R"({"error":"the guest is being ended"})", ""},
       {4, "", "vmctl: web1: the guest is being ended\n"}},
      {{Kind::refused, R"({"error":"QEMU does not answer"})", ""},
       {7, "", "vmctl: web1: QEMU does not answer\n"}},
      {{Kind::refused, R"({"error":"the request is not understood: it must be …"})", ""},
       {1, "",
        "vmctl: web1: its guest's keeper is of an earlier version, which cannot do that: it can "
        "from the guest's next start on\n"}}};
  for (const auto& [said, answer] : cases) {
    shimAnswers_["web1"] = said;
    EXPECT_EQ(vmctl("pause web1"), answer);
  }
}

TEST_F(PowerVerb, PressesKeysTogetherAndOneBehindTheOther) {
  EXPECT_EQ(vmctl("key web1 Ctrl-Alt-Del a enter"), (Answer{0, "", "web1: pressed\n"}));
  EXPECT_THAT(shimCalls_, ElementsAre(R"(web1 {"key":{"keys":["ctrl","alt","delete"],"by":"op1"}})",
                                      R"(web1 {"key":{"keys":["a"],"by":"op1"}})",
                                      R"(web1 {"key":{"keys":["ret"],"by":"op1"}})"));
}

TEST_F(PowerVerb, TakesAPlusBetweenKeysToo) {
  EXPECT_EQ(vmctl("key web1 ctrl+alt+del").exit, 0);
  EXPECT_THAT(shimCalls_,
              ElementsAre(R"(web1 {"key":{"keys":["ctrl","alt","delete"],"by":"op1"}})"));
}

TEST_F(PowerVerb, NamesTheKeysThatAreNone) {
  shimAnswers_["web1"] = {Kind::refused,
                          R"({"error":"Parameter 'data' does not accept value 'foo'"})", ""};
  EXPECT_EQ(vmctl("key web1 ctrl-foo"),
            (Answer{5, "",
                    "vmctl: 'ctrl-foo' is refused: must be QEMU's names of keys with '-' between "
                    "them, such as ctrl-alt-delete, a, f1 or kp_enter\n"}));
}

TEST_F(PowerVerb, PressesNothingOfWhatIsPartlyNoKey) {
  for (const char* keys : {"a ctrl-", "a -a", "a ctrl--a"})
    EXPECT_EQ(vmctl(std::string("key web1 -- ") + keys).exit, 5) << keys;
  EXPECT_THAT(shimCalls_, IsEmpty());
}

TEST_F(PowerVerb, WritesThePictureThatComesAlong) {
  const std::string png = "\x89PNG\r\n\x1a\n and more";
  shimAnswers_["web1"] = {Kind::done, R"({"return":{}})", png};
  EXPECT_EQ(vmctl("screenshot web1 /tmp/web1.png"),
            (Answer{0, "", "web1: its screen is in /tmp/web1.png\n"}));
  EXPECT_EQ(files_["/tmp/web1.png"], png);
  EXPECT_EQ(vmctl("screenshot web1 -"), (Answer{0, png, "web1: its screen is in the output\n"}));
  isTerminal_ = true;
  EXPECT_EQ(vmctl("screenshot web1 -").exit, 2);
}

TEST_F(PowerVerb, WritesNothingOfAQemuThatSendsNoPicture) {
  shimAnswers_["web1"] = {Kind::done, R"({"return":{}})", "#!/bin/sh\n"};
  EXPECT_EQ(vmctl("screenshot web1 /tmp/web1.png"),
            (Answer{1, "", "vmctl: web1: what its QEMU made is no picture\n"}));
  EXPECT_EQ(files_.count("/tmp/web1.png"), 0U);
}

}  // namespace
}  // namespace ctl
