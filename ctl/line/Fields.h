// What a person writes about a VM, read into its record.
//
// What is no field is refused with Exit::usage, a card that is not there with Exit::noSuch; what is
// no value of its field is added to the problems, with what would do.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "runtime/base/Problem.h"
#include "runtime/records/VmConfig.h"

namespace ctl {

// "FIELD=VALUE".
struct Assignment {
  rt::String field;
  rt::String value;
};
Assignment assignmentOf(const rt::String& word, const char* example);

// All of them or, where there are problems, those that have none. A field is "enabled",
// "diskImage", "memory", "vncPort" or "vnicConfig.KEY.FIELD". A card that is not there is made when
// it is given all its fields.
void assign(Vm::VmConfig& vm, const std::vector<Assignment>& assignments,
            std::vector<rt::Problem>& problems);

// "256", "512M", "1.5G" or "1048576K"; nothing when that is no whole number of mebibytes.
std::optional<uint32_t> mebibytesOf(std::string_view text);

// "[key=K,]model=M,mac=A,intf=I".
struct Card {
  rt::String key;  // empty: the next one
  rt::String model;
  rt::String mac;
  rt::String intf;
};
Card cardOf(const rt::String& text);

// The key that follows those the VM has: nic00, nic01, ... The guest numbers its cards in key
// order, so it is refused to put one between others by accident.
rt::String nextKey(const Vm::VmConfig& vm);
// Returns its key. Refuses a key that is taken with Exit::conflict.
rt::String addCard(Vm::VmConfig& vm, const Card& card, std::vector<rt::Problem>& problems);

}  // namespace ctl
