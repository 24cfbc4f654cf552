// The daemon's command line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "host/Options.h"

namespace host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Wish = CommandLine::Wish;
using Words = std::vector<const char*>;

CommandLine readLine(const Words& words, const Environment& environment = {}) {
  return readCommandLine(words, environment);
}

Options optionsOf(const Words& words, const Environment& environment = {}) {
  const CommandLine line = readLine(words, environment);
  EXPECT_EQ(line.wish, Wish::run) << line.text;
  return line.options;
}

// What is said to whom the command line is wrong, without the frame that is always the same.
std::string refusal(const Words& words, const Environment& environment = {}) {
  const CommandLine line = readLine(words, environment);
  EXPECT_EQ(line.wish, Wish::usageError);
  const std::string begin = "vmagentd: ";
  const std::string end = "\nTry 'vmagentd --help'.\n";
  const std::string& text = line.text.str();
  EXPECT_THAT(text, StartsWith(begin));
  EXPECT_THAT(text, testing::EndsWith(end));
  return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

TEST(Options, HaveDefaults) {
  const Options options = optionsOf({});
  EXPECT_EQ(options.stateDir, "/var/lib/vmagent");
  EXPECT_EQ(options.runDir, "/run/vmagent");
  EXPECT_EQ(options.traceLevels, 1U << 1 | 1U << 2);
  EXPECT_EQ(options.shim, "auto");
  EXPECT_EQ(options.accel, "auto");
  EXPECT_EQ(options.vncListen, "");
  EXPECT_EQ(options.stopTimeout, "15");
  EXPECT_EQ(options.guestUsers, "");
  EXPECT_EQ(options.qemuReads, "");
  EXPECT_TRUE(options.holdsSenders);
  EXPECT_FALSE(options.keepsHistory);
}

TEST(Options, HaveTheirValueInTheNextWord) {
  const Options options = optionsOf({"--state-dir",    "/s",
                                     "--run-dir",      "/r",
                                     "--trace",        "7",
                                     "--shim",         "/opt/shim",
                                     "--accel",        "kvm",
                                     "--vnc-listen",   "::1",
                                     "--stop-timeout", "0",
                                     "--guest-users",  "70000-70099",
                                     "--qemu-reads",   "/opt/qemu:/srv",
                                     "--guest-macs",   "any"});
  EXPECT_EQ(options.stateDir, "/s");
  EXPECT_EQ(options.runDir, "/r");
  EXPECT_EQ(options.traceLevels, 1U << 7);
  EXPECT_EQ(options.shim, "/opt/shim");
  EXPECT_EQ(options.accel, "kvm");
  EXPECT_EQ(options.vncListen, "::1");
  EXPECT_EQ(options.stopTimeout, "0");
  EXPECT_EQ(options.guestUsers, "70000-70099");
  EXPECT_EQ(options.qemuReads, "/opt/qemu:/srv");
  EXPECT_FALSE(options.holdsSenders);
  EXPECT_TRUE(optionsOf({"--keep-history", "--run-dir", "/r"}).keepsHistory);
  EXPECT_TRUE(optionsOf({"--guest-macs", "any", "--guest-macs=own"}).holdsSenders);
}

TEST(Options, HaveTheirValueInTheSameWord) {
  const Options options = optionsOf({"--state-dir=/s", "--run-dir=/r", "--trace=none", "--shim=off",
                                     "--accel=tcg", "--vnc-listen=[::]", "--stop-timeout=86400"});
  EXPECT_EQ(options.stateDir, "/s");
  EXPECT_EQ(options.runDir, "/r");
  EXPECT_EQ(options.traceLevels, 0U);
  EXPECT_EQ(options.shim, "off");
  EXPECT_EQ(options.accel, "tcg");
  EXPECT_EQ(options.vncListen, "[::]");
  EXPECT_EQ(options.stopTimeout, "86400");
}

TEST(Options, MayHoldAnEqualsSign) { EXPECT_EQ(optionsOf({"--state-dir=/a=b"}).stateDir, "/a=b"); }

TEST(Options, MeanTheLastWhenTheyAreGivenTwice) {
  EXPECT_EQ(optionsOf({"--run-dir=/a", "--run-dir", "/b"}).runDir, "/b");
}

TEST(Options, TakeDefaultsFromTheEnvironment) {
  const Options options = optionsOf({}, {.stateDir = "/s", .runDir = "/r", .trace = "all"});
  EXPECT_EQ(options.stateDir, "/s");
  EXPECT_EQ(options.runDir, "/r");
  EXPECT_EQ(options.traceLevels, ~rt::TraceLevels(0));
}

TEST(Options, GoBeforeTheEnvironment) {
  const Options options = optionsOf({"--state-dir", "/a", "--run-dir=/b", "--trace=1"},
                                    {.stateDir = "/s", .runDir = "/r", .trace = "all"});
  EXPECT_EQ(options.stateDir, "/a");
  EXPECT_EQ(options.runDir, "/b");
  EXPECT_EQ(options.traceLevels, 1U << 1);
}

TEST(Options, AreRefusedWithNameValueAndWhatWouldBeRight) {
  const std::pair<Words, const char*> cases[] = {
      {{"--state-dir", "lib"},
       "--state-dir: 'lib' is refused: must be an absolute path of a directory"},
      {{"--state-dir="}, "--state-dir: '' is refused: must be an absolute path of a directory"},
      {{"--run-dir=./r"}, "--run-dir: './r' is refused: must be an absolute path of a directory"},
      {{"--trace=32"},
       "--trace: '32' is refused: must be none, all, or levels from 0 to 31 such as 1,2,7"},
      {{"--trace", "1;2"},
       "--trace: '1;2' is refused: must be none, all, or levels from 0 to 31 such as 1,2,7"},
      {{"--shim=shim"},
       "--shim: 'shim' is refused: must be auto, off or an absolute path of a program"},
      {{"--accel", "xen"}, "--accel: 'xen' is refused: must be auto, kvm or tcg"},
      {{"--vnc-listen="},
       "--vnc-listen: '' is refused: must be an address, such as 127.0.0.1 or ::1"},
      {{"--vnc-listen", "127.0.0.1,share=ignore"},
       "--vnc-listen: '127.0.0.1,share=ignore' is refused: must be an address, such as 127.0.0.1 "
       "or ::1"},
      {{"--stop-timeout=-1"}, "--stop-timeout: '-1' is refused: must be 0 to 86400 (seconds)"},
      {{"--stop-timeout", "86401"},
       "--stop-timeout: '86401' is refused: must be 0 to 86400 (seconds)"},
      {{"--stop-timeout=1.5"}, "--stop-timeout: '1.5' is refused: must be 0 to 86400 (seconds)"},
      {{"--guest-users=0-9"},
       "--guest-users: '0-9' is refused: must be two numbers of users, from 1 on, as 60578-61183"},
      {{"--qemu-reads="},
       "--qemu-reads: '' is refused: must be absolute paths, with ':' between them"},
      {{"--qemu-reads=/a:b"},
       "--qemu-reads: '/a:b' is refused: must be absolute paths, with ':' between them"},
      {{"--qemu-reads=/a:"},
       "--qemu-reads: '/a:' is refused: must be absolute paths, with ':' between them"},
      {{"--guest-macs=all"}, "--guest-macs: 'all' is refused: must be own or any"}};
  for (const auto& [words, text] : cases) EXPECT_EQ(refusal(words), text);
}

TEST(Options, OfTheEnvironmentAreRefusedUnderItsNames) {
  EXPECT_EQ(refusal({}, {.stateDir = "lib"}),
            "VMAGENT_STATE_DIR: 'lib' is refused: must be an absolute path of a directory");
  EXPECT_EQ(refusal({}, {.runDir = "run"}),
            "VMAGENT_RUN_DIR: 'run' is refused: must be an absolute path of a directory");
  EXPECT_THAT(refusal({}, {.trace = "loud"}), StartsWith("VMAGENT_TRACE: 'loud' is refused"));
}

TEST(Options, AreRefusedWithoutTheirValue) {
  for (const char* name :
       {"--state-dir", "--run-dir", "--trace", "--shim", "--accel", "--vnc-listen",
        "--stop-timeout", "--guest-users", "--qemu-reads", "--guest-macs"})
    EXPECT_EQ(refusal({name}), std::string(name) + " needs a value");
}

TEST(Options, ThatAreNotKnownAreRefusedWithTheOneMeantPerhaps) {
  EXPECT_EQ(refusal({"--statedir", "/s"}),
            "there is no option '--statedir'; did you mean '--state-dir'?");
  EXPECT_EQ(refusal({"-x"}), "there is no option '-x'");
}

TEST(Options, MayAskForACheckOfWhatTheOthersSay) {
  for (const Words& words : {Words{"--check", "--shim", "off"}, Words{"--shim=off", "--check"}}) {
    const CommandLine line = readLine(words);
    EXPECT_EQ(line.wish, Wish::check);
    EXPECT_EQ(line.options.shim, "off");
  }
  EXPECT_THAT(refusal({"--check", "--shim=shim"}), StartsWith("--shim: 'shim' is refused"));
  EXPECT_EQ(readLine({"--check", "--version"}).wish, Wish::print);
}

TEST(Options, MayAskForTheEndOfAllGuestsWithTheTimeThatTheyGet) {
  const CommandLine line = readLine({"--end-guests", "--stop-timeout", "40"});
  EXPECT_EQ(line.wish, Wish::endGuests);
  EXPECT_EQ(line.options.stopTimeout, "40");
  EXPECT_THAT(refusal({"--end-guests", "now"}), StartsWith("'now' is refused"));
}

TEST(Options, SayHowLongAnOrderlyStopMayTake) {
  EXPECT_EQ(stopPatience(optionsOf({"--stop-timeout=40"})), rt::Seconds(48));
  EXPECT_EQ(stopPatience(optionsOf({"--stop-timeout=40", "--shim=off"})), rt::Seconds(0));
}

TEST(Options, AreAllThereIsOnTheCommandLine) {
  EXPECT_EQ(refusal({"start"}), "'start' is refused: there are no arguments, only options");
}

TEST(Options, AreReadUpToTheFirstThatIsWrong) {
  EXPECT_THAT(refusal({"--accel=a", "--trace=b"}), StartsWith("--accel"));
}

TEST(Help, NamesEveryOptionAndExitStatus) {
  for (const char* word : {"--help", "-h"}) {
    const CommandLine line = readLine({word});
    EXPECT_EQ(line.wish, Wish::print);
    for (const char* name :
         {"--state-dir", "--run-dir", "--trace", "--shim", "--accel", "--vnc-listen",
          "--stop-timeout", "--guest-users", "--qemu-reads", "--guest-macs", "--keep-history",
          "--check", "--end-guests", "--version", "--help", "VMAGENT_STATE_DIR", "VMAGENT_RUN_DIR",
          "VMAGENT_TRACE",
          "Exit status: 0 ended by a signal, or done; 1 failed, 2 wrong usage, 4 another daemon "
          "runs,\n6 the database is damaged"})
      EXPECT_THAT(line.text.str(), HasSubstr(name));
  }
}

TEST(Version, IsOneLine) {
  const CommandLine line = readLine({"--version", "--nonsense"});
  EXPECT_EQ(line.wish, Wish::print);
  EXPECT_THAT(line.text.str(), testing::MatchesRegex("vmagentd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
}  // namespace host
