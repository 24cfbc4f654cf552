#include <gtest/gtest.h>

#include "model/UserName.h"
#include "runtime/base/Text.h"

namespace model {
namespace {

constexpr char lines[] =
    "root:x:0:0:root:/root:/bin/bash\nop1:x:1000:1000:,,,:/home/op1:/bin/sh\n:x:7:\nshort\n";

TEST(UserName, IsThatOfTheLineOfItsNumber) {
  EXPECT_EQ(userNameIn(lines, 0), "root");
  EXPECT_EQ(userNameIn(lines, 1000), "op1");
}

TEST(UserName, IsTheNumberOfOneWithoutALine) {
  for (const uint32_t uid : {4711U, 100U, 7U, 4294967295U})
    EXPECT_EQ(userNameIn(lines, uid), "uid " + rt::toText(uid));
  EXPECT_EQ(userNameIn("", 0), "uid 0");
}

TEST(UserName, IsNoLongerThanALineHasRoomFor) {
  const std::string longest(40, 'a');
  EXPECT_EQ(userNameIn(longest + "a:x:9:9\n", 9), "uid 9");
  EXPECT_EQ(userNameIn(longest + ":x:9:9\n", 9), rt::String(longest));
}

TEST(UserName, ShowsNoControlCharacter) {
  EXPECT_EQ(userNameIn("a\x1b[2J:x:9:9\n", 9).str().find('\x1b'), std::string::npos);
}

TEST(UserName, IsReadOfThisMachine) { EXPECT_EQ(userName(0), "root"); }

}  // namespace
}  // namespace model
