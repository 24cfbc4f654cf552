#include <gmock/gmock.h>

#include "shim/decide/Succession.h"

namespace shim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr Time gone{5'000};

TEST(Succession, IsForADaemonThatIsGone) {
  EXPECT_FALSE(Succession(true).mayBeTakenOver());
  EXPECT_TRUE(Succession(false).mayBeTakenOver());
  Succession succession(true);
  succession.daemonEnded();
  EXPECT_TRUE(succession.mayBeTakenOver());
}

TEST(Succession, IsForOneDaemonAtATime) {
  Succession succession(false);
  succession.takenOver();
  EXPECT_FALSE(succession.mayBeTakenOver());
  succession.daemonEnded();
  EXPECT_TRUE(succession.mayBeTakenOver());
}

TEST(Succession, EndsTheGuestWhoseSuccessorIsGoneWhileTheDaemonLives) {
  Succession succession(false);
  succession.takenOver();
  succession.successorGone(gone);
  EXPECT_EQ(succession.deadline(), gone + seconds(1));
  EXPECT_FALSE(succession.timePassed(gone + milliseconds(999)));
  EXPECT_TRUE(succession.timePassed(gone + seconds(1)));
  EXPECT_FALSE(succession.timePassed(gone + seconds(2)));
  EXPECT_EQ(succession.deadline(), std::nullopt);
}

TEST(Succession, LeavesTheGuestWhoseDaemonIsSeenToEndJustAfterItsSuccessor) {
  Succession succession(false);
  succession.takenOver();
  succession.successorGone(gone);
  succession.daemonEnded();
  EXPECT_EQ(succession.deadline(), std::nullopt);
  EXPECT_FALSE(succession.timePassed(gone + seconds(1'000)));
}

TEST(Succession, LeavesTheGuestWhoseDaemonEndsBeforeItsSuccessor) {
  Succession succession(false);
  succession.takenOver();
  succession.daemonEnded();
  succession.successorGone(gone);
  EXPECT_FALSE(succession.timePassed(gone + seconds(1'000)));
}

TEST(Succession, IsNoLongerAtStakeOnceTakenOverAnew) {
  Succession succession(false);
  succession.takenOver();
  succession.successorGone(gone);
  succession.daemonEnded();
  succession.takenOver();
  EXPECT_FALSE(succession.timePassed(gone + seconds(1'000)));
}

}  // namespace
}  // namespace shim
