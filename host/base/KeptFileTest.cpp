// A file that is kept on disk, written by real processes into a real directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/KeptFile.h"
#include "runtime/base/fakes/TestFolder.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using rt::fakes::contentOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class KeptFileTest : public testing::Test {
 protected:
  void SetUp() override { make(); }
  void make() {
    directory_ = std::make_unique<KeptDirectory>(rt::String(folder_.path()));
    file_ = rt::make<KeptFile>(
        *directory_, "events",
        [this](bool mustBeWhole) {
          asked_.push_back(mustBeWhole);
          return KeptFile::Part{text_, mustBeWhole};
        },
        clock_);
  }
  void pass(double seconds) {
    clock_->advance(rt::Seconds(seconds));
    manager_.turn(rt::Seconds(0));
  }
  // Until whoever writes has ended, by the loop.
  void write(const std::string& text) {
    text_ = text;
    file_->changed();
    pass(61);
    manager_.turn(rt::Seconds(10));
  }
  std::string path(const std::string& name = "events") const { return folder_ / ("kept/" + name); }

  const rt::fakes::TestFolder folder_;
  rt::Ptr<rt::fakes::ManualClock> clock_ = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager_{clock_};
  std::unique_ptr<KeptDirectory> directory_;
  rt::Ptr<KeptFile> file_;
  std::string text_;
  std::vector<bool> asked_;
  std::string said() {
    std::string all;
    for (const std::string& each : traces_.take(1)) all += each + "\n";
    return all;
  }
  rt::fakes::TraceRecorder traces_;
};

TEST_F(KeptFileTest, IsWrittenASecondAfterItChangedAndNotAgainWithinAMinute) {
  file_->changed();
  pass(0.9);
  EXPECT_THAT(asked_, IsEmpty());
  pass(0.1);
  EXPECT_THAT(asked_, ElementsAre(true));
  manager_.turn(rt::Seconds(10));
  file_->changed();
  pass(59);
  EXPECT_EQ(asked_.size(), 1U);
  pass(1);
  EXPECT_THAT(asked_, ElementsAre(true, false));
}

TEST_F(KeptFileTest, IsReplacedFirstAndAddedToFromThenOn) {
  write("one\n");
  EXPECT_EQ(contentOf(path()), "one\n");
  write("two\n");
  EXPECT_EQ(contentOf(path()), "one\ntwo\n");
  EXPECT_EQ(rt::fakes::modeOf(path()), 0640);
  EXPECT_EQ(rt::fakes::modeOf(folder_ / "kept") & 0777, 0750);
  EXPECT_FALSE(fs::exists(path("events.new")));
}

TEST_F(KeptFileTest, ThatCannotBeWrittenIsSaidOnceAndIsWholeTheNextTime) {
  write("one\n");
  fs::rename(path(), path("elsewhere"));
  write("two\n");
  write("three\n");
  EXPECT_THAT(asked_, ElementsAre(true, false, true));
  EXPECT_EQ(contentOf(path()), "three\n");
  const std::string said = this->said();
  EXPECT_THAT(said, HasSubstr("events: cannot be written: No such file"));
  EXPECT_THAT(said, HasSubstr("events: written again"));
}

TEST_F(KeptFileTest, IsWrittenAtOnceWhenTheDaemonEnds) {
  text_ = "last\n";
  file_->changed();
  file_->finish(rt::Seconds(10));
  EXPECT_EQ(contentOf(path()), "last\n");
}

TEST_F(KeptFileTest, IsWrittenAtTheEndBehindWhatIsBeingWritten) {
  text_ = "one\n";
  file_->changed();
  clock_->advance(KeptFile::delay);
  text_ = "two\n";
  file_->changed();
  file_->finish(rt::Seconds(10));
  EXPECT_EQ(contentOf(path()), "one\ntwo\n");
}

TEST_F(KeptFileTest, OfADirectoryOfAnotherUserIsLeftAlone) {
  if (geteuid() != 0) return;  // nobody else can give a directory away
  ASSERT_EQ(chown((folder_ / "kept").c_str(), 65534, 65534), 0);
  make();
  file_->changed();
  pass(61);
  EXPECT_FALSE(fs::exists(path()));
  EXPECT_THAT(asked_, IsEmpty());
  EXPECT_THAT(said(), HasSubstr("is another user's: remove it"));
}

TEST_F(KeptFileTest, FollowsNoLinkThatStandsInItsPlace) {
  std::ofstream(folder_ / "secret") << "secret\n";
  fs::create_symlink(folder_ / "secret", path("events.new"));
  write("one\n");
  EXPECT_EQ(contentOf(folder_ / "secret"), "secret\n");
  EXPECT_EQ(contentOf(path()), "one\n");
}

TEST_F(KeptFileTest, IsReadAndPutAsideUnlessItIsAFileOfOursAndNotTooLong) {
  EXPECT_EQ(directory_->read("events", 4), std::nullopt);
  write("four");
  EXPECT_EQ(directory_->read("events", 4), "four");
  EXPECT_EQ(directory_->read("events", 3), std::nullopt);
  EXPECT_EQ(contentOf(path("events.bad")), "four");
  EXPECT_FALSE(fs::exists(path()));
  fs::create_symlink("/etc/passwd", path());
  EXPECT_EQ(directory_->read("events", 1'000'000), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(path("events.bad")));
  EXPECT_EQ(mkfifo(path().c_str(), 0600), 0);
  EXPECT_EQ(directory_->read("events", 4), std::nullopt);
}

}  // namespace
}  // namespace host
