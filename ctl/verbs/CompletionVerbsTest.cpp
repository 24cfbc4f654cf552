#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;

class CompletionVerb : public fakes::VmctlFixture {
 protected:
  CompletionVerb() {
    putVm("db1", false);
    putVm("web1", false);
    putVm("web2", false);
    put("vmConfig", "web2",
        R"({"diskImage":"/i","memory":1,"vnicConfig":{"nic00":{"model":"e1000"}}})");
    put("interface", "Vlan100", R"({"deviceName":"br0.100"})");
    put("interfaceStatus", "Ethernet1", R"({"deviceName":"Ethernet1","present":true})");
  }

  // What may stand in the last word's place, between blanks.
  std::string after(std::vector<rt::String> words) {
    words.insert(words.begin(), {"__complete", "--"});
    const Answer answer = vmctl(words);
    EXPECT_EQ(answer.exit, 0);
    EXPECT_EQ(answer.err, "");
    std::string text;
    std::istringstream lines(answer.out);
    for (std::string line; std::getline(lines, line);) text += (text.empty() ? "" : " ") + line;
    return text;
  }
};

TEST_F(CompletionVerb, OfVerbs) {
  EXPECT_EQ(after({"re"}), "remove rename reset restart restore resume");
  EXPECT_EQ(after({"st"}), "start stop");
  EXPECT_EQ(after({"nic", ""}), "add remove rm set");
  EXPECT_EQ(after({"interface", "un"}), "unset");
  EXPECT_EQ(after({"help", "do"}), "doctor");
  EXPECT_EQ(after({"__"}), "");
  EXPECT_EQ(after({"nonsense", ""}), "");
}

TEST_F(CompletionVerb, OfVmNames) {
  EXPECT_EQ(after({"show", ""}), "db1 web1 web2");
  EXPECT_EQ(after({"show", "w"}), "web1 web2");
  EXPECT_EQ(after({"show", "web1", ""}), "");
  EXPECT_EQ(after({"stop", "web1", "--wait", "w"}), "web2");
  EXPECT_EQ(after({"nic", "rm", "d"}), "db1");
  EXPECT_EQ(after({"add", ""}), "");
  EXPECT_EQ(after({"clone", "we"}), "web1 web2");
  EXPECT_EQ(after({"clone", "web1", "n"}), "");
  EXPECT_EQ(after({"clone", "web1", "new", "mem"}), "memory= memoryReserve=");
  EXPECT_EQ(after({"undelete", ""}), "");
  vmctl("rm web1");
  EXPECT_EQ(after({"undelete", ""}), "web1");
}

TEST_F(CompletionVerb, OfOptions) {
  EXPECT_EQ(after({"list", "--"}), "--help --output --run-dir --state-dir");
  EXPECT_EQ(after({"enable", "web1", "--w"}), "--wait");
  EXPECT_EQ(after({"logs", "--f"}), "--follow");
  EXPECT_EQ(after({"--s"}), "--state-dir");
}

TEST_F(CompletionVerb, OfOptionsValues) {
  EXPECT_EQ(after({"list", "-o", ""}), "json name table wide");
  EXPECT_EQ(after({"watch", "--output", "j"}), "json");
  EXPECT_EQ(after({"apply", "-f", ""}), "");
  EXPECT_EQ(after({"logs", "-f", "web"}), "web1 web2");
  EXPECT_EQ(after({"wait", "web1", "--for", ""}),
            "actual= config.enabled= enabled= process= state=");
  EXPECT_EQ(after({"wait", "web1", "--for", "process=r"}), "process=running");
  EXPECT_EQ(after({"enable", "--timeout", "5", "web"}), "web1 web2");
}

TEST_F(CompletionVerb, OfFields) {
  EXPECT_EQ(after({"set", "web1", ""}),
            "cpuMax= cpuWeight= diskImage= enabled= format= ioWeight= link= memory= "
            "memoryReserve= rateLimit= restart= startDelay= startOrder= vncPort=");
  EXPECT_EQ(after({"set", "web2", "vn"}),
            "vncPort= vnicConfig.nic00.intfName= vnicConfig.nic00.macAddr= "
            "vnicConfig.nic00.model=");
  EXPECT_EQ(after({"set", "web1", "memory=2", "en"}), "enabled=");
  EXPECT_EQ(after({"set", "web1", "enabled="}), "enabled=false enabled=true");
  EXPECT_EQ(after({"set", "web1", "format="}), "format=qcow2 format=raw");
  EXPECT_EQ(after({"add", "web3", "--format", "q"}), "qcow2");
  EXPECT_EQ(after({"set", "web2", "vnicConfig.nic00.model=vm"}), "vnicConfig.nic00.model=vmxnet3");
}

TEST_F(CompletionVerb, OfCardsInterfacesAndShells) {
  EXPECT_EQ(after({"nic", "remove", "web2", ""}), "nic00");
  EXPECT_EQ(after({"nic", "remove", "web9", ""}), "");
  EXPECT_EQ(after({"interface", "set", ""}), "Ethernet1 Vlan100");
  EXPECT_EQ(after({"completion", ""}), "bash fish zsh");
}

TEST_F(CompletionVerb, SaysNothingWhereThereIsNoDatabase) {
  hasStatus_ = false;
  EXPECT_EQ(after({"interface", "set", ""}), "Vlan100");
}

TEST_F(CompletionVerb, TellsNobodyOfItsVerb) {
  EXPECT_THAT(vmctl("--help").out, testing::Not(testing::HasSubstr("__complete")));
  EXPECT_THAT(vmctl("__complet").err, testing::Not(testing::HasSubstr("did you mean")));
}

TEST_F(CompletionVerb, IsTaughtToThreeShells) {
  for (const char* shell : {"bash", "zsh", "fish"}) {
    const Answer answer = vmctl(std::string("completion ") + shell);
    EXPECT_EQ(answer.exit, 0);
    EXPECT_THAT(answer.out, testing::HasSubstr("vmctl __complete -- "));
  }
  EXPECT_EQ(vmctl("completion csh"),
            (Answer{2, "", "vmctl: 'completion': 'csh' is refused: must be bash, zsh or fish\n"}));
}

}  // namespace
}  // namespace ctl
