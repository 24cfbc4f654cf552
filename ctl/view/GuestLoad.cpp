#include "ctl/view/GuestLoad.h"

#include <algorithm>

namespace ctl {

namespace {

constexpr double microsecond = 1e-6;

Rate scaled(Rate rate, double factor) { return rate ? Rate(*rate * factor) : rate; }

Rate sum(Rate one, Rate other) {
  if (!one || !other) return one ? one : other;
  return *one + *other;
}

template <class Counters, class Number>
std::optional<uint64_t> memberOf(const std::optional<Counters>& counters, Number member) {
  return counters ? std::optional<uint64_t>((*counters).*member) : std::nullopt;
}

// The same card's, if it has the same device still.
const CardFacts* cardBefore(const GuestFacts& before, const GuestFacts& now, size_t index) {
  for (size_t i = 0; i < before.cards.size() && i < before.counters.cards.size(); ++i)
    if (before.cards[i].key == now.cards[index].key)
      return before.counters.cards[i].device == now.counters.cards[index].device
                 ? &before.counters.cards[i]
                 : nullptr;
  return nullptr;
}

CardRates ratesOf(const CardFacts& before, const CardFacts& now, rt::Seconds time) {
  const auto rate = [&](uint64_t CardCounters::*member) {
    return rateOf(memberOf(before.counters, member), memberOf(now.counters, member), time);
  };
  return {rate(&CardCounters::receivedBytes), rate(&CardCounters::sentBytes),
          sum(rate(&CardCounters::receivedDrops), rate(&CardCounters::sentDrops))};
}

GuestRates ratesOf(const GuestFacts& before, const GuestFacts& now, rt::Seconds time) {
  GuestRates rates;
  if (before.counters.run == now.counters.run) {
    const auto rate = [&](std::optional<uint64_t> GuestCounters::*member) {
      return rateOf(before.counters.*member, now.counters.*member, time);
    };
    const auto diskRate = [&](uint64_t DiskCounters::*member) {
      return rateOf(memberOf(before.counters.disk, member), memberOf(now.counters.disk, member),
                    time);
    };
    rates.cpu = scaled(rate(&GuestCounters::cpu), microsecond);
    rates.throttled = scaled(rate(&GuestCounters::cpuThrottled), microsecond);
    rates.read = diskRate(&DiskCounters::readBytes);
    rates.written = diskRate(&DiskCounters::writtenBytes);
  }
  for (size_t i = 0; i < now.cards.size() && i < now.counters.cards.size(); ++i) {
    const CardFacts* const card = cardBefore(before, now, i);
    rates.cards.push_back(card ? ratesOf(*card, now.counters.cards[i], time) : CardRates{});
  }
  return rates;
}

Rate sumOf(const std::vector<CardRates>& cards, Rate CardRates::*member) {
  Rate all;
  for (const CardRates& card : cards) all = sum(all, card.*member);
  return all;
}

}  // namespace

Rate GuestRates::received() const { return sumOf(cards, &CardRates::received); }
Rate GuestRates::sent() const { return sumOf(cards, &CardRates::sent); }
Rate GuestRates::drops() const { return sumOf(cards, &CardRates::drops); }

Rate rateOf(std::optional<uint64_t> before, std::optional<uint64_t> now, rt::Seconds time) {
  if (!before || !now || *now < *before || !(time > rt::Seconds(0))) return std::nullopt;
  return static_cast<double>(*now - *before) / time.value();
}

std::vector<GuestRates> ratesOf(const Sample* before, const Sample& now) {
  std::vector<GuestRates> rates;
  rates.reserve(now.guests.size());
  for (const GuestFacts& guest : now.guests) {
    GuestRates none;
    none.cards.resize(guest.cards.size());
    rates.push_back(std::move(none));
    if (!before) continue;
    const auto same = std::find_if(before->guests.begin(), before->guests.end(),
                                   [&](const GuestFacts& each) { return each.name == guest.name; });
    if (same != before->guests.end())
      rates.back() = ratesOf(*same, guest, now.clock - before->clock);
  }
  return rates;
}

}  // namespace ctl
