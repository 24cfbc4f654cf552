// What becomes of a guest that runs already.
#include <gtest/gtest.h>

#include "host/guests/GuestFate.h"

namespace host {
namespace {

constexpr RowWord allRows[] = {RowWord::none, RowWord::unclear, RowWord::off, RowWord::on};

TEST(GuestFate, IsItsEndOnceItsOwnRowWasRemovedWhateverElseIsSo) {
  for (const RowWord row : allRows)
    for (const bool isGivenUp : {false, true})
      for (const bool canBeDriven : {false, true})
        EXPECT_EQ(fateOf({row, true, isGivenUp, canBeDriven}), GuestFate::ends);
}

TEST(GuestFate, IsToGoOnInNoConfigurationUntilItIsGivenUp) {
  for (const bool canBeDriven : {false, true}) {
    EXPECT_EQ(fateOf({RowWord::none, false, false, canBeDriven}), GuestFate::unknown);
    EXPECT_EQ(fateOf({RowWord::none, false, true, canBeDriven}), GuestFate::ends);
  }
}

TEST(GuestFate, IsWhatTheRowSaysThoughItWasGivenUpBefore) {
  for (const bool isGivenUp : {false, true})
    for (const bool canBeDriven : {false, true}) {
      EXPECT_EQ(fateOf({RowWord::off, false, isGivenUp, canBeDriven}), GuestFate::ends);
      EXPECT_EQ(fateOf({RowWord::unclear, false, isGivenUp, canBeDriven}), GuestFate::waits);
      EXPECT_EQ(fateOf({RowWord::on, false, isGivenUp, canBeDriven}),
                canBeDriven ? GuestFate::takenUp : GuestFate::ends);
    }
}

}  // namespace
}  // namespace host
