#include <gmock/gmock.h>

#include "guest/EventWords.h"
#include "shim/decide/Pictures.h"

namespace shim {
namespace {

namespace word = guest::event;
using testing::ElementsAre;
using testing::IsEmpty;

Step removal(const char* set) { return {"remove-fd", std::string("{\"fdset-id\":") + set + "}"}; }

class PicturesTest : public testing::Test {
 protected:
  PicturesTest() { pictures.take(word::resumed); }
  void draw(uint64_t number) {
    pictures.begin(number);
    pictures.end();
  }
  Pictures pictures;
};

TEST_F(PicturesTest, ThatRunsAreRemovedOnce) {
  draw(1);
  EXPECT_THAT(pictures.removals(), IsEmpty());
  pictures.take(word::paused);
  pictures.take(word::resumed);
  EXPECT_THAT(pictures.removals(), IsEmpty());
}

TEST_F(PicturesTest, ThatStandsStillAreRemovedAgainWhenItRuns) {
  for (const auto& [begin, end] :
       {std::pair{word::paused, word::resumed}, {word::suspended, word::wokenUp}}) {
    pictures.take(begin);
    draw(1);
    draw(2);
    EXPECT_THAT(pictures.removals(), IsEmpty()) << begin;
    pictures.take(end);
    EXPECT_THAT(pictures.removals(), ElementsAre(removal("1001"), removal("1002"))) << begin;
    EXPECT_THAT(pictures.removals(), IsEmpty()) << begin;
  }
}

TEST_F(PicturesTest, ThatStoodStillMeanwhileAreRemovedAgainAtOnce) {
  pictures.begin(1);
  pictures.take(word::paused);
  pictures.take(word::resumed);
  EXPECT_THAT(pictures.removals(), IsEmpty()) << "it may be drawn to still";
  pictures.end();
  EXPECT_THAT(pictures.removals(), ElementsAre(removal("1001")));
}

TEST_F(PicturesTest, AreTheSameFromItsStopToItsNextChange) {
  EXPECT_FALSE(pictures.stillness());
  pictures.take(word::paused);
  const auto first = pictures.stillness();
  EXPECT_TRUE(first);
  pictures.take(word::diskError);
  EXPECT_EQ(pictures.stillness(), first);
  pictures.take(word::reset);
  EXPECT_TRUE(pictures.stillness());
  EXPECT_NE(pictures.stillness(), first);
  pictures.take(word::resumed);
  EXPECT_FALSE(pictures.stillness());
}

TEST_F(PicturesTest, ThatStandsStillAreSomeAndNoMore) {
  pictures.take(word::paused);
  for (uint64_t i = 0; i < Pictures::mostKept; ++i) {
    EXPECT_TRUE(pictures.hasRoom());
    draw(i);
  }
  EXPECT_FALSE(pictures.hasRoom());
  pictures.take(word::resumed);
  EXPECT_EQ(pictures.removals().size(), Pictures::mostKept);
  EXPECT_TRUE(pictures.hasRoom());
}

TEST(Pictures, OfAGuestThatWasNotLetRunAreKeptUntilItIs) {
  Pictures pictures;
  EXPECT_TRUE(pictures.stillness());
  pictures.begin(7);
  pictures.end();
  EXPECT_THAT(pictures.removals(), IsEmpty());
  pictures.take(word::resumed);
  EXPECT_THAT(pictures.removals(), ElementsAre(removal("1007")));
}

}  // namespace
}  // namespace shim
