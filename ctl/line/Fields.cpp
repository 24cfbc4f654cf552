#include "ctl/line/Fields.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <span>

#include "ctl/line/Exit.h"
#include "model/VmConfigCheck.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr std::string_view cardsPrefix = "vnicConfig.";
constexpr std::array<std::string_view, 6> vmFields{"enabled", "diskImage", "format",
                                                   "memory",  "vncPort",   "vnicConfig.KEY.FIELD"};
constexpr std::array<std::string_view, 3> cardFields{"model", "macAddr", "intfName"};
constexpr std::array<std::string_view, 4> cardParts{"key", "model", "mac", "intf"};

constexpr const char* memoryRight =
    "must be a number of mebibytes, or one with K, M or G behind it that makes whole mebibytes";
constexpr const char* cardRight =
    "must be [key=K,]model=M,mac=A,intf=I, such as "
    "model=e1000,mac=52:54:00:12:34:56,intf=Vlan100";
constexpr const char* macRight = "must be a MAC address, such as 52:54:00:12:34:56";
constexpr const char* portRight = "must be 5900 to 5910, or 0 for no display";

rt::String listed(std::span<const std::string_view> names) {
  rt::String text;
  for (const std::string_view name : names) (text += text.empty() ? "" : ", ") += name;
  return text;
}

// "there is no field 'memroy'; did you mean 'memory'?", or with a list of those there are.
Refusal unknown(const rt::String& what, const rt::String& name,
                std::span<const std::string_view> names) {
  const rt::String near = rt::didYouMean(name, names);
  return {Exit::usage, "there is no " + what + " '" + name + "'" +
                           (near.empty() ? rt::String("; there are ") + listed(names) : near)};
}

bool has(std::span<const std::string_view> names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// A field of a card: "vnicConfig.KEY.FIELD".
struct CardField {
  rt::String key;
  rt::String field;
};

CardField cardFieldOf(const rt::String& path) {
  const std::string_view rest = std::string_view(path).substr(cardsPrefix.size());
  const size_t dot = rest.rfind('.');
  if (dot == std::string_view::npos || dot == 0)
    throw Refusal(Exit::usage, "'" + path + "' names no card's field: write vnicConfig.KEY.FIELD");
  CardField field{rest.substr(0, dot), rest.substr(dot + 1)};
  if (!has(cardFields, field.field)) throw unknown("field of a card", field.field, cardFields);
  return field;
}

bool isCardField(std::string_view path) {
  return path.substr(0, cardsPrefix.size()) == cardsPrefix;
}

// Sets a card's field; false: the value is none.
bool cardIs(Vm::VnicConfig& card, std::string_view field, const rt::String& value) {
  if (field == "model") {
    card.modelIs(value);
  } else if (field == "intfName") {
    card.intfNameIs(value);
  } else {
    const auto mac = rt::EthAddr::fromText(value);
    if (!mac) return false;
    card.macAddrIs(*mac);
  }
  return true;
}

Refusal unknownField(const rt::String& field) {
  const rt::String last = std::string_view(field).substr(field.str().rfind('.') + 1);
  if (last == field || !has(cardFields, last)) return unknown("field", field, vmFields);
  return {Exit::usage,
          "there is no field '" + field + "'; did you mean '" + cardsPrefix + field + "'?"};
}

// Sets a field of the VM itself; returns what would do when the value does not.
const char* scalarIs(Vm::VmConfig& vm, const Assignment& assignment) {
  const rt::String& value = assignment.value;
  if (assignment.field == "enabled") {
    const auto enabled = rt::fromText<bool>(value);
    if (!enabled) return "must be true or false";
    vm.enabledIs(*enabled);
  } else if (assignment.field == "memory") {
    const auto memory = mebibytesOf(value);
    if (!memory) return memoryRight;
    vm.memoryIs(*memory);
  } else if (assignment.field == "vncPort") {
    const auto port = rt::fromText<uint32_t>(value);
    if (!port) return portRight;
    vm.vncPortIs(*port);
  } else if (assignment.field == "diskImage") {
    vm.diskImageIs(value);
  } else {
    throw unknownField(assignment.field);
  }
  return nullptr;
}

std::vector<std::string_view> keysOf(const Vm::VmConfig& vm) {
  std::vector<std::string_view> keys;
  keys.reserve(vm.vnicConfigs().size());
  for (const auto& [key, card] : vm.vnicConfigs()) keys.emplace_back(key);
  return keys;
}

// Which card each assignment is of, and which fields of cards that are not there yet are given.
using NewCards = std::map<rt::String, std::set<rt::String>>;

NewCards newCardsOf(const Vm::VmConfig& vm, const std::vector<Assignment>& assignments) {
  NewCards cards;
  for (const Assignment& assignment : assignments) {
    if (!isCardField(assignment.field)) continue;
    const CardField field = cardFieldOf(assignment.field);
    if (!vm.vnicConfigHas(field.key)) cards[field.key].insert(field.field);
  }
  return cards;
}

}  // namespace

Assignment assignmentOf(const rt::String& word, const char* example) {
  const size_t equals = word.str().find('=');
  if (equals == std::string::npos || equals == 0)
    throw Refusal(Exit::usage,
                  "'" + word + "' is refused: must be FIELD=VALUE, such as " + example);
  return {word.substr(0, equals), word.substr(equals + 1)};
}

void assign(Vm::VmConfig& vm, const std::vector<Assignment>& assignments,
            std::vector<rt::Problem>& problems) {
  const std::vector<std::string_view> keys = keysOf(vm);
  for (const auto& [key, fields] : newCardsOf(vm, assignments))
    if (fields.size() < cardFields.size())
      throw Refusal(Exit::noSuch, vm.name() + ": there is no card '" + key + "'" +
                                      rt::didYouMean(key, keys) +
                                      "; a new one needs model, macAddr and intfName");
  for (const Assignment& assignment : assignments) {
    if (isCardField(assignment.field)) {
      const CardField field = cardFieldOf(assignment.field);
      if (!cardIs(*vm.vnicConfigIs(field.key), field.field, assignment.value))
        problems.push_back({assignment.field, assignment.value, macRight});
    } else if (const char* const right = scalarIs(vm, assignment)) {
      problems.push_back({assignment.field, assignment.value, right});
    }
  }
}

std::optional<uint32_t> mebibytesOf(std::string_view text) {
  constexpr double kibi = 1024;
  const std::string_view letters = "KkMmGg";
  const size_t letter = text.empty() ? std::string_view::npos : letters.find(text.back());
  if (letter != std::string_view::npos) text.remove_suffix(1);
  const double unit = letter < 2 ? 1 / kibi : letter == 4 || letter == 5 ? kibi : 1;  // mebibytes
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (text.empty() || !isDigit(text.front()) || !isDigit(text.back())) return std::nullopt;
  if (text.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;
  const auto number = rt::numberFromText<double>(text);
  if (!number) return std::nullopt;
  const double mebibytes = *number * unit;  // exact, where it is whole
  if (mebibytes != std::floor(mebibytes) || mebibytes > std::numeric_limits<uint32_t>::max())
    return std::nullopt;
  return static_cast<uint32_t>(mebibytes);
}

Card cardOf(const rt::String& text) {
  std::map<rt::String, rt::String> parts;
  const std::string_view all = text;
  for (size_t begin = 0; begin <= all.size();) {
    const size_t comma = std::min(all.find(',', begin), all.size());
    const rt::String word(all.substr(begin, comma - begin));
    if (word.str().find('=') == std::string::npos)
      throw Refusal(Exit::usage, "card '" + text + "' is refused: " + cardRight);
    const Assignment part = assignmentOf(word, "model=e1000");
    if (!has(cardParts, part.field)) throw unknown("part of a card", part.field, cardParts);
    if (!parts.emplace(part.field, part.value).second)
      throw Refusal(Exit::usage,
                    "card '" + text + "' is refused: '" + part.field + "' must be there once");
    begin = comma + 1;
  }
  for (const char* needed : {"model", "mac", "intf"})
    if (parts.count(needed) == 0)
      throw Refusal(Exit::usage,
                    "card '" + text + "' is refused: must have " + rt::String(needed) + "=...");
  if (parts.count("key") != 0 && parts["key"].empty())
    throw Refusal(Exit::usage, "card '" + text + "' is refused: its key must not be empty");
  return {parts["key"], parts["model"], parts["mac"], parts["intf"]};
}

rt::String nextKey(const Vm::VmConfig& vm) {
  constexpr std::string_view prefix = "nic";
  uint32_t next = 0;
  for (const auto& [key, card] : vm.vnicConfigs()) {
    if (std::string_view(key).substr(0, prefix.size()) != prefix) continue;
    const auto number = rt::fromText<uint16_t>(key.substr(prefix.size()));
    if (number) next = std::max<uint32_t>(next, *number + 1U);
  }
  rt::String key = rt::format("nic%02u", next);
  for (const std::string_view other : keysOf(vm))
    if (std::string_view(key) <= other)
      throw Refusal(Exit::usage, vm.name() + ": no key nicNN comes behind that of card '" +
                                     rt::String(other) +
                                     "', and cards are numbered in key order: name a key");
  return key;
}

rt::String addCard(Vm::VmConfig& vm, const Card& card, std::vector<rt::Problem>& problems) {
  rt::String key = card.key.empty() ? nextKey(vm) : card.key;
  if (vm.vnicConfigHas(key))
    throw Refusal(Exit::conflict, vm.name() + ": there is a card '" + key +
                                      "' already: change it with 'vmctl set', or name another key");
  Vm::VnicConfig& added = *vm.vnicConfigIs(key);
  added.modelIs(card.model);
  added.intfNameIs(card.intf);
  if (!cardIs(added, "macAddr", card.mac))
    problems.push_back({cardsPrefix + key + ".macAddr", card.mac, macRight});
  return key;
}

}  // namespace ctl
