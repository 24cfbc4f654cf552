#include <gmock/gmock.h>

#include "shim/decide/Replay.h"

namespace shim {
namespace {

TEST(Replay, IsAllThatThereWas) {
  Replay replay;
  EXPECT_EQ(replay.newest(), "");
  replay.add("ab");
  replay.add("c");
  EXPECT_EQ(replay.newest(), "abc");
}

TEST(Replay, IsTheNewestOfWhatWasMore) {
  Replay replay;
  std::string all;
  for (int i = 0; all.size() < 5 * Replay::capacity; i += 997) {
    const std::string line = std::string(300, static_cast<char>(i % 200)) + std::to_string(i);
    replay.add(line);
    all += line;
    const size_t size = std::min(all.size(), Replay::capacity);
    ASSERT_EQ(replay.newest(), all.substr(all.size() - size)) << i;
  }
}

TEST(Replay, IsTheEndOfOneLargePiece) {
  Replay replay;
  replay.add("old");
  replay.add(std::string(3 * Replay::capacity, 'x') + "end");
  EXPECT_EQ(replay.newest().size(), Replay::capacity);
  EXPECT_TRUE(replay.newest().ends_with("xend"));
}

}  // namespace
}  // namespace shim
