// The fields of a VM that operators set: all there is to say of each, once.
//
// The command line, its completion, help and tables, the check of a configuration and the rule of
// restarts read this table. A field is an attribute of the record that a row of its table is.
// CONTRIBUTING.md says how one is added.
#pragma once

#include <span>
#include <string_view>

#include "model/VmConfigCheck.h"
#include "runtime/entity/Entity.h"

namespace model {

struct VmField {
  // What its value is, and so how it is typed.
  enum class Kind : uint8_t { truth, number, mebibytes, processors, text, path, macAddr };

  std::string_view table;  // that it stands in, see Tables.h
  std::string_view name;   // the attribute's, and what it is called in 'vmctl set'
  Kind kind = Kind::text;
  bool isOfCard = false;  // each card has one: "vnicConfig.KEY.NAME"
  // Whether a guest that runs has a change of it at once; else it has it at its next start.
  bool takesEffectAtOnce = false;
  std::string_view help;  // beside its name in 'vmctl set --help'
  // Before its value in 'vmctl show', such as "Memory:"; empty: ctl/view/VmView.cpp shows it in a
  // way of its own.
  std::string_view title = {};
  // The option of 'vmctl add', what help calls its value, and what it says of it. Of a card: the
  // part of --nic. Empty: there is none.
  std::string_view option = {};
  std::string_view optionValue = {};
  std::string_view optionHelp = {};
  // What must be typed, said when what was typed is no value of that kind.
  std::string_view form = {};
  // What would be right, when a value of that kind, as text, is not; null: every one is.
  Right (*right)(std::string_view value, const MachineLimits& limits) = nullptr;
  // The values to choose among; null: there are too many.
  std::span<const std::string_view> (*values)() = nullptr;
};

// In the order of help: those of the VM, then those of each card.
std::span<const VmField> vmFields();
// Null: there is none of that name.
const VmField* vmFieldNamed(std::string_view name);
const VmField* cardFieldNamed(std::string_view name);

// The field's value, as text; `record` is a row of its table, or the card.
rt::String valueOf(const rt::Entity& record, const VmField& field);
// Makes it what was typed; false, and nothing is changed, when that is no value of its kind.
bool valueIs(rt::Entity& record, const VmField& field, const rt::String& typed);

// What is wrong with the fields of a record that is a row of that table, one of configuration but
// vmConfig.
std::vector<rt::Problem> fieldProblems(const rt::Entity& record, std::string_view table,
                                       const MachineLimits& limits);

// "256", "512M", "1.5G" or "1048576K"; nothing when that is no whole number of mebibytes.
std::optional<uint32_t> mebibytesOf(std::string_view text);

}  // namespace model
