// What all verbs have in common: usage, help, directories, a database in trouble.
#include "ctl/fakes/VmctlFixture.h"
#include "ctl/verbs/Verbs.h"
#include "statedb/sqlite/SqliteDb.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::StartsWith;

class Usage : public fakes::VmctlFixture {};
class Help : public fakes::VmctlFixture {};
class ProgramDirectories : public fakes::VmctlFixture {};

Answer usageError(const std::string& sentence) { return {2, "", "vmctl: " + sentence + "\n"}; }

TEST_F(Usage, WithoutAVerbIsToldAsTalk) {
  const Answer answer = vmctl("");
  EXPECT_EQ(answer.exit, 2);
  EXPECT_EQ(answer.out, "");
  EXPECT_THAT(answer.err, StartsWith("usage: vmctl VERB"));
}

TEST_F(Usage, SuggestsTheVerbThatWasMeant) {
  EXPECT_EQ(vmctl("lst"), usageError("there is no verb 'lst'; did you mean 'list'?"));
  EXPECT_EQ(vmctl("sotp web1"), usageError("there is no verb 'sotp'; did you mean 'stop'?"));
  EXPECT_EQ(vmctl("frobnicate"),
            usageError("there is no verb 'frobnicate'; 'vmctl --help' lists them"));
  EXPECT_EQ(vmctl("nic web1"),
            usageError("there is no verb 'nic web1'; there are nic add, nic set and nic remove"));
  EXPECT_EQ(vmctl("status web1"),
            usageError("there is no verb 'status': 'vmctl show NAME' tells all about a VM"));
  EXPECT_EQ(vmctl("nic ad web1"), usageError("there is no verb 'nic ad'; did you mean 'nic add'?"));
  EXPECT_EQ(vmctl("interface"), usageError("'interface' is half a verb; there are interface list, "
                                           "interface set, interface unset"));
}

TEST_F(Help, OfHalfAVerbTellsOfAllThatBeginSo) {
  const std::string all = vmctl("help nic add").out + "\n" + vmctl("help nic set").out + "\n" +
                          vmctl("help nic remove").out;
  EXPECT_EQ(vmctl("help nic"), (Answer{0, all, ""}));
  EXPECT_EQ(vmctl("nic --help"), (Answer{0, all, ""}));
  EXPECT_EQ(vmctl("help nic ad").exit, 2);
}

TEST_F(Usage, SuggestsTheOptionThatWasMeant) {
  EXPECT_EQ(vmctl("list --json"), usageError("there is no option '--json': say -o json"));
  EXPECT_EQ(vmctl("enable web1 --wiat"),
            usageError("there is no option '--wiat'; did you mean '--wait'?"));
  EXPECT_EQ(vmctl("list --frobnicate=7"),
            usageError("there is no option '--frobnicate'; 'vmctl list --help' lists those of "
                       "'list'"));
  EXPECT_EQ(vmctl("list -x"),
            usageError("there is no option '-x'; 'vmctl list --help' lists those of 'list'"));
  EXPECT_EQ(vmctl("-x"),
            usageError("there is no option '-x'; 'vmctl VERB --help' lists those of a verb"));
}

TEST_F(Usage, OffersNoOptionThatTheVerbHasNot) {
  EXPECT_EQ(vmctl("logs web1 --foo"),
            usageError("there is no option '--foo'; 'vmctl logs --help' lists those of 'logs'"));
  EXPECT_EQ(vmctl("logs web1 --folow"),
            usageError("there is no option '--folow'; did you mean '--follow'?"));
  EXPECT_EQ(vmctl("key web1 --foo"),
            usageError("there is no option '--foo'; 'vmctl key --help' lists those of 'key'"));
  for (const Verb& verb : verbs()) {
    if (verb.summary.empty()) continue;
    for (const Option& option : allOptions()) {
      const std::string near = "--x" + std::string(option.name);
      const std::string said = vmctl(std::string(verb.name) + " " + near).err;
      const size_t at = said.find("did you mean '--");
      if (at == std::string::npos) continue;
      const size_t begin = at + std::string_view("did you mean '--").size();
      const std::string offered = said.substr(begin, said.find('\'', begin) - begin);
      ASSERT_TRUE(optionNamed(offered)) << said;
      EXPECT_TRUE(takes(verb, *optionNamed(offered))) << verb.name << ": " << said;
    }
  }
}

TEST_F(Usage, KnowsOptionsOfOthers) {
  EXPECT_EQ(vmctl("list -q"), usageError("there is no option '-q': say -o name"));
  EXPECT_EQ(vmctl("list -a"),
            usageError("there is no option '-a': all VMs are shown, leave it out"));
  EXPECT_EQ(vmctl("add web1 --ram 512"),
            usageError("there is no option '--ram': say --memory SIZE"));
  EXPECT_THAT(vmctl("add web1 --cpus 2").err, HasSubstr("a guest has one processor"));
  EXPECT_EQ(vmctl("stop web1 --force"),
            usageError("'stop' takes no option '--force': say --now: its guest ends at once"));
  EXPECT_EQ(vmctl("start web1 --force"),
            usageError("'start' takes no option '--force': see 'vmctl start --help'"));
  EXPECT_EQ(vmctl("rm web1 -y"),
            usageError("there is no option '-y': nothing is asked, leave it out"));
  EXPECT_EQ(vmctl("ps -a"), usageError("there is no verb 'ps': 'vmctl list' shows all VMs"))
      << "the verb is wrong first";
}

TEST_F(Usage, RefusesWhatTheVerbDoesNotTake) {
  EXPECT_EQ(vmctl("list --wait"),
            usageError("'list' takes no option '--wait': see 'vmctl list --help'"));
  EXPECT_EQ(vmctl("enable web1 -o json"),
            usageError("'enable' takes no option '--output': see 'vmctl enable --help'"));
  EXPECT_EQ(vmctl("start web1 --now"),
            usageError("'start' takes no option '--now': see 'vmctl start --help'"));
  EXPECT_EQ(vmctl("doctor web1"),
            usageError("'doctor' does not take 'web1': vmctl doctor [-o FORMAT]"));
  EXPECT_EQ(vmctl("show"), usageError("'show' needs NAME: vmctl show NAME [-o FORMAT]"));
  EXPECT_EQ(
      vmctl("set web1"),
      usageError("'set' needs NAME FIELD=VALUE...: vmctl set NAME FIELD=VALUE... [--dry-run]"));
}

TEST_F(Usage, RefusesValuesWhereNoneBelongAndMissingOnes) {
  EXPECT_EQ(vmctl("enable web1 --wait=yes"), usageError("option '--wait' takes no value"));
  EXPECT_EQ(vmctl("list -hx"), usageError("option '-h' takes no value"));
  EXPECT_EQ(vmctl("enable web1 --timeout"), usageError("option '--timeout' takes a value: S"));
  EXPECT_EQ(vmctl("list -o"), usageError("option '-o' takes a value: FORMAT"));
  EXPECT_EQ(vmctl("list -o yaml"),
            usageError("-o: 'yaml' is refused: must be table, wide, json or name"));
}

TEST_F(Usage, RefusesTextThatIsNotUtf8) {
  EXPECT_EQ(vmctl(std::vector<rt::String>{"show", "w\xff"}),
            usageError("argument 2 is no UTF-8 text"));
}

TEST_F(Usage, WritesNoControlCharactersBack) {
  EXPECT_EQ(vmctl(std::vector<rt::String>{"show", "a\x1b[2J"}).err,
            "vmctl: a\\x1b[2J: there is no such VM\n");
}

TEST_F(Usage, TakesOptionsAnywhereAndEndsThemAtTwoDashes) {
  putVm("web1", false);
  EXPECT_EQ(vmctl("-o name list").out, "web1\n");
  EXPECT_EQ(vmctl("--output=name list").out, "web1\n");
  EXPECT_EQ(vmctl("show -- --wait").err, "vmctl: --wait: there is no such VM\n");
}

TEST_F(Usage, IsWrongBeforeTheDatabaseIsTouched) {
  vmctl("list --wait");
  EXPECT_EQ(stateDir_, "");
}

TEST_F(Help, IsDataWhenAskedFor) {
  const Answer answer = vmctl("--help");
  EXPECT_EQ(answer.exit, 0);
  EXPECT_EQ(answer.err, "");
  for (const Verb& verb : verbs()) EXPECT_THAT(answer.out, HasSubstr(std::string(verb.summary)));
}

TEST_F(Help, OfAVerbTellsHowItIsUsedAndItsOptions) {
  EXPECT_EQ(vmctl("remove --help"),
            (Answer{0,
                    "usage: vmctl remove NAME... [--wait] [--timeout S] [--force]\n"
                    "also:  vmctl rm\n"
                    "\n"
                    "Removes virtual machines; their disk images stay. One that is enabled, or "
                    "unknown to the\n"
                    "configuration, is removed with --force only, which ends its guest; until that "
                    "has ended,\n"
                    "'vmctl list' has it as removed. The last ten that were removed 'vmctl "
                    "undelete' brings back.\n"
                    "Done is: no process and no status is left.\n"
                    "\n"
                    "Without --wait it returns when it is written down. With --wait and no "
                    "vmagentd running it\n"
                    "is written down all the same, and the exit is 1 at once.\n"
                    "\n"
                    "options:\n"
                    "  --wait                  return when it is done\n"
                    "  --timeout S             seconds that it may take at most; to wait 60 by "
                    "default\n"
                    "  --force                 although a guest, or a file, is lost by it\n"
                    "  --state-dir DIR         where the configuration is; /var/lib/vmagent, or "
                    "$VMAGENT_STATE_DIR\n"
                    "  --run-dir DIR           where the status is; /run/vmagent, or "
                    "$VMAGENT_RUN_DIR\n"
                    "  -h, --help              tell how to use it\n",
                    ""}));
}

TEST_F(Help, IsThereForEachVerbAndItsAlias) {
  for (const Verb& verb : verbs()) {
    const Answer answer = vmctl(std::string(verb.name) + " -h");
    EXPECT_EQ(answer.exit, 0) << verb.name;
    EXPECT_THAT(answer.out, StartsWith("usage: vmctl " + std::string(verb.name)));
    EXPECT_THAT(answer.out, HasSubstr(std::string(verb.help.substr(0, verb.help.find("FIELDS")))));
    if (verb.alias.empty()) continue;
    EXPECT_EQ(vmctl(std::string(verb.alias) + " --help"), answer) << verb.alias;
  }
}

TEST_F(Help, IsAVerbToo) {
  EXPECT_EQ(vmctl("help"), vmctl("--help"));
  EXPECT_EQ(vmctl("help nic add"), vmctl("nic add --help"));
  EXPECT_EQ(vmctl("help lst").exit, 2);
}

TEST_F(Help, NamesOptionsThatThereAre) {
  for (const Verb& verb : verbs()) {
    std::istringstream names{std::string(verb.options)};
    for (std::string name; names >> name;)
      EXPECT_TRUE(name == "FIELDS" || optionNamed(name)) << verb.name << " --" << name;
  }
}

TEST_F(Help, FitsTheWidthOfATerminal) {
  for (const Verb& verb : verbs()) {
    std::istringstream lines(vmctl(std::string(verb.name) + " -h").out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100U) << line;
  }
}

TEST_F(Help, TellsTheVersion) {
  EXPECT_THAT(vmctl("version").out, testing::MatchesRegex("vmctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_EQ(vmctl("--version"), vmctl("version"));
  EXPECT_THAT(vmctl("version -o json").out, HasSubstr("\"vmctl\": \""));
}

TEST_F(Help, TellsWhereGuestsSocketsAre) {
  EXPECT_THAT(vmctl("version -o json --run-dir /r").out, HasSubstr("\"runDir\": \"/r\",\n"));
}

TEST_F(Help, TellsTheNewestFormatOfADatabaseThatItReads) {
  const std::string format = std::to_string(statedb::sqlite::newestFormat());
  EXPECT_THAT(vmctl("version -o json").out, HasSubstr("\"databaseFormat\": " + format + "\n"));
}

TEST_F(ProgramDirectories, IsTheOptionsElseTheEnvironmentsElseTheSystems) {
  vmctl("list");
  EXPECT_EQ(stateDir_, "/var/lib/vmagent");
  EXPECT_EQ(runDir_, "/run/vmagent");
  environment_ = {{"VMAGENT_STATE_DIR", "/e/state"}, {"VMAGENT_RUN_DIR", "/e/run"}};
  vmctl("list");
  EXPECT_EQ(stateDir_, "/e/state");
  EXPECT_EQ(runDir_, "/e/run");
  vmctl("--state-dir /o/state list --run-dir=/o/run");
  EXPECT_EQ(stateDir_, "/o/state");
  EXPECT_EQ(runDir_, "/o/run");
}

TEST_F(ProgramDirectories, IsTheSystemsWhenTheEnvironmentsIsEmpty) {
  environment_ = {{"VMAGENT_STATE_DIR", ""}, {"VMAGENT_RUN_DIR", ""}};
  vmctl("list");
  EXPECT_EQ(stateDir_, "/var/lib/vmagent");
  EXPECT_EQ(runDir_, "/run/vmagent");
}

TEST_F(ProgramDirectories, ThatCannotBeUsedIsExitSix) {
  putVm("web1", false);
  beforeCommit([] {
    throw statedb::Error(statedb::Trouble::full, "no space left on the disk of /x: free some");
  });
  EXPECT_EQ(vmctl("enable web1"),
            (Answer{6, "", "vmctl: no space left on the disk of /x: free some\n"}));
}

}  // namespace
}  // namespace ctl
