#include "ctl/view/TopView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "ctl/line/Json.h"
#include "ctl/view/StateView.h"
#include "model/GuestMemory.h"
#include "runtime/base/Format.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr uint64_t second = 1000;  // milliseconds
// With that, a line fits in 80 columns.
constexpr size_t longestName = 14;
constexpr size_t roomForNames = 100;  // columns of a terminal

// In a column of numbers, their ends below each other.
Cell number(const rt::String& text, int columns) {
  return {text.empty() ? rt::format("%*s", columns, "-")
                       : rt::format("%*s", columns, text.charPtr())};
}

rt::String amountOf(Rate rate) { return rate ? amountText(*rate) : rt::String(); }

rt::String percentOf(Rate rate) {
  if (!rate) return {};
  const double percent = *rate * 100;
  return rt::format(percent < 99.95 ? "%.1f" : "%.0f", percent);
}

uint64_t mebibytes(uint64_t bytes) { return bytes >> 20U; }

// "102/140M": what it has, of what it may have.
rt::String memoryOf(const GuestCounters& counters) {
  if (!counters.memory) return {};
  const rt::String has = rt::toText(mebibytes(*counters.memory));
  return (counters.memoryMax ? has + "/" + rt::toText(mebibytes(*counters.memoryMax)) : has) + "M";
}

rt::String ageOf(const GuestFacts& guest, uint64_t at) {
  return guest.startedAt == 0 ? rt::String() : ageText(guest.startedAt, at / second);
}

Ink inkOf(const rt::String& severity) {
  if (severity == "ok") return Ink::good;
  if (severity == "bad") return Ink::bad;
  return severity == "busy" ? Ink::busy : Ink::plain;
}

std::vector<size_t> busiestFirst(const TopPicture& picture) {
  std::vector<size_t> order(picture.sample.guests.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    return picture.rates[a].cpu.value_or(-1) > picture.rates[b].cpu.value_or(-1);
  });
  return order;
}

constexpr int rateColumns = 4;
constexpr int memoryColumns = 10;

rt::String nameOf(const GuestFacts& guest, const TableStyle& style) {
  const bool isNarrow = style.columns != 0 && style.columns < roomForNames;
  return isNarrow ? cutInside(guest.name, longestName) : guest.name;
}

std::vector<Cell> guestCells(const GuestFacts& guest, const GuestRates& rates, uint64_t at,
                             const TableStyle& style) {
  return {nameOf(guest, style),
          {guest.actual, inkOf(guest.severity)},
          ageOf(guest, at),
          number(percentOf(rates.cpu), rateColumns),
          number(memoryOf(guest.counters), memoryColumns),
          number(amountOf(rates.received()), rateColumns),
          number(amountOf(rates.sent()), rateColumns),
          number(amountOf(rates.read), rateColumns),
          number(amountOf(rates.written), rateColumns),
          number(amountOf(rates.drops()), rateColumns)};
}

void addLimits(std::vector<Cell>& cells, const GuestFacts& guest, const GuestRates& rates) {
  const bool isBounded = guest.cpuMax != model::Processors();
  cells.emplace_back(isBounded ? guest.cpuMax.text() : rt::String());
  cells.push_back(number(percentOf(rates.throttled), rateColumns));
  cells.emplace_back(guest.pid == 0 ? rt::String() : rt::toText(guest.pid));
}

// Its key and its interface below the guest's name and state.
std::vector<Cell> cardCells(const GuestFacts& guest, const GuestRates& rates, size_t index) {
  const CardRates& card = rates.cards[index];
  const rt::String& device = guest.counters.cards[index].device;
  return {"  " + guest.cards[index].key,
          guest.cards[index].interface,
          " ",
          " ",
          number(device, memoryColumns),
          number(amountOf(card.received), rateColumns),
          number(amountOf(card.sent), rateColumns),
          " ",
          " ",
          number(amountOf(card.drops), rateColumns),
          " ",
          " ",
          " "};
}

rt::String member(const char* name, std::optional<uint64_t> value) {
  return rt::String("\"") + name + "\":" + (value ? rt::toText(*value) : rt::String("null"));
}
rt::String member(const char* name, Rate value, const char* format) {
  return rt::String("\"") + name +
         "\":" + (value ? rt::format(format, *value) : rt::String("null"));
}
rt::String textMember(const char* name, const rt::String& text) {
  return rt::String("\"") + name + "\":" + (text.empty() ? rt::String("null") : quoted(text));
}

constexpr char oneDigit[] = "%.1f";

rt::String diskJson(const GuestCounters& counters, const GuestRates& rates) {
  if (!counters.disk) return "null";
  return "{" + member("readBytes", counters.disk->readBytes) + "," +
         member("writtenBytes", counters.disk->writtenBytes) + "," +
         member("reads", counters.disk->reads) + "," + member("writes", counters.disk->writes) +
         "," + member("readBytesPerSecond", rates.read, oneDigit) + "," +
         member("writtenBytesPerSecond", rates.written, oneDigit) + "}";
}

rt::String cardJson(const GuestFacts::Card& card, const CardFacts& facts, const CardRates& rates) {
  const auto count = [&](const char* name, uint64_t CardCounters::*counter) {
    return member(name, facts.counters ? std::optional((*facts.counters).*counter) : std::nullopt) +
           ",";
  };
  return "{" + textMember("key", card.key) + "," + textMember("interface", card.interface) + "," +
         textMember("device", facts.device) + R"(,"carrier":)" +
         (facts.carrier ? *facts.carrier ? "true" : "false" : "null") + "," +
         count("receivedBytes", &CardCounters::receivedBytes) +
         count("sentBytes", &CardCounters::sentBytes) +
         count("receivedPackets", &CardCounters::receivedPackets) +
         count("sentPackets", &CardCounters::sentPackets) +
         count("receivedDrops", &CardCounters::receivedDrops) +
         count("sentDrops", &CardCounters::sentDrops) +
         member("receivedBytesPerSecond", rates.received, oneDigit) + "," +
         member("sentBytesPerSecond", rates.sent, oneDigit) + "," +
         member("dropsPerSecond", rates.drops, oneDigit) + "}";
}

rt::String guestJson(const GuestFacts& guest, const GuestRates& rates) {
  const GuestCounters& counters = guest.counters;
  const bool isBounded = guest.cpuMax != model::Processors();
  rt::String cards;
  for (size_t i = 0; i < guest.cards.size(); ++i)
    cards += (i == 0 ? "" : ",") + cardJson(guest.cards[i], counters.cards[i], rates.cards[i]);
  const auto known = [](uint64_t value, uint64_t factor) {
    return value == 0 ? std::nullopt : std::optional(value * factor);
  };
  return "{" + textMember("name", guest.name) + "," + textMember("actual", guest.actual) + "," +
         textMember("severity", guest.severity) + "," +
         member("pid", known(static_cast<uint64_t>(guest.pid), 1)) + "," +
         member("startedAtMs", known(guest.startedAt, second)) + R"(,"cpu":{)" +
         member("usedUs", counters.cpu) + "," + member("throttledUs", counters.cpuThrottled) + "," +
         R"("max":)" + (isBounded ? guest.cpuMax.text() : rt::String("null")) + "," +
         member("used", rates.cpu, "%.4f") + "," + member("throttled", rates.throttled, "%.4f") +
         R"(},"memory":{)" + member("bytes", counters.memory) + "," +
         member("maxBytes", counters.memoryMax) + "," +
         member("configuredBytes", known(guest.memory, 1ULL << 20U)) + R"(},"disk":)" +
         diskJson(counters, rates) + R"(,"cards":[)" + cards + "]}";
}

}  // namespace

rt::String amountText(double amount) {
  constexpr std::array units{"", "k", "M", "G", "T"};
  size_t unit = 0;
  while (amount >= 999.5 && unit + 1 < units.size()) {
    amount /= 1000;
    ++unit;
  }
  return rt::format(unit > 0 && amount < 9.95 ? "%.1f%s" : "%.0f%s", amount, units[unit]);
}

rt::String topHead(const TopPicture& picture) {
  double processors = 0;
  uint64_t memory = 0;
  for (size_t i = 0; i < picture.rates.size(); ++i) {
    processors += picture.rates[i].cpu.value_or(0);
    memory += picture.sample.guests[i].counters.memory.value_or(0);
  }
  const size_t count = picture.sample.guests.size();
  const rt::String all = model::grouped(mebibytes(picture.share.memory));
  return rt::toText(count) + (count == 1 ? " guest: " : " guests: ") +
         rt::format("%.2f of %g processors, ", processors, picture.share.processors) +
         model::grouped(mebibytes(memory)) +
         (picture.share.memory == 0 ? rt::String() : " of " + all) + " MiB" +
         (picture.isStale ? ", vmagentd is not running" : "");
}

Table topTable(const TopPicture& picture, Format format, const TableStyle& style) {
  std::vector<Cell> headers{"NAME",
                            "ACTUAL",
                            "UP",
                            number("CPU%", rateColumns),
                            number("MEM", memoryColumns),
                            number("RX/s", rateColumns),
                            number("TX/s", rateColumns),
                            number("RD/s", rateColumns),
                            number("WR/s", rateColumns),
                            number("DROP", rateColumns)};
  const bool isWide = format == Format::wide;
  if (isWide) headers.insert(headers.end(), {"CPUMAX", "HELD%", "PID"});
  Table table(std::move(headers));
  for (const size_t i : busiestFirst(picture)) {
    const GuestFacts& guest = picture.sample.guests[i];
    const GuestRates& rates = picture.rates[i];
    std::vector<Cell> cells = guestCells(guest, rates, picture.sample.at, style);
    if (isWide) addLimits(cells, guest, rates);
    table.row(std::move(cells));
    for (size_t card = 0; isWide && card < guest.cards.size(); ++card)
      table.row(cardCells(guest, rates, card));
  }
  return table;
}

rt::String topScreen(const TopPicture& picture, Format format, const TableStyle& style,
                     size_t lines) {
  constexpr std::string_view hint = "   q quits";
  rt::String all = cut(topHead(picture) + hint, style.columns) + "\n" +
                   topTable(picture, format, style).text(style);
  size_t end = 0;
  for (size_t line = 0; line < lines && end < all.size(); ++line)
    end = std::min(all.str().find('\n', end), all.size() - 1) + 1;
  return all.substr(0, end);
}

rt::String topJson(const TopPicture& picture, Rate interval) {
  rt::String json =
      jsonHead(picture.isStale) + member("atMs", picture.sample.at) + "," +
      member("clockMs", static_cast<uint64_t>(std::lround(picture.sample.clock.value() * 1000))) +
      "," + member("intervalSeconds", interval, "%.3f") + R"(,"processors":)" +
      rt::format("%g", picture.share.processors) + "," +
      member("memoryBytes",
             picture.share.memory == 0 ? std::nullopt : std::optional(picture.share.memory)) +
      R"(,"guests":[)";
  for (size_t i = 0; i < picture.sample.guests.size(); ++i)
    json += (i == 0 ? "" : ",") + guestJson(picture.sample.guests[i], picture.rates[i]);
  return onTerminal(json + "]}");
}

}  // namespace ctl
