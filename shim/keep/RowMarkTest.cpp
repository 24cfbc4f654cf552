// The row that a shim's guest is of, as its environment tells.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "shim/keep/RowMark.h"

namespace shim {
namespace {

class RowMarkTest : public testing::Test {
 protected:
  ~RowMarkTest() override {
    unsetenv("VMAGENT_STORE");
    unsetenv("VMAGENT_ROW");
  }
  // What the daemon gave this process.
  static void toldAtStart(const char* store, const char* row) {
    setenv("VMAGENT_STORE", store, 1);
    setenv("VMAGENT_ROW", row, 1);
  }
  static std::string told(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "none";
  }
};

TEST_F(RowMarkTest, IsWrittenOverWhatTheProcessWasToldAtItsStart) {
  toldAtStart("aaaa1111", "00000000000000000007");
  const RowMark mark;
  EXPECT_TRUE(mark.rowIs({"bbbb2222", 42}));
  EXPECT_EQ(told("VMAGENT_STORE"), "bbbb2222");
  EXPECT_EQ(told("VMAGENT_ROW"), "42");
  EXPECT_TRUE(mark.rowIs({"cc", 123456789})) << "the room stays";
  EXPECT_EQ(told("VMAGENT_STORE"), "cc");
  EXPECT_EQ(told("VMAGENT_ROW"), "123456789");
}

TEST_F(RowMarkTest, LeavesNothingOfALongerOneBefore) {
  toldAtStart("aaaa1111", "00000000000000000007");
  EXPECT_TRUE(RowMark().rowIs({"b", 1}));
  const char* const store = std::getenv("VMAGENT_STORE");
  EXPECT_EQ(std::string(store, 8), std::string("b\0\0\0\0\0\0\0", 8));
}

TEST_F(RowMarkTest, StaysAsItWasWhereThereIsNoRoom) {
  toldAtStart("aaaa1111", "07");
  EXPECT_FALSE(RowMark().rowIs({"bbbb22223", 1}));
  EXPECT_FALSE(RowMark().rowIs({"bbbb2222", 100}));
  EXPECT_EQ(told("VMAGENT_STORE"), "aaaa1111");
  EXPECT_EQ(told("VMAGENT_ROW"), "07");
}

TEST_F(RowMarkTest, IsNoneOfAProcessThatWasToldNothing) {
  EXPECT_FALSE(RowMark().rowIs({"bbbb2222", 1}));
  EXPECT_EQ(told("VMAGENT_STORE"), "none");
}

}  // namespace
}  // namespace shim
