#include <gmock/gmock.h>

#include "shim/decide/PtyBacklog.h"

namespace shim {
namespace {

TEST(PtyBacklog, KeepsWhatWasNotTaken) {
  PtyBacklog backlog;
  EXPECT_TRUE(backlog.add("abc"));
  backlog.take(1);
  EXPECT_TRUE(backlog.add("de"));
  EXPECT_EQ(backlog.waiting(), "bcde");
  backlog.take(4);
  EXPECT_EQ(backlog.waiting(), "");
}

TEST(PtyBacklog, DropsTheOldestAndSaysSo) {
  PtyBacklog backlog;
  EXPECT_TRUE(backlog.add(std::string(PtyBacklog::capacity, 'a')));
  EXPECT_FALSE(backlog.add("bc"));
  EXPECT_EQ(backlog.waiting(), std::string(PtyBacklog::capacity - 2, 'a') + "bc");
  EXPECT_FALSE(backlog.add(std::string(2 * PtyBacklog::capacity, 'd') + "e"));
  EXPECT_EQ(backlog.waiting(), std::string(PtyBacklog::capacity - 1, 'd') + "e");
}

TEST(PtyBacklog, GivesWhatItIsGivenHoweverItIsTaken) {
  PtyBacklog backlog;
  std::string given;
  std::string taken;
  for (int i = 0; i < 2'000; ++i) {
    const std::string bytes(static_cast<size_t>(i % 90), static_cast<char>('a' + i % 26));
    given += bytes;
    ASSERT_TRUE(backlog.add(bytes));
    const std::string some(backlog.waiting().substr(0, 50));
    taken += some;
    backlog.take(some.size());
  }
  taken += backlog.waiting();
  EXPECT_EQ(taken, given);
}

}  // namespace
}  // namespace shim
