#include "ctl/line/Fields.h"

#include <algorithm>
#include <map>
#include <set>

#include "ctl/line/Exit.h"
#include "model/Tables.h"
#include "model/VmFields.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr std::string_view cardsPrefix = "vnicConfig.";
using Names = std::vector<std::string_view>;

constexpr const char* cardRight =
    "must be intf=I[,model=M][,mac=A][,key=K], such as intf=Vlan100 or "
    "intf=Vlan100,model=e1000,mac=52:54:00:12:34:56";

Names vmFieldNames() {
  Names names;
  for (const model::VmField& field : model::vmFields())
    if (!field.isOfCard) names.push_back(field.name);
  names.push_back("vnicConfig.KEY.FIELD");
  return names;
}

Names cardFieldNames() {
  Names names;
  for (const model::VmField& field : model::vmFields())
    if (field.isOfCard) names.push_back(field.name);
  return names;
}

// What --nic takes.
Names cardParts() {
  Names names{"key"};
  for (const model::VmField& field : model::vmFields())
    if (field.isOfCard && !field.option.empty()) names.push_back(field.option);
  return names;
}

// "a, b, c", or with another word before the last.
rt::String listed(const Names& names, const char* last = ", ") {
  rt::String text;
  for (const std::string_view& name : names)
    ((text += text.empty() ? "" : &name == &names.back() ? last : ", ")) += name;
  return text;
}

// "there is no field 'memroy'; did you mean 'memory'?", or with a list of those there are.
Refusal unknown(const rt::String& what, const rt::String& name, const Names& names) {
  const rt::String near = rt::didYouMean(name, names);
  return {Exit::usage, "there is no " + what + " '" + name + "'" +
                           (near.empty() ? rt::String("; there are ") + listed(names) : near)};
}

bool has(const Names& names, std::string_view name) {
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
  if (!model::cardFieldNamed(field.field))
    throw unknown("field of a card", field.field, cardFieldNames());
  return field;
}

bool isCardField(std::string_view path) {
  return path.substr(0, cardsPrefix.size()) == cardsPrefix;
}

// What a card's field is called, by its name or by its part of --nic; null: it is none.
const model::VmField* cardFieldMeant(std::string_view name) {
  for (const model::VmField& field : model::vmFields())
    if (field.isOfCard && (field.name == name || field.option == name)) return &field;
  return nullptr;
}

Refusal unknownField(const rt::String& field) {
  const size_t dot = field.str().rfind('.');
  const rt::String last = std::string_view(field).substr(dot + 1);
  const model::VmField* const ofCard = cardFieldMeant(last);
  if (!ofCard) return unknown("field", field, vmFieldNames());
  const rt::String key = dot == std::string::npos ? "KEY" : field.substr(0, dot);
  return {Exit::usage, "there is no field '" + field + "'; did you mean '" + cardsPrefix + key +
                           "." + ofCard->name + "'?"};
}

// Of two values for one field nobody knows which was meant.
void requireOnce(const std::vector<Assignment>& assignments) {
  std::set<rt::String> seen;
  for (const Assignment& assignment : assignments)
    if (!seen.insert(assignment.field).second)
      throw Refusal(Exit::usage, "'" + assignment.field + "' must be there once");
}

using Problems = std::vector<rt::Problem>;

rt::Entity& recordOf(const VmRecords& records, std::string_view table) {
  if (table == model::table::vmImage) return records.image;
  if (model::isOwn(table)) return records.own.record(table);
  return records.vm;
}

// Sets a field of the VM itself.
void assign(const VmRecords& records, const Assignment& assignment,
            const model::MachineLimits& limits, Problems& problems) {
  const model::VmField* const field = model::vmFieldNamed(assignment.field);
  if (!field) throw unknownField(assignment.field);
  const bool isOfConfig = field->table == model::table::vmConfig;
  rt::Entity& record = recordOf(records, field->table);
  if (!model::valueIs(record, *field, assignment.value))
    return problems.push_back({assignment.field, assignment.value, field->form});
  if (isOfConfig || !field->right) return;
  if (const auto right = field->right(model::valueOf(record, *field), limits))
    problems.push_back({assignment.field, assignment.value, *right});
}

// Sets a field of a card; `path` is what it is called.
void assign(Vm::VnicConfig& card, const Assignment& assignment, const rt::String& path,
            Problems& problems) {
  const model::VmField& field = *model::cardFieldNamed(assignment.field);
  if (!model::valueIs(card, field, assignment.value))
    problems.push_back({path, assignment.value, field.form});
}

Names keysOf(const Vm::VmConfig& vm) {
  Names keys;
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

void assign(const VmRecords& records, const std::vector<Assignment>& assignments,
            const model::MachineLimits& limits, Problems& problems) {
  requireOnce(assignments);
  Vm::VmConfig& vm = records.vm;
  const Names keys = keysOf(vm);
  const Names cardFields = cardFieldNames();
  for (const auto& [key, fields] : newCardsOf(vm, assignments))
    if (fields.size() < cardFields.size())
      throw Refusal(Exit::noSuch, vm.name() + ": there is no card '" + key + "'" +
                                      rt::didYouMean(key, keys) + "; a new one needs " +
                                      listed(cardFields, " and "));
  for (const Assignment& assignment : assignments) {
    if (isCardField(assignment.field)) {
      const CardField field = cardFieldOf(assignment.field);
      assign(*vm.vnicConfigIs(field.key), {field.field, assignment.value}, assignment.field,
             problems);
    } else {
      assign(records, assignment, limits, problems);
    }
  }
}

Card cardOf(const rt::String& text) {
  const Names names = cardParts();
  std::map<rt::String, rt::String> parts;
  const std::string_view all = text;
  for (size_t begin = 0; begin <= all.size();) {
    const size_t comma = std::min(all.find(',', begin), all.size());
    const rt::String word(all.substr(begin, comma - begin));
    if (word.str().find('=') == std::string::npos)
      throw Refusal(Exit::usage, "card '" + text + "' is refused: " + cardRight);
    const Assignment part = assignmentOf(word, "model=e1000");
    if (!has(names, part.field)) throw unknown("part of a card", part.field, names);
    if (!parts.emplace(part.field, part.value).second)
      throw Refusal(Exit::usage,
                    "card '" + text + "' is refused: '" + part.field + "' must be there once");
    begin = comma + 1;
  }
  const bool hasKey = parts.count("key") != 0;
  Card card{parts["key"], {}};
  for (const model::VmField& field : model::vmFields()) {
    if (!field.isOfCard || field.option.empty()) continue;
    const auto part = parts.find(field.option);
    if (part != parts.end())
      card.fields.push_back({field.name, part->second});
    else if (field.name == "intfName")
      throw Refusal(Exit::usage, "card '" + text + "' is refused: must have " + field.option +
                                     "=..., the interface of the switch it is bridged to");
  }
  if (hasKey && card.key.empty())
    throw Refusal(Exit::usage, "card '" + text + "' is refused: its key must not be empty");
  return card;
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

rt::String addCard(Vm::VmConfig& vm, const Card& card, const FreshMac& freshMac,
                   Problems& problems) {
  rt::String key = card.key.empty() ? nextKey(vm) : card.key;
  if (vm.vnicConfigHas(key))
    throw Refusal(Exit::conflict, vm.name() + ": there is a card '" + key +
                                      "' already: change it with 'vmctl set', or name another key");
  const auto isSaid = [&](std::string_view name) {
    return std::any_of(card.fields.begin(), card.fields.end(),
                       [&](const Assignment& field) { return field.field == name; });
  };
  const rt::EthAddr mac = isSaid("macAddr") ? rt::EthAddr() : freshMac(vm);
  Vm::VnicConfig& added = *vm.vnicConfigIs(key);
  added.macAddrIs(mac);
  added.modelIs(model::defaultModel);
  for (const Assignment& field : card.fields)
    assign(added, field, cardsPrefix + key + "." + field.field, problems);
  return key;
}

}  // namespace ctl
