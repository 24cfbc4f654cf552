// Who may be started with which disk image.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "host/fakes/TroubledStore.h"
#include "host/guests/Images.h"

namespace host {
namespace {

using Kind = ImageVerdict::Kind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

model::ImageFacts disk(uint64_t inode) {
  model::ImageFacts facts;
  facts.kind = model::ImageFacts::Kind::regular;
  facts.file = {1, inode};
  facts.size = model::smallestImage;
  return facts;
}

model::ImageFacts beginning(std::string_view head, model::ImageFacts facts = disk(7)) {
  std::copy(head.begin(), head.end(), facts.head.begin());
  return facts;
}

model::ImageFacts cd(uint64_t inode) {
  model::ImageFacts facts = disk(inode);
  facts.isCd = true;
  return facts;
}

constexpr std::string_view plainQcow2("QFI\xfb\0\0\0\3", 8);
constexpr std::string_view backedQcow2("QFI\xfb\0\0\0\3\0\0\0\0\0\0\1\0", 16);

class ImagesTest : public testing::Test {
 protected:
  explicit ImagesTest(Images::Formats formats = Images::Formats::told)
      : images({.look = [this](const rt::String&,
                               const rt::String& path) -> std::optional<model::ImageFacts> {
                  const auto found = files.find(path.str());
                  return found == files.end() ? std::nullopt : std::optional(found->second);
                },
                .forget = [this](const rt::String& vm) { forgotten.push_back(vm.str()); },
                .known = [this](const rt::String& vm) { known.push_back(vm.str()); },
                .formats = formats},
               rows) {}

  // The daemon hears of what it wrote itself, too.
  ImageVerdict judge(const ImageQuestion& question) {
    ImageVerdict verdict = images.judge(question);
    const auto row = record(question.vm);
    if (row && verdict.kind != Kind::awaited) rows.rowIs(question.vm, row);
    return verdict;
  }
  ImageVerdict judge(const char* vm, const char* path) { return judge({.vm = vm, .path = path}); }
  ImageVerdict judgeTakeUp(const char* vm, const char* path) {
    return judge({.vm = vm, .path = path, .takesUp = true});
  }
  void rowIs(const char* vm, const char* doc) {
    images.rowIs(vm, statedb::Record{"vmImage", vm, doc, 1, 1});
    known.clear();
  }
  std::optional<statedb::Record> record(const rt::String& vm) {
    return file.other(statedb::Half::config)->record("vmImage", vm);
  }
  std::string written(const char* vm) {
    const auto row = record(vm);
    return row ? row->doc.str() : "none";
  }

  std::map<std::string, model::ImageFacts> files{{"/a", disk(1)}, {"/b", disk(2)}};
  std::vector<std::string> known;
  std::vector<std::string> forgotten;
  fakes::StoreFile file;
  fakes::StoreFile status;
  statedb::StateDb db = fakes::troubledDb(file, status);
  ImageRows rows{db};
  Images images;
};

TEST_F(ImagesTest, ThatNobodyHasLookedAtAreAwaited) {
  EXPECT_EQ(judge("web1", "/nowhere").kind, Kind::awaited);
  EXPECT_EQ(judgeTakeUp("web1", "/nowhere").kind, Kind::awaited);
}

TEST_F(ImagesTest, ThatCannotBeReadAreRefusedAlsoToAGuestThatRuns) {
  files["/fifo"].kind = model::ImageFacts::Kind::other;
  files["/far"] = model::unreadable(ETIMEDOUT);
  files["/short"] = disk(3);
  files["/short"].size = 100;
  for (const char* path : {"/fifo", "/far", "/short"}) {
    EXPECT_EQ(judge("web1", path).kind, Kind::refused) << path;
    EXPECT_EQ(judgeTakeUp("web1", path).kind, Kind::refused) << path;
  }
  EXPECT_EQ(judge("web1", "/far").problem,
            "diskImage: '/far' is refused: must answer within 5 s: its file system does not");
}

// Formats.

TEST_F(ImagesTest, AreOpenedAsTheirRowSays) {
  rowIs("web1", R"({"diskImage":"/a","format":"raw"})");
  files["/a"] = beginning(backedQcow2);
  const ImageVerdict verdict = judge("web1", "/a");
  EXPECT_EQ(verdict.kind, Kind::fit);
  EXPECT_EQ(verdict.format, "raw");
  EXPECT_THAT(verdict.note.str(), HasSubstr("'/a' is opened as raw, as it was named, though it "
                                            "begins as qcow2 does"));
  EXPECT_EQ(written("web1"), "none") << "there is a row already";
}

TEST_F(ImagesTest, OfWhichNobodyHasSpokenAreWhatTheyBeginAsFromThenOn) {
  EXPECT_EQ(judge("web1", "/a").format, "raw");
  EXPECT_EQ(written("web1"), R"({"diskImage":"/a","format":"raw"})");
  files["/a"] = beginning(plainQcow2);
  EXPECT_EQ(judge("web1", "/a").format, "raw");
  EXPECT_EQ(judge("web2", "/a").kind, Kind::refused);
}

TEST_F(ImagesTest, ThatAnOperatorNamesAtThisMomentAreWhatHeSays) {
  file.other(statedb::Half::config)
      ->commit(
          statedb::Transaction().put("vmImage", "web1", R"({"diskImage":"/a","format":"qcow2"})"));
  EXPECT_EQ(judge("web1", "/a").kind, Kind::awaited);
}

TEST_F(ImagesTest, ThatNeedASecondFileAreRefused) {
  files["/q"] = beginning(backedQcow2);
  EXPECT_THAT(judge("web1", "/q").problem.str(), HasSubstr("has a backing file"));
  rowIs("web1", R"({"diskImage":"/q","format":"qcow2"})");
  EXPECT_THAT(judge("web1", "/q").problem.str(), HasSubstr("has a backing file"));
}

TEST_F(ImagesTest, NamedQcow2ThatAreNoneAreRefused) {
  rowIs("web1", R"({"diskImage":"/a","format":"qcow2"})");
  EXPECT_THAT(judge("web1", "/a").problem.str(), HasSubstr("must be qcow2"));
}

TEST_F(ImagesTest, OfOtherFormatsAreRefusedUnlessTheyWereNamedRaw) {
  files["/vmdk"] = beginning("KDMV");
  EXPECT_THAT(judge("web1", "/vmdk").problem.str(), HasSubstr("this is VMDK"));
  EXPECT_EQ(written("web1"), "none");
  rowIs("web1", R"({"diskImage":"/vmdk","format":"raw"})");
  EXPECT_EQ(judge("web1", "/vmdk").kind, Kind::fit);
}

TEST_F(ImagesTest, WhoseRowIsNotValidAreRefused) {
  rowIs("web1", R"({"diskImage":"/a","format":"vmdk"})");
  EXPECT_EQ(judge("web1", "/a").problem,
            "vmImage: format: 'vmdk' is refused: must be raw or qcow2");
}

TEST_F(ImagesTest, WhoseRowChangesAreKnownAnew) {
  images.rowIs("web1", std::nullopt);
  EXPECT_THAT(known, ElementsAre("web1"));
}

TEST_F(ImagesTest, WhoseRowIsLostAreKnownAnew) {
  images.rowIsLost("web1");
  EXPECT_THAT(known, ElementsAre("web1"));
}

TEST_F(ImagesTest, ThatAnOperatorNamesWhileTheirGuestIsTakenUpAreAwaited) {
  file.other(statedb::Half::config)
      ->commit(
          statedb::Transaction().put("vmImage", "web1", R"({"diskImage":"/a","format":"qcow2"})"));
  EXPECT_EQ(images.judge({.vm = "web1", .path = "/a", .takesUp = true}).kind, Kind::awaited);
}

class GuessedImagesTest : public ImagesTest {
 protected:
  GuessedImagesTest() : ImagesTest(Images::Formats::guessed) {}
};

TEST_F(GuessedImagesTest, MustBeginAsWhatTheyAre) {
  rowIs("web1", R"({"diskImage":"/a","format":"raw"})");
  EXPECT_EQ(judge("web1", "/a").kind, Kind::fit);
  files["/a"] = beginning(plainQcow2);
  EXPECT_THAT(judge("web1", "/a").problem.str(),
              HasSubstr("must begin as what it is, raw, for QEMU is not told; it begins as qcow2"));
}

// Guests that run already.

TEST_F(ImagesTest, OfAGuestThatIsTakenUpNeedBeReadableOnly) {
  rowIs("invalid", R"({"diskImage":"/a","format":"x"})");
  EXPECT_EQ(judgeTakeUp("invalid", "/a").kind, Kind::fit);
  EXPECT_THAT(judgeTakeUp("invalid", "/a").note.str(), HasSubstr("vmImage: format"));
  files["/q"] = beginning(backedQcow2);
  EXPECT_EQ(judgeTakeUp("web1", "/q").kind, Kind::fit);
  EXPECT_EQ(judgeTakeUp("web1", "/q").format, "") << "nobody knows what it was opened as";
  files["/busy"] = disk(4);
  files["/busy"].isInUse = true;
  EXPECT_EQ(judgeTakeUp("web1", "/busy").kind, Kind::fit) << "it is the guest that uses it";
}

TEST_F(ImagesTest, OfAGuestThatCannotBeTakenUpYetSayThatItGoesOn) {
  files["/a"] = model::unreadable(ENOENT);
  EXPECT_THAT(judgeTakeUp("web1", "/a").problem.str(),
              HasSubstr("No such file or directory; the guest that an earlier vmagentd started "
                        "goes on, and is taken up then"));
  EXPECT_THAT(judge("web1", "/a").problem.str(), Not(HasSubstr("goes on")));
}

TEST_F(ImagesTest, OfAGuestThatIsTakenUpHaveTheirFormatFixed) {
  EXPECT_EQ(judgeTakeUp("web1", "/a").format, "raw");
  EXPECT_EQ(written("web1"), R"({"diskImage":"/a","format":"raw"})");
}

// One disk, two users.

TEST_F(ImagesTest, ThatTheMachineUsesAreRefused) {
  files["/dev/sda"] = disk(0);
  files["/dev/sda"].isInUse = true;
  EXPECT_THAT(judge("web1", "/dev/sda").problem.str(),
              HasSubstr("'/dev/sda' is refused: must not be in use: the machine has it mounted"));
}

TEST_F(ImagesTest, OfAnotherVmAreRefusedWhateverTheirName) {
  files["/link-to-a"] = files["/a"];
  EXPECT_EQ(judge("web1", "/a").kind, Kind::fit);
  EXPECT_EQ(judge("web1", "/a").kind, Kind::fit) << "it has it itself";
  EXPECT_EQ(judge("web2", "/link-to-a").problem,
            "diskImage: '/link-to-a' is refused: must be another image: VM 'web1' has it");
  EXPECT_EQ(judge("web2", "/b").kind, Kind::fit);
}

TEST_F(ImagesTest, OfAGuestThatWasTakenUpAreItsOwn) {
  judgeTakeUp("web1", "/a");
  EXPECT_EQ(judge("web2", "/a").kind, Kind::refused);
}

TEST_F(ImagesTest, ThatAreReleasedAreFreeAndWhoWaitsForThemIsTold) {
  judge("web1", "/a");
  judge("web2", "/a");
  judge("web3", "/b");
  known.clear();
  images.release("web1");
  EXPECT_THAT(known, ElementsAre("web2"));
  EXPECT_THAT(forgotten, ElementsAre("web1"));
  EXPECT_EQ(judge("web2", "/a").kind, Kind::fit);
  images.release("web1");
  EXPECT_THAT(known, ElementsAre("web2")) << "once";
}

TEST_F(ImagesTest, ThatAreReleasedAreNoNewsToWhoHasAnotherMeanwhile) {
  judge("web1", "/a");
  judge("web2", "/a");
  judge("web2", "/b");
  images.release("web1");
  EXPECT_THAT(known, IsEmpty());
}

TEST_F(ImagesTest, AreReleasedWhenTheirVmTakesAnother) {
  judge("web1", "/a");
  judge("web2", "/a");
  judge("web1", "/b");
  EXPECT_THAT(known, ElementsAre("web2"));
  EXPECT_EQ(judge("web2", "/a").kind, Kind::fit);
}

TEST_F(ImagesTest, AreReleasedWhenTheirVmMayNotStart) {
  judge("web1", "/a");
  files["/a"] = model::unreadable(EIO);
  judge("web1", "/a");
  files["/a"] = disk(1);
  EXPECT_EQ(judge("web2", "/a").kind, Kind::fit);
}

TEST_F(ImagesTest, AreKeptWhileTheyAreLookedAtAgain) {
  judge("web1", "/a");
  const auto facts = files.extract("/a");
  judge("web1", "/a");
  files["/a"] = facts.mapped();
  EXPECT_EQ(judge("web2", "/a").kind, Kind::refused) << "it is in the midst of a restart";
}

TEST_F(ImagesTest, OnACdMayBeReadByAnyNumber) {
  files["/cd"] = cd(9);
  files["/cd"].isInUse = true;
  EXPECT_EQ(judge("web1", "/cd").kind, Kind::fit);
  EXPECT_EQ(judge("web2", "/cd").kind, Kind::fit);
  EXPECT_THAT(known, IsEmpty());
}

}  // namespace
}  // namespace host
