#include <algorithm>

#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;

constexpr const char* plain =
    R"("diskImage":"/images/web.iso","memory":256,"vncPort":0,"vnicConfig":{})";

class ApplyVerb : public fakes::VmctlFixture {
 protected:
  Answer apply(const std::string& document, const std::string& options = "") {
    files_["/vms.json"] = document;
    return vmctl("apply -f /vms.json " + options);
  }
  static std::string vm(const std::string& name, const std::string& fields) {
    return R"({"name":")" + name + R"(","config":{)" + fields + "}}";
  }
  static std::string document(const std::string& vms) {
    return R"({"version":1,"vms":[)" + vms + "]}";
  }
};
class ExportVerb : public ApplyVerb {};

TEST_F(ApplyVerb, AddsAndChangesAndKeepsWhatIsNotNamed) {
  putVm("web1", true);
  putVm("web2", false);
  putVm("web3", false);
  EXPECT_EQ(
      apply(document(vm("web1", R"("enabled":true,"diskImage":"/images/web.iso","memory":512)") +
                     "," + vm("web2", plain) + "," + vm("web4", plain))),
      (Answer{0, "",
              "web1: changed: memory=512 (takes effect at the next start)\n"
              "web4: added\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("512"));
  EXPECT_THAT(doc("vmConfig", "web4"), HasSubstr("/images/web.iso"));
  EXPECT_NE(doc("vmConfig", "web3"), "none");
}

TEST_F(ApplyVerb, WithPruneRemovesWhatIsNotNamed) {
  putVm("web1", false);
  putVm("web2", true);
  put("vmIntent", "web2", R"({"restart":1})");
  EXPECT_EQ(apply(document(vm("web1", plain)), "--prune"), (Answer{0, "", "web2: removed\n"}));
  EXPECT_EQ(doc("vmConfig", "web2"), "none");
  EXPECT_EQ(doc("vmIntent", "web2"), "none");
}

TEST_F(ApplyVerb, WithDryRunSaysWhatItWouldDoAndWritesNothing) {
  putVm("web1", true);
  putVm("web2", true);
  EXPECT_EQ(
      apply(document(vm("web1", R"("diskImage":"/b.iso","memory":256)") + "," + vm("web3", plain)),
            "--prune --dry-run"),
      (Answer{0,
              "change web1: diskImage=\"/b.iso\", enabled=false\n"
              "remove web2, and its guest ends\n"
              "add web3\n",
              ""}));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("/images/web.iso"));
  EXPECT_NE(doc("vmConfig", "web2"), "none");
  EXPECT_EQ(doc("vmConfig", "web3"), "none");
}

TEST_F(ApplyVerb, TellsByItsExitWhetherSomethingWouldChange) {
  putVm("web1", false);
  const std::string same = document(vm("web1", plain));
  const std::string other = document(vm("web1", plain) + "," + vm("web2", plain));
  EXPECT_EQ(apply(same, "--dry-run --exit-code"), (Answer{0, "", "nothing to change\n"}));
  EXPECT_EQ(apply(other, "--dry-run --exit-code"), (Answer{8, "add web2\n", ""}));
  EXPECT_EQ(apply(other, "--dry-run"), (Answer{0, "add web2\n", ""}));
  EXPECT_EQ(apply("{", "--dry-run --exit-code").exit, 5);
  EXPECT_EQ(apply(other, "--exit-code").exit, 2) << "a script that looks must not write";
  EXPECT_EQ(doc("vmConfig", "web2"), "none");
}

TEST_F(ApplyVerb, WritesWhatWouldChangeAsJson) {
  putVm("web1", true);
  putVm("web2", true);
  const Answer answer =
      apply(document(vm("web1", R"("enabled":true,"diskImage":"/images/web.iso","memory":512)")),
            "--prune --dry-run -o json");
  EXPECT_EQ(answer, (Answer{0,
                            "{\n"
                            "  \"version\": 1,\n"
                            "  \"dryRun\": true,\n"
                            "  \"changes\": [\n"
                            "    {\n"
                            "      \"name\": \"web1\",\n"
                            "      \"op\": \"change\",\n"
                            "      \"changes\": [\n"
                            "        \"memory=512\"\n"
                            "      ],\n"
                            "      \"needsRestart\": true\n"
                            "    },\n"
                            "    {\n"
                            "      \"name\": \"web2\",\n"
                            "      \"op\": \"remove\",\n"
                            "      \"changes\": [],\n"
                            "      \"needsRestart\": false\n"
                            "    }\n"
                            "  ],\n"
                            "  \"others\": []\n"
                            "}\n",
                            ""}));
}

TEST_F(ApplyVerb, SaysOfWhatStandsInTheWrongPlaceWhereItBelongs) {
  EXPECT_EQ(apply(document(vm("web1", std::string(plain) + R"(,"limits":{"cpuMax":"1"})"))),
            (Answer{5, "", "vmctl: web1: 'limits' stands beside config, not in it\n"}));
  EXPECT_EQ(
      apply(R"({"version":2,"vms":[]})"),
      (Answer{5, "", "vmctl: version: '2' is refused: must be 1: this vmctl knows no other\n"}));
}

TEST_F(ApplyVerb, OfWhatIsSoChangesNothing) {
  putVm("web1", false);
  EXPECT_EQ(apply(document(vm("web1", plain))), (Answer{0, "", "nothing to change\n"}));
}

TEST_F(ApplyVerb, GivesWhatADocumentLeavesOutTheDefaultsOfAdd) {
  EXPECT_EQ(apply(document(vm("web1", R"("diskImage":"/images/web.iso")"))),
            (Answer{0, "", "web1: added\n"}));
  vmctl("add web2 --disk /images/web.iso");
  EXPECT_EQ(doc("vmConfig", "web1"), doc("vmConfig", "web2"));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr(R"("memory":256)"));
}

TEST_F(ApplyVerb, PassesOverWhatAListSaysIsRemoved) {
  putVm("web1", false);
  putRunning("old");
  EXPECT_EQ(apply(vmctl("list -o json").out, "--prune").err, "nothing to change\n");
  EXPECT_EQ(doc("vmConfig", "old"), "none");
}

TEST_F(ApplyVerb, TakesWhatShowAndListAndExportWrite) {
  putVm("web1", false);
  putRunning("web1");
  daemonRuns_ = false;
  for (const char* command : {"show web1 -o json", "list -o json", "export"})
    EXPECT_EQ(apply(vmctl(command).out).err, "nothing to change\n") << command;
}

TEST_F(ApplyVerb, LetsVmsExchangeWhatOnlyOneMayHave) {
  put("vmConfig", "web1", R"({"enabled":true,"diskImage":"/a","memory":1,"vncPort":5901})");
  put("vmConfig", "web2", R"({"enabled":true,"diskImage":"/a","memory":1,"vncPort":5902})");
  EXPECT_EQ(
      apply(document(vm("web1", R"("enabled":true,"diskImage":"/a","memory":1,"vncPort":5902)") +
                     "," +
                     vm("web2", R"("enabled":true,"diskImage":"/a","memory":1,"vncPort":5901)")))
          .exit,
      0);
}

TEST_F(ApplyVerb, TellsAllThatIsWrongAndWritesNothing) {
  putVm("web1", false);
  EXPECT_EQ(
      apply(document(vm("web1", R"("memory":"256","diskImage":"/a")") + "," +
                     vm("web2", R"("memory":0,"diskImage":"a")") + "," +
                     R"({"name":"web3","confg":{}},{"config":{}},7,)" + vm("web2", plain))),
      (Answer{
          5, "",
          "vmctl: web1: memory: '256' is refused: must be a whole number from 0 to 4294967295, "
          "without quotes\n"
          "vmctl: web3: there is no field 'confg'; did you mean 'config'?\n"
          "vmctl: web3: must have a config\n"
          "vmctl: vms[3]: must have a name, in quotes\n"
          "vmctl: vms[4]: must be an object with name and config\n"
          "vmctl: web2: must be there once\n"
          "vmctl: web2: diskImage: 'a' is refused: must be an absolute path without blanks, commas "
          "and control characters\n"
          "vmctl: web2: memory: '0' is refused: must be 1 to 8192 (mebibytes; this machine has no "
          "more)\n"}));
  EXPECT_EQ(doc("vmConfig", "web2"), "none");
}

TEST_F(ApplyVerb, TellsTwelveMistakesOfOneVmAtOnce) {
  const std::string nic0 = R"("nic00":{"model":"e100","macAddr":"52:54:00","intfName":"Vlan0"})";
  const std::string nic1 =
      R"("nic01":{"model":"","macAddr":"01:00:5e:00:00:01","intfName":"a b","speed":1000})";
  const Answer answer =
      apply(document(vm("web 1", R"("enabled":"yes","diskImage":"web.iso","memory":-1,)"
                                 R"("vncPort":80,"vnicConfig":{)" +
                                     nic0 + "," + nic1 + "}")));
  EXPECT_EQ(answer.exit, 5);
  EXPECT_EQ(std::count(answer.err.begin(), answer.err.end(), '\n'), 12) << answer.err;
  for (const char* field :
       {"name", "enabled", "diskImage", "memory", "vncPort", "vnicConfig.nic00.model",
        "vnicConfig.nic00.macAddr", "vnicConfig.nic00.intfName", "vnicConfig.nic01.model",
        "vnicConfig.nic01.macAddr", "vnicConfig.nic01.intfName", "speed"})
    EXPECT_THAT(answer.err, HasSubstr(field));
  EXPECT_EQ(doc("vmConfig", "web 1"), "none");
}

TEST_F(ApplyVerb, TellsBothSidesOfAClash) {
  const std::string card =
      R"(,"vnicConfig":{"nic00":{"model":"e1000","macAddr":"52:54:00:00:00:01","intfName":"v"}})";
  const Answer answer = apply(document(vm("web1", R"("diskImage":"/a","memory":1)" + card) + "," +
                                       vm("web2", R"("diskImage":"/a","memory":1)" + card)));
  EXPECT_EQ(answer.exit, 5);
  EXPECT_THAT(answer.err, HasSubstr("vmctl: web1: vnicConfig.nic00.macAddr"));
  EXPECT_THAT(answer.err, HasSubstr("vmctl: web2: vnicConfig.nic00.macAddr"));
}

TEST_F(ApplyVerb, RefusesWhatIsNoDocument) {
  EXPECT_EQ(apply("{\"version\":1,").err,
            "vmctl: document: must be JSON, but at line 1, column 13: string or '}' expected near "
            "end of file\n");
  EXPECT_EQ(apply("[]").err, "vmctl: document: must be a JSON object\n");
  EXPECT_EQ(apply(R"({"version":2,"vms":{}})").err,
            "vmctl: version: '2' is refused: must be 1: this vmctl knows no other\n"
            "vmctl: vms: must be a list of VMs\n");
  EXPECT_EQ(apply(R"({"version":1,"vms":[],"vm":1})").err,
            "vmctl: document: there is no field 'vm'; did you mean 'vms'?\n");
}

TEST_F(ApplyVerb, NeedsAFileThatCanBeRead) {
  EXPECT_EQ(vmctl("apply"), (Answer{2, "", "vmctl: 'apply' needs -f FILE\n"}));
  EXPECT_EQ(vmctl("apply -f /none"),
            (Answer{1, "", "vmctl: /none cannot be read: No such file or directory (errno 2)\n"}));
}

TEST_F(ApplyVerb, ReplacesARowThatCannotBeRead) {
  put("vmConfig", "web1", "[]");
  EXPECT_EQ(apply(document(vm("web1", plain))),
            (Answer{0, "", "web1: changed: all of it: it could not be read\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("/images/web.iso"));
}

TEST_F(ApplyVerb, PlansAnewWhenAnotherWroteMeanwhile) {
  putVm("web1", false);
  beforeCommit([&] { putVm("web1", true); });
  EXPECT_EQ(apply(document(vm("web1", plain) + "," + vm("web2", plain))),
            (Answer{0, "", "web1: changed: enabled=false\nweb2: added\n"}));
}

TEST_F(ApplyVerb, NamesCardsThatComeAndGo) {
  vmctl("add web1 --disk /a --nic model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(apply(document(vm("web1", R"("diskImage":"/a","memory":256)")), "--dry-run").out,
            "change web1: vnicConfig.nic00.intfName is gone, vnicConfig.nic00.macAddr is gone, "
            "vnicConfig.nic00.model is gone\n");
}

TEST_F(ExportVerb, WritesTheConfigurationOnly) {
  putVm("web1", false);
  putRunning("web1");
  EXPECT_EQ(vmctl("export"), (Answer{0, R"({
  "version": 1,
  "vms": [
    {
      "name": "web1",
      "config": {
        "enabled": false,
        "diskImage": "/images/web.iso",
        "memory": 256,
        "vncPort": 0,
        "vnicConfig": {}
      }
    }
  ]
}
)",
                                     ""}));
}

TEST_F(ExportVerb, FailsWhenARowCannotBeRead) {
  putVm("web1", false);
  put("vmConfig", "web2", "7");
  const Answer answer = vmctl("export");
  EXPECT_EQ(answer.exit, 1);
  EXPECT_EQ(answer.err,
            "vmctl: web2: its configuration cannot be read: document: '7' is refused: must be a "
            "JSON object\n");
  EXPECT_THAT(answer.out, HasSubstr("web1"));
}

}  // namespace
}  // namespace ctl
