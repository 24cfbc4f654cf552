#include <gmock/gmock.h>

#include "guest/GuestUsers.h"

namespace guest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(GuestUsers, AreARangeThatIsWrittenAsTwoNumbers) {
  EXPECT_EQ(textOf(UserRange()), "60578-61183");
  EXPECT_EQ(userRangeFrom("60578-61183"), UserRange());
  EXPECT_EQ(userRangeFrom("7-7"), (UserRange{7, 7}));
  EXPECT_EQ((UserRange{7, 7}).size(), 1);
}

TEST(GuestUsers, AreNoneOfAnotherText) {
  for (const char* text : {"", "-", "7", "7-", "-7", "8-7", "7-8-9", "a-b", " 7-8", "7-8 ", "0-8",
                           "7-4294967295", "7-99999999999", "+7-8", "-7-8"})
    EXPECT_EQ(userRangeFrom(text), std::nullopt) << text;
}

TEST(GuestUsers, AreTakenThatSomebodyHas) {
  const char* const passwd =
      "root:x:0:0:root:/root:/bin/bash\n"
      "bob:x:60578:1000::/home/bob:/bin/sh\n"
      "eve:x:61183:1000::/home/eve:/bin/sh\n"
      "next:x:61184:60600::/:/bin/sh";
  EXPECT_THAT(takenUsers(passwd, UserRange()), ElementsAre(60578, 61183));
  EXPECT_THAT(takenUsers("staff:x:60600:bob\n", UserRange()), ElementsAre(60600));
}

TEST(GuestUsers, AreTakenByNoLineThatIsNone) {
  for (const char* lines : {"", "\n\n", "+::::::", "60600", "a:b", "a:b:60600x:", ":::60600"})
    EXPECT_THAT(takenUsers(lines, UserRange()), IsEmpty()) << lines;
}

}  // namespace
}  // namespace guest
