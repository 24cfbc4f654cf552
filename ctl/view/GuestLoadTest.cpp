// Rates of what guests take, between two samples.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ctl/view/GuestLoad.h"

namespace ctl {
namespace {

struct RateCase {
  const char* of;
  std::optional<uint64_t> before;
  std::optional<uint64_t> now;
  double seconds;
  Rate rate;
};

TEST(GuestLoad, RateIsNeverNegativeAndNeverInvented) {
  const RateCase cases[] = {{"a counter that grows", 100, 300, 2, 100.0},
                            {"one that stands", 100, 100, 2, 0.0},
                            {"one that goes back", 100, 99, 2, {}},
                            {"one that begins", {}, 300, 2, {}},
                            {"one that is gone", 100, {}, 2, {}},
                            {"no time", 100, 300, 0, {}},
                            {"a clock that goes back", 100, 300, -1, {}},
                            {"the greatest there is", 0, UINT64_MAX, 1, 18446744073709551616.0}};
  for (const RateCase& each : cases)
    EXPECT_EQ(rateOf(each.before, each.now, rt::Seconds(each.seconds)), each.rate) << each.of;
}

GuestFacts guest(const char* name, uint64_t cpu, const char* run = "a") {
  GuestFacts facts;
  facts.name = name;
  facts.counters.run = run;
  facts.counters.cpu = cpu;
  facts.counters.cpuThrottled = cpu / 10;
  facts.counters.disk = DiskCounters{cpu, 2 * cpu, 0, 0};
  return facts;
}

GuestFacts withCard(GuestFacts facts, const char* key, const char* device, uint64_t received) {
  facts.cards.push_back({key, "Ethernet1", "52:54:00:00:00:01"});
  CardFacts card{device, {}, {}};
  if (*device != '\0') card.counters = CardCounters{received, 2 * received, 0, 0, received, 1};
  facts.counters.cards.push_back(card);
  return facts;
}

Sample sample(double clock, std::vector<GuestFacts> guests) {
  return {1, rt::Seconds(clock), std::move(guests)};
}

TEST(GuestLoad, IsMeasuredInProcessorsAndBytesASecond) {
  const Sample before = sample(10, {guest("web1", 1'000'000)});
  const auto rates = ratesOf(&before, sample(12, {guest("web1", 4'000'000)}));
  ASSERT_EQ(rates.size(), 1U);
  EXPECT_DOUBLE_EQ(*rates[0].cpu, 1.5);
  EXPECT_DOUBLE_EQ(*rates[0].throttled, 0.15);
  EXPECT_DOUBLE_EQ(*rates[0].read, 1'500'000);
  EXPECT_DOUBLE_EQ(*rates[0].written, 3'000'000);
  EXPECT_FALSE(rates[0].received());
}

TEST(GuestLoad, OfTheFirstSampleIsUnknown) {
  const auto rates = ratesOf(nullptr, sample(12, {withCard(guest("web1", 1), "nic00", "m0", 1)}));
  ASSERT_EQ(rates.size(), 1U);
  EXPECT_FALSE(rates[0].cpu);
  ASSERT_EQ(rates[0].cards.size(), 1U);
  EXPECT_FALSE(rates[0].cards[0].received);
}

TEST(GuestLoad, OfAGuestThatCameOrWentDisturbsNoOther) {
  const Sample before = sample(10, {guest("gone", 5), guest("web1", 0)});
  const auto rates = ratesOf(&before, sample(11, {guest("new", 7), guest("web1", 1'000'000)}));
  ASSERT_EQ(rates.size(), 2U);
  EXPECT_FALSE(rates[0].cpu);
  EXPECT_EQ(rates[1].cpu, 1.0);
}

TEST(GuestLoad, OfAnotherRunIsUnknownThoughItsCountersGrew) {
  const Sample before = sample(10, {guest("web1", 5, "a")});
  const auto rates = ratesOf(&before, sample(11, {guest("web1", 7, "b")}));
  EXPECT_FALSE(rates[0].cpu);
  EXPECT_FALSE(rates[0].read);
}

TEST(GuestLoad, OfCardsIsByTheirKeysAndTheirDevices) {
  GuestFacts was = withCard(guest("web1", 1), "nic01", "macvtap1", 50);
  was = withCard(was, "nic02", "macvtap2", 50);
  GuestFacts is = withCard(guest("web1", 1), "nic00", "macvtap0", 100);
  is = withCard(is, "nic01", "macvtap1", 150);
  is = withCard(is, "nic02", "macvtap9", 150);
  is = withCard(is, "nic03", "", 0);
  const Sample before = sample(10, {was});
  const auto rates = ratesOf(&before, sample(12, {is}));
  ASSERT_EQ(rates[0].cards.size(), 4U);
  EXPECT_FALSE(rates[0].cards[0].received);
  EXPECT_EQ(rates[0].cards[1].received, 50.0);
  EXPECT_EQ(rates[0].cards[1].sent, 100.0);
  EXPECT_EQ(rates[0].cards[1].drops, 50.0);
  EXPECT_FALSE(rates[0].cards[2].received);
  EXPECT_FALSE(rates[0].cards[3].received);
  EXPECT_EQ(rates[0].received(), 50.0);
  EXPECT_EQ(rates[0].sent(), 100.0);
}

TEST(GuestLoad, OfCountersThatBeganAnewIsUnknown) {
  const Sample before = sample(10, {withCard(guest("web1", 9), "nic00", "macvtap0", 50)});
  const auto rates =
      ratesOf(&before, sample(11, {withCard(guest("web1", 1), "nic00", "macvtap0", 40)}));
  EXPECT_FALSE(rates[0].cpu);
  EXPECT_FALSE(rates[0].received());
}

}  // namespace
}  // namespace ctl
