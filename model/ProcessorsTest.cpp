// Numbers of processors as they are typed and shown.
#include <gtest/gtest.h>

#include "model/Processors.h"

namespace model {
namespace {

TEST(Processors, AreShownAsTheyAreTyped) {
  for (const char* text : {"0", "1", "1.5", "0.25", "0.05", "16", "1000000.99"}) {
    const auto number = Processors::fromText(text);
    ASSERT_TRUE(number) << text;
    EXPECT_EQ(number->text(), text);
  }
}

TEST(Processors, AreKeptInHundredths) {
  EXPECT_EQ(Processors::fromText("1.5")->hundredths(), 150U);
  EXPECT_EQ(Processors::fromText("2.50")->text(), "2.5");
  EXPECT_EQ(Processors::fromText("3.00")->text(), "3");
}

TEST(Processors, AreNothingElse) {
  for (const char* text : {"", ".5", "1.", "1.5.0", "-1", "+1", "1e3", "1.234", " 1", "1 ",
                           "1000001", "99999999999999999999", "a"})
    EXPECT_FALSE(Processors::fromText(text)) << text;
}

}  // namespace
}  // namespace model
