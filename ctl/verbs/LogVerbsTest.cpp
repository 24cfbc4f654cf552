// Over real files: the run directory is a temporary one.
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "ctl/fakes/VmctlFixture.h"
#include "ctl/machine/LogFile.h"
#include "runtime/base/fakes/TestFolder.h"

namespace ctl {
namespace {

using fakes::Answer;

class LogsVerb : public fakes::VmctlFixture {
 protected:
  LogsVerb() {
    environment_["VMAGENT_RUN_DIR"] = run_.path();
    std::filesystem::create_directories(directory_);
  }

  void append(const std::string& file, const std::string& text) const {
    std::ofstream(directory_ + "/" + file, std::ios::app) << text;
  }
  void rotate() const {
    std::filesystem::rename(directory_ + "/console.log", directory_ + "/console.log.1");
  }

  const rt::fakes::TestFolder run_;
  const std::string directory_ = run_ / "vm/web1";
};

TEST_F(LogsVerb, ShowsTheOlderFileFirst) {
  append("console.log", "new\n");
  append("console.log.1", "old\n");
  EXPECT_EQ(vmctl("logs web1"), (Answer{0, "old\nnew\n", ""}));
}

TEST_F(LogsVerb, ShowsTheLastLines) {
  append("console.log.1", "one\ntwo\n");
  append("console.log", "three\n\nlast");
  EXPECT_EQ(vmctl("logs web1 -n 1").out, "last");
  EXPECT_EQ(vmctl("logs web1 --tail 4").out, "two\nthree\n\nlast");
  EXPECT_EQ(vmctl("logs web1 -n 5").out, "one\ntwo\nthree\n\nlast");
  EXPECT_EQ(vmctl("logs web1 -n 9").out, "one\ntwo\nthree\n\nlast");
  append("console.log", "\n");
  EXPECT_EQ(vmctl("logs web1 -n 2").out, "\nlast\n");
}

TEST_F(LogsVerb, SayWhenTheGuestHasWrittenNothing) {
  append("console.log", "");
  EXPECT_EQ(vmctl("logs web1"),
            (Answer{0, "",
                    "web1: its guest has written nothing; 'vmctl logs web1 --shim' shows what QEMU "
                    "said\n"}));
}

TEST_F(LogsVerb, ShowsWhatTheKeeperWroteWhenAsked) {
  append("console.log", "guest\n");
  append("shim.log", "keeper\n");
  EXPECT_EQ(vmctl("logs web1 --shim"), (Answer{0, "keeper\n", ""}));
}

// Members of the group may write there.
TEST_F(LogsVerb, FollowsNoLinkAndReadsRootNoFileOfAnothers) {
  append("shim.log", "secret\n");
  std::filesystem::create_symlink("shim.log", directory_ + "/console.log");
  EXPECT_EQ(vmctl("logs web1").out, "");
  std::filesystem::remove(directory_ + "/console.log");
  if (geteuid() != 0) return;
  append("console.log", "another's\n");
  ASSERT_EQ(chown((directory_ + "/console.log").c_str(), 1234, 0), 0);
  const Answer answer = vmctl("logs web1");
  EXPECT_EQ(answer.out, "");
  EXPECT_THAT(answer.err,
              testing::HasSubstr("console.log cannot be read: it is no file of root's"));
}

TEST_F(LogsVerb, PassesAllBytesOnToAFileAndNoneThatActToATerminal) {
  append("console.log", "a\x1b[2Jb\r\n\tc\xc2\x9b\xc3\xa9\n");
  EXPECT_EQ(vmctl("logs web1").out, "a\x1b[2Jb\r\n\tc\xc2\x9b\xc3\xa9\n");
  isTerminal_ = true;
  EXPECT_EQ(vmctl("logs web1").out, "a\\x1b[2Jb\n\tc\\xc2\\x9b\xc3\xa9\n");
}

TEST_F(LogsVerb, FollowsOverAChangeOfFiles) {
  append("console.log", "1\n");
  onWait([&] { append("console.log", "2\n"); });
  onWait([&] {
    append("console.log", "3\n");
    rotate();
    append("console.log", "4\n");
  });
  onWait([&] { append("console.log", "5\n"); });
  onWait([&] { closeOutput(); });
  EXPECT_EQ(vmctl("logs web1 -f"), (Answer{0, "1\n2\n3\n4\n5\n", ""}));
  EXPECT_EQ(waits_, 4);
}

TEST_F(LogsVerb, FollowsAFileThatComesLater) {
  append("console.log.1", "old\n");
  onWait([&] { append("console.log", "new\n"); });
  onWait([&] { closeOutput(); });
  EXPECT_EQ(vmctl("logs web1 --follow").out, "old\nnew\n");
}

TEST_F(LogsVerb, EndsWhenTheDirectoryGoes) {
  append("console.log", "1\n");
  onWait([&] { std::filesystem::remove_all(directory_); });
  EXPECT_EQ(vmctl("logs web1 -f"), (Answer{0, "1\n", ""}));
}

TEST_F(LogsVerb, SaysThatThereIsNoneYet) {
  putVm("web1", true);
  const std::string sentence = "vmctl: web1: there is no " + directory_ +
                               "/console.log: its guest has not been started since the machine "
                               "was\n";
  EXPECT_EQ(vmctl("logs web1"), (Answer{1, "", sentence}));
  EXPECT_EQ(vmctl("logs web1 -f"), (Answer{1, "", sentence}));
}

TEST_F(LogsVerb, KnowsWhatIsNoVm) {
  putVm("web1", true);
  EXPECT_EQ(vmctl("logs web2"),
            (Answer{3, "", "vmctl: web2: there is no such VM; did you mean 'web1'?\n"}));
  EXPECT_EQ(vmctl("logs ../web1"),
            (Answer{3, "",
                    "vmctl: ../web1: there is no such VM: a name must be 1 to 64 of A-Z a-z 0-9 . "
                    "_ -, the first a letter or a digit\n"}));
}

TEST_F(LogsVerb, ShowsTheLogOfAVmThatWasRemoved) {
  append("console.log", "last words\n");
  EXPECT_EQ(vmctl("logs web1").out, "last words\n");
}

TEST_F(LogsVerb, SaysWhyAFileCannotBeRead) {
  std::filesystem::create_symlink("console.log", directory_ + "/console.log");
  EXPECT_EQ(vmctl("logs web1"),
            (Answer{1, "",
                    "vmctl: web1: " + directory_ +
                        "/console.log cannot be read: Too many levels of symbolic links (errno "
                        "40)\n"}));
}

TEST_F(LogsVerb, SharesALetterWithAnOptionOfOtherVerbs) {
  EXPECT_EQ(vmctl("apply -f /nowhere").exit, 1);
  EXPECT_EQ(vmctl("-f logs web1"),
            (Answer{2, "", "vmctl: there is no verb 'web1'; 'vmctl --help' lists them\n"}));
}

TEST(TerminalText, RemembersHalfACharacterBetweenChunks) {
  TerminalText text;
  EXPECT_EQ(text.of("a\xc2"), "a");
  EXPECT_EQ(text.of("\x9b"), "\\xc2\\x9b");
  EXPECT_EQ(text.of("\xc2"), "");
  EXPECT_EQ(text.of("\xa9\x07"), "\xc2\xa9\\x07");
  EXPECT_EQ(text.of("\xe2\x80"), "");
  EXPECT_EQ(text.of("\xae|\xff"), "\\u202e|\\xff");
}

}  // namespace
}  // namespace ctl
