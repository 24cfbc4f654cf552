#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>

#include "ctl/line/Exit.h"
#include "ctl/line/Moments.h"

namespace ctl {
namespace {

constexpr uint64_t now = 1'795'303'750;  // 2026-11-21 23:29:10 UTC

class Moments : public testing::Test {
 protected:
  Moments() {
    (void)setenv("TZ", "UTC", 1);
    tzset();
  }
  static uint64_t of(const char* text) { return momentOf(text, now, now - 7'000); }
  static uint64_t midnight() { return now - now % 86'400; }
};

TEST_F(Moments, AreSoLongAgo) {
  EXPECT_EQ(of("90s"), now - 90);
  EXPECT_EQ(of("1h"), now - 3'600);
  EXPECT_EQ(of("-1h"), now - 3'600);
  EXPECT_EQ(of("30m"), now - 1'800);
  EXPECT_EQ(of("2d"), now - 172'800);
  EXPECT_EQ(of("0s"), now);
}

TEST_F(Moments, AreDaysAndTheBoot) {
  EXPECT_EQ(of("today"), midnight());
  EXPECT_EQ(of("yesterday"), midnight() - 86'400);
  EXPECT_EQ(of("boot"), now - 7'000);
  EXPECT_EQ(of("@1700000000"), 1'700'000'000U);
  EXPECT_THROW(momentOf("boot", now, 0), Refusal);
}

TEST_F(Moments, AreWrittenOut) {
  EXPECT_EQ(of("2026-11-21"), 1'795'219'200U);
  EXPECT_EQ(of("2026-11-21 22:50"), 1'795'301'400U);
  EXPECT_EQ(of("2026-11-21 22:50:07"), 1'795'301'407U);
}

TEST_F(Moments, OfADayThatAreStillToComeWereYesterday) {
  const uint64_t time = now % 86'400;
  char text[16];
  const auto later = static_cast<time_t>(midnight() + (time + 60) % 86'400);
  (void)std::strftime(text, sizeof text, "%H:%M:%S", std::gmtime(&later));
  EXPECT_EQ(of(text), now + 60 - 86'400);
  const auto earlier = static_cast<time_t>(now - 60);
  (void)std::strftime(text, sizeof text, "%H:%M:%S", std::gmtime(&earlier));
  EXPECT_EQ(of(text), now - 60);
}

TEST_F(Moments, ThatAreNoneOrStillToComeAreRefused) {
  for (const char* text : {"", "h", "1", "-", "1y", "tomorrow", "25:00", "12:00x", "2026-13-01",
                           "@", "@x", "99999999999999999999s"})
    EXPECT_THROW(of(text), Refusal) << text;
  EXPECT_THROW(of("2126-11-21"), Refusal);
  EXPECT_THROW(of("@99999999999"), Refusal);
}

TEST_F(Moments, AreShownWithADateOnOtherDaysOnly) {
  EXPECT_EQ(clockText(midnight() + 5, now), "00:00:05");
  EXPECT_EQ(clockText(midnight() - 5, now).str().substr(11), "23:59:55");
  EXPECT_EQ(clockText(midnight() - 5, now).size(), 19U);
}

}  // namespace
}  // namespace ctl
