// What operators ask for once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/Intents.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class IntentsTest : public testing::Test {
 protected:
  static uint64_t restart(const char* doc) {
    return intentOf({.table = "vmIntent", .key = "web1", .doc = doc}).restart;
  }
  rt::fakes::TraceRecorder traces;
};

TEST_F(IntentsTest, AreTheNumberOfTheRestart) {
  EXPECT_EQ(restart(R"({"restart":3})"), 3U);
  EXPECT_EQ(restart(R"({"restart":9223372036854775807})"), 9223372036854775807U);
  EXPECT_EQ(restart("{}"), 0U);
  EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(IntentsTest, AreTheGuestThatIsGivenUp) {
  const Intent intent =
      intentOf({.table = "vmIntent", .key = "web1", .doc = R"({"restart":3,"remove":"4711.88"})"});
  EXPECT_EQ(intent.restart, 3U);
  EXPECT_EQ(intent.remove, "4711.88");
}

TEST_F(IntentsTest, AreTheTimeThatAGuestGets) {
  const Intent intent =
      intentOf({.table = "vmIntent", .key = "web1", .doc = R"({"stop":2,"within":0})"});
  EXPECT_EQ(intent.stop, 2U);
  EXPECT_EQ(intent.within, 0);
  EXPECT_EQ(intentOf({.table = "vmIntent", .key = "web1", .doc = R"({"stop":2})"}).within, -1);
}

TEST_F(IntentsTest, AreNoneWithAReportWhenTheyCannotBeRead) {
  EXPECT_EQ(restart(R"({"restart":-1})"), 0U);
  EXPECT_THAT(traces.take(1), ElementsAre(HasSubstr("vmIntent of VM web1: restart: '-1'")));
}

TEST_F(IntentsTest, AreReportedWithAllThatIsWrong) {
  EXPECT_EQ(restart(R"({"restart":"1","halt":2})"), 0U);
  EXPECT_THAT(traces.take(1), ElementsAre(testing::AllOf(HasSubstr("restart: '1' is refused"),
                                                         HasSubstr("halt: '2' is refused"))));
}

TEST_F(IntentsTest, AreNoneInADocumentThatIsNone) {
  EXPECT_EQ(restart("3"), 0U);
  EXPECT_EQ(traces.take(1).size(), 1U);
}

}  // namespace
}  // namespace host
