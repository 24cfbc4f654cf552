// Looks at disk images, in real processes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

#include "host/guests/ImageLooks.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr double patience = model::imagePatience.value();

// What holds those up in other processes who come to it, until it is opened; it counts them all.
class Gate {
 public:
  Gate() { sem_init(&shared_.gate, 1, 0); }
  Gate(const Gate&) = delete;
  ~Gate() { munmap(&shared_, sizeof shared_); }
  void open() { sem_post(&shared_.gate); }
  void pass() {
    while (sem_wait(&shared_.gate) != 0) {
    }
    sem_post(&shared_.gate);
  }
  void count() { ++shared_.count; }
  size_t counted() const { return shared_.count; }

 private:
  struct Shared {
    sem_t gate;
    std::atomic<size_t> count;
  };
  Shared& shared_ = *new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                               MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared{};
};

class ImageLooksTest : public testing::Test {
 protected:
  // A path that begins with "/hangs" is not answered until the gate is open. The size tells which
  // was looked at.
  model::ImageFacts look(const rt::String& path) {
    gate_.count();
    if (path.substr(0, 6) == "/hangs") gate_.pass();
    model::ImageFacts facts;
    facts.size = path.size();
    return facts;
  }
  // The size that is known; -1: none yet; -2: none.
  int ask(const char* vm, const char* path) {
    const auto facts = looks_->facts(vm, path);
    if (!facts) return -1;
    return facts->error == 0 ? static_cast<int>(facts->size) : -2;
  }
  // Waits until that many VMs were told of an answer.
  void waitFor(size_t answers) {
    while (answered_.size() < answers) manager_.turn();
  }
  std::vector<std::string> takeAnswered() { return std::exchange(answered_, {}); }

  Gate gate_;
  rt::Ptr<rt::fakes::ManualClock> clock_ = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager_{clock_};
  std::vector<std::string> answered_;
  rt::Ptr<ImageLooks> looks_ = rt::make<ImageLooks>(
      ImageLooks::Tools{[this](const rt::String& path) { return look(path); },
                        [this](const rt::String& vm) { answered_.push_back(vm.str()); }},
      clock_);
};

TEST_F(ImageLooksTest, TellWhenTheyAreOverAndThenWhatIsThereOnce) {
  EXPECT_EQ(ask("a", "/image"), -1);
  waitFor(1);
  EXPECT_THAT(takeAnswered(), ElementsAre("a"));
  EXPECT_EQ(ask("a", "/image"), 6);
  EXPECT_EQ(ask("a", "/image"), -1) << "the next start wants to know anew";
}

TEST_F(ImageLooksTest, AreNotBelievedForLong) {
  ask("a", "/image");
  waitFor(1);
  clock_->advance(rt::Seconds(0.6));
  EXPECT_EQ(ask("a", "/image"), -1);
}

TEST_F(ImageLooksTest, AtAnotherPathAnswerNothing) {
  ask("a", "/image");
  waitFor(1);
  EXPECT_EQ(ask("a", "/other.img"), -1);
  waitFor(2);
  EXPECT_EQ(ask("a", "/other.img"), 10);
}

TEST_F(ImageLooksTest, OfAllVmsAtOnePathAreOne) {
  ask("a", "/hangs");
  while (gate_.counted() == 0) sched_yield();
  ask("b", "/hangs");
  gate_.open();
  waitFor(2);
  EXPECT_THAT(takeAnswered(), UnorderedElementsAre("a", "b"));
  EXPECT_EQ(ask("a", "/hangs"), 6);
  EXPECT_EQ(ask("b", "/hangs"), 6);
  EXPECT_EQ(gate_.counted(), 1U);
}

TEST_F(ImageLooksTest, ThatHangHoldUpNoOther) {
  for (int i = 0; i < 20; ++i) ask("a", ("/hangs" + std::to_string(i)).c_str());
  ask("b", "/image");
  waitFor(1);
  EXPECT_THAT(takeAnswered(), ElementsAre("b"));
}

TEST_F(ImageLooksTest, ThatHangAreGivenUpAfterAWhile) {
  ask("a", "/hangs");
  clock_->advance(rt::Seconds(patience - 0.1));
  EXPECT_THAT(answered_, IsEmpty());
  clock_->advance(rt::Seconds(0.1));
  EXPECT_THAT(takeAnswered(), ElementsAre("a"));
  const auto facts = looks_->facts("a", "/hangs");
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->error, ETIMEDOUT);
}

TEST_F(ImageLooksTest, ThatWereGivenUpAreNotBegunAgainAndAreTrueInTheEnd) {
  ask("a", "/hangs");
  clock_->advance(rt::Seconds(patience));
  ask("a", "/hangs");
  clock_->advance(rt::Seconds(60));
  takeAnswered();
  EXPECT_EQ(ask("a", "/hangs"), -2) << "at once, for it is known";
  EXPECT_EQ(ask("b", "/hangs"), -2);
  gate_.open();
  waitFor(2);
  EXPECT_THAT(takeAnswered(), UnorderedElementsAre("a", "b")) << "one look, and its answer";
  EXPECT_EQ(ask("a", "/hangs"), 6);
}

TEST_F(ImageLooksTest, AreSoManyAtOnceAndTheOthersTakeTheirTurn) {
  for (size_t i = 0; i < ImageLooks::mostLooks; ++i)
    ask("a", ("/hangs" + std::to_string(i)).c_str());
  while (gate_.counted() < ImageLooks::mostLooks) sched_yield();
  ask("b", "/image");
  clock_->advance(rt::Seconds(patience));
  EXPECT_EQ(ask("b", "/image"), -2) << "nobody had the time";
  EXPECT_EQ(gate_.counted(), ImageLooks::mostLooks);
  takeAnswered();
  gate_.open();
  waitFor(ImageLooks::mostLooks + 1);
  EXPECT_EQ(ask("b", "/image"), 6);
}

TEST_F(ImageLooksTest, TellNothingToAVmThatIsForgotten) {
  ask("a", "/hangs");
  ask("b", "/hangs");
  looks_->forget("a");
  gate_.open();
  waitFor(1);
  EXPECT_THAT(takeAnswered(), ElementsAre("b"));
}

TEST_F(ImageLooksTest, ThatHangKeepNobodyFromEnding) {
  ask("a", "/hangs");
  looks_ = nullptr;
  EXPECT_EQ(clock_->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(ImageLooksTest, LeaveNothingToWakeUpFor) {
  ask("a", "/image");
  waitFor(1);
  EXPECT_EQ(clock_->nextWakeUpTime(), rt::Seconds::infinity());
}

}  // namespace
}  // namespace host
