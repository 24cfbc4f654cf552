#include <gmock/gmock.h>

#include "host/guests/EndBook.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EndBookTest : public testing::Test {
 protected:
  static End killed(uint64_t at = 5'000) {
    return {EndCause::killed, "QEMU was killed by signal 9", "signal 9", "unknown", true, at, 0, 9};
  }
  static End asked() {
    return {EndCause::asked,
            "the guest was asked to shut down, and did in 4 s",
            "shut down as asked",
            "operator",
            false,
            6'000,
            0,
            0};
  }
  // What a later daemon, or one after a boot, makes of it; `news`: of whom it tells.
  EndBook next(const char* boot) {
    EndBook then;
    EXPECT_EQ(then.takeEnds(book.endsText()), "");
    EXPECT_EQ(then.takeRunning(book.runningText()), "");
    news = then.bootIs(boot, 9'000);
    return then;
  }
  // "cause by at: text", or empty.
  static std::string shown(const EndBook& book, const char* vm = "web1") {
    const End* const end = book.end(vm);
    if (!end) return "";
    return textOf(end->cause).str() + " " + end->by.str() + " " + std::to_string(end->at) + ": " +
           end->text.str();
  }

  EndBook book;
  std::vector<rt::String> news = book.bootIs("boot-a", 1'000);
};

TEST_F(EndBookTest, KeepsHowAVmEndedOverABoot) {
  book.runs("web1", 7, 2'000);
  book.ended("web1", 7, killed());
  const EndBook then = next("boot-b");
  EXPECT_EQ(shown(then), "killed unknown 5000: QEMU was killed by signal 9");
  EXPECT_TRUE(then.end("web1")->isFailure);
  EXPECT_EQ(then.end("web1")->signal, 9);
  EXPECT_EQ(then.end("web1")->brief, "signal 9");
  EXPECT_THAT(news, IsEmpty()) << "it was told by then";
}

TEST_F(EndBookTest, TellsThatTheMachineBeganAnewUnderARunThatHasNoEnd) {
  book.runs("web1", 6, 1'500);
  book.ended("web1", 6, killed());
  book.runs("web1", 7, 2'000);
  EndBook then = next("boot-b");
  EXPECT_EQ(shown(then), "host-reboot host 9000: the switch was restarted without notice");
  EXPECT_FALSE(then.end("web1")->isFailure);
  EXPECT_THAT(news, ElementsAre("web1"));
  book = then;
  EXPECT_EQ(shown(next("boot-b")), shown(then));
  EXPECT_THAT(news, IsEmpty()) << "once";
}

TEST_F(EndBookTest, TellsThatTheMachineWentDownOfOneWhoWasAskedWithAll) {
  book.runs("web1", 7, 2'000);
  book.ended("web1", 7, asked(), true);
  EXPECT_EQ(shown(next("boot-b")),
            "host-down host 6000: the switch was shut down: the guest was asked to shut down, and "
            "did in 4 s");
  EXPECT_THAT(news, ElementsAre("web1"));
}

TEST_F(EndBookTest, TellsNothingOfTheMachineWhichIsTheSame) {
  book.runs("web1", 7, 2'000);
  book.ended("web2", 8, asked(), true);
  const EndBook then = next("boot-a");
  EXPECT_EQ(shown(then), "");
  EXPECT_EQ(shown(then, "web2"), "asked operator 6000: " + asked().text.str());
  EXPECT_THAT(news, IsEmpty());
}

// A run is told by when it began in its boot: another boot's may have the same number.
TEST_F(EndBookTest, TakesNoEndOfAnotherBootForThatOfARun) {
  book.runs("web1", 7, 2'000);
  book.ended("web1", 7, killed());
  book = next("boot-b");
  book.runs("web1", 7, 3'000);
  EXPECT_EQ(shown(next("boot-c")).substr(0, 11), "host-reboot");
}

TEST_F(EndBookTest, ConcludesNothingWhereNobodySaysWhichBootItIs) {
  book.runs("web1", 7, 2'000);
  EXPECT_EQ(shown(next("")), "");
}

TEST_F(EndBookTest, ForgetsAVmThatIsGone) {
  book.runs("web1", 7, 2'000);
  book.ended("web2", 8, killed());
  book.vmDel("web1");
  book.vmDel("web2");
  EXPECT_EQ(book.endsText() + book.runningText(), "");
}

TEST_F(EndBookTest, TakesNothingOfAFileThatIsDamaged) {
  book.ended("web2", 8, killed());
  const std::string good = book.endsText();
  for (const std::string& bad : {good + "rubbish\n", good.substr(0, good.size() - 1), good + "{}\n",
                                 good + "{\"vm\":\"web3\"}\n"}) {
    EndBook then;
    EXPECT_THAT(then.takeEnds(bad).str(), testing::HasSubstr("is none of ours")) << bad;
    EXPECT_EQ(then.endsText(), "");
  }
}

TEST_F(EndBookTest, KeepsTheLatestOfMoreThanThereMayBe) {
  for (size_t n = 0; n <= EndBook::mostVms; ++n)
    book.ended(rt::String("vm" + std::to_string(n)), 1, killed(n));
  book.bootIs("boot-b", 0);
  EXPECT_EQ(book.ends().size(), EndBook::mostVms);
  EXPECT_EQ(book.end("vm0"), nullptr);
}

}  // namespace
}  // namespace host
